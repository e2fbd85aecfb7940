#!/usr/bin/python3
"""What tools/triage takes: triage_bench.py [LARGEST], in MB, 100 unless given.

A log of 1, 10, 100 MB in each form of the report, then 1,000 zips with a log each. Every row is one process: the medians of its time
and of what it took of the processor, and its largest memory. Judges nothing.
"""
import datetime
import itertools
import os
import pathlib
import random
import statistics
import subprocess
import sys
import tempfile
import time
import zipfile
from collections.abc import Iterator

TRIAGE = pathlib.Path(__file__).resolve().parents[1] / "tools/triage"
ROUNDS = 3
ZIPS = 1000

BEGIN = ("info crashguard CrashGuard global exception handler installed",
         "info crashguard CrashGuard initialized successfully, external dumping enabled")
END = ("info crashguard CrashGuard global exception handler uninstalled",)
UPDATE = ("info wsc Updating struct IWscAVStatus", "info wsc UpdateStatus succeeded: 0x00000000", "info wsc disabling windows defender",
          "info wsc windows defender operation succeeded")
KINDS = (  # how often, the request, and what it leaves in the log
    (60, "/svc /update /antivirus /state:on /signatures:up_to_date", (*UPDATE, *END)),
    (10, "/av /enable", ("info wsc wsc starting providers", *END)),
    (10, "/svc /register /antispyware", ("info wsc Registering struct IWscASStatus", *(f"debug wsc wsc pending: {n}00" for n in range(9)),
                                         "info wsc Register succeeded: 0x00000000", *END)),
    (5, "/av /update", ("info wsc Updating AV.", "error wsc run: setup run failed (code 0x80070643)", *END)),
    (5, "/svc /update /antivirus /state:{n}", ("debug crashguard Minidump created successfully. Exception code is: e06d7363",
                                               "error wsc run: to_prod_state {n} (code 0x000000a0)", *END)),
    (5, "/av /disable", ("info wsc Restarting wsc_proxy.exe elevated.", "error wsc run: elevated wsc_proxy ended with error (code 0xffffffff)", *END)),
    (3, "/fw /enable", ("info wsc Starting FW.", "debug crashguard Entering TopLevelExceptionFilter...",
                        "debug crashguard Minidump created successfully. Exception code is: c0000005")),
    (2, "/svc /unregister /firewall", ("info wsc Unregistering struct IWscFWStatus",)),
)


def one_run(chance: random.Random, number: int) -> Iterator[str]:
    """What one process logs, without its time."""
    process = chance.randrange(4, 65536, 4)
    _, request, rest = chance.choices(KINDS, [kind[0] for kind in KINDS])[0]
    started = f"info wsc wsc started: '\"C:\\Program Files\\CORVID Software\\Corvid\\wsc_proxy.exe\" {request}'"
    for record in (*BEGIN, started, *rest):
        level, tag, text = record.format(n=number).split(" ", 2)
        yield f"{process:6} {process + 4:6} {level:<8} {tag:<11}  {text}\r\n"


def log_lines(seed: int) -> Iterator[bytes]:
    """Without end: three processes at a time."""
    chance = random.Random(seed)
    now = datetime.datetime(2026, 1, 1)
    for number in itertools.count(0, 3):
        for together in itertools.zip_longest(*(one_run(chance, number + i) for i in range(3))):
            for record in filter(None, together):
                now += datetime.timedelta(milliseconds=chance.randrange(20))
                yield f"{now.isoformat(' ', 'milliseconds')} {record}".encode()


def write_log(path: pathlib.Path, size: int) -> None:
    with path.open("wb") as file:
        for line in log_lines(size):
            file.write(line)
            if (size := size - len(line)) <= 0:
                return


def measure(words: list[str]) -> tuple[float, float, float]:
    """Seconds, seconds of the processor and MB of one process."""
    begin = time.perf_counter()
    process = subprocess.Popen([str(TRIAGE), *words], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    if os.waitstatus_to_exitcode(status) > 1:
        sys.exit(f"triage {' '.join(words)}: status {status}")
    return time.perf_counter() - begin, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def row(name: str, words: list[str], rounds: int = ROUNDS) -> None:
    seconds, processor, memory = zip(*(measure(words) for _ in range(rounds)))
    print(f"{name:<24}{statistics.median(seconds):>9.2f} s{statistics.median(processor):>9.2f} s{max(memory):>8.0f} MB", flush=True)


def main() -> int:
    if sys.argv[2:] or not all(word.isdigit() for word in sys.argv[1:]):
        print(__doc__, file=sys.stderr)
        return 2
    largest = int(sys.argv[1]) if sys.argv[1:] else 100
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        for size in (size for size in (1, 10, 100) if size <= largest):
            machine = folder / f"{size}"
            machine.mkdir()
            write_log(machine / "wsc.log", size * 1_000_000)
            for form, words in (("summary", []), ("--json", ["--json"]), ("--html", ["--html", str(folder / "page.html")])):
                row(f"{size} MB, {form}", [*words, str(machine)])
        for number in range(ZIPS):
            write_log(folder / "wsc.log", 10_000 + number)
            with zipfile.ZipFile(folder / f"{number}.zip", "w", zipfile.ZIP_DEFLATED) as archive:
                archive.write(folder / "wsc.log", "log/wsc.log")
        row(f"{ZIPS} zips of 10 kB", [str(folder / f"{number}.zip") for number in range(ZIPS)])
    return 0


if __name__ == "__main__":
    sys.exit(main())
