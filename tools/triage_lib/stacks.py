"""The stack of a dump with functions and lines: LLDB is asked for the addresses, with nothing but what the symbol stores hold.

The debugger never sees a dump. It gets the images of our own stores and numbers, and each address of an image is asked for once,
however many dumps have it.
"""
from __future__ import annotations

import dataclasses
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import zipfile
from collections.abc import Iterable

from .minidump import Dump, Module, RawFrame
from .symbol_files import RAISING, BadImage, Image, Store, plain, read_image

DEBUGGER = "lldb-16"
LONGEST_RUN = 60  # s, of the debugger
MOST_FAILURES = 3  # of the debugger, then it is asked no more

# In the program folder, but not of the suite: the compilers' runtime libraries, and a copy of the system's writer of dumps.
_RUNTIME = re.compile(r"(?i)lib(?:gcc|stdc\+\+|winpthread)|msvc[pr]|vcruntime|ucrtbase|api-ms-|dbghelp")
_LIBRARY = re.compile(r"(?:std|boost|__gnu_cxx|__cxxabiv1)::|operator (?:new|delete)|(?:__|_Unwind_)")
_FOUND = re.compile(r"^(?:      Summary: | {15})[^`]*`(.*) at ([^:]+):(\d+)(?::\d+)?$", re.M)


class BadStore(Exception):
    """A symbol store that cannot be opened; str() says which and why."""


@dataclasses.dataclass(frozen=True)
class Frame:
    """One function of the stack; those that the compiler inlined have the module and offset of the one that they are in."""

    module: str    # empty: the address is in none
    offset: int    # the address itself then; behind the call, but for the innermost frame
    function: str  # empty: not known, and then there is no line
    file: str
    line: int
    inlined: bool
    ours: bool     # a function of the suite that has its part in the failure: no runtime, no library, nothing that only raises


@dataclasses.dataclass(frozen=True)
class Stack:
    frames: list[Frame]       # innermost first
    note: str                 # why names are missing; empty: none are
    matches: dict[str, bool]  # the suite's images on the stack -> whether the stores have the symbols of exactly this build


@dataclasses.dataclass(frozen=True)
class _Place:
    function: str
    file: str
    line: int


@dataclasses.dataclass
class _Image:
    """An image that the stores have, laid out for the debugger, and what is known of its addresses."""

    path: pathlib.Path | None
    base: int
    reason: str  # why its addresses have no names; empty: they may have
    places: dict[int, list[_Place]] = dataclasses.field(default_factory=dict)  # offset -> functions, innermost first
    asked: set[int] = dataclasses.field(default_factory=set)


