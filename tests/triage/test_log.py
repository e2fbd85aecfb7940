"""Logs are cut into runs, whatever happened to them."""
import io
import random
import unittest
import unittest.mock

from triage_lib import catalogue, request
from triage_lib.log import BadFormat, LineFormat, is_log, log_order
from triage_lib.model import Outcome, Run
from triage_lib.runs import RunCutter

CATALOGUE = catalogue.load()
BEGIN = "crashguard: CrashGuard global exception handler installed"
END = "crashguard: CrashGuard global exception handler uninstalled"
CRASH = "crashguard: Entering TopLevelExceptionFilter..."


def started(request: str) -> str:
    return f"wsc: wsc started: 'wsc_proxy.exe {request}'"


def dumped(code: str) -> str:
    return f"crashguard: Minidump created successfully. Exception code is: {code}"


def line(second: float, process: int, record: str) -> bytes:
    tag, text = record.split(": ", 1)
    minutes, seconds = divmod(second, 60)
    hours, minutes = divmod(int(minutes), 60)
    return f"2026-11-22 {22 + hours}:{minutes:02}:{seconds:06.3f} {process:6} {process + 4:6} info     {tag:<11}  {text}\r\n".encode()


def lines(process: int, *records: str, at: float = 0.0) -> bytes:
    """Lines of one process, a second apart."""
    return b"".join(line(at + second, process, record) for second, record in enumerate(records))


def cut(*files: bytes, line_format: LineFormat | None = None, keep: bool = False) -> tuple[list[Run], RunCutter]:
    runs: list[Run] = []
    cutter = RunCutter(CATALOGUE, line_format or LineFormat(), runs.append, keep)
    for file in files:
        cutter.read("wsc.log", io.BytesIO(file))
    cutter.finish()
    return runs, cutter


