"""What a machine sent: a folder, a zip or a single file, read in place and trusted in nothing.

A zip is read by this module's own reader: nothing is ever unpacked to a place that a name in it picks, and no size is believed before
the bytes are there. What cannot be read is one Problem each, and everything else is still read.
"""
from __future__ import annotations

import dataclasses
import io
import itertools
import os
import re
import stat
import struct
import zlib
from collections.abc import Callable, Iterable, Iterator
from typing import BinaryIO


@dataclasses.dataclass(frozen=True)
class Limits:
    entries: int = 20_000           # files and folders of one machine
    directory: int = 8 << 20        # bytes of a zip's list of contents
    file: int = 2 << 30             # bytes of one file in a zip, as it is when it is read
    machine: int = 4 << 30          # bytes of all files in a zip
    ratio: int = 250                # how much smaller the files of a zip may have become, each and all ...
    small: int = 16 << 20           # ... unless they are smaller than that, in bytes
    depth: int = 32                 # folders within folders


@dataclasses.dataclass(frozen=True)
class Problem:
    path: str  # in the machine; the machine's own name when it concerns all of it
    reason: str


@dataclasses.dataclass(frozen=True)
class File:
    """`path` is a name to show, with forward slashes, below the machine; it never climbs out and is unique in its machine."""

    path: str
    size: int
    opener: Callable[[], BinaryIO] = dataclasses.field(repr=False)

    def open(self) -> BinaryIO:
        """A stream from the first byte on, which in a zip cannot seek. Neither this nor its reads fail: a file that cannot be read
        ends early, and the machine then has one problem more."""
        return self.opener()


@dataclasses.dataclass
class Machine:
    name: str  # as it was given
    files: list[File] = dataclasses.field(default_factory=list)
    problems: list[Problem] = dataclasses.field(default_factory=list)  # may grow while the files are read
    _known: set[Problem] = dataclasses.field(default_factory=set, repr=False)

    def report(self, path: str, reason: str) -> None:
        problem = Problem(path, reason)
        if problem not in self._known:
            self._known.add(problem)
            self.problems.append(problem)


class _Bad(Exception):
    """Why a file, or what is left of it, is passed over."""


# Names

_RESERVED = re.compile(r"(?i)(?:con|prn|aux|nul|com[0-9]|lpt[0-9])(?:\..*)?\Z")
_CONTROL = re.compile("[\0-\x1f\x7f-\x9f\u200e\u200f\u202a-\u202e\u2066-\u2069\ud800-\udfff]")


def shown(name: str) -> str:
    """The name without anything that moves a terminal's cursor or turns the direction of writing."""
    return _CONTROL.sub("\ufffd", name)


def safe_name(name: str) -> tuple[str, str]:
    """A name that stays below its machine, and what was wrong with the one given (empty: nothing)."""
    parts = shown(name).replace("\\", "/").split("/")
    kept = [part.rstrip(" .") for part in parts]
    wrong = ""
    if ".." in (part.strip() for part in parts):
        wrong = "its name climbs out of the archive"
    elif parts[0] == "" or re.match(r"[A-Za-z]:", parts[0]):
        wrong = "its name is an absolute path"
    elif any(_RESERVED.match(part) for part in kept):
        wrong = "it has the name of a device"
    elif "\ufffd" in shown(name) and "\ufffd" not in name:
        wrong = "its name has control characters"
    kept = [("_" + part if _RESERVED.match(part) else part).replace(":", "_") for part in kept]
    return "/".join(part for part in kept if part)[:1024] or "_", wrong


class _Names:
    """Keeps the names of one machine apart."""

    def __init__(self) -> None:
        self.used: set[str] = set()
        self.last: dict[str, int] = {}  # the number that was given last

    def take(self, name: str) -> str:
        """The name itself, or one with a number behind it when it is used already."""
        key, taken = name.lower(), name
        while taken.lower() in self.used:
            self.last[key] = self.last.get(key, 1) + 1
            taken = f"{name} ({self.last[key]})"
        self.used.add(taken.lower())
        return taken


# Streams that end where they break off


