#!/usr/bin/python3
"""Looks at the finished wsc.dll and at what lies beside it as Windows' loader and a debugger will: check_image.py FOLDER SYMBOLS [OTHERS...]

The program databases lie in the folder SYMBOLS; the images in the folders OTHERS only have to load on every Windows. Where an image is
signed, the signature is checked. Prints one line for each check that fails, then "N passed, N failed"; the status is 0 when none failed.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

import pefile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
from triage_lib.symbol_files import read_image  # noqa: E402

EXPORT = "_run@4"
RUNTIME_DLLS = {"libgcc_s_dw2-1.dll"}
SUITE_DLLS = {"log.dll"}  # installed by the suite itself
WITHOUT_RECORD = {"libgcc_s_dw2-1.dll"}  # of a program database: Debian's own, linked by GNU ld, which writes none
OF_64_BITS = {"starter64.exe"}
LARGEST = {"wsc.dll": 1_600_000}

EXECUTABLE, WRITABLE, DISCARDABLE = 0x20000000, 0x80000000, 0x02000000  # of a section
REPRODUCIBLE = 16                                                       # a debug entry: the link time is a hash of the content
SIGNATURE_HEADER = 8                                                    # bytes before the PKCS#7 data

# Windows XP lacks these; an import of one keeps the image from loading there. Not all that came later, but what this compiler's
# runtime and code of this kind reach for. Patterns in verbose form.
NEWER_THAN_XP = {
    "kernel32.dll": r"""
        GetTickCount64 | GetSystemTimePreciseAsFileTime | K32\w+ | QueryFullProcessImageName[AW] | GetProcessIdOfThread
        | GetThreadId | InitOnce\w+ | \w+ConditionVariable\w* | \w+SRWLock\w* | InitializeCriticalSectionEx | WaitOnAddress
        | WakeByAddress\w+ | Create(Event|Mutex|Semaphore|WaitableTimer)Ex[AW] | Fls(Alloc|Free|GetValue|SetValue)
        | \w+Threadpool\w* | GetFinalPathNameByHandle[AW] | GetFileInformationByHandleEx | SetFileInformationByHandle
        | CreateSymbolicLink[AW] | ReOpenFile | CancelIoEx | CancelSynchronousIo | GetProductInfo | GetLocaleInfoEx
        | LCMapStringEx | CompareString(Ex|Ordinal) | (Add|Remove)DllDirectory | SetDefaultDllDirectories | GetErrorMode
        | [GS]etThreadErrorMode | SetThreadDescription | Reg(Open|Close|Create|Get|Set|Query|Delete|Enum)\w+""",
    "advapi32.dll": r"""
        Reg(DeleteKeyEx|GetValue|DeleteTree|CopyTree|SetKeyValue|DeleteKeyValue|LoadMUIString)[AW] | NotifyServiceStatusChange[AW]
        | Event(Register|Unregister|Write)\w*""",
    "shell32.dll": r"SHGetKnownFolder\w+ | SHCreateItem\w+",
    "user32.dll": r"SetProcessDPIAware | ChangeWindowMessageFilter(Ex)? | ShutdownBlockReason\w+",
    "psapi.dll": r"EnumProcessModulesEx | QueryWorkingSetEx",
    "ntdll.dll": r"Tp\w+ | Rtl\w+SRWLock\w* | RtlInitializeConditionVariable",
    "msvcrt.dll": r"\w+_s | _\w+_l | _(create|free)_locale | _configthreadlocale | \w+time32 | _f(seek|tell)i64 | _wassert",
}
LIBRARIES_NEWER_THAN_XP = re.compile(
    r"api-ms-win-.* | (ucrtbase|vcruntime\d+|wevtapi|wscapi|dwmapi|propsys|bcrypt|ncrypt)\.dll", re.IGNORECASE | re.VERBOSE)


class Report:
    def __init__(self):
        self.passed = self.failed = 0

    def check(self, what, wrong):
        """Counts one check; `wrong` is empty or says what was found."""
        if wrong:
            self.failed += 1
            print(f"FAILED {what}: {wrong}")
        else:
            self.passed += 1


def exports(image):
    if not hasattr(image, "DIRECTORY_ENTRY_EXPORT"):
        return []
    return [symbol.name.decode() if symbol.name else f"#{symbol.ordinal}" for symbol in image.DIRECTORY_ENTRY_EXPORT.symbols]


def imports(image):
    """Name of the library in lower case -> names imported from it; ordinals as #N."""
    found = {}
    for entry in getattr(image, "DIRECTORY_ENTRY_IMPORT", []):
        names = found.setdefault(entry.dll.decode().lower(), set())
        names.update(symbol.name.decode() if symbol.name else f"#{symbol.ordinal}" for symbol in entry.imports)
    return found


