#!/usr/bin/python3
"""Looks at the finished wsc.dll and at what lies beside it as Windows' loader will: check_image.py DIST_FOLDER.

Prints one line for each check that fails, then "N passed, N failed"; the status is 0 when none failed.
"""
import pathlib
import re
import sys

import pefile

EXPORT = "_run@4"
RUNTIME_DLLS = {"libgcc_s_dw2-1.dll"}
SUITE_DLLS = {"log.dll"}  # installed by the suite itself

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


def check_loading(report, path, image):
    name = path.name
    flags = image.OPTIONAL_HEADER.DllCharacteristics
    characteristics = pefile.DLL_CHARACTERISTICS
    machine = pefile.MACHINE_TYPE.get(image.FILE_HEADER.Machine)
    report.check(f"{name} is a 32-bit image for i386",
                 "" if image.PE_TYPE == pefile.OPTIONAL_HEADER_MAGIC_PE and machine == "IMAGE_FILE_MACHINE_I386" else machine)
    report.check(f"{name} runs on Windows XP: no later function is imported", ", ".join(newer_than_xp(image)))
    subsystem = (image.OPTIONAL_HEADER.MajorSubsystemVersion, image.OPTIONAL_HEADER.MinorSubsystemVersion)
    report.check(f"{name} runs on Windows XP: subsystem version", "" if subsystem <= (5, 1) else "%d.%d" % subsystem)
    for flag in ("IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE", "IMAGE_DLLCHARACTERISTICS_NX_COMPAT"):
        report.check(f"{name} has {flag}", "" if flags & characteristics[flag] else f"flags 0x{flags:04x}")


def check_product(report, image):
    found = exports(image)
    report.check(f"wsc.dll exports {EXPORT} alone", "" if found == [EXPORT] else str(found))
    relocated = image.OPTIONAL_HEADER.DATA_DIRECTORY[pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_BASERELOC"]].Size
    report.check("wsc.dll can be relocated", "" if relocated else "it has no relocations")
    strings = version_strings(image)
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
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    folder = pathlib.Path(sys.argv[1])
    images = {path.name: pefile.PE(str(path)) for path in sorted(folder.iterdir())}
    report = Report()
    for name, image in images.items():
        check_loading(report, folder / name, image)
    check_product(report, images["wsc.dll"])
    check_folder(report, images)
    print(f"{report.passed} passed, {report.failed} failed")
    return 1 if report.failed else 0


if __name__ == "__main__":
    sys.exit(main())