class _Stream(io.RawIOBase):
    """The pieces of a source, one after the other. A piece that cannot be had is the end, and is reported."""

    def __init__(self, pieces: Iterator[bytes], report: Callable[[str], None]) -> None:
        self._pieces = pieces
        self._report = report
        self._rest = b""

    def readable(self) -> bool:
        return True

    def readinto(self, buffer) -> int:  # type: ignore[no-untyped-def]
        if not self._rest:
            try:
                self._rest = next(self._pieces, b"")
            except _Bad as failure:
                self._report(str(failure))
            except OSError as failure:
                self._report(f"cannot be read: {failure.strerror or failure}")
        taken, self._rest = self._rest[:len(buffer)], self._rest[len(buffer):]
        buffer[:len(taken)] = taken
        return len(taken)

    def close(self) -> None:
        if not self.closed and hasattr(self._pieces, "close"):
            self._pieces.close()
        super().close()


_PIECE = 1 << 16


def _stream(pieces: Iterator[bytes], report: Callable[[str], None]) -> BinaryIO:
    return io.BufferedReader(_Stream(pieces, report), _PIECE)


def _open_regular(path: bytes | str, follow: bool) -> int:
    """The handle of a file; never waits for what is a pipe or a device."""
    flags = os.O_RDONLY | os.O_NONBLOCK | os.O_NOCTTY | os.O_CLOEXEC | (0 if follow else os.O_NOFOLLOW)
    handle = os.open(path, flags)
    if not stat.S_ISREG(os.fstat(handle).st_mode):
        os.close(handle)
        raise _Bad("is no file")
    return handle


# Folders


class _RegularFile(io.FileIO):
    """A file that ends where it ended when it was found, however it grows, and where it cannot be read on."""

    def __init__(self, handle: int, size: int, report: Callable[[str], None]) -> None:
        super().__init__(handle, "rb")
        self._size = size
        self._report = report

    def readinto(self, buffer) -> int:  # type: ignore[no-untyped-def]
        try:
            return super().readinto(memoryview(buffer)[:max(0, self._size - self.tell())]) or 0
        except OSError as failure:
            self._report(f"cannot be read: {failure.strerror}")
            return 0


def _add_file(machine: Machine, names: _Names, path: bytes | str, name: str, size: int, follow: bool) -> None:
    """A file of the file system; from a folder no link is followed."""
    unique = names.take(name)

    def report(reason: str) -> None:
        machine.report(unique, reason)

    def opened() -> BinaryIO:
        try:
            return io.BufferedReader(_RegularFile(_open_regular(path, follow), size, report), _PIECE)
        except _Bad as failure:
            report(str(failure))
        except OSError as failure:
            report(f"cannot be read: {failure.strerror}")
        return io.BytesIO()

    machine.files.append(File(unique, size, opened))


def _read_folder(machine: Machine, folder: str, limits: Limits) -> None:
    names = _Names()
    folders = [(os.fsencode(folder), "")]  # bytes: a name need not be text
    count = 0
    while folders:
        path, prefix = folders.pop()
        try:
            with os.scandir(path) as found:
                entries = sorted(itertools.islice(found, limits.entries - count + 1), key=lambda entry: entry.name)
        except OSError as failure:
            machine.report(prefix.rstrip("/") or machine.name, f"cannot be read: {failure.strerror}")
            continue
        for entry in entries:
            name = prefix + shown(entry.name.decode("utf-8", "replace"))
            count += 1
            if count > limits.entries:
                machine.report(machine.name, f"more than {limits.entries} files and folders; the others are passed over")
                return
            try:
                kind = entry.stat(follow_symlinks=False)
            except OSError as failure:
                machine.report(name, f"cannot be read: {failure.strerror}")
                continue
            if stat.S_ISDIR(kind.st_mode):
                if name.count("/") < limits.depth:
                    folders.append((entry.path, name + "/"))
                else:
                    machine.report(name, f"more than {limits.depth} folders within each other")
            elif stat.S_ISLNK(kind.st_mode):
                machine.report(name, "is a link; links are not followed")
            elif not stat.S_ISREG(kind.st_mode):
                machine.report(name, "is a pipe, a socket or a device")
            elif name.lower().endswith(".zip"):
                machine.report(name, "is an archive within a folder; give it by itself")
            else:
                _add_file(machine, names, entry.path, name, kind.st_size, follow=False)