def version_strings(image):
    strings = {}
    for info in getattr(image, "FileInfo", []) or []:
        for block in info:
            for table in getattr(block, "StringTable", []):
                strings.update({key.decode(): value.decode() for key, value in table.entries.items()})
    return strings


def newer_than_xp(image):
    found = []
    for library, names in imports(image).items():
        if LIBRARIES_NEWER_THAN_XP.fullmatch(library):
            found.append(library)
        pattern = NEWER_THAN_XP.get(library)
        if pattern:
            later = re.compile(pattern, re.VERBOSE)
            found += [f"{library} {symbol}" for symbol in sorted(names) if later.fullmatch(symbol)]
    return found


def relocated_outside(image):
    """Where the loader would move a word that does not point into the image, as the linker leaves one in the exception frame of a
    function that it collected: 0, which the runtime passes over, and another image's code as soon as the image is moved."""
    start, size, memory = image.OPTIONAL_HEADER.ImageBase, image.OPTIONAL_HEADER.SizeOfImage, image.get_memory_mapped_image()
    places = [entry.rva for block in getattr(image, "DIRECTORY_ENTRY_BASERELOC", []) for entry in block.entries
              if entry.type == pefile.RELOCATION_TYPE["IMAGE_REL_BASED_HIGHLOW"]]
    return [place for place in places if not 0 <= int.from_bytes(memory[place:place + 4], "little") - start <= size]


def check_loading(report, path, image):
    name = path.name
    flags = image.OPTIONAL_HEADER.DllCharacteristics
    characteristics = pefile.DLL_CHARACTERISTICS
    machine = pefile.MACHINE_TYPE.get(image.FILE_HEADER.Machine)
    wanted = "IMAGE_FILE_MACHINE_AMD64" if name in OF_64_BITS else "IMAGE_FILE_MACHINE_I386"
    report.check(f"{name} is an image for {wanted}", "" if machine == wanted else machine)
    report.check(f"{name} runs on Windows XP: no later function is imported", ", ".join(newer_than_xp(image)))
    subsystem = (image.OPTIONAL_HEADER.MajorSubsystemVersion, image.OPTIONAL_HEADER.MinorSubsystemVersion)
    report.check(f"{name} runs on Windows XP: subsystem version", "" if subsystem <= ((5, 2) if name in OF_64_BITS else (5, 1)) else "%d.%d" % subsystem)
    for flag in ("IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE", "IMAGE_DLLCHARACTERISTICS_NX_COMPAT"):
        report.check(f"{name} has {flag}", "" if flags & characteristics[flag] else f"flags 0x{flags:04x}")
    if path.suffix == ".sys":  # the system refuses a driver with another one
        report.check(f"{name} has its checksum", "" if image.verify_checksum() else f"0x{image.OPTIONAL_HEADER.CheckSum:x}")
    outside = relocated_outside(image)
    report.check(f"{name} relocates nothing that points out of it", ", ".join(f"0x{place:x}" for place in outside))


def section_name(section):
    return section.Name.rstrip(b"\0").decode("ascii", "replace")


def database_key(path):
    """GUID and age, as llvm-pdbutil reads them from the program database itself."""
    text = subprocess.run(["llvm-pdbutil-16", "dump", "--summary", str(path)], stdin=subprocess.DEVNULL, capture_output=True, check=False,
                          text=True).stdout
    guid, age = re.search(r"GUID: \{(\S+)\}", text), re.search(r"Age: (\d+)", text)
    return f"{guid[1].replace('-', '').upper()}{int(age[1]):x}" if guid and age else "no program database"


def check_identity(report, path, image, symbols):
    """By what a debugger and a symbol store know it, and that nothing but that is in it."""
    name = path.name
    debug = [section_name(section) for section in image.sections
             if section_name(section).startswith(".debug")
             or section.Characteristics & DISCARDABLE and section_name(section) != ".reloc"]
    report.check(f"{name} has no debug sections", ", ".join(debug))
    both = [section_name(section) for section in image.sections
            if section.Characteristics & WRITABLE and section.Characteristics & EXECUTABLE]
    report.check(f"{name} has no section that is writable and executable", ", ".join(both))
    size = path.stat().st_size
    report.check(f"{name} is small", f"{size} bytes" if size > LARGEST.get(name, size) else "")
    report.check(f"{name} has a link time", "" if image.FILE_HEADER.TimeDateStamp else "0")
    record = read_image(path.read_bytes()).record
    if name in WITHOUT_RECORD:
        report.check(f"{name} is rightly listed as without a debug record", record.name if record else "")
        return
    entries = {entry.struct.Type for entry in getattr(image, "DIRECTORY_ENTRY_DEBUG", [])}
    report.check(f"{name} has a hash as its link time", "" if REPRODUCIBLE in entries else f"debug entries {sorted(entries)}")
    found = record and database_key(symbols / record.name)
    report.check(f"{name} has the program database of its debug record",
                 "" if record and record.key == found else f"record {record}, database {found}")
    report.check(f"{name} names its program database without a folder",
                 "" if record and record.name == path.with_suffix(".pdb").name else str(record))


