"""What is in a minidump: read from its bytes alone, and trusted in nothing.

Every offset, size and count in the file may be wrong. A read outside the file is a problem of what was to be read there; nothing is
allocated by a number that the file does not back up, and every chain has a longest length. The one exception is BadDump.
"""
from __future__ import annotations

import bisect
import dataclasses
import io
import re
import struct
import tempfile
from collections.abc import Callable
from typing import Any, BinaryIO

from .symbol_files import database_key, image_key

MOST_STREAMS = 256
MOST_MODULES = 4096
MOST_THREADS = 20_000
MOST_RANGES = 1 << 18       # of memory; a full dump of a large process has some ten thousand
MOST_FRAMES = 256           # of the stack; an overflow has tens of thousands
LONGEST_COMMENT = 32 << 10  # characters
LONGEST_PATH = 1024         # characters of a path, and of other texts with a count before them
LONGEST_TYPE = 256          # bytes of the name of a thrown type
LONGEST_MESSAGE = 4096      # bytes of the message in a thrown error
IN_MEMORY = 8 << 20         # bytes of a dump out of a zip that are kept in memory, and not in a temporary file

BY_PROCESS, BY_DUMPER, BY_OTHERS = "the process itself", "the dumper", "another program"
_OWN_COMMENT = "Dumped by CrashHandler"       # the process itself begins each comment so
_CAUSE_THROW = "Cause: VectoredExceptionHandler"  # a fatal error, at the moment of its throw

THROWN_OBJECT = 0xE06D7363
_THROWN_AGAIN = 0x40000000   # in the throw information: nobody caught it, and this is the raise that ends the process
_PARAMETERS = 15             # room in an exception record


class BadDump(Exception):
    """The file is no minidump, or too little of one is left; str() is the reason."""


@dataclasses.dataclass(frozen=True)
class Module:
    name: str       # without its folder
    path: str
    base: int
    size: int
    timestamp: int  # the link time, for us a hash
    version: str    # "1.0.0.0"; empty when it has none
    pdb_name: str   # of its program database, without its folder; empty when the dump does not say
    pdb_key: str    # GUID and age, as symbol stores name the folder

    @property
    def image_key(self) -> str:
        """As symbol stores name the folder."""
        return image_key(self.timestamp, self.size)


@dataclasses.dataclass(frozen=True)
class RawFrame:
    """A place of the stack. All but the innermost one hold return addresses: the call lies before them."""

    address: int
    module: Module | None
    returned_to: bool

    @property
    def offset(self) -> int:
        return self.address - self.module.base if self.module else self.address


@dataclasses.dataclass(frozen=True)
class Failure:
    """The exception that the dump was written for."""

    code: int
    name: str                # "access violation"
    text: str                # with what its parameters say
    address: int
    thread_id: int
    parameters: tuple[int, ...]
    thrown_type: str = ""    # of a thrown object
    thrown_code: int | None = None  # what an error of ours carries, where its memory is in the dump
    thrown_message: str = ""
    uncaught: bool = False   # the object was thrown, nobody caught it, and this is the end of the process


@dataclasses.dataclass(frozen=True)
class Windows:
    text: str           # "Windows 7 Service Pack 1 (6.1.7601), workstation, x86"
    version: str        # "6.1.7601"
    product_type: str
    service_pack: str
    architecture: str


@dataclasses.dataclass(frozen=True)
class Thread:
    id: int
    stack_begin: int
    stack_size: int


@dataclasses.dataclass
class Dump:
    time: int                             # seconds since 1970, UTC
    process_id: int | None = None
    process_created: int | None = None    # seconds since 1970, UTC
    whole_memory: bool = False
    failed: bool = False                  # it was written for an exception, even if that cannot be read
    exception: Failure | None = None
    module: Module | None = None          # where the exception happened
    offset: int | None = None             # in that module; the address itself when it lies in none
    modules: list[Module] = dataclasses.field(default_factory=list)
    windows: Windows | None = None
    comment: str | None = None            # None: there is no such stream
    writer: str = BY_OTHERS
    at_throw: bool = False                # a fatal error at the moment of its throw; the process may have gone on
    threads: list[Thread] = dataclasses.field(default_factory=list)
    stack: list[RawFrame] = dataclasses.field(default_factory=list)  # of the thread that failed, innermost first
    problems: list[str] = dataclasses.field(default_factory=list)    # what could not be read

    def module_at(self, address: int) -> Module | None:
        return next((module for module in self.modules if module.base <= address < module.base + module.size), None)