class Cutting(unittest.TestCase):
    def one(self, *records: str) -> Run:
        runs, cutter = cut(lines(8, BEGIN, started("/av /enable"), *records))
        self.assertEqual((1, {}), (len(runs), cutter.unknown))
        return runs[0]

    def test_outcomes(self) -> None:
        """What the guard and the module say decides: its last words, never the silence."""
        for records, outcome, result in (
                ((END,), Outcome.SUCCEEDED, 0),
                ((END, "crashguard: Failed to uninstall vectored handler."), Outcome.SUCCEEDED, 0),
                (("wsc: run: provider start (code 0x0000001f)", END), Outcome.FAILED, 0x1F),
                (("wsc: run: provider start (code 0x0000001f)",), Outcome.FAILED, 0x1F),
                (("wsc: run: std::bad_alloc", END), Outcome.FAILED, 31),
                ((), Outcome.DID_NOT_RETURN, None),
                ((CRASH,), Outcome.CRASHED, None),
                ((CRASH, dumped("c0000005")), Outcome.CRASHED, 0xC0000005),
                ((dumped("c00000fd"),), Outcome.CRASHED, 0xC00000FD),  # a stack overflow does not announce itself
                ((dumped("e06d7363"), END), Outcome.SUCCEEDED, 0),     # a fatal error that was caught
                ((CRASH, "crashguard: Warning: Relocated kernel32 detected.", END), Outcome.SUCCEEDED, 0),
                ((END, CRASH, dumped("c0000005")), Outcome.CRASHED, 0xC0000005)):
            with self.subTest(records):
                run = self.one(*records)
                self.assertEqual((outcome, result), (run.outcome, run.result))
                self.assertEqual(outcome is not Outcome.SUCCEEDED, run.failure is not None)

    def test_a_code_of_another_program_is_not_explained(self) -> None:
        for text, explained in (("provider start", False), ("setup run failed", False), ("cannot load x", True), ("a new text", True)):
            self.assertEqual(explained, self.one(f"wsc: run: {text} (code 0x0000001f)", END).result_meaning is not None)

    def test_where_it_stopped(self) -> None:
        """A run without an end is explained by its last line, a crash by whether its dump was written."""
        for records, meaning in (((), "ended from outside"), (("wsc: wsc starting providers",), "has not come back"),
                                 (("wsc: Updating struct IWscAVStatus", "wsc: wscsvc state 4"), "is disabled"),
                                 ((CRASH,), "while its dump was written"), (("wsc: Updating AV.", CRASH, dumped("c0000005")), "“installer”")):
            self.assertRegex(self.one(*records).failure.meaning, meaning + ("$" if records[-1:] == (dumped("c0000005"),) else ""))

    def test_mixed_processes_and_rolled_files(self) -> None:
        log = b"".join(line(second, process, record) for second, (process, record) in enumerate([
            (8, BEGIN), (12, BEGIN), (8, started("/svc")), (12, started("/av /disable")), (8, "wsc: run: bad action (code 0x000000a0)"),
            (12, "wsc: run: wsc disable refused (code 0xffffffff)"), (12, END), (8, END)]))
        for at in range(len(log.splitlines())):
            rows = log.splitlines(keepends=True)
            runs, cutter = cut(b"".join(rows[:at]), b"".join(rows[at:]))
            self.assertEqual([(12, "wsc disable refused"), (8, "bad action")], [(run.process, run.causes[0].text) for run in runs])
            self.assertEqual((0, 0, [False, False]), (cutter.unread_lines, cutter.other_lines, [run.begin_cut for run in runs]))

    def test_order_of_rolled_files(self) -> None:
        names = ["wsc.log", "wsc.log.1", "wsc.log.old", "wsc.log.10", "WSC.LOG.2"]
        self.assertEqual(["wsc.log.10", "WSC.LOG.2", "wsc.log.1", "wsc.log.old", "wsc.log"], sorted(names[::-1], key=log_order))
        self.assertEqual([True, False, False], [is_log(name) for name in ("Wsc.log.old", "wsc.log.zip", "update.log")])

    def test_cut_off_runs(self) -> None:
        log = lines(8, "wsc: UpdateStatus succeeded: 0x00000000", END) + lines(12, BEGIN, started("/av /update"), "wsc: Updating AV.", at=2)
        (first, last), cutter = cut(log[30:-20])
        self.assertEqual((8, True, Outcome.SUCCEEDED, None), (first.process, first.begin_cut, first.outcome, first.command_line))
        self.assertEqual((12, True, Outcome.DID_NOT_RETURN), (last.process, last.end_cut, last.outcome))
        self.assertEqual((2, {}), (cutter.unread_lines, cutter.unknown))  # the halves of two lines

    def test_process_numbers_come_again(self) -> None:
        killed = lines(8, BEGIN, started("/fw /enable"), "wsc: Starting FW.")
        twice = "crashguard: Attempting to install crashguard twice, ignored."
        runs, _ = cut(killed + lines(8, BEGIN, started("/av /upgrade"), twice, started("/fw /enable"), END, at=9))
        self.assertEqual([Outcome.DID_NOT_RETURN, Outcome.SUCCEEDED, Outcome.SUCCEEDED], [run.outcome for run in runs])
        self.assertEqual(3, len(cut(lines(8, BEGIN, CRASH) * 3)[0]))  # crashed before any request
        self.assertIn("crvData.dll", runs[0].failure.meaning)
        self.assertFalse(runs[0].end_cut)

    def test_time_in_steps(self) -> None:
        run = self.one("wsc: Registering struct IWscAVStatus", "wsc: wscsvc state 3", "wsc: wscsvc is not running, starting now",
                       "wsc: wsc service started successfully", "wsc: wsc pending: 0", "wsc: wsc pending: 100",
                       "wsc: Register succeeded: 0x00000000", dumped("e06d7363"), END)
        self.assertEqual({"start": 2000, "Security Center": 3000, "waiting for the service": 2000, "Security Center busy": 2000,
                          "writing a dump": 1000}, run.steps)
        self.assertEqual(sum(run.steps.values()), run.milliseconds)

    def test_clock_set_back(self) -> None:
        (run,), cutter = cut(lines(8, BEGIN, started("/av"), at=600) + lines(8, "wsc: Upgrading AV.", END))
        self.assertEqual((2000, True, 1), (run.milliseconds, run.clock_back, cutter.clock_steps))

    def test_what_is_no_line_of_ours(self) -> None:
        foreign = line(0, 99, "engine: scan") + line(1, 8, "cavm: license is old")
        damaged = lines(8, BEGIN, "wsc: wsc started: 'wsc_proxy.exe /svc /update /state:BAD'", "wsc: run: to_prod_state BAD (code 0x000000a0)", END)
        junk = b"\0" * 3_000_000 + b"\n" + b"\xff\xfe\n" + b"2026-99-99 22:00:00.000 8 8 info wsc x\r\n\r\n"
        rows = damaged.replace(b"BAD", b"\xe4").splitlines(keepends=True)
        (run,), cutter = cut(junk + rows[0] + foreign + b"".join(rows[1:]) + line(9, 8, "wsc: no such text 17"), keep=True)
        self.assertEqual({"WORD": "\\xe4"}, run.failure.fields)
        self.assertIn("/state:\\xe4", run.request.wrong)
        self.assertEqual((3, 1, {"no such text N": 1}), (cutter.unread_lines, cutter.other_lines, cutter.unknown))
        self.assertIn(("license is old", None), [(kept.text, kept.id) for kept in run.lines])

    def test_the_longest_command_line_is_there_as_a_whole(self) -> None:
        longest = "host /svd " + "\u20ac" * 32_700
        run, = cut(lines(8, BEGIN, f"wsc: wsc started: '{longest}'", f"wsc: run: run: {longest} (code 0x00000057)", END))[0]
        self.assertEqual((longest, 0x57), (run.command_line, run.result))

    def test_failures_within_failures(self) -> None:
        run = self.one("wsc: run: RunningUnderAdminAccount (code 0xffffffff) <- Unable to check token membership! (code 0x00000005)", END)
        self.assertEqual([0xFFFFFFFF, 5], [cause.code for cause in run.causes])
        run = self.one("wsc: run: run: x /state:a <- b (code 0x00000005) <- c (code 0x00000057)", END)
        self.assertEqual([("run: x /state:a <- b (code 0x00000005) <- c", 0x57)], [(cause.text, cause.code) for cause in run.causes])
        run = self.one("wsc: run: something new (code 0x00000007)", "wsc: change_defender_status: registry write (code 0x00000005)", END)
        self.assertEqual(("unknown", ["error: registry write"]), (run.failure.id, list(run.faults)))

    def test_hostile_amounts(self) -> None:
        """Neither processes that never end nor a run without end fill the memory."""
        many = b"".join(line(0, process, started("x" * 500)) for process in range(5000))
        runs, cutter = cut(many + lines(8, *["wsc: wsc pending: 7"] * 5000), keep=True)
        self.assertEqual(5001, len(runs))  # the one of process 8 is over when there are too many
        endless = max(runs, key=lambda run: run.line_count)
        self.assertEqual((5000, 4700), (endless.line_count, endless.left_out))
        self.assertEqual([*range(1, 101), *range(4801, 5001)], [kept.number for kept in endless.lines])

        with unittest.mock.patch("triage_lib.runs.MOST_CHARACTERS", 100):
            runs, _ = cut(lines(8, started("x" * 60), END) * 3 + lines(12, BEGIN) + lines(16, BEGIN, END) + lines(12, END))
            self.assertEqual(([8, 8, 8, 16, 12], {Outcome.SUCCEEDED}), ([run.process for run in runs], {run.outcome for run in runs}))
            self.assertEqual(4, len(cut(lines(8, started("x" * 60)) + lines(12, started("x" * 60)) + lines(16, BEGIN) + lines(8, END))[0]))

    def test_damage_anywhere(self) -> None:
        """Whatever bytes are changed, cut out or doubled, there are runs, and no exception."""
        chance = random.Random(1)
        log = lines(8, BEGIN, started("/svc /update /antivirus /state:ON"), dumped("e06d7363"), "wsc: run: to_prod_state ON (code 0x000000a0)", END)
        for _ in range(2000):
            begin, end = sorted(chance.choices(range(len(log)), k=2))
            piece = chance.choice([b"", log[begin:end] * 2, bytes(chance.choices(range(256), k=end - begin))])
            damaged = log[:begin] + piece + log[end:]
            _, cutter = cut(damaged)
            self.assertLessEqual(cutter.lines, damaged.count(b"\n") + 1)

    def test_line_formats(self) -> None:
        other = LineFormat("[{day}.{month}.{year} {hour}:{minute}:{second}] <{tag}> {process}: {text}")
        (run,), cutter = cut(b"[22.11.2026 10:00:00] <wsc> 8: wsc started: 'x /av'\n[22.11.2026 10:00:07] <wsc> 8: Upgrading AV.", line_format=other)
        self.assertEqual((7000, "x /av", 0), (run.milliseconds, run.command_line, cutter.unread_lines))
        for wrong in ("{text}", "{year} {text}", "{nonsense} {text}", LineFormat.__doc__, "{year}" * 2):
            self.assertRaises(BadFormat, LineFormat, wrong)


class Requests(unittest.TestCase):
    def test_words(self) -> None:
        for text, mode, action, wrong in (
                ('"C:\\a b\\wsc_proxy.exe" /SVC /Update /antivirus /state:on /signatures:up_to_date', "svc", "update", ()),
                ("host /svc /update /firewall /state:on /signatures:never", "svc", "update", ()),
                ("host /svc /update /antivirus /state:ON /signatures:never", "svc", "update", ("/state:ON", "/signatures:never")),
                ("host /svc /restart /antivirus", "svc", None, ("/restart",)),
                ("host /svc /register /av x", "av", None, ("x", "/register")),
                ("/svc /register", None, None, ()),
                ("host svc update", None, None, ("svc", "update")),
                ("host /as /disable /enable", "as", "enable", ()),
                ('host "/svc" "/update" "/state:a ""b"""', "svc", "update", ('/state:a "b"',)),
                ("", None, None, ()), ("host ", None, None, ()), ('"', None, None, ())):
            with self.subTest(text):
                described = request.describe(text)
                self.assertEqual((mode, action, wrong), (described.mode, described.action, described.wrong))
                self.assertTrue(described.words)


if __name__ == "__main__":
    unittest.main()
