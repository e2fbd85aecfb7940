"""A name for a crash that is the same in every build of the same source: what happened, and the innermost functions of ours."""
from __future__ import annotations

import itertools
from collections.abc import Iterable

from .minidump import Dump
from .stacks import Frame

FUNCTIONS = 3  # that are named


def of(dump: Dump, frames: Iterable[Frame]) -> str:
    """"access violation: innermost < its caller < ...". No address and no line is in it; images without symbols stand for their
    functions, and say so."""
    names = (frame.function or f"{frame.module} (no symbols)" for frame in frames if frame.ours)
    distinct = (name for name, _ in itertools.groupby(names))  # a recursion is one
    where = " < ".join(itertools.islice(distinct, FUNCTIONS))
    exception = dump.exception
    what = exception.name if exception else "an exception that cannot be read" if dump.failed else "no exception"
    if exception and exception.thrown_type:
        what = f"thrown {exception.thrown_type}"
    if not where:
        where = f"{dump.module.name} (nothing of ours)" if dump.module else "nothing of ours"
    return f"{what}: {where}"