# Texts

_EXCEPTIONS = {
    0x40000015: "fatal exit",
    0x40010005: "Ctrl-C",
    0x80000001: "guard page violation",
    0x80000002: "misaligned data",
    0x80000003: "breakpoint",
    0x80000004: "single step",
    0xC0000005: "access violation",
    0xC0000006: "in-page error",
    0xC0000008: "invalid handle",
    0xC0000017: "out of memory",
    0xC000001D: "illegal instruction",
    0xC0000025: "continued after a final exception",
    0xC0000026: "invalid disposition",
    0xC000008C: "array index out of bounds",
    0xC000008D: "floating-point denormal operand",
    0xC000008E: "floating-point division by zero",
    0xC000008F: "floating-point inexact result",
    0xC0000090: "floating-point invalid operation",
    0xC0000091: "floating-point overflow",
    0xC0000092: "floating-point stack check",
    0xC0000093: "floating-point underflow",
    0xC0000094: "division by zero",
    0xC0000095: "integer overflow",
    0xC0000096: "privileged instruction",
    0xC00000FD: "stack overflow",
    0xC0000135: "library not found",
    0xC0000139: "function not found",
    0xC0000374: "heap corruption",
    0xC0000409: "fast fail",
    0xC0000420: "failed assertion",
    0xC06D007E: "delay-loaded library not found",
    0xC06D007F: "delay-loaded function not found",
    THROWN_OBJECT: "thrown C++ object",
}
_ACCESS = {0: "reading", 1: "writing", 8: "executing"}
_ARCHITECTURES = {0: "x86", 5: "ARM", 6: "IA-64", 9: "x64", 12: "ARM64"}
_PRODUCT_TYPES = {1: "workstation", 2: "domain controller", 3: "server"}
_RELEASES = {(5, 0): ("2000", "2000 Server"), (5, 1): ("XP", "XP"), (5, 2): ("XP x64", "Server 2003"), (6, 0): ("Vista", "Server 2008"),
             (6, 1): ("7", "Server 2008 R2"), (6, 2): ("8", "Server 2012"), (6, 3): ("8.1", "Server 2012 R2"), (10, 0): ("10", "Server")}
_FIRST_11 = 22000  # builds of Windows 11, which calls itself 10.0

_UNSHOWN = re.compile("[\0-\x08\x0b-\x1f\x7f-\x9f\u200e\u200f\u202a-\u202e\u2066-\u2069\ud800-\udfff]")


def _clean(text: str) -> str:
    """Without what moves a terminal's cursor or turns the direction of writing."""
    return _UNSHOWN.sub("\ufffd", text)


def exception_name(code: int) -> str:
    return _EXCEPTIONS.get(code, f"exception 0x{code:08x}")


def _exception_text(code: int, parameters: tuple[int, ...]) -> str:
    text = exception_name(code)
    if code in (0xC0000005, 0xC0000006) and len(parameters) >= 2:
        text += f" {_ACCESS.get(parameters[0], 'touching')} 0x{parameters[1]:08x}"
        if code == 0xC0000006 and len(parameters) >= 3:
            text += f" (0x{parameters[2] & 0xFFFFFFFF:08x})"
    elif code == 0xC0000409 and parameters:
        text += f" {parameters[0]}"
    return text


# The file


class _View:
    """Random access to the bytes of a dump."""

    def __init__(self, source: BinaryIO | bytes) -> None:
        self.file = io.BytesIO(source) if isinstance(source, (bytes, bytearray, memoryview)) else source
        self.size = self.file.seek(0, io.SEEK_END)

    def read(self, offset: int, size: int) -> bytes:
        """Exactly so many bytes."""
        if size > self.size or offset > self.size - size:
            raise BadDump("breaks off")
        self.file.seek(offset)
        data = self.file.read(size)
        if len(data) != size:
            raise BadDump("breaks off")
        return data

    def unpack(self, layout: struct.Struct, offset: int) -> tuple[Any, ...]:
        return layout.unpack(self.read(offset, layout.size))

    def text(self, offset: int) -> str:
        """A counted string."""
        (length,) = self.unpack(_U32, offset)
        return _clean(self.read(offset + 4, min(length, LONGEST_PATH * 2) & ~1).decode("utf-16-le", "replace").split("\0")[0])