# Zips

_END = struct.Struct("<4s4H2IH")           # signature, disk, disk of the list, entries here, entries, size and place of the list, comment
_END64_PLACE = struct.Struct("<4sIQI")     # signature, disk, place, disks
_END64 = struct.Struct("<4sQ2H2I4Q")       # signature, size, made by, needed, disks, entries, entries, size and place of the list
_ENTRY = struct.Struct("<4s6H3I5H2I")
_LOCAL = struct.Struct("<4s5H3I2H")
_STORED, _DEFLATED = 0, 8
_METHODS = {1: "Shrink", 6: "Implode", 9: "Deflate64", 12: "bzip2", 14: "LZMA", 93: "Zstandard", 95: "XZ", 98: "PPMd", 99: "AES"}
_ENCRYPTED, _SIZES_BEHIND, _UTF8 = 0x1, 0x8, 0x800
_LONGEST_COMMENT = 0xFFFF


@dataclasses.dataclass
class _Entry:
    number: int
    raw_name: bytes
    name: str
    flags: int
    method: int
    crc: int
    packed: int
    size: int
    header: int      # where its own header begins
    mode: int = 0    # of Unix; 0 when another system wrote the entry
    folder: bool = False
    begin: int = 0   # where its bytes begin


def _at(file: BinaryIO, offset: int, size: int) -> bytes:
    """Exactly so many bytes from there."""
    if offset < 0:
        raise _Bad("breaks off")
    file.seek(offset)
    data = file.read(size)
    if len(data) != size:
        raise _Bad("breaks off")
    return data


def _find_list(file: BinaryIO, size: int, limits: Limits) -> tuple[bytes, int]:
    """The list of contents, and by how much all places in the archive are off because something stands before it."""
    tail_size = min(size, _LONGEST_COMMENT + _END.size)
    tail = _at(file, size - tail_size, tail_size)
    at = tail.rfind(b"PK\5\6", 0, max(0, len(tail) - _END.size + 4))
    if at < 0:
        raise _Bad("is no zip, or breaks off: its list of contents, which stands at the end, is missing")
    end = size - tail_size + at
    _, disk, list_disk, _, _, list_size, place, _ = _END.unpack_from(tail, at)
    behind = end
    if end >= _END64_PLACE.size:
        signature, _, place64, _ = _END64_PLACE.unpack(_at(file, end - _END64_PLACE.size, _END64_PLACE.size))
        if signature == b"PK\6\7" and 0xFFFFFFFF in (list_size, place):
            behind = end - _END64_PLACE.size - _END64.size
            if place64 < behind and _at(file, place64, 4) == b"PK\6\6":
                behind = place64
            signature, _, _, _, disk, list_disk, _, _, list_size, place = _END64.unpack(_at(file, behind, _END64.size))
            if signature != b"PK\6\6":
                raise _Bad("its list of contents cannot be found")
    if disk or list_disk:
        raise _Bad("is one part of an archive in several parts")
    if list_size > limits.directory:
        raise _Bad(f"its list of contents is larger than {limits.directory >> 20} MB")
    off = behind - list_size - place
    if off < 0:
        raise _Bad("its list of contents does not lie where it should")
    return _at(file, place + off, list_size), off


def _wide(extra: bytes, fields: list[int]) -> list[int]:
    """The fields of an entry whose values did not fit, from the record for large archives."""
    at = 0
    while at + 4 <= len(extra):
        kind, length = struct.unpack_from("<HH", extra, at)
        if kind == 1:
            record = io.BytesIO(extra[at + 4:at + 4 + length])
            return [int.from_bytes(record.read(8), "little") if field == 0xFFFFFFFF else field for field in fields]
        at += 4 + length
    return fields


