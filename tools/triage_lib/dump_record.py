"""One minidump as a record: what is in it, the stack that the symbols give, and its signature."""
from __future__ import annotations

from . import archive, minidump, signature, stacks
from .minidump import BadDump
from .model import DumpRecord, ExceptionRecord, Failure, Run, StackFrame, code_text

__all__ = ["BadDump", "frame_place", "name_crash", "read"]


# The suite's parts that people know by other names than those of their files.
_PARTS = {"cavm4h.dll": "the AV manager", "crvdata.dll": "the firewall's library", "log.dll": "the log library",
          "cvdump32.exe": "the dumper", "wsc_proxy.exe": "the host", "wsc.dll": "the module itself"}


def _frames(stack: stacks.Stack) -> list[StackFrame]:
    return [StackFrame(frame.module or None, frame.offset, frame.function or None, frame.file or None, frame.line or None, frame.inlined,
                       frame.ours) for frame in stack.frames]


def _cause(dump: minidump.Dump) -> str:
    if dump.at_throw:
        return "fatal-error"
    return "crash" if dump.failed else "asked"


def frame_place(frame: StackFrame) -> str:
    """"function at file:line", or what is known of it."""
    where = f"{frame.module}+0x{frame.offset:x}" if frame.module and frame.offset is not None else frame.module or "?"
    if not frame.function:
        return where
    return f"{frame.function} at {frame.file}:{frame.line}" if frame.file and frame.line else f"{frame.function} in {where}"


def _title(dump: minidump.Dump, frames: list[StackFrame]) -> str:
    """What happened, and the innermost place of ours."""
    exception = dump.exception
    ours = next((frame for frame in frames if frame.ours), None)
    at = frame_place(ours) if ours else ""
    if exception and exception.thrown_type:
        return f"{exception.thrown_type} thrown" + (f" in {at}" if at else "")
    what = exception.name if exception else "an exception that cannot be read" if dump.failed else "no exception"
    if dump.module is None or (ours and not ours.function and ours.module == dump.module.name):
        return what + (f" in {at}" if at else "")
    between = ": " if ours and ours.module == dump.module.name else ", called by "
    return f"{what} in {dump.module.name}" + (between + at if at else "")


def read(file: archive.File, id: str, machine: str, symbols: stacks.Symbols) -> tuple[DumpRecord, list[str]]:
    """The record, and what could not be read of it. Raises BadDump."""
    with file.open() as stream:
        dump = minidump.read(stream)
    stack = symbols.stack(dump)
    frames = _frames(stack)
    exception = dump.exception
    record = DumpRecord(
        id, machine, file.path, file.size, dump.process_id, dump.time,
        ExceptionRecord(exception.code, exception.name, exception.address, exception.thread_id, exception.parameters) if exception else None,
        dump.module.name if dump.module else None, dump.offset, frames, stack.note or None, stack.matches, _cause(dump),
        signature.of(dump, stack.frames), _title(dump, frames), dump.comment, dump.writer, dump.windows.text if dump.windows else None,
        next((module.version for module in dump.modules if module.name.lower() == "wsc.dll" and module.version), None))
    return record, [f"part of it cannot be read: {problem}" for problem in dump.problems]


def name_crash(run: Run, dump: DumpRecord) -> None:
    """Puts what the dump says of a crash in the place of what the log does, which is less."""
    said = run.failure.meaning if run.failure else ""
    exception = dump.exception
    what = f": {exception.name} ({code_text(exception.code)})" if exception else ""
    makers = next((frame.module for frame in dump.stack if frame.ours), dump.module)
    part = _PARTS.get((makers or "").lower())
    run.failure = Failure(f"crash: {dump.signature}", dump.title, said + what + (f", in {part}, {makers}" if part else ""),
                          f"send log and dump to those who make {makers or 'the host'}; the stack names the functions")
    if run.result is None and exception:
        run.result = exception.code