_U32 = struct.Struct("<I")
_HEADER = struct.Struct("<4sHHIIIIQ")          # signature, version, build, streams, directory, checksum, time, kind
_DIRECTORY = struct.Struct("<III")             # type, size, place
_SYSTEM = struct.Struct("<HHHBBIIIIIHH")       # architecture, level, revision, processors, product, major, minor, build, platform, ...
_MODULE = struct.Struct("<QIIII52s8s8s16x")   # base, size, checksum, time, name, version, debug record, other record
_VERSION = struct.Struct("<IIII")              # signature, layout, high and low half
_THREAD = struct.Struct("<IIIIQQIIII")         # id, suspended, class, priority, block, stack: begin, size, place; context: size, place
_EXCEPTION = struct.Struct("<IIIIQQII15QII")   # thread, -, code, flags, nested, address, parameters, -, ..., context: size, place
_MISC = struct.Struct("<IIII")                 # size, what is valid, process, created
_RANGE = struct.Struct("<QII")
_RANGE64 = struct.Struct("<QQ")
_GUID = struct.Struct("<4sIHH8sI")             # "RSDS", GUID, age
_PLACE = struct.Struct("<II")
_CONTEXT = struct.Struct("<I176xII8xI")        # flags; Ebp, Eip, Esp
_FRAME = struct.Struct("<II")

_THREADS, _MODULES, _MEMORY, _EXCEPTION_STREAM, _SYSTEM_INFO, _MEMORY64, _COMMENT_A, _COMMENT_W, _MISC_INFO = 3, 4, 5, 6, 7, 9, 10, 11, 15
_WHOLE_MEMORY = 0x2
_X86_CONTEXT = 0x10000


