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

# Windows XP SP2 lacks these; an import of one keeps the image from loading there. The list holds what this compiler's runtime
# and code of this kind reach for, not all that ever came later.
NEWER_THAN_XP = {
    "kernel32.dll": r"""
        GetTickCount64|RegDeleteKeyEx[AW]|RegGetValue[AW]|RegDeleteTree[AW]|RegOpenCurrentUser|K32\w+
        |(Initialize|Sleep)ConditionVariable\w*|Wake(All)?ConditionVariable|InitializeSRWLock|(TryAcquire|Acquire|Release)SRWLock\w+
        |InitOnce\w+|InitializeCriticalSectionEx|Create(Event|Mutex|Semaphore|WaitableTimer)Ex[AW]|FlsAlloc|FlsFree|FlsGetValue
        |FlsSetValue|CreateThreadpool\w*|CloseThreadpool\w*|SubmitThreadpool\w*|SetThreadpool\w*|WaitForThreadpool\w*
        |TrySubmitThreadpool\w*|GetFinalPathNameByHandle[AW]|GetFileInformationByHandleEx|SetFileInformationByHandle
        |CreateSymbolicLink[AW]|GetVolumePathNamesForVolumeName[A]|QueryFullProcessImageName[AW]|GetProcessIdOfThread|GetThreadId
        |GetNativeSystemInfoEx|GetProductInfo|GetLocaleInfoEx|LCMapStringEx|CompareStringEx|CompareStringOrdinal|GetUserDefaultLocaleName
        |GetSystemTimePreciseAsFileTime|GetDynamicTimeZoneInformation|AddDllDirectory|SetDefaultDllDirectories|RemoveDllDirectory
        |CancelIoEx|CancelSynchronousIo|GetQueuedCompletionStatusEx|WerRegister\w+|Wow64SuspendThread|IsWow64Process2
        |SetProcessMitigationPolicy|GetCurrentProcessorNumber(Ex)?|SetThreadDescription|WaitOnAddress|WakeByAddress\w+
        |ReOpenFile|GetErrorMode|SetThreadErrorMode|GetThreadErrorMode""",
    "advapi32.dll": r"""RegDeleteKeyEx[AW]|RegGetValue[AW]|RegDeleteTree[AW]|RegCopyTree[AW]|RegLoadMUIString[AW]|RegSetKeyValue[AW]
        |RegDeleteKeyValue[AW]|RegRenameKey|RegDisableReflectionKey|RegEnableReflectionKey|NotifyServiceStatusChange[AW]|Event\w+""",
    "shell32.dll": r"SHGetKnownFolder\w+|SHSetKnownFolderPath|SHCreateItem\w+|SHGetPropertyStoreFromParsingName|SHGetStockIconInfo",
    "psapi.dll": r"EnumProcessModulesEx|GetWsChangesEx|QueryWorkingSetEx",
    "user32.dll": r"SetProcessDPIAware|ChangeWindowMessageFilter\w*|AddClipboardFormatListener|ShutdownBlockReason\w+",
    "ntdll.dll": r"RtlGetProductInfo|Tp\w+|RtlInitializeConditionVariable|RtlAcquireSRWLock\w+",
    "msvcrt.dll": r"\w+_s|_configthreadlocale|_get_invalid_parameter_handler|_initialize_onexit_table|_set_invalid_parameter_handler"
                  r"|_create_locale|_free_locale|_\w+_l|_get_output_format|_gmtime32|_localtime32|_mktime32|_time32|_difftime32|_ctime32"
                  r"|_vscprintf_p|_vsnwprintf_s|_fseeki64|_ftelli64|_wfullpath_dbg|_wassert",
}
LIBRARIES_NEWER_THAN_XP = re.compile(r"api-ms-win-.*|ucrtbase\.dll|vcruntime.*|wevtapi\.dll|wscapi\.dll|dwmapi\.dll|propsys\.dll"
                                     r"|bcrypt\.dll|ncrypt\.dll|ktmw32\.dll|synchronization\.dll", re.I)

# What each image may import although Windows XP lacks it, with the reason. Empty is best.
ACCEPTED = {}


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
    """Name of the library in lower case -> names imported from it; ordinals as #N. Delay-loaded ones are looked up when used."""
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


def newer_than_xp(image, name):
    found = []
    for library, names in imports(image).items():
        if LIBRARIES_NEWER_THAN_XP.fullmatch(library):
            found.append(library)
        pattern = NEWER_THAN_XP.get(library)
        if pattern:
            later = re.compile(pattern, re.VERBOSE)
            found += [f"{library} {symbol}" for symbol in sorted(names) if later.fullmatch(symbol)]
    return [symbol for symbol in found if symbol not in ACCEPTED.get(name, ())]


def check_loading(report, path, image):
    name = path.name
    flags = image.OPTIONAL_HEADER.DllCharacteristics
    characteristics = pefile.DLL_CHARACTERISTICS
    machine = pefile.MACHINE_TYPE.get(image.FILE_HEADER.Machine)
    report.check(f"{name} is a 32-bit image for i386",
                 "" if image.PE_TYPE == pefile.OPTIONAL_HEADER_MAGIC_PE and machine == "IMAGE_FILE_MACHINE_I386" else machine)
    report.check(f"{name} runs on Windows XP: no later function is imported", ", ".join(newer_than_xp(image, name)))
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
    missing = [key for key in ("CompanyName", "FileDescription", "FileVersion", "ProductName", "ProductVersion", "OriginalFilename")
               if not strings.get(key)]
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