def _entries(listed: bytes, off: int) -> Iterator[_Entry]:
    at = number = 0
    while at + _ENTRY.size <= len(listed):
        (signature, made_by, _, flags, method, _, _, crc, packed, size, name_size, extra_size, comment_size, _, _, attributes,
         header) = _ENTRY.unpack_from(listed, at)
        if signature != b"PK\1\2":
            raise _Bad("its list of contents is damaged")
        at += _ENTRY.size
        name = listed[at:at + name_size]
        size, packed, header = _wide(listed[at + name_size:at + name_size + extra_size], [size, packed, header])
        at += name_size + extra_size + comment_size
        if at > len(listed):
            raise _Bad("its list of contents is damaged")
        text = name.decode("utf-8" if flags & _UTF8 else "cp437", "replace")
        unix = made_by >> 8 in (3, 19)
        yield _Entry(number, name, text, flags, method, crc, packed, size, header + off, attributes >> 16 if unix else 0,
                     text.endswith(("/", "\\")) or bool(attributes & 0x10 and not size))
        number += 1
    if at != len(listed):
        raise _Bad("its list of contents is damaged")


def _entries_themselves(file: BinaryIO, size: int) -> Iterator[_Entry]:
    """What stands at the beginning of an archive without a list, as one that was cut off; the last file breaks off, too."""
    at = number = 0
    while at + _LOCAL.size <= size:
        signature, _, flags, method, _, _, crc, packed, unpacked, name_size, extra_size = _LOCAL.unpack(_at(file, at, _LOCAL.size))
        if signature != b"PK\3\4" or flags & _SIZES_BEHIND:
            return
        behind = _at(file, at + _LOCAL.size, name_size + extra_size)
        name = behind[:name_size]
        unpacked, packed = _wide(behind[name_size:], [unpacked, packed])
        text = name.decode("utf-8" if flags & _UTF8 else "cp437", "replace")
        yield _Entry(number, name, text, flags, method, crc, packed, unpacked, at, folder=text.endswith(("/", "\\")))
        number += 1
        at += _LOCAL.size + len(behind) + packed


def _reported(machine: Machine, entries: Iterator[_Entry]) -> Iterator[_Entry]:
    """The entries as far as they can be read."""
    try:
        yield from entries
    except _Bad as failure:
        machine.report(machine.name, str(failure))


def _find_begin(file: BinaryIO, entry: _Entry) -> None:
    signature, *_, name_size, extra_size = _LOCAL.unpack(_at(file, entry.header, _LOCAL.size))
    if signature != b"PK\3\4":
        raise _Bad("is not where the list of contents says")
    if _at(file, entry.header + _LOCAL.size, name_size) != entry.raw_name:
        raise _Bad("is called otherwise in the list of contents")
    entry.begin = entry.header + _LOCAL.size + name_size + extra_size


def _check(entry: _Entry, limits: Limits) -> None:
    kind = stat.S_IFMT(entry.mode)
    if kind == stat.S_IFLNK:
        raise _Bad("is a link; links are not followed")
    if kind not in (0, stat.S_IFREG):
        raise _Bad("is a pipe, a socket or a device")
    if entry.flags & _ENCRYPTED:
        raise _Bad("is encrypted")
    if entry.method not in (_STORED, _DEFLATED):
        raise _Bad(f"is compressed in a way that is not read here ({_METHODS.get(entry.method, entry.method)})")
    if entry.name.lower().endswith(".zip"):
        raise _Bad("is an archive within an archive; give it by itself")
    if entry.method == _STORED and entry.packed != entry.size:
        raise _Bad("has two different sizes")
    if entry.size > limits.file:
        raise _Bad(f"is larger than {limits.file >> 20} MB when unpacked")
    if entry.size > limits.small and entry.size > entry.packed * limits.ratio:
        raise _Bad(f"is a bomb: {entry.packed} bytes would become {entry.size}")


def _entry_pieces(path: str, entry: _Entry) -> Iterator[bytes]:
    """Its bytes: not one more than it declares, and only as far as they are right."""
    crc, left = 0, entry.size
    with io.FileIO(_open_regular(path, follow=True)) as file:
        for piece in _unpacked(file, entry):
            if len(piece) > left:
                raise _Bad("holds more than its size says")
            left -= len(piece)
            crc = zlib.crc32(piece, crc)
            yield piece
    if left:
        raise _Bad("breaks off")
    if crc != entry.crc:
        raise _Bad("has a wrong checksum; part of it may be damaged")


