"""What a triage finds: runs, dumps, groups, problems. Plain data; docs/triage.md describes how it looks as JSON."""
from __future__ import annotations

import dataclasses
import datetime
import enum

EPOCH = datetime.datetime(1970, 1, 1)


class Outcome(enum.StrEnum):
    SUCCEEDED = "succeeded"
    FAILED = "failed"
    CRASHED = "crashed"
    DID_NOT_RETURN = "did-not-return"


def moment(milliseconds: int, utc: bool = False) -> str | None:
    """A moment as text; None for one that no calendar has."""
    try:
        time = EPOCH + datetime.timedelta(milliseconds=milliseconds)
    except OverflowError:
        return None
    return time.isoformat(timespec="milliseconds") + ("Z" if utc else "")


def code_text(code: int) -> str:
    return f"0x{code & 0xFFFFFFFF:08x}"


@dataclasses.dataclass(slots=True)
class LogLine:
    at: int  # ms since 1970, as the machine's clock showed it
    thread: int
    level: str
    tag: str
    text: str
    id: str | None  # of the catalogue
    number: int     # in its run, from 1 on


@dataclasses.dataclass(frozen=True)
class Request:
    """A command line in words."""

    mode: str | None
    action: str | None
    products: tuple[str, ...]
    state: str | None
    signatures: str | None
    words: str
    wrong: tuple[str, ...]


@dataclasses.dataclass(frozen=True)
class Cause:
    """One of the failures that an error is made of; the outermost is the first."""

    text: str
    code: int | None
    id: str | None
    meaning: str | None


@dataclasses.dataclass(frozen=True)
class Failure:
    """The step that failed, or in which the run stopped."""

    id: str
    title: str
    meaning: str
    remedy: str
    fields: dict[str, str] = dataclasses.field(default_factory=dict)


@dataclasses.dataclass(slots=True)
class Run:
    log: str
    process: int
    begin: int           # ms since 1970, as the machine's clock showed it
    end: int
    id: str = ""
    machine: str = ""
    milliseconds: int = 0
    begin_cut: bool = False
    end_cut: bool = False
    clock_back: bool = False
    command_line: str | None = None
    request: Request | None = None
    outcome: Outcome = Outcome.DID_NOT_RETURN
    result: int | None = None
    result_meaning: str | None = None
    causes: list[Cause] = dataclasses.field(default_factory=list)
    failure: Failure | None = None
    steps: dict[str, int] = dataclasses.field(default_factory=dict)   # ms
    faults: dict[str, str] = dataclasses.field(default_factory=dict)  # ids of the catalogue -> what was logged, and means
    dumped: list[int] = dataclasses.field(default_factory=list)       # when the log says that a dump was written
    dumps: list[str] = dataclasses.field(default_factory=list)        # ids
    windows: str | None = None
    version: str | None = None
    utc_offset: int | None = None                                     # minutes
    lines: list[LogLine] = dataclasses.field(default_factory=list)
    left_out: int = 0
    line_count: int = 0

    @property
    def characters(self) -> int:
        """Of its request and its error, which may be long, and come back in what is said of them."""
        return len(self.command_line or "") + sum(len(cause.text) for cause in self.causes)

    @property
    def begin_utc(self) -> str | None:
        return None if self.utc_offset is None else moment(self.begin - self.utc_offset * 60_000, utc=True)


@dataclasses.dataclass(frozen=True)
class StackFrame:
    module: str | None
    offset: int | None
    function: str | None
    file: str | None
    line: int | None
    inlined: bool
    ours: bool


@dataclasses.dataclass(frozen=True)
class ExceptionRecord:
    code: int
    name: str
    address: int
    thread: int
    parameters: tuple[int, ...]


@dataclasses.dataclass(slots=True)
class DumpRecord:
    id: str
    machine: str
    path: str
    size: int
    process: int | None
    time: int | None     # s since 1970, UTC
    exception: ExceptionRecord | None
    module: str | None
    offset: int | None
    stack: list[StackFrame]
    stack_note: str | None
    symbols: dict[str, bool]  # image of ours -> whether the stores have its symbols
    cause: str                # crash, fatal-error or asked
    signature: str
    title: str
    comment: str | None
    writer: str | None
    windows: str | None
    version: str | None
    run: str | None = None

    @property
    def time_text(self) -> str | None:
        return None if self.time is None else moment(self.time * 1000, utc=True)


@dataclasses.dataclass(slots=True)
class MachineRecord:
    name: str
    logs: int = 0
    dumps: int = 0
    runs: int = 0
    lines: int = 0
    other_lines: int = 0
    unread_lines: int = 0
    clock_steps: int = 0
    utc_offset: int | None = None
    windows: str | None = None
    versions: list[str] = dataclasses.field(default_factory=list)


@dataclasses.dataclass(frozen=True)
class Problem:
    machine: str
    path: str | None  # None: all of the machine
    reason: str