def check_signature(report, path, image):
    """Where there is one: whether it is of this content, by one of the certificates in it."""
    place = image.OPTIONAL_HEADER.DATA_DIRECTORY[pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_SECURITY"]]
    if not place.Size:
        return
    data = path.read_bytes()[place.VirtualAddress + SIGNATURE_HEADER:place.VirtualAddress + place.Size]
    text = subprocess.run(["openssl", "pkcs7", "-inform", "DER", "-print_certs"], input=data, capture_output=True, check=False).stdout
    said = "no certificate in it"
    with tempfile.NamedTemporaryFile(suffix=".pem") as file:
        for certificate in re.findall(rb"-----BEGIN CERTIFICATE-----.*?-----END CERTIFICATE-----\n", text, re.S):
            pathlib.Path(file.name).write_bytes(certificate)
            run = subprocess.run(["sbverify", "--cert", file.name, str(path)], stdin=subprocess.DEVNULL, capture_output=True, check=False,
                                 text=True)
            said = "" if run.returncode == 0 else (run.stdout + run.stderr).strip()
            if not said:
                break
    report.check(f"{path.name} has a valid signature", said)


def check_product(report, image):
    found = exports(image)
    report.check(f"wsc.dll exports {EXPORT} alone", "" if found == [EXPORT] else str(found))
    relocated = image.OPTIONAL_HEADER.DATA_DIRECTORY[pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_BASERELOC"]].Size
    report.check("wsc.dll can be relocated", "" if relocated else "it has no relocations")
    strings = version_strings(image)
    version = strings.get("ProductVersion", "")
    named = re.fullmatch(r"\d+\.\d+\.\d+(\+[0-9a-f]{12,}(-dirty)?)?", version)
    report.check("wsc.dll names its version and commit", "" if named else version)
    wanted = ("CompanyName", "FileDescription", "FileVersion", "ProductName", "ProductVersion", "OriginalFilename")
    missing = [key for key in wanted if not strings.get(key)]
    report.check("wsc.dll has a version resource", f"without {', '.join(missing)}" if missing else "")
    report.check("wsc.dll is named in its version resource",
                 "" if strings.get("OriginalFilename") == "wsc.dll" else strings.get("OriginalFilename", "nothing"))
    libraries = imports(image)
    report.check("wsc.dll has libstdc++ inside", ", ".join(name for name in libraries if name.startswith("libstdc++")))


def check_folder(report, images):
    """Nothing is missing beside the product, and nothing lies there that it does not need."""
    needed, seen = {"wsc.dll"}, set()
    while needed - seen:
        name = (needed - seen).pop()
        seen.add(name)
        if name in images:
            needed |= {library for library in imports(images[name]) if library in RUNTIME_DLLS or library.startswith("lib")}
    report.check("the folder holds every runtime library that is needed", ", ".join(sorted(needed - images.keys())))
    report.check("the folder holds nothing else", ", ".join(sorted(images.keys() - needed)))
    unknown = {library for library in imports(images["wsc.dll"]) if library.startswith("lib")} - RUNTIME_DLLS - SUITE_DLLS
    report.check("wsc.dll needs no unknown runtime library", ", ".join(sorted(unknown)))


def main():
    if len(sys.argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    folder, symbols, *others = map(pathlib.Path, sys.argv[1:])
    images = {path.name: pefile.PE(str(path)) for path in sorted(folder.iterdir())}
    report = Report()
    for name, image in images.items():
        check_loading(report, folder / name, image)
        check_identity(report, folder / name, image, symbols)
        check_signature(report, folder / name, image)
    check_product(report, images["wsc.dll"])
    check_folder(report, images)
    for path in (path for other in others for path in sorted(other.iterdir()) if path.suffix in (".exe", ".dll", ".sys")):
        check_loading(report, path, pefile.PE(str(path)))
    print(f"{report.passed} passed, {report.failed} failed")
    return 1 if report.failed else 0


if __name__ == "__main__":
    sys.exit(main())