class Symbols:
    """The stores, opened once for many dumps. As a context manager it takes its temporary folder away."""

    def __init__(self, stores: Iterable[str | os.PathLike[str]] = ()) -> None:
        self._stores: list[Store] = []
        for path in stores:
            if not os.fspath(path):
                raise BadStore("the name of a symbol store is empty")
            try:
                store = Store(os.fspath(path))
            except OSError as failure:
                raise BadStore(f"{path}: {failure.strerror}") from None
            except (ValueError, zipfile.BadZipFile):
                raise BadStore(f"{path}: neither a folder nor an archive of symbols") from None
            if not store.places:
                raise BadStore(f"{path}: there are no symbols in it")
            self._stores.append(store)
        self._folder: tempfile.TemporaryDirectory[str] | None = None
        self._images: dict[tuple[str, str, str], _Image] = {}
        self._failures = 0
        self._trouble = ""  # with the debugger

    def __enter__(self) -> Symbols:
        return self

    def __exit__(self, *_: object) -> None:
        if self._folder:
            self._folder.cleanup()
            self._folder = None
        self._images.clear()

    def stack(self, dump: Dump) -> Stack:
        """Never fails: where names cannot be had, the note says why."""
        home = _home(dump)
        wanted: dict[Module, set[int]] = {}
        for frame in dump.stack:
            if frame.module and _is_ours(frame.module, home):
                wanted.setdefault(frame.module, set()).add(_asked(frame))
        images = {module: self._image(module) for module in wanted}
        self._ask({id(image): (image, wanted[module] - image.asked) for module, image in images.items() if image.path})
        frames = [shown for frame in dump.stack for shown in self._frames(frame, images)]
        reasons = [image.reason for image in images.values() if image.reason]
        if any(not image.reason and wanted[module] - image.asked for module, image in images.items()):
            reasons.append(self._trouble)
        if not dump.stack:
            reasons.append("the dump has no stack")
        matches = {module.name: not image.reason for module, image in images.items()}
        return Stack(frames, "; ".join(dict.fromkeys(reasons)), matches)

    @staticmethod
    def _frames(frame: RawFrame, images: dict[Module, _Image]) -> list[Frame]:
        name = frame.module.name if frame.module else ""
        image = images.get(frame.module) if frame.module else None
        places = image.places.get(_asked(frame)) if image else None
        if not places:
            # Of an image with symbols this is a runtime function; without them it may be anything of ours.
            unknown = bool(image and (image.reason or _asked(frame) not in image.asked))
            return [Frame(name, frame.offset, "", "", 0, False, unknown)]
        last = len(places) - 1
        return [Frame(name, frame.offset, place.function, place.file, place.line, number < last,
                      not place.file.startswith(RAISING) and not _LIBRARY.match(place.function)) for number, place in enumerate(places)]

    # Stores

    def _image(self, module: Module) -> _Image:
        key = (module.name.lower(), module.image_key, module.pdb_key)
        if key not in self._images:
            self._images[key] = self._lay_out(module)
        return self._images[key]

    def _read(self, name: str, key: str) -> bytes | None:
        for store in self._stores:
            try:
                content = store.read(name, key)
            except (OSError, RuntimeError, zipfile.BadZipFile):
                content = None
            if content:
                return content
        return None

    def _lay_out(self, module: Module) -> _Image:
        """The image and its program database beside it, where the debugger looks, if the stores have both and they belong together."""
        name = module.name
        if not self._stores:
            return _Image(None, 0, "no symbols were given; --symbols STORE takes those of a release")
        content = self._read(name, module.image_key)
        if not content:
            others = any(name.lower() in store.names for store in self._stores)
            return _Image(None, 0, f"the symbols are of other builds of {name}, not of this one ({module.image_key})" if others
                          else f"no symbols of {name} were given")
        try:
            image = read_image(content)
        except BadImage as failure:
            return _Image(None, 0, f"the image {name} in the symbols {failure}")
        reason = self._mismatch(module, image)
        database = self._read(*image.record) if image.record and not reason else None
        if not reason and not database:
            reason = f"the program database of {name} is missing in the symbols"
        if reason or not database or not image.record:
            return _Image(None, 0, reason)
        self._folder = self._folder or tempfile.TemporaryDirectory(prefix="triage-")
        folder = pathlib.Path(self._folder.name) / str(len(self._images))
        folder.mkdir()
        (folder / "image.dll").write_bytes(content)
        (folder / pathlib.PureWindowsPath(image.record.name).name).write_bytes(database)
        return _Image(folder / "image.dll", image.base, "")

    @staticmethod
    def _mismatch(module: Module, image: Image) -> str:
        if image.key != module.image_key:
            return f"the image {module.name} does not match the symbols: link time and size are {image.key}, the dump has {module.image_key}"
        if module.pdb_key and image.record and module.pdb_key != image.record.key:
            return f"the image {module.name} does not match the symbols: its program database is {image.record.key}, the dump has {module.pdb_key}"
        return ""

    # The debugger

    def _ask(self, wanted: dict[int, tuple[_Image, set[int]]]) -> None:
        questions = [(image, sorted(offsets)) for image, offsets in wanted.values() if offsets]
        if not questions or self._failures >= MOST_FAILURES:
            return
        lines = ["settings set symbols.enable-external-lookup false", "settings set target.load-script-from-symbol-file false"]
        for image, offsets in questions:
            lines.append(f'target create --no-dependents "{image.path}"')
            lines += [f"image lookup -a 0x{image.base + offset:x}" for offset in offsets]
        answers = self._run("\n".join([*lines, "quit", ""])).split("(lldb) image lookup -a ")[1:]
        asked = [(image, offset) for image, offsets in questions for offset in offsets]
        if len(answers) < len(asked) and not self._trouble:
            self._trouble = "the debugger ended early"
            self._failures += 1
        for (image, offset), answer in zip(asked, answers):
            image.asked.add(offset)
            found = [_Place(plain(function), file, int(line)) for function, file, line in _FOUND.findall(answer)]
            if found:
                image.places[offset] = found
        for image, offsets in questions:
            if image.asked.issuperset(offsets) and not image.places:
                image.reason = "the debugger finds no names in the program database"

    def _run(self, commands: str) -> str:
        """What the debugger says; it is ended when it takes too long."""
        self._trouble = ""
        environment = {**os.environ, "LLDB_DEBUGINFOD_CACHE_PATH": "", "DEBUGINFOD_URLS": ""}
        try:
            debugger = subprocess.Popen([DEBUGGER, "--no-lldbinit", "--no-use-colors"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True, encoding="utf-8", errors="replace", env=environment,
                                        start_new_session=True)
        except OSError as failure:
            self._failures = MOST_FAILURES
            self._trouble = f"{DEBUGGER} is not to be had: {failure.strerror}"
            return ""
        try:
            return debugger.communicate(commands, timeout=LONGEST_RUN)[0]
        except subprocess.TimeoutExpired as late:
            self._failures += 1
            self._trouble = f"the debugger took longer than {LONGEST_RUN} s"
            said: bytes | str | None = late.stdout
            return said if isinstance(said, str) else (said or b"").decode("utf-8", "replace")
        finally:
            if debugger.poll() is None:
                os.killpg(debugger.pid, signal.SIGKILL)
                debugger.communicate()


def _asked(frame: RawFrame) -> int:
    """The place in the module that is asked for: of a return address that of the call."""
    return frame.offset - frame.returned_to


def _home(dump: Dump) -> str:
    """The suite's program folder, in lower case: where wsc.dll lies, or the host."""
    named = next((module for module in dump.modules if module.name.lower() == "wsc.dll"), dump.modules[0] if dump.modules else None)
    return named.path[:-len(named.name)].lower() if named else ""


def _is_ours(module: Module, home: str) -> bool:
    return module.path[:-len(module.name)].lower() == home and not _RUNTIME.match(module.name)
