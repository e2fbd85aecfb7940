"""Minidumps as the tour left them, as other writers make them, and as somebody makes them who means harm."""
import dataclasses
import io
import os
import pathlib
import random
import re
import struct
import tempfile
import time
import tracemalloc
import unittest
import unittest.mock
import zipfile

import machine
from triage_lib import archive, minidump, signature, stacks
from triage_lib.symbol_files import read_image

BUILD = pathlib.Path(__file__).resolve().parents[2] / "build"
MUTATIONS = 10_000
LONGEST = 2.0  # s of processor time for one dump of some kilobytes
STACK, CODE = 0x200000, 0x10000000


def tour():
    """The folder with the dumps of the tour, and the rows of its list: name, code, innermost place, step."""
    folder = machine.installed()[1] / "tour"
    return folder, [line.split("\t") for line in (folder / "dumps.tsv").read_text("utf-8").splitlines()]


def named_at(name):
    """Seconds since 1970: the high and the low half of the system time stand behind each other."""
    high, low = re.fullmatch(r"unp(\d{8})(\d+)\.mdmp", name).groups()
    return (int(high) << 32 | int(low)) / 10_000_000 - 11_644_473_600


def stores():
    return [*(BUILD / "stores/package").glob("*-symbols.zip"), BUILD / "stores/standins"]


def text(value):
    data = value.encode("utf-16-le")
    return struct.pack("<I", len(data)) + data + b"\0\0"


class Writer:
    """Makes dumps that Wine does not."""

    def __init__(self):
        self.content, self.streams = bytearray(0x400), []

    def put(self, data):
        self.content += bytes(-len(self.content) % 4) + data
        return len(self.content) - len(data)

    def stream(self, kind, data):
        self.streams.append((kind, len(data), self.put(data)))
        return self

    def system(self, architecture=0, major=10, minor=0, build=22631, product=1, pack=""):
        return self.stream(7, struct.pack("<HHHBBIIIIIHH", architecture, 6, 0, 8, product, major, minor, build, 2, self.put(text(pack)), 0, 0) + bytes(24))

    def module(self, path, debug=b"", base=CODE, size=0x10000, version=(0x10002, 0x30004)):
        place, name = self.put(debug), self.put(text(path))
        fixed = struct.pack("<IIII", 0xFEEF04BD, 0x10000, *version).ljust(52, b"\0")
        return self.stream(4, struct.pack("<IQIIII52sII24x", 1, base, size, 0, 0x12345678, name, fixed, len(debug), place))

    def exception(self, code, address, parameters=(), frame=STACK, flags=0x1007F, size=716):
        context = struct.pack("<I176xII8xI", flags, frame, address, STACK).ljust(716, b"\0")
        record = struct.pack("<IIIIQQII", 7, 0, code, 0, 0, address, len(parameters), 0) + struct.pack("<15Q", *parameters, *[0] * (15 - len(parameters)))
        return self.stream(6, record + struct.pack("<II", size, self.put(context)))

    def memory(self, *ranges):
        return self.stream(5, struct.pack("<I", len(ranges)) + b"".join(struct.pack("<QII", at, len(data), self.put(data)) for at, data in ranges))

    def bytes(self, time=1_700_000_000):
        content = self.content
        struct.pack_into("<4sHHIIIIQ", content, 0, b"MDMP", 0xA793, 0, len(self.streams), 32, 0, time, 0)
        for number, stream in enumerate(self.streams):
            struct.pack_into("<III", content, 32 + 12 * number, *stream)
        return bytes(content)


class TourTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder, cls.rows = tour()

    def test_every_dump_leads_to_the_function_that_failed(self):
        signatures = {}
        with stacks.Symbols(stores()) as symbols:
            for name, code, place, step in self.rows:
                with self.subTest(step), (self.folder / name).open("rb") as file:
                    dump = minidump.read(file)
                    stack = symbols.stack(dump)
                    ours = [frame for frame in stack.frames if frame.ours]
                    self.assertEqual((dump.exception.code, dump.problems, stack.note), (int(code, 16), [], ""))
                    self.assertRegex(f"{ours[0].function} at {ours[0].file}:{ours[0].line}", place)
                    self.assertEqual(sum(not frame.inlined for frame in stack.frames), len(dump.stack))
                    self.assertLess(abs(dump.time - named_at(name)), 60)
                    self.assertTrue(all(stack.matches.values()) and dump.process_id and dump.windows.version)
                    self.assertEqual(dump.writer, minidump.BY_PROCESS if "Dumped by" in dump.comment else minidump.BY_DUMPER)
                    self.assertEqual(dump.at_throw, dump.exception.thrown_type == "crv::exceptions::fatal")
                    named = signature.of(dump, stack.frames)
                    self.assertIn(ours[0].function, named)
                    self.assertNotRegex(named, r"0x|:\d|\bat\b")
                    signatures.setdefault(step, set()).add(named)
        self.assertTrue(self.rows)
        self.assertEqual({len(found) for found in signatures.values()}, {1})  # one step crashes at one place, however often

    def test_what_is_missing_for_names_is_said(self):
        name = next(row[0] for row in self.rows if "SelectAction" in row[2])
        dump = minidump.read((self.folder / name).read_bytes())
        wsc = next(module for module in dump.modules if module.name == "wsc.dll")

        def note(symbols, **other):
            changed = [dataclasses.replace(wsc, **other)]
            moved = [dataclasses.replace(frame, module=changed[0]) for frame in dump.stack if frame.module == wsc]
            with symbols:
                stack = symbols.stack(dataclasses.replace(dump, modules=changed, stack=moved))
            self.assertIn("wsc.dll (no symbols)", signature.of(dump, stack.frames))
            return stack.note

        product = stores()[0]
        with tempfile.TemporaryDirectory() as folder:
            with zipfile.ZipFile(product) as file:
                file.extractall(folder)
            image = next(pathlib.Path(folder).glob("wsc.dll/*/wsc.dll"))
            record = read_image(image.read_bytes()).record
            database = pathlib.Path(folder) / record.name / record.key / record.name
            self.assertIn("no symbols were given", note(stacks.Symbols()))
            self.assertIn("no symbols of wsc.dll", note(stacks.Symbols([BUILD / "stores/standins"])))
            self.assertIn("other builds of wsc.dll", note(stacks.Symbols([product]), timestamp=1))
            self.assertIn("its program database is", note(stacks.Symbols([product]), pdb_key="0" * 33))
            database.write_bytes(b"Microsoft C/C++ MSF 7.00\r\n" + os.urandom(4096))
            self.assertIn("finds no names", note(stacks.Symbols([folder])))
            database.unlink()
            self.assertIn("database of wsc.dll is missing", note(stacks.Symbols([folder])))
            image.write_bytes(b"MZ" + bytes(0x3A) + struct.pack("<I", 0x40) + b"PE\0\0" + bytes(400))
            self.assertIn("does not match", note(stacks.Symbols([folder])))
            image.write_bytes(b"no image")
            self.assertIn("the image wsc.dll", note(stacks.Symbols([folder])))
            hanging = pathlib.Path(folder) / "hanging"
            hanging.write_text("#!/bin/sh\nsleep 100 & sleep 100\n")
            hanging.chmod(0o755)
            for debugger, said in ("/missing/lldb", "not to be had"), (str(hanging), "longer than"), ("/bin/true", "ended early"):
                with unittest.mock.patch.multiple(stacks, DEBUGGER=debugger, LONGEST_RUN=1):
                    self.assertIn(said, note(stacks.Symbols([product])))
        for wrong in "/missing", __file__, "/dev/null", "/proc/self/fd":
            self.assertRaises(stacks.BadStore, stacks.Symbols, [wrong])

    def test_a_dump_in_a_zip_is_read_like_one_in_a_folder(self):
        path = self.folder / self.rows[0][0]
        with tempfile.TemporaryDirectory() as folder:
            with zipfile.ZipFile(f"{folder}/a.zip", "w", zipfile.ZIP_DEFLATED) as file:
                file.write(path, "a.mdmp")
            (found,) = archive.open_machine(f"{folder}/a.zip").files
            with found.open() as stream:
                self.assertEqual(minidump.read(stream), minidump.read(path.read_bytes()))