class _Reader:
    def __init__(self, view: _View) -> None:
        self.view = view
        self.ranges: list[tuple[int, int, int]] = []  # of memory: begin, size, place
        signature, version, _, count, directory, _, time, kind = self._header()
        if signature != b"MDMP" or version != 0xA793:
            raise BadDump("is no minidump")
        if count > MOST_STREAMS:
            raise BadDump(f"claims to have {count} streams")
        try:
            entries = list(_DIRECTORY.iter_unpack(view.read(directory, count * _DIRECTORY.size)))
        except BadDump:
            raise BadDump("breaks off before its directory") from None
        self.streams: dict[int, tuple[int, int]] = {}
        for stream, size, place in entries:
            self.streams.setdefault(stream, (place, size))
        self.dump = Dump(time, whole_memory=bool(kind & _WHOLE_MEMORY), failed=_EXCEPTION_STREAM in self.streams)

    def _header(self) -> tuple[Any, ...]:
        if not self.view.size:
            raise BadDump("is empty: the process was ended before anything was written")
        if self.view.size < _HEADER.size:
            raise BadDump("is no minidump" if self.view.read(0, min(4, self.view.size)) != b"MDMP"[:self.view.size] else "breaks off")
        return self.view.unpack(_HEADER, 0)

    def all(self) -> Dump:
        dump = self.dump
        self._part(_SYSTEM_INFO, "the system", self._system)
        self._part(_MISC_INFO, "the process", self._misc)
        self._part(_COMMENT_W, "the comment", self._comment)
        if dump.comment is None:
            self._part(_COMMENT_A, "the comment", self._narrow_comment)
        self._part(_MODULES, "the modules", self._modules, wanted=True)
        self._part(_THREADS, "the threads", self._threads, wanted=True)
        self._part(_MEMORY, "the memory", self._memory)
        self._part(_MEMORY64, "the memory", self._memory64)
        self._arrange()
        self._part(_EXCEPTION_STREAM, "the exception", self._exception)
        if not (dump.modules or dump.threads or dump.exception):
            raise BadDump("has neither threads nor modules nor an exception: " + (", ".join(dump.problems) or "it has none"))
        return dump

    def _part(self, stream: int, name: str, read: Callable[[int, int], None], wanted: bool = False) -> None:
        """Reads one stream; what is wrong with it is a problem of the dump."""
        if stream not in self.streams:
            if wanted:
                self.dump.problems.append(f"{name}: missing")
            return
        place, size = self.streams[stream]
        try:
            if not size:
                raise BadDump("empty")
            read(place, size)
        except BadDump as failure:
            self.dump.problems.append(f"{name}: {failure}")

    # The streams

    def _system(self, place: int, size: int) -> None:
        architecture, _, _, _, product, major, minor, build, _, pack, _, _ = self.view.unpack(_SYSTEM, place)
        product_type = _PRODUCT_TYPES.get(product, "")
        machine = _ARCHITECTURES.get(architecture, f"processor {architecture}")
        release = _RELEASES.get((major, minor))
        name = f"Windows {release[product in (2, 3)]}" if release else "Windows"
        if (major, minor) == (10, 0) and build >= _FIRST_11 and product_type == "workstation":
            name = "Windows 11"
        try:
            service_pack = self.view.text(pack) if pack else ""
        except BadDump as failure:
            service_pack = ""
            self.dump.problems.append(f"the service pack: {failure}")
        version = f"{major}.{minor}.{build}"
        words = [f"{name}{' ' + service_pack if service_pack else ''} ({version})", product_type, machine]
        self.dump.windows = Windows(", ".join(filter(None, words)), version, product_type, service_pack, machine)

    def _misc(self, place: int, size: int) -> None:
        _, valid, process, created = self.view.unpack(_MISC, place)
        self.dump.process_id = process if valid & 1 else None
        self.dump.process_created = created if valid & 2 else None

    def _comment(self, place: int, size: int) -> None:
        text = self.view.read(place, min(size, LONGEST_COMMENT * 2) & ~1).decode("utf-16-le", "replace")
        self._take_comment(text, size > LONGEST_COMMENT * 2)
        self.dump.writer = BY_PROCESS if text.startswith(_OWN_COMMENT) else BY_DUMPER
        self.dump.at_throw = text.split("\0")[0].endswith(_CAUSE_THROW)

    def _narrow_comment(self, place: int, size: int) -> None:
        self._take_comment(self.view.read(place, min(size, LONGEST_COMMENT)).decode("cp1252", "replace"), size > LONGEST_COMMENT)

    def _take_comment(self, text: str, longer: bool) -> None:
        self.dump.comment = _clean(text.split("\0")[0])
        if longer and "\0" not in text:
            self.dump.problems.append("the comment: longer than what is read of it")

    def _listed(self, place: int, size: int, layout: struct.Struct, most: int) -> list[tuple[Any, ...]]:
        """The entries of a stream that is a counted list. One that breaks off is given as far as it goes."""
        (count,) = self.view.unpack(_U32, place)
        # Some writers align the entries behind the count.
        begin = place + 4 + (4 if size == 8 + count * layout.size else 0)
        there = min(count, most, max(0, self.view.size - begin) // layout.size)
        if there < count:
            self.dump.problems.append(f"a list of {count} entries has only {there} that can be read")
        return list(layout.iter_unpack(self.view.read(begin, there * layout.size)))

    def _modules(self, place: int, size: int) -> None:
        for base, image_size, _, time, name, version, debug, _ in self._listed(place, size, _MODULE, MOST_MODULES):
            try:
                path = self.view.text(name)
            except BadDump:
                path = ""
            short = re.split(r"[\\/]", path)[-1] or f"(module at 0x{base:08x})"
            pdb_name, pdb_key = self._debug_record(*_PLACE.unpack(debug))
            self.dump.modules.append(
                Module(short, path, base, image_size, time, self._version(version), pdb_name, pdb_key))

    @staticmethod
    def _version(record: bytes) -> str:
        signature, _, high, low = _VERSION.unpack_from(record)
        return f"{high >> 16}.{high & 0xFFFF}.{low >> 16}.{low & 0xFFFF}" if signature == 0xFEEF04BD else ""

    def _debug_record(self, size: int, place: int) -> tuple[str, str]:
        """Name and key of the program database; empty where the record is missing or of another kind."""
        try:
            if size > _GUID.size:
                record = self.view.read(place, min(size, _GUID.size + 1024))
                signature, first, second, third, tail, age = _GUID.unpack_from(record)
                if signature == b"RSDS":
                    path = record[_GUID.size:].split(b"\0")[0].decode("utf-8", "replace")
                    return _clean(re.split(r"[\\/]", path)[-1]), database_key(first, second, third, tail, age)
        except BadDump:
            pass
        return "", ""

    def _threads(self, place: int, size: int) -> None:
        self.contexts: dict[int, tuple[int, int]] = {}
        for number, _, _, _, _, begin, stack_size, stack, context_size, context in self._listed(place, size, _THREAD, MOST_THREADS):
            self.dump.threads.append(Thread(number, begin, stack_size))
            if stack:  # with the whole memory it lies there
                self.ranges.append((begin, stack_size, stack))
            self.contexts.setdefault(number, (context, context_size))

    def _memory(self, place: int, size: int) -> None:
        self.ranges += ((begin, length, at) for begin, length, at in self._listed(place, size, _RANGE, MOST_RANGES))

    def _memory64(self, place: int, size: int) -> None:
        count, at = self.view.unpack(_RANGE64, place)
        there = min(count, MOST_RANGES, (self.view.size - place - _RANGE64.size) // _RANGE64.size)
        for begin, length in _RANGE64.iter_unpack(self.view.read(place + _RANGE64.size, there * _RANGE64.size)):
            self.ranges.append((begin, length, at))
            at += length

    def _exception(self, place: int, size: int) -> None:
        thread, _, code, _, _, address, count, _, *rest = self.view.unpack(_EXCEPTION, place)
        parameters = tuple(rest[:min(count, _PARAMETERS)])
        context_size, context = rest[_PARAMETERS:]
        if not code and not address and not thread:
            raise BadDump("empty")
        # A 32-bit process: some writers extend addresses by their sign.
        if self.dump.windows is None or self.dump.windows.architecture == "x86":
            address &= 0xFFFFFFFF
            parameters = tuple(parameter & 0xFFFFFFFF for parameter in parameters)
        failure = Failure(code, exception_name(code), _exception_text(code, parameters), address, thread, parameters)
        if code == THROWN_OBJECT:
            failure = self._thrown(failure)
        dump = self.dump
        dump.exception = failure
        dump.module = dump.module_at(address)
        dump.offset = address - dump.module.base if dump.module else address
        if not context_size and hasattr(self, "contexts"):
            context, context_size = self.contexts.get(thread, (0, 0))
        try:
            self._walk(context, context_size)
        except BadDump as problem:
            dump.problems.append(f"the stack: {problem}")

    # Memory of the process

    def _arrange(self) -> None:
        """Sorts the ranges, and cuts them so that none overlaps another or goes beyond the file."""
        arranged = []
        end = 0
        for begin, size, place in sorted(self.ranges, key=lambda memory: (memory[0], -memory[1])):
            size = min(size, self.view.size - place)
            cut = max(0, end - begin)
            if size > cut:
                arranged.append((begin + cut, size - cut, place + cut))
                end = begin + size
        self.ranges = arranged

    def _peek_some(self, address: int, most: int) -> bytes:
        """Bytes of the process, as many as the dump has from there on."""
        data = b""
        at = bisect.bisect_right(self.ranges, (address, 1 << 64, 0)) - 1
        while 0 <= at < len(self.ranges) and len(data) < most:
            begin, size, place = self.ranges[at]
            skipped = address + len(data) - begin
            if not 0 <= skipped < size:
                break
            data += self.view.read(place + skipped, min(most - len(data), size - skipped))
            at += 1
        return data

    def _peek(self, address: int, size: int) -> bytes | None:
        """So many bytes of the process; None when the dump does not have them all."""
        data = self._peek_some(address, size)
        return data if len(data) == size else None

    def _peek_u32(self, address: int) -> int | None:
        data = self._peek(address, 4)
        return _U32.unpack(data)[0] if data else None

    def _thrown(self, failure: Failure) -> Failure:
        """The type behind the throw information, and of our own errors the message where the object's memory is in the dump."""
        if len(failure.parameters) < 3 or failure.parameters[0] != 0x19930520:
            return failure
        base = failure.parameters[3] if len(failure.parameters) > 3 else 0
        info = failure.parameters[2]
        attributes = self._peek_u32(info)
        place: int | None = self._peek_u32(info + 12)
        for step in (4, 4):  # the first entry of the list, and the type of that entry
            place = self._peek_u32(base + place + step) if place is not None else None
        if place is None:
            return failure
        name = thrown_name(self._peek_some(base + place + 8, LONGEST_TYPE).split(b"\0")[0].decode("utf-8", "replace"))
        if not name:
            return failure
        code, message = self._carried(failure.parameters[1]) if name in ("crv::exceptions::fatal", "crv::exceptions::error") else (None, "")
        text = f"thrown object of type {name}" + (f": {message}" if message else "")
        return dataclasses.replace(failure, text=text, thrown_type=name, thrown_code=code, thrown_message=message,
                                   uncaught=bool((attributes or 0) & _THROWN_AGAIN))

    def _carried(self, thrown: int) -> tuple[int | None, str]:
        """Code and message of an error of ours: the object has a table of functions, a shared pointer to its text, and its code."""
        data = self._peek(thrown, 16)
        if not data:
            return None, ""
        _, text, _, code = struct.unpack("<4I", data)
        head = self._peek(text, 8) if text else None
        if not head:
            return code, ""
        characters, length = _FRAME.unpack(head)
        if length > LONGEST_MESSAGE:
            return code, ""
        return code, _clean((self._peek(characters, length) or b"").decode("utf-8", "replace"))

    def _walk(self, context: int, size: int) -> None:
        """The stack of the thread that failed, by its frame pointers."""
        if size < _CONTEXT.size:
            raise BadDump("the thread's registers are missing")
        flags, frame, address, top = self.view.unpack(_CONTEXT, context)
        if not flags & _X86_CONTEXT or size < 0xCC:
            raise BadDump("the registers are not those of a 32-bit x86 processor")
        stack = self.dump.stack
        stack.append(RawFrame(address, self.dump.module_at(address), False))
        if stack[0].module is None:
            # A call of a wrong address: its return address is the newest thing on the stack.
            caller = self._peek_u32(top)
            if caller and self.dump.module_at(caller):
                stack.append(RawFrame(caller, self.dump.module_at(caller), True))
        lowest = top
        while len(stack) < MOST_FRAMES:
            pair = self._peek(frame, 8) if frame >= lowest else None
            if pair is None:
                break
            lowest = frame + 8
            frame, address = _FRAME.unpack(pair)
            if not address:
                break
            stack.append(RawFrame(address, self.dump.module_at(address), True))


def thrown_name(text: str) -> str:
    """A C++ type as a person writes it: from the text of the type information, or from the decorated name."""
    if text.startswith((".?AV", ".?AU")) and text.endswith("@@"):
        text = "::".join(reversed(text[4:-2].split("@")))
    return _clean(re.sub(r"^(?:class|struct|enum) ", "", text))


def _seekable(source: BinaryIO) -> tuple[BinaryIO, bool]:
    """The source, or a copy of one that cannot seek; and whether it has to be closed."""
    if source.seekable():
        return source, False
    copy = tempfile.SpooledTemporaryFile(max_size=IN_MEMORY)
    while piece := source.read(1 << 16):
        copy.write(piece)
    return copy, True  # type: ignore[return-value]


def read(source: BinaryIO | bytes) -> Dump:
    """A whole dump, from its bytes or a binary stream. Raises only BadDump; parts that cannot be read are in its problems."""
    if isinstance(source, (bytes, bytearray, memoryview)):
        return _Reader(_View(source)).all()
    file, own = source, False
    try:
        file, own = _seekable(source)
        return _Reader(_View(file)).all()
    except OSError as failure:
        raise BadDump(f"cannot be read: {failure.strerror or failure}") from None
    finally:
        if own:
            file.close()
