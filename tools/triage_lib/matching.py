"""Which dump belongs to which run: that of its process and time, once it is known how far the machine's clock is from UTC."""
from __future__ import annotations

import collections
from collections.abc import Mapping

from .model import DumpRecord, Run

QUARTER = 15 * 60_000        # ms; zones differ by quarters of an hour
FARTHEST = 14 * 4 + 4        # quarters that a zone may be from UTC
LONGEST_WRITE = 120_000      # ms between a dump's time and what the log says of it


def _distance(run: Run, local: int) -> int:
    """ms between a moment and what the log says of a dump, or else the run."""
    if run.dumped:
        return min(abs(at - local) for at in run.dumped)
    return max(run.begin - local, local - run.end - LONGEST_WRITE, 0)


def find_offset(dumps: list[DumpRecord], runs: Mapping[int | None, list[Run]]) -> int | None:
    """Minutes by which the machine's clock is ahead of UTC: what explains the most dumps. None when nothing does."""
    votes: collections.Counter[int] = collections.Counter()
    for dump in dumps:
        if dump.process is None or dump.time is None:
            continue
        offsets = set()
        for run in runs.get(dump.process, ()):
            for at in run.dumped or (run.end,):
                quarters = round((at - dump.time * 1000) / QUARTER)
                if abs(quarters) <= FARTHEST and abs(at - dump.time * 1000 - quarters * QUARTER) <= LONGEST_WRITE:
                    offsets.add(quarters)
        votes.update(offsets)
    if not votes:
        return None
    best = max(votes, key=lambda quarters: (votes[quarters], -abs(quarters)))
    return best * QUARTER // 60_000


def match(dumps: list[DumpRecord], runs: Mapping[int | None, list[Run]], offset: int) -> list[tuple[DumpRecord, Run]]:
    """Each dump with its run, when there is one. An hour more or less is daylight saving."""
    pairs = []
    for dump in dumps:
        if dump.process is None or dump.time is None:
            continue
        for minutes in (offset, offset + 60, offset - 60):
            local = dump.time * 1000 + minutes * 60_000
            nearest = min(runs.get(dump.process, ()), key=lambda run: _distance(run, local), default=None)
            if nearest is not None and _distance(nearest, local) <= LONGEST_WRITE:
                nearest.utc_offset = minutes
                pairs.append((dump, nearest))
                break
    return pairs