class HarmTest(unittest.TestCase):
    def setUp(self):
        folder, rows = tour()
        self.dumps = [(folder / row[0]).read_bytes() for row in rows]
        self.symbols = stacks.Symbols()

    def read(self, data):
        """Nothing but BadDump comes of it, in bounded time."""
        begin = time.process_time()
        try:
            dump = minidump.read(data)
            signature.of(dump, self.symbols.stack(dump).frames)
        except minidump.BadDump as failure:
            self.assertTrue(str(failure))
        self.assertLess(time.process_time() - begin, LONGEST)

    def test_mutations(self):
        seed = int(os.environ.get("TRIAGE_SEED") or random.SystemRandom().randrange(1 << 32))
        print(f"mutations of dumps with TRIAGE_SEED={seed}")
        chance = random.Random(seed)
        values = [b"\0\0\0\0", b"\xff\xff\xff\xff", b"\xff\xff\xff\x7f", b"\0\0\0\x80", b"\1\0\0\0"]
        for number in range(MUTATIONS):
            data = bytearray(chance.choice(self.dumps))
            count, directory = struct.unpack_from("<8xII", data)
            places = [place for _, _, place in struct.iter_unpack("<III", data[directory:directory + 12 * count])]
            for _ in range(chance.randint(1, 5)):
                # The numbers that lead elsewhere: the header, the directory, the heads of the streams; sometimes anything.
                begin, length = chance.choice([(0, 32), (directory, 12 * count), (0, len(data) - 4), *((place, 172) for place in places)])
                at = min(begin + chance.randrange(length), len(data) - 4)
                at -= at % 4 if chance.random() < 0.7 else 0
                data[at:at + 4] = chance.choice([*values, chance.randbytes(4), struct.pack("<I", chance.randrange(len(data) + 64)),
                                                 bytes([data[at] ^ 1 << chance.randrange(8)]) + data[at + 1:at + 4]])
            try:
                self.read(bytes(data))
            except Exception as failure:
                raise AssertionError(f"mutation {number} of TRIAGE_SEED={seed}") from failure

    def test_every_length(self):
        data = self.dumps[0]
        for length in range(len(data)):
            self.read(data[:length])
        with self.assertRaisesRegex(minidump.BadDump, "empty"):
            minidump.read(b"")
        self.assertRaises(minidump.BadDump, minidump.read, b"PK\3\4" * 100)
        half = minidump.read(data[:len(data) // 2])
        self.assertTrue(half.modules and half.problems and half.failed)
        self.assertIn("cannot be read", signature.of(half, []))

    def test_numbers_that_the_file_does_not_back_up(self):
        data = Writer().system().module("C:\\a.dll").exception(0xC0000005, CODE).bytes()
        lists = [Writer().stream(kind, struct.pack("<I", count) + bytes(400)).bytes() for kind in (3, 4, 5, 9) for count in (1 << 16, (1 << 32) - 1)]
        one = struct.pack("<QIIII52x40x", CODE, 1, 0, 0, 0x400)  # its name is the largest part of the file
        many = Writer()
        many.put(struct.pack("<I", 1 << 20) + b"a\0" * (1 << 19))
        many.stream(4, struct.pack("<I", 1 << 14) + one * (1 << 14))
        around = Writer().module("a.dll").exception(1, CODE).memory((STACK, struct.pack("<II", STACK, CODE + 1) * 400))
        for hostile in (*lists, data[:8] + b"\xff\xff\xff\xff" + data[12:], many.bytes(), around.bytes()):
            tracemalloc.start()
            self.read(hostile)
            self.assertLess(tracemalloc.get_traced_memory()[1], len(hostile) + (24 << 20))
            tracemalloc.stop()


class WriterTest(unittest.TestCase):
    def test_what_other_writers_put_in(self):
        debug = struct.pack("<4sIHH8sI", b"RSDS", 0x3C059C09, 0x1B57, 0x42F6, bytes.fromhex("4C4C44205044422E"), 1) + b"C:\\build\\wsc.pdb\0"
        dump = minidump.read(Writer().system().module("C:\\suite\\wsc.dll", debug).stream(10, b"asked\0").stream(15, struct.pack("<IIII", 24, 3, 99, 5))
                             .exception(0xC0000005, CODE + 16, (8, 0xFFFFFFFFDEADBEEF)).bytes())
        (module,) = dump.modules
        self.assertEqual((module.pdb_name, module.pdb_key, module.version), ("wsc.pdb", "3C059C091B5742F64C4C44205044422E1", "1.2.3.4"))
        self.assertEqual((dump.windows.text, dump.comment, dump.writer, dump.process_id, dump.process_created, dump.offset),
                         ("Windows 11 (10.0.22631), workstation, x86", "asked", minidump.BY_OTHERS, 99, 5, 16))
        self.assertEqual(dump.exception.text, "access violation executing 0xdeadbeef")
        old = minidump.read(Writer().system(0, 5, 1, 2600, 1, "Service Pack 3").module("a").bytes())
        self.assertEqual(old.windows.text, "Windows XP Service Pack 3 (5.1.2600), workstation, x86")

    def test_a_thrown_error_tells_its_message_where_its_memory_is_there(self):
        name = b".?AVerror@exceptions@crv@@\0"
        memory = [(0x5000, struct.pack("<IIII", 0x40000000, 0, 0, 0x5100)), (0x5100, struct.pack("<II", 1, 0x5200)),
                  (0x5200, struct.pack("<II", 0, 0x5300)), (0x5300, bytes(8) + name), (0x6000, struct.pack("<IIII", 1, 0x6100, 2, 126)),
                  (0x6100, struct.pack("<II", 0x6200, 11)), (0x6200, b"cannot load")]
        dump = minidump.read(Writer().module("a").exception(0xE06D7363, CODE, (0x19930520, 0x6000, 0x5000)).memory(*memory).bytes())
        self.assertEqual(dataclasses.astuple(dump.exception)[6:], ("crv::exceptions::error", 126, "cannot load", True))

    def test_a_stack_that_cannot_be_walked_is_said(self):
        other = Writer().module("a").exception(5, CODE, flags=0x10001F, size=100).bytes()
        self.assertIn("registers", minidump.read(other).problems[-1])
        called_null = Writer().module("a").exception(0xC0000005, 0).memory((STACK, struct.pack("<III", CODE + 8, 0, CODE + 9))).bytes()
        self.assertEqual([frame.offset for frame in minidump.read(called_null).stack][:2], [0, 8])

    def test_memory_is_found_in_ranges_that_overlap_and_adjoin(self):
        frames = b"".join(struct.pack("<IIII", STACK + 16 * number + 16, CODE + number, 0, 0) for number in range(32))
        ranges = [(STACK, frames[:300]), (STACK + 300, frames[300:]), *((STACK + 5 * number, frames[5 * number:][:4]) for number in range(80))]
        dump = minidump.read(Writer().module("a").exception(0xC0000005, CODE).memory(*ranges).bytes())
        self.assertEqual([frame.offset for frame in dump.stack], [0, *range(32)])

    def test_texts_cannot_steer_a_terminal(self):
        dump = minidump.read(Writer().module("C:\\x\\\x1b[2J\u202e.dll").stream(11, "a\x1b]0;b\x07".encode("utf-16-le") + b"\0\xd8").bytes())
        self.assertFalse(re.search("[\x1b\x07\u202e\ud800]", dump.comment + dump.modules[0].path))
        self.assertEqual(minidump.read(io.BytesIO(Writer().module("a").bytes())).modules[0].name, "a")


if __name__ == "__main__":
    unittest.main()
