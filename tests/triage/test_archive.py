"""What customers send, and what somebody sends who means harm."""
import os
import pathlib
import stat
import struct
import tempfile
import tracemalloc
import unittest
import zipfile

from triage_lib import archive

LOG = b"2026-11-22 22:07:20.659  264  268 info   wsc  wsc started\r\n" * 1000


def read(machine):
    """Path -> bytes of all files, and path -> reason of the problems, those of the reading too."""
    contents = {}
    for file in machine.files:
        with file.open() as stream:
            contents[file.path] = stream.read()
    return contents, {problem.path: problem.reason for problem in machine.problems}


class ArchiveTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.zip = self.folder / "customer.zip"

    def make(self, *entries, method=zipfile.ZIP_DEFLATED):
        with zipfile.ZipFile(self.zip, "w", method) as file:
            for name, content in entries:
                file.writestr(name, content)
        return bytearray(self.zip.read_bytes())

    def read(self, data=None, limits=archive.Limits()):
        if data is not None:
            self.zip.write_bytes(data)
        return read(archive.open_machine(self.zip, limits))

    def test_a_zip_is_read_in_place(self):
        self.make(("log/", b""), ("log/wsc.log", LOG), ("log/unp1.mdmp", b"MDMP"), ("log/empty", b""))
        self.assertEqual(self.read(), ({"log/wsc.log": LOG, "log/unp1.mdmp": b"MDMP", "log/empty": b""}, {}))
        self.assertEqual(os.listdir(self.folder), ["customer.zip"])

    def test_large_sizes_and_a_program_before_the_archive(self):
        with zipfile.ZipFile(self.zip, "w") as file, file.open("wsc.log", "w", force_zip64=True) as entry:
            entry.write(LOG)
        self.assertEqual(self.read(b"MZ" * 500 + self.zip.read_bytes()), ({"wsc.log": LOG}, {}))
        data = bytearray(self.zip.read_bytes())
        end = data.rfind(b"PK\5\6")
        size, place = struct.unpack_from("<II", data, end + 12)
        entry = data.find(b"PK\1\2")
        packed, unpacked = struct.unpack_from("<II", data, entry + 20)
        data[entry + 20:entry + 28], data[entry + 30:entry + 32] = b"\xff" * 8, b"\x18\0"
        data[end:end] = struct.pack("<HHHHQQ", 0x7777, 0, 1, 16, unpacked, packed)  # behind another record
        size, end = size + 24, end + 24
        large = struct.pack("<4sQ2H2I4Q", b"PK\6\6", 44, 45, 45, 0, 0, 1, 1, size, place) + struct.pack("<4sIQI", b"PK\6\7", 0, end, 1)
        ends = b"PK\5\6" + bytes(4) + b"\xff" * 12 + bytes(2)
        self.assertEqual(self.read(data[:end] + large + ends), ({"wsc.log": LOG}, {}))

    def test_names_that_lead_elsewhere_are_read_under_safe_ones(self):
        self.make(("../../etc/wsc.log", b"1"), ("/etc/wsc.log", b"2"), ("C:\\log\\wsc.log", b"3"), ("..\\NUL.txt", b"4"), ("con", b"5"),
                  ("a\x1b[31m\u202eb", b"6"), ("wsc.log", b"7"), ("WSC.LOG", b"8"))
        contents, problems = self.read()
        self.assertEqual(sorted(contents.values()), [b"%d" % number for number in range(1, 9)])
        self.assertEqual(list(contents), ["etc/wsc.log", "etc/wsc.log (2)", "C_/log/wsc.log", "_NUL.txt", "_con", "a\ufffd[31m\ufffdb", "wsc.log",
                                          "WSC.LOG (2)"])
        self.assertEqual(set(contents) - set(problems), {"wsc.log"})

    def test_what_is_no_plain_file_is_passed_over(self):
        entries = [("wsc.log", LOG), ("nested.zip", b"PK")]
        for name, kind in ("link", stat.S_IFLNK), ("pipe", stat.S_IFIFO), ("device", stat.S_IFCHR):
            entry = zipfile.ZipInfo(name)
            entry.create_system, entry.external_attr = 3, (kind | 0o777) << 16
            entries.append((entry, b"/etc/passwd"))
        self.make(*entries)
        contents, problems = self.read()
        self.assertEqual((list(contents), set(problems)), (["wsc.log"], {"nested.zip", "link", "pipe", "device"}))

    def test_one_bad_file_leaves_the_others(self):
        plain = self.make(("bad", LOG), ("good", LOG))
        listed = plain.find(b"PK\1\2")  # the entry of "bad"
        for reason, changes in {
                "is encrypted": [(listed + 8, b"\1")], "(LZMA)": [(listed + 10, b"\x0e")], "wrong checksum": [(listed + 16, b"1234")],
                "more than its size": [(listed + 24, b"\5\0\0\0")], "bomb": [(listed + 24, b"\0\0\0\x70")],
                "breaks off": [(listed + 24, b"\0\0\1\0")], "larger than": [(listed + 24, b"\xff\xff\xff\xfe")],
                "where the list": [(listed + 42, b"\7")], "called otherwise": [(listed + 46, b"x")],
                "cannot be unpacked": [(plain.find(b"bad") + 3, b"\xff\xff\xff\xff")]}.items():
            data = bytearray(plain)
            for place, change in changes:
                data[place:place + len(change)] = change
            contents, problems = self.read(data)
            self.assertEqual(contents.get("good"), LOG, reason)
            self.assertEqual(len(problems), 1, problems)
            self.assertIn(reason, *problems.values())

    def test_files_that_share_their_bytes_are_read_once(self):
        data = self.make(("a", LOG), ("b", LOG))
        second = data.find(b"PK\1\2", data.find(b"PK\1\2") + 1)
        data[second + 42:second + 46] = bytes(4)
        data[second + 46:second + 47] = b"a"
        contents, problems = self.read(data)
        self.assertEqual((contents, list(problems)), ({"a": LOG}, ["a (2)"]))

    def test_a_bomb_is_bounded(self):
        self.make(*((f"{number}", bytes(1 << 20)) for number in range(9)))
        contents, problems = self.read(limits=archive.Limits(small=1 << 10))
        self.assertEqual((len(contents), len(problems)), (0, 9))
        for limits in (archive.Limits(machine=3 << 20), archive.Limits(small=3 << 20)):
            contents, problems = self.read(limits=limits)
            self.assertEqual((len(contents), len(problems)), (3, 6))
        contents, problems = self.read(limits=archive.Limits(entries=5))
        self.assertEqual((len(contents), len(problems)), (5, 1))
        contents, problems = self.read(limits=archive.Limits(directory=100))
        self.assertEqual((len(contents), "list of contents" in problems[str(self.zip)]), (9, True))

    def test_an_archive_that_was_cut_off_is_read_as_far_as_it_goes(self):
        data = self.make(("first", LOG), ("second", os.urandom(5000)))
        for length in range(0, len(data), 7):
            contents, problems = self.read(data[:length])
            self.assertTrue(problems)
            self.assertLessEqual(len(contents), 2)
        self.assertEqual(contents.get("first"), LOG)

    def test_a_damaged_archive_never_raises(self):
        data = self.make(("first", LOG), ("second", b"x" * 99))
        for place in range(len(data)):
            for value in {0, 1, 0xFF, data[place] ^ 0x80}:
                self.read(data[:place] + bytes([value]) + data[place + 1:])

    def test_a_folder_gives_its_files_and_nothing_hangs(self):
        log = self.folder / "logs/sub"
        log.mkdir(parents=True)
        (log / "wsc.log").write_bytes(LOG)
        (log / "out").symlink_to("/etc/passwd")
        (log / "around").symlink_to("..")
        os.mkfifo(log / "pipe")
        (log / "gone").write_bytes(b"1")
        (pathlib.Path(os.fsdecode(os.fsencode(log) + b"/\xff\x1b"))).write_bytes(b"2")
        machine = archive.open_machine(self.folder / "logs")
        (log / "gone").unlink()
        os.mkfifo(log / "gone")
        contents, problems = read(machine)
        self.assertEqual(contents, {"sub/wsc.log": LOG, "sub/gone": b"", "sub/\ufffd\ufffd": b"2"})
        self.assertEqual(set(problems), {"sub/out", "sub/around", "sub/pipe", "sub/gone"})

    def test_what_is_neither_is_a_problem_of_the_machine(self):
        os.mkfifo(self.folder / "pipe.zip")
        (self.folder / "empty.zip").touch()
        (self.folder / "text.zip").write_text("no zip")
        (self.folder / "wsc.log").write_bytes(LOG)
        names = ["pipe.zip", "empty.zip", "text.zip", "missing", "wsc.log", "/dev/zero"]
        machines = list(archive.open_inputs([self.folder / name for name in names]))
        self.assertEqual([len(machine.problems) for machine in machines], [1, 1, 1, 1, 0, 1])
        self.assertEqual(read(machines[4])[0], {"wsc.log": LOG})

    def test_many_archives_take_the_memory_of_one(self):
        self.make(*((f"{number}.log", b"x") for number in range(100)))
        tracemalloc.start()
        count = sum(len(machine.files) for machine in archive.open_inputs([self.zip] * 200))
        self.assertEqual(count, 20_000)
        self.assertLess(tracemalloc.get_traced_memory()[1], 4 << 20)
        tracemalloc.stop()


if __name__ == "__main__":
    unittest.main()