def _unpacked(file: BinaryIO, entry: _Entry) -> Iterator[bytes]:
    file.seek(entry.begin)
    packed = entry.packed
    inflater = zlib.decompressobj(-zlib.MAX_WBITS)
    while packed > 0:
        piece = file.read(min(packed, _PIECE))
        if not piece:
            raise _Bad("breaks off")
        packed -= len(piece)
        if entry.method == _STORED:
            yield piece
            continue
        while piece and not inflater.eof:
            try:
                unpacked = inflater.decompress(piece, _PIECE)
            except zlib.error:
                raise _Bad("is damaged: it cannot be unpacked") from None
            piece = inflater.unconsumed_tail
            if unpacked:
                yield unpacked


def _add_entry(machine: Machine, path: str, entry: _Entry, name: str) -> None:
    machine.files.append(
        File(name, entry.size, lambda: _stream(_entry_pieces(path, entry), lambda reason: machine.report(name, reason))))


def _read_zip(machine: Machine, path: str, file: BinaryIO, size: int, limits: Limits) -> None:
    try:
        listed, off = _find_list(file, size, limits)
        entries = _entries(listed, off)
    except _Bad as failure:
        machine.report(machine.name, str(failure))
        listed, entries = b"", _entries_themselves(file, size)
    names = _Names()
    found: list[tuple[_Entry, str]] = []
    packed = declared = 0
    for entry in _reported(machine, itertools.islice(entries, limits.entries + 1)):
        if entry.number >= limits.entries:
            machine.report(machine.name, f"more than {limits.entries} files and folders; the others are passed over")
            break
        if entry.folder:
            continue
        plain, wrong = safe_name(entry.name)
        name = names.take(plain)
        if wrong:
            machine.report(name, f"{wrong}; it is read under this one")
        elif name != plain:
            machine.report(name, "another file of the archive has the same name; it is read under this one")
        try:
            _check(entry, limits)
            _find_begin(file, entry)
            if listed and entry.begin + entry.packed > size - len(listed):
                raise _Bad("breaks off")
            if declared + entry.size > limits.machine:
                raise _Bad(f"the archive is larger than {limits.machine >> 20} MB when unpacked")
            if declared + entry.size > max(limits.small, (packed + entry.packed) * limits.ratio):
                raise _Bad(f"is part of a bomb: with it {packed + entry.packed} bytes would become {declared + entry.size}")
        except _Bad as failure:
            machine.report(name, str(failure))
            continue
        packed += entry.packed
        declared += entry.size
        found.append((entry, name))
    kept = []
    end = 0
    for entry, name in sorted(found, key=lambda pair: pair[0].header):
        if entry.header < end:
            machine.report(name, "overlaps another file of the archive")
            continue
        end = entry.begin + entry.packed
        kept.append((entry, name))
    order = {name: number for number, (_, name) in enumerate(found)}
    for entry, name in sorted(kept, key=lambda pair: order[pair[1]]):
        _add_entry(machine, path, entry, name)


# What was given


def _read_file(machine: Machine, path: str, limits: Limits) -> None:
    with io.FileIO(_open_regular(path, follow=True)) as file:
        size = os.fstat(file.fileno()).st_size
        if path.lower().endswith(".zip") or file.read(4) in (b"PK\3\4", b"PK\5\6"):
            if not size:
                raise _Bad("is empty")
            _read_zip(machine, path, file, size, limits)
        else:
            _add_file(machine, _Names(), path, safe_name(os.path.basename(path))[0], size, follow=True)


def open_machine(path: str | os.PathLike[str], limits: Limits = Limits()) -> Machine:
    """One folder, zip or single file. Never fails: what cannot be read is a problem of the machine."""
    path = os.fspath(path)
    machine = Machine(shown(path).rstrip("/") or ("/" if path else "''"))
    try:
        if os.path.isdir(path):
            _read_folder(machine, path, limits)
        else:
            _read_file(machine, path, limits)
    except _Bad as failure:
        machine.report(machine.name, str(failure))
    except OSError as failure:
        machine.report(machine.name, f"cannot be read: {failure.strerror or failure}")
    except ValueError:
        machine.report(machine.name, "is no path")
    return machine


def open_inputs(paths: Iterable[str | os.PathLike[str]], limits: Limits = Limits()) -> Iterator[Machine]:
    """The machines one after the other; what one takes in memory is free when it is let go."""
    for path in paths:
        yield open_machine(path, limits)
