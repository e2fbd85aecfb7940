"""What is found reaches the reader: as a summary, as JSON, with the right status, and harmless."""
import contextlib
import dataclasses
import datetime
import io
import json
import os
import pathlib
import re
import sqlite3
import struct
import subprocess
import tempfile
import unittest
import zipfile
from typing import Any

from test_log import BEGIN, CRASH, END, dumped, lines, started
from test_minidump import CODE, Writer
from triage_lib import catalogue, command, examine, groups, matching, report_json, stacks
from triage_lib.log import LineFormat
from triage_lib.model import DumpRecord, Outcome, Run

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = ROOT / "tools/triage"
DOCUMENT = (ROOT / "docs/triage.md").read_text(encoding="utf-8")
REFUSED = lines(8, BEGIN, started("/svc /update /antivirus /state:ON"), "wsc: run: to_prod_state ON (code 0x000000a0)", END)
UNTRUSTED = lines(12, BEGIN, started("/svc /register /firewall"), "wsc: run: not trusted start, parent pid: 384 (code 0x00000005)", END, at=20)


class Reports(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def machine(self, name: str, **files: bytes) -> str:
        (self.folder / name).mkdir()
        for file, content in files.items():
            (self.folder / name / file.replace("_", ".")).write_bytes(content)
        return str(self.folder / name)

    def triage(self, *words: str) -> tuple[int, str]:
        out = io.StringIO()
        with contextlib.redirect_stdout(out), contextlib.redirect_stderr(out):
            try:
                status = command.main(list(words))
            except SystemExit as end:
                status = int(end.code or 0)
        return status, out.getvalue()

    def json(self, *words: str) -> dict[str, list[dict[str, Any]]]:
        kinds: dict[str, list[dict[str, Any]]] = {"machine": [], "run": [], "dump": [], "group": [], "problem": []}
        for line in self.triage("--json", *words)[1].splitlines():
            record = json.loads(line)
            kinds[record.pop("kind")].append(record)
        return kinds

    def test_the_cause_is_named(self) -> None:
        status, text = self.triage(self.machine("one", wsc_log=REFUSED + UNTRUSTED))
        self.assertEqual(0, status)
        self.assertRegex(text.split("=== The runs")[0], "(?s)1 run on 1 machine.*means +the state is none of.*do +correct WORD")
        for expected in ("2 failed", "/state:ON", "correct “ON” in the command line", "untrusted parent process", "does not trust process 384"):
            self.assertIn(expected, text)

    def test_what_lies_behind_a_failure_and_beside_it(self) -> None:
        text = self.triage(self.machine("one", wsc_log=lines(8, BEGIN, started("/av /enable"), "wsc: cavmstop failed 7",
                                                             "wsc: run: RunningUnderAdminAccount <- AllocateAndInitializeSid (code 0x00000057)")))[1]
        self.assertRegex(text, r"(?s)because +AllocateAndInitializeSid \(0x00000057\).*also +cavmstop failed 7: the AV manager did not")

    def test_statuses(self) -> None:
        log = self.machine("log", wsc_log=REFUSED)
        bad = self.folder / "bad.zip"
        bad.write_bytes(b"no zip")
        good, link = self.folder / "good.zip", self.folder / "link"
        link.symlink_to(log)
        with zipfile.ZipFile(good, "w") as archive:
            archive.writestr("a/wsc.log", REFUSED)
        for status, words, expected in (
                (0, [log], "to_prod_state"), (0, [str(good)], "to_prod_state"), (0, [log, f"{log}/.", str(link)], "1 machine, "),
                (0, [str(good), str(good)], "and counts once"),
                (1, [self.machine("empty")], "neither a log (wsc.log) nor a dump"), (1, [str(self.folder / "missing")], "missing"),
                (1, [str(bad), log], "bad.zip"), (1, [self.machine("junk", wsc_log=b"junk\n" * 3)], "none of its 3 lines"),
                (1, [self.machine("dump", a_mdmp=b"MDMP", wsc_log=REFUSED)], "a.mdmp"),
                (1, [self.machine("unknown", wsc_log=lines(8, BEGIN, "wsc: a new text"))], "a new text"),
                (1, [self.machine("long", wsc_log=lines(8, BEGIN, "engine: " + "x" * (1 << 17)))], "1 of 2 lines are longer than 128 KiB"),
                (2, [], "usage"), (2, ["--nonsense", log], "usage"), (2, ["--line-format", "{text}", log], "lacks {year}"),
                (2, ["--symbols", "/nowhere.zip", log], "/nowhere.zip"), (2, ["--html", "/nowhere/page.html", log], "/nowhere"),
                (2, ["--html", "/dev/null", log], "/dev/null"), (2, ["--html", str(good), log], "no page"), (2, ["--html", "", log], "empty"), (2, ["--symbols", "", log], "empty")):
            with self.subTest(words):
                found, text = self.triage(*words)
                self.assertEqual(status, found, text)
                self.assertIn(expected, text)

    def test_a_terminal_without_the_characters(self) -> None:
        done = subprocess.run([PROGRAM, self.machine("one", wsc_log=REFUSED)], capture_output=True, check=False,
                              env={**os.environ, "PYTHONIOENCODING": "ascii"})
        self.assertEqual((0, b""), (done.returncode, done.stderr))

    def test_the_page_is_made_though_nobody_reads_the_rest(self) -> None:
        page, (read, write) = self.folder / "page.html", os.pipe()
        os.close(read)
        done = subprocess.run([PROGRAM, "--html", str(page), "--json", self.machine("one", wsc_log=REFUSED * 1000)], stdout=write, check=False)
        os.close(write)
        self.assertEqual((0, True), (done.returncode, page.is_file()))

    def test_a_bar_on_a_terminal(self) -> None:
        terminal = io.StringIO()
        terminal.isatty = lambda: True  # type: ignore[method-assign]
        with contextlib.redirect_stderr(terminal), contextlib.redirect_stdout(io.StringIO()):
            command.main([self.machine("one", wsc_log=REFUSED), self.machine("two", wsc_log=REFUSED)])
        self.assertRegex(terminal.getvalue(), r"\[ {40}\] 0/2 .*one\r.*\[#{20} {20}\] 1/2 .*two\r\x1b\[K\Z")

    def test_json_is_as_documented(self) -> None:
        kinds = self.json(self.machine("one", wsc_log=REFUSED), self.machine("two", wsc_log=UNTRUSTED + b"junk\n" + REFUSED))
        kinds["dump"] = [report_json.dump_json(dataclasses.replace(dump(8, 1), offset=0x1234))]
        for kind, records in kinds.items():
            section = DOCUMENT.split(f'### `"kind": "{kind}"`')[1].split("\n#")[0]
            fields = [name for row in re.findall(r"^\| (`.*?`) \|", section, re.M) for name in re.findall(r"`(\w+)`", row)]
            for record in records:
                self.assertCountEqual(fields, record)
        self.assertEqual(("0x1234", "1970-01-01T00:00:01.000Z"), (kinds["dump"][0]["offset"], kinds["dump"][0]["time"]))
        self.assertEqual(["r1.1", "r2.1", "r2.2"], [run["id"] for run in kinds["run"]])
        self.assertEqual([1, 2], [machine["runs"] for machine in kinds["machine"]])
        self.assertEqual([2, 3, 1, 2], [len(kinds[kind]) for kind in ("machine", "run", "problem", "group")])
        self.assertEqual([(2, 2), (1, 1)], [(group["machines"], group["runs"]) for group in kinds["group"]])
        self.assertEqual(("2026-11-22T22:00:00.000", 3.0), (kinds["run"][0]["begin"], kinds["run"][0]["seconds"]))

    def test_a_dump_tells_when_all_runs_were_in_utc(self) -> None:
        made = int(datetime.datetime(2026, 11, 22, 21, 0, 12, tzinfo=datetime.timezone.utc).timestamp())
        dump = Writer().module("a").exception(5, CODE).stream(15, struct.pack("<III12x", 24, 1, 8)).bytes(made)
        log = REFUSED + lines(8, BEGIN, CRASH, dumped("c0000005"), at=10)
        one, two = self.machine("one", wsc_log=log, a_mdmp=dump), self.machine("two", wsc_log=log)
        self.assertEqual(["2026-11-22T21:00:00.000Z", "2026-11-22T21:00:10.000Z"], [run["begin_utc"] for run in self.json(one)["run"]])
        first = [next(group["first"] for group in self.json(*machines)["group"] if "state" in group["title"]) for machines in ([one], [one, two])]
        self.assertEqual(["2026-11-22T21:00:00.000Z", "2026-11-22T22:00:00.000"], first)  # never both in one group

    def test_the_documented_queries(self) -> None:
        _, text = self.triage("--json", self.machine("one", wsc_log=REFUSED + UNTRUSTED), self.machine("two", wsc_log=REFUSED))
        script = DOCUMENT.split("<<'END'\n")[1].split("    END\n")[0]
        statements = [part.strip() for part in re.sub(r"^ +\..*\n", "", script, flags=re.M).split(";") if part.strip()]
        database = sqlite3.connect(":memory:")
        database.execute(statements[0])
        database.executemany("INSERT INTO line VALUES (?)", [(line,) for line in text.splitlines()])
        answers = [database.execute(statement).fetchall() for statement in statements[1:]]
        self.assertEqual(("wrong word behind /state:", 2, 2), answers[2][0][:3])
        self.assertEqual([("start", 9.0)], [(step, seconds) for step, seconds in answers[4] if step == "start"])

    def test_nothing_reaches_the_terminal(self) -> None:
        nasty = lines(8, BEGIN, started("\x1b]0;owned\x07 \u202e /av /enable"), "wsc: run: \x1b[2Jnew (code 0x00000001)", "wsc: \x9b31m new", END)
        machine = self.machine("nasty\x1b[1m", wsc_log=nasty)
        for words in ([machine], ["--json", machine], ["--symbols", "owned\x1b[1m", machine], ["--html", "/owned\x1b/x", machine, machine]):
            text = self.triage(*words)[1]
            self.assertIn("owned", text)
            self.assertNotRegex(text, "[\x00-\x09\x0b-\x1f\x7f-\x9f\u202e]")

    def test_the_page_data_is_as_documented(self) -> None:
        known = catalogue.load()
        page, found = report_json.Page(known), groups.Groups(known)
        options = examine.Options(LineFormat(), stacks.Symbols(), keep_lines=True)
        examine.examine([self.machine("one", wsc_log=REFUSED)], known, options, page.take, lambda done, name: None)
        data = json.loads(json.dumps(page.data(found, datetime.datetime(2026, 11, 23))))
        section = DOCUMENT.split("## The page's data")[1]
        (run,) = data["runs"]
        for name in re.findall(r"^\| `(\w+)` \|", section, re.M):
            self.assertIn(name, data)
        self.assertEqual({"at", "thread", "level", "tag", "text", "id", "number"}, set(run["lines"][0]))
        self.assertEqual("2026-11-22T22:00:01.000", run["lines"][1]["at"])
        self.assertTrue({*(line["id"] for line in run["lines"]), run["failure"]["id"]} <= set(data["texts"]))
        self.assertEqual(["0x000000a0"], list(data["results"]))


def dump(process: int, time: int) -> DumpRecord:
    return DumpRecord("d", "", "", 0, process, time, None, None, None, [], None, {}, "crash", "", "", None, None, None, None)


def run(process: int, begin: int, *at: int) -> Run:
    return Run("wsc.log", process, begin * 1000, (begin + 60) * 1000, outcome=Outcome.CRASHED, dumped=[second * 1000 for second in at])


class Matching(unittest.TestCase):
    def test_dumps_find_their_runs(self) -> None:
        """In whatever zone the machine was, and though process numbers come again."""
        for minutes in (0, 60, -570, 765):
            zone = 100_000 + minutes * 60
            first, second, cut_off = run(8, zone, zone + 30), run(8, zone + 5000, zone + 5020, zone + 5040), run(12, zone + 300)
            runs = {8: [first, second], 12: [cut_off]}
            dumps = [dump(8, 105_018), dump(8, 105_039), dump(8, 100_028), dump(12, 100_350), dump(12, 180_000), dump(16, 100_000)]
            self.assertEqual(minutes, matching.find_offset(dumps, runs))
            pairs = matching.match(dumps, runs, minutes)
            self.assertEqual([(dumps[0], second), (dumps[1], second), (dumps[2], first), (dumps[3], cut_off)], pairs)
        self.assertIsNone(matching.find_offset([dump(8, 1), dump(99, 0)], runs))

    def test_daylight_saving(self) -> None:
        summer, winter = run(8, 1_007_200, 1_007_230), run(12, 9_003_600, 9_003_630)
        runs, dumps = {8: [summer], 12: [winter]}, [dump(8, 1_000_029), dump(12, 9_000_029)]
        offset = matching.find_offset(dumps, runs)
        self.assertEqual([summer, winter], [found for _, found in matching.match(dumps, runs, offset or 0)])


if __name__ == "__main__":
    unittest.main()
