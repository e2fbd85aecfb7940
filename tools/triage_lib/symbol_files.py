"""Images, their program databases and the stores that hold both, for everybody who writes or reads such a store.

A store has the layout that debuggers and symbol servers for Windows know: an image lies in NAME/TIMESIZE/NAME, by its link time and
size, and its program database in NAME/GUIDAGE/NAME, by the identity that the image's debug record gives it.
"""
from __future__ import annotations

import dataclasses
import functools
import pathlib
import re
import struct
import zipfile
from collections.abc import Callable
from typing import NamedTuple


class BadImage(Exception):
    pass


class Record(NamedTuple):
    """Of the program database, in the image's debug record."""

    name: str
    key: str


@dataclasses.dataclass(frozen=True)
class Image:
    base: int               # where it would like to lie
    size: int
    timestamp: int
    record: Record | None

    @property
    def key(self) -> str:
        return image_key(self.timestamp, self.size)


def image_key(time: int, size: int) -> str:
    """The folder of an image; symbol servers are asked for exactly this mix of cases."""
    return f"{time:08X}{size:x}"


def database_key(first: int, second: int, third: int, tail: bytes, age: int) -> str:
    """The folder of a program database; the last 8 bytes of the GUID are no number."""
    return f"{first:08X}{second:04X}{third:04X}{tail.hex().upper()}{age:x}"


def stored(name: str, key: str) -> str:
    return f"{name}/{key}/{name}"


_GUID = struct.Struct("<4sIHH8sI")
_CODEVIEW = 2


def read_image(content: bytes) -> Image:
    """What a store needs to know of an image. Raises BadImage."""
    try:
        (header,) = struct.unpack_from("<I", content, 0x3C)
        if content[:2] != b"MZ" or content[header:header + 4] != b"PE\0\0":
            raise BadImage("is no image")
        sections, timestamp, optional_size = struct.unpack_from("<2xHI8xH", content, header + 4)
        optional = header + 24
        wide = struct.unpack_from("<H", content, optional)[0] == 0x20B
        (base,) = struct.unpack_from("<Q" if wide else "<I", content, optional + (24 if wide else 28))
        (size,) = struct.unpack_from("<I", content, optional + 56)
        place, length = struct.unpack_from("<II", content, optional + (160 if wide else 144))
        table = [struct.unpack_from("<8xIIII", content, optional + optional_size + 40 * number) for number in range(sections)]
        return Image(base, size, timestamp, _read_record(content, table, place, length))
    except struct.error:
        raise BadImage("breaks off") from None


def _read_record(content: bytes, sections: list[tuple[int, ...]], place: int, length: int) -> Record | None:
    at = next((place - begin + raw for size, begin, raw_size, raw in sections if begin <= place < begin + max(size, raw_size)), None)
    if not place or at is None:
        return None
    for entry in range(at, at + length - 27, 28):
        kind, _, _, raw = struct.unpack_from("<IIII", content, entry + 12)
        if kind == _CODEVIEW and content[raw:raw + 4] == b"RSDS":
            _, first, second, third, tail, age = _GUID.unpack_from(content, raw)
            name = content[raw + _GUID.size:raw + _GUID.size + 1024].split(b"\0")[0].decode("utf-8", "replace")
            return Record(name, database_key(first, second, third, tail, age))
    return None


class Store:
    """A store to read from: its folder, or an archive of it. Raises OSError and zipfile.BadZipFile."""

    def __init__(self, path: str | pathlib.Path) -> None:
        path = pathlib.Path(path)
        self.places: dict[str, Callable[[], bytes]]
        if path.is_dir():
            self.places = {str(file.relative_to(path)).lower(): file.read_bytes for file in path.glob("*/*/*")}
        else:
            archive = zipfile.ZipFile(path)
            self.places = {name.lower(): functools.partial(archive.read, name) for name in archive.namelist()}
        self.names = {place.split("/")[0] for place in self.places}

    def read(self, name: str, key: str) -> bytes | None:
        """The bytes of a file; None when the store lacks it."""
        found = self.places.get(stored(name, key).lower())
        return found() if found else None


# How a debugger's names are shown

RAISING = ("throw_record.cpp", "throw_hook.cpp", "uncaught.cpp")  # how a throw and the end of a program become an exception


def plain(function: str) -> str:
    """A function's name without its arguments and those of templates, of an inlined one the name alone, and without the name of no
    namespace. What stays does not depend on lines."""
    name = re.sub(r"`anonymous namespace'::|\(anonymous namespace\)::", "", function.split(" [inlined] ")[-1])
    name = re.sub(r"`lambda at [^']*'|<lambda(?:_\d+)?\d*>", "lambda", name)
    name = re.sub(r" \+ \d+$", "", name)
    kept, depth = "", 0
    for part in re.split(r"(operator ?(?:\(\)|<=>|<<=?|>>=?|<=|>=|->\*?|<|>)|[<>(])", name):
        if part == "(" and not depth:
            break
        if part in ("<", ">"):
            depth = max(0, depth + (1 if part == "<" else -1))
        elif not depth:
            kept += part
    return kept
