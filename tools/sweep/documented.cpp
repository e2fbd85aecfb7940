#include "sweep/documented.h"

#include <algorithm>
#include <iterator>

#include "sweep/functions.h"
#include "sweep/scenarios.h"

namespace crv::sweep {
namespace {

using enum Kind;

constexpr DWORD kNoCode = 0xFFFFFFFF;
constexpr DWORD kGeneralFailure = 31;
constexpr DWORD kProcNotFound = 127;
constexpr DWORD kThrownObject = 0xE06D7363;

constexpr DWORD kNotRegistered = 0x80070002;

constexpr char kNotWritten[] = "error wsc cannot write registered name";
constexpr char kReregistered[] = "wrong display name - reregistering";
constexpr char kRegistering[] = "Not registered, registering...";

constexpr char kRegisters[] = "it is registered, and updated once more";
constexpr char kRepairedOnce[] = "the installer repairs its settings once";
constexpr char kNoPlace[] = "both writers have failed: the dumper, and now the path or the file";
constexpr char kSecondDump[] = "the dump is written in the process as well";
constexpr char kMemory[] = "memory ran out: a clean code, or what needed it is done without";
constexpr char kInPart[] = "in part";  // a scenario's name
constexpr char kNoGuard[] = "without a writer of dumps or its folders there is no crash guard";
constexpr char kShellFolders[] = "the registry knows the folder as well";
constexpr char kOptional[] = "nothing depends on it, or there is another way";

// Calls made while the library is loaded.
const Row kLoadRows[] = {
    {"GetModuleHandleW", "ReadOsVersion", L"", not_loaded, 0, "the library has to know the version of Windows"},
    {"", "__gcc_register_frame", L"", any, 0, "libgcc always has it; without it no throw could be caught"},
    {"GetProcAddress", "ReadOsVersion", L"", not_loaded, 0, "the library has to know the version of Windows"},
    {"CreateFileW", "", L"CRVSP", nothing, 0, "a machine without the driver is normal"},
    {"CreateFileW", "", L"crvSP", nothing, 0, "a machine without the driver is normal"},
    {"VirtualProtect", "", L"", nothing, 0, "the spare stack then has no end"},
    {"", "", L"", load, 0, "a library that cannot be set up is not loaded"},
};

// Calls made while the process gets its crash guard, which may fail without a word.
const Row kGuardRows[] = {
    {"LoadLibraryW", "DumpLibrary", L"dbghelp", fixed, kProcNotFound, kNoGuard, {.scenario = kInPart, .fewer_dumps = 1}},
    {"GetProcAddress",
     "DumpLibrary::DumpLibrary",
     L"MiniDumpWriteDump",
     fixed,
     kProcNotFound,
     kNoGuard,
     {.scenario = kInPart, .fewer_dumps = 1}},
    {"LoadLibraryW", "DumpLibrary", L"dbghelp", fixed, kProcNotFound, kNoGuard},
    {"GetProcAddress", "DumpLibrary::DumpLibrary", L"MiniDumpWriteDump", fixed, kProcNotFound, kNoGuard},
    {"GetFileAttributesW", "IsFolder", L"\\log", nothing, 0, kNoGuard, {.scenario = kInPart, .fewer_dumps = 1}},
    {"GetModuleFileNameW", "HostFolder", L"", nothing, 0, kNoGuard, {.scenario = kInPart, .fewer_dumps = 1}},
    {"malloc", "", L"", either, 0, kMemory, {.scenario = kInPart, .repairs = true, .fewer_dumps = 1}},
    {"realloc", "", L"", either, 0, kMemory, {.scenario = kInPart, .repairs = true, .fewer_dumps = 1}},
    {"malloc", "", L"", either, 0, kMemory, {.repairs = true}},
    {"calloc", "", L"", either, 0, kMemory, {.repairs = true}},
    {"realloc", "", L"", either, 0, kMemory, {.repairs = true}},
    {"", "LookupFolder", L"", nothing, 0, "the library's folders have a fallback, which is made", {.repairs = true}},
    {"", "", L"", nothing, 0, "a crash guard that cannot be installed is no failure"},
};

// clang-format off: a row is a line, or two.
const Row kRequestRows[] = {
    // Notifications come on a thread of the client library: what is thrown there leaves through it and ends the process.
    {"ResumeThread", "pthread_create", L"", held, 0,
     "a thread that never runs hears of no change: the request waits out its hour"},
    {"SetEvent", "wscsvc::changed", L"", held, 0, "the same: the change is not heard of"},
    {"SetEvent", "pthread_mutex_unlock", L"", held, 0, "the thread that waits for the lock is not woken"},
    {"", "pthread_create", L"", any, 0, "a failure of the runtime propagates from the step that made it"},
    {"", "watcher::notify", L"", any, 0, "a failure of the runtime propagates from the step that made it"},

    // Memory.
    {"SysAllocString", "", L"", ended, kThrownObject, "the COM support library's error is no standard exception and leaves run"},
    {"malloc", "LoadSettingsFile", L"", either, 0, kMemory, {.repairs = true}},
    {"malloc", "DecodeUtf16", L"", either, 0, kMemory, {.repairs = true}},
    {"malloc", "", L"", either, 0, kMemory},
    {"calloc", "", L"", either, 0, kMemory},
    {"realloc", "", L"", either, 0, kMemory},

    // Dumps of a thrown `fatal`.
    {"GetExitCodeProcess", "WriteDumpExternal", L"", nothing, 0, kSecondDump, {.more_dumps = 1}},
    {"WaitForSingleObject", "WriteDumpExternal", L"", nothing, 0, kSecondDump, {.more_dumps = 1}},
    {"", "WriteDumpExternal", L"", nothing, 0, "the dump is written in the process"},
    {"", "WriteDumpInternal", L"", nothing, 0, "a dump is all that is lost"},

    // The log.
    {"AcquireLogModule", "change_defender_status", L"", nothing, 0, "the switch reports nothing to its caller"},
    {"AcquireLogModule", "CavmStop", L"", nothing, 0, "a log that fails must not end the process"},
    {"AcquireLogModule", "LogFailure", L"", unrecorded, 0, "a log that fails must not cost the result"},
    {"AcquireLogModule", "crashguard", L"", nothing, 0, "a record is all that is lost"},
    {"AcquireLogModule", "", L"", fixed, kGeneralFailure, "a standard exception, but none of ours"},

    // The runtime.
    {"GetModuleHandleW", "", L"msvcrt.dll", nothing, 0, kOptional},
    {"GetProcAddress", "", L"___lc_codepage_func", nothing, 0, kOptional},
    {"GetProcAddress", "", L"_vscprintf", nothing, 0, kOptional},
    {"", "FindTickCount", L"", nothing, 0, kOptional},
    {"TlsSetValue", "VectoredExceptionHandler", L"", nothing, 0, "the thread then has no mark"},

    // Folders and paths.
    {"GetModuleHandleExW", "GetSystemLibrary", L"", nothing, 0, "the library is loaded then"},
    {"SHGetFolderPathW", "", L"", nothing, 0, kShellFolders},
    {"GetSystemDirectoryW", "GetKnownFolderPath", L"", nothing, 0, kShellFolders},
    {"LoadLibraryW", "GetKnownFolderPath", L"", nothing, 0, kShellFolders},
    {"GetProcAddress", "GetKnownFolderPath", L"", nothing, 0, kShellFolders},
    {"QueryDosDeviceW", "", L"", fixed, ERROR_PATH_NOT_FOUND, "the search goes on to the next volume, and there is none"},

    // Services.
    {"RegOpenKeyExW", "", L"SYSTEM\\CurrentControlSet\\Services", nothing, 0, "a key that is there stays as it is"},

    // Windows Defender.
    {"GetModuleHandleW", "", L"advapi32", nothing, 0, "the older function deletes the key"},
    {"GetProcAddress", "", L"RegDeleteKeyExW", nothing, 0, "the older function deletes the key"},
    {"RegEnumKeyW", "", L"", nothing, 0, "a key that cannot be listed counts as one without subkeys"},
    {"RegOpenKeyExW",
     "",
     L"Policies\\Microsoft",
     nothing,
     0,
     "a policy that is not there is no failure",
     {.code = ERROR_FILE_NOT_FOUND}},
    {"RegOpenKeyExW", "QueryDword", L"Corvid\\Wsc", nothing, 0, "without the user's word it is switched off"},
    {"RegQueryValueExW", "", L"IReallyWant", nothing, 0, "without the user's word it is switched off"},
    {"", "change_defender_status", L"", nothing, 0, "the caller never sees a failure", {.record = "change_defender_status: "}},

    // Security Center.
    {"RegCreateKeyExW", "write_registered_name", L"", nothing, 0, "the registration counts as done", {.record = kNotWritten}},
    {"RegSetValueExW", "write_registered_name", L"", nothing, 0, "the registration counts as done", {.record = kNotWritten}},
    {"RegOpenKeyExW", "", L"Corvid\\Wsc", nothing, 0, "a name that cannot be read is another one", {.record = kReregistered}},
    {"RegQueryValueExW", "", L"IWsc", nothing, 0, "a name that cannot be read is another one", {.record = kReregistered}},
    {"IWscAVStatus.Unregister", "", L"", nothing, 0, "it was not registered", {.code = kNotRegistered}},
    {"IWscASStatus.Unregister", "", L"", nothing, 0, "it was not registered", {.code = kNotRegistered}},
    {"IWscFWStatus.Unregister", "", L"", nothing, 0, "it was not registered", {.code = kNotRegistered}},
    {"IWscAVStatus.UpdateStatus",
     "",
     L"",
     code,
     0,
     "only the second answer counts",
     {.code = kNotRegistered, .scenario = "forgotten"}},
    {"IWscAVStatus.UpdateStatus", "", L"", nothing, 0, kRegisters, {.code = kNotRegistered, .record = kRegistering}},
    {"IWscASStatus.UpdateStatus", "", L"", nothing, 0, kRegisters, {.code = kNotRegistered, .record = kRegistering}},
    {"IWscFWStatus.UpdateStatus", "", L"", nothing, 0, kRegisters, {.code = kNotRegistered, .record = kRegistering}},

    // The suite's own libraries and its driver.
    {"CavmStop", "", L"", nothing, 0, "only logged", {.record = "error wsc cavmstop failed"}},
    {"LoadLibraryExW", "AvManager", L"cavm4h.dll", fixed, kNoCode, "the failure has no code"},
    {"LoadLibraryW", "start_firewall", L"crvData.dll", fixed, kNoCode, "the failure has no code"},
    {"DeviceIoControl", "", L"", nothing, 0, "without a proper answer the parent is trusted"},

    // Rights.
    {"GetEnvironmentVariableW", "", L"CRV_WSC_RESTARTED", nothing, 0, "a host without the mark was not restarted"},
    {"",
     "RunningUnderAdminAccount",
     L"",
     fixed,
     kNoCode,
     "the error lies nested in one without a code",
     {.record = "RunningUnderAdminAccount (code 0xffffffff) <- "}},

    // The installer.
    {"GetSystemDirectoryW", "LaunchProcess", L"", nothing, 0, kOptional},
    {"LoadLibraryW", "LaunchProcess", L"", nothing, 0, kOptional},
    {"GetProcAddress", "LaunchProcess", L"", nothing, 0, kOptional},
    {"", "FindInstallation", L"", nothing, 0, "it is found in another view of the registry, or there is a default"},
    {"CreateFileW", "", L"setup.ini", either, 0, kRepairedOnce, {.scenario = "repair", .repairs = true}},
    {"", "LoadSettingsFile", L"", either, 0, kRepairedOnce, {.scenario = "repair", .repairs = true}},
    {"CreateFileW", "", L"setup.ini", nothing, 0, "the installer repairs its settings", {.repairs = true}},
    {"", "LoadSettingsFile", L"", nothing, 0, "the installer repairs its settings", {.repairs = true}},
    {"AllowSetForegroundWindow", "", L"", nothing, 0, kOptional},
    {"CreateJobObjectW", "", L"", nothing, 0, "a started installer is only not ended with the host"},
    {"AssignProcessToJobObject", "", L"", nothing, 0, "a started installer is only not ended with the host"},
    {"SetInformationJobObject", "", L"", nothing, 0, "a started installer is only not ended with the host"},
    {"WaitForSingleObject", "LaunchProcess", L"", code, 0, "what the installer came to is not known"},
    {"GetExitCodeProcess", "LaunchProcess", L"", code, 0, "what the installer came to is not known"},
    {"", "RunUpdater", L"", fixed, kNoCode, "the installer could not be run: a failure without a code"},
};
// clang-format on

// The process ends: nobody is left to report to.
const Row kEndRows[] = {
    {"", "", L"", nothing, 0, "the result stands already"},
};

const Row kCrashRows[] = {
    {"GetExitCodeProcess", "WriteDumpExternal", L"", nothing, 0, kSecondDump, {.more_dumps = 1}},
    {"WaitForSingleObject", "WriteDumpExternal", L"", nothing, 0, kSecondDump, {.more_dumps = 1}},
    {"PathAppendW", "WriteDumpInternal", L"", nothing, 0, kNoPlace, {.fewer_dumps = 1}},
    {"CreateFileW", "WriteDumpInternal", L"", nothing, 0, kNoPlace, {.fewer_dumps = 1}},
    {"", "", L"", nothing, 0, "a crash leaves its dump, whatever else fails"},
};

// The step that the record of `run` names. The texts of nested errors count as well.
struct Step {
  const char* function;
  const char* caller;   // as in a row
  const wchar_t* text;  // as in a row
  const char* step;     // part of the record
};

// clang-format off: a row is a line.
const Step kSteps[] = {
    {"AcquireLogModule", "", L"", "log library: made to fail"},
    {"AllocateAndInitializeSid", "", L"", "RunningUnderAdminAccount (code 0xffffffff) <- AllocateAndInitializeSid (code "},
    {"CavmGetProviderInfoList", "", L"", "provider info failes"},
    {"CavmProviderResume", "", L"", "provider resume"},
    {"CavmProviderStart", "", L"", "provider start"},
    {"CavmStart", "", L"", "CavmStart failed"},
    {"CheckTokenMembership", "", L"", "RunningUnderAdminAccount (code 0xffffffff) <- Unable to check token membership! (code "},
    {"CoCreateInstance", "wmi_connect", L"", "create CLSID_WbemLocator"},
    {"CoCreateInstance", "", L"", "CoCreateInstance CLSID_WscIsv: class _com_ptr_t<_com_IIID<IWsc"},
    {"CoInitializeEx", "", L"", "CoInitializeEx"},
    {"CreateEventW", "", L"", "cannot create event"},
    {"DuplicateToken", "", L"", "RunningUnderAdminAccount (code 0xffffffff) <- Unable to duplicate the access token! (code "},
    {"FindFirstVolumeW", "", L"", "Unable to enumerate volumes!"},
    {"Firewall.Start", "", L"", "start firewall error"},
    {"GetExitCodeProcess", "", L"", "GetExitCodeProcess"},
    {"GetFileVersionInfoSizeW", "", L"", "GetFileVersionInfoSizeW"},
    {"GetFileVersionInfoW", "", L"", "GetFileVersionInfoW"},
    {"GetMappedFileNameW", "", L"", "Unable to retrieve the path of the module!"},
    {"GetModuleHandleW", "", L"", "GetModuleHandleW ("},
    {"GetProcAddress", "DumpLibrary", L"", "Failed to bind with dbghelp!MiniDumpWriteDump"},
    {"GetProcAddress", "GetModulePath", L"", "Unable to retrieve the path of the module!"},
    {"GetSystemDirectoryW", "GetModulePath", L"", "Unable to retrieve the path of the module!"},
    {"LoadLibraryW", "GetModulePath", L"", "Unable to retrieve the path of the module!"},
    {"GetProcAddress", "GetFileVersion", L"GetFileVersionInfoSizeW", "GetFileVersionInfoSizeW"},
    {"GetProcAddress", "GetFileVersion", L"GetFileVersionInfoW", "GetFileVersionInfoW"},
    {"GetProcAddress", "GetFileVersion", L"VerQueryValueW", "VerQueryValueW"},
    {"GetSystemDirectoryW", "GetFileVersion", L"", "Ver"},  // any of the three
    {"LoadLibraryW", "GetFileVersion", L"", "GetFileVersionInfoSizeW"},
    {"GetProcAddress", "run_elevated", L"", "cannot run elevated process"},
    {"GetSystemDirectoryW", "run_elevated", L"", "cannot run elevated process"},
    {"LoadLibraryW", "run_elevated", L"", "cannot run elevated process"},
    {"GetProcAddress", "", L"", "GetProcAddress ("},
    {"GetVolumePathNamesForVolumeNameW", "", L"", "Unable to retrieve volume paths for volume '"},
    {"IWbemClassObject.Put", "", L"", "wmi Put prop failed: "},
    {"IWbemClassObject.SpawnInstance", "", L"", "wmi SpawnInstance"},
    {"IWbemLocator.ConnectServer", "", L"", "wbem_locator->ConnectServer"},
    {"IWbemServices.DeleteInstance", "", L"", "wmi DeleteInstance"},
    {"IWbemServices.GetObject", "", L"", "wmi GetObjectW"},
    {"IWbemServices.PutInstance", "", L"", "update status PutInstance"},
    {"IWscASStatus.Register", "", L"", "WSC Register: struct IWscASStatus"},
    {"IWscASStatus.Unregister", "", L"", "WSC Unregister: struct IWscASStatus"},
    {"IWscASStatus.UpdateStatus", "", L"", "WSC UpdateStatus: struct IWscASStatus"},
    {"IWscAVStatus.Register", "", L"", "WSC Register: struct IWscAVStatus"},
    {"IWscAVStatus.Unregister", "", L"", "WSC Unregister: struct IWscAVStatus"},
    {"IWscAVStatus.UpdateStatus", "", L"", "WSC UpdateStatus: struct IWscAVStatus"},
    {"IWscFWStatus.Register", "", L"", "WSC Register: struct IWscFWStatus"},
    {"IWscFWStatus.Unregister", "", L"", "WSC Unregister: struct IWscFWStatus"},
    {"IWscFWStatus.UpdateStatus", "", L"", "WSC UpdateStatus: FW"},
    {"LoadLibraryExW", "", L"cavm4h.dll", "cannot load "},
    {"LoadLibraryW", "", L"crvData.dll", "cannot load crvData.dll"},
    {"LoadLibraryW", "", L"dbghelp.dll", "Failed to bind with dbghelp!MiniDumpWriteDump"},
    {"LoadLibraryW", "", L"wscapi.dll", "cannot load wscapi.dll"},
    {"NtQueryInformationProcess", "", L"", "Unable to retrieve basic process information!"},
    {"OpenProcessToken", "", L"", "RunningUnderAdminAccount (code 0xffffffff) <- Unable to open default process token! (code "},
    {"OpenSCManagerW", "", L"", "Unable to open the service control manager!"},
    {"OpenServiceW", "", L"", "Unable to open the service 'wscsvc'!"},
    {"OpenThreadToken", "", L"", "RunningUnderAdminAccount (code 0xffffffff) <- Unable to open current thread token! (code "},
    {"QueryDosDeviceW", "", L"", "Unable to convert NT path '"},
    {"QueryServiceStatus", "", L"", "Unable to query status of the service 'wscsvc'!"},
    {"RegOpenKeyExW", "", L"Services\\wscsvc", "cannot get wscsvc status"},
    {"RegQueryValueExW", "", L"Start", "cannot get wscsvc status"},
    {"RegOpenKeyExW", "AvManager", L"", "Unable to retrieve path of the program directory!"},
    {"RegQueryValueExW", "AvManager", L"", "Unable to retrieve path of the program directory!"},
    {"SetEnvironmentVariableW", "run_elevated", L"", "cannot run elevated process '"},
    {"ShellExecuteExW", "", L"", "cannot run elevated process '"},
    {"StartServiceW", "", L"", "Unable to start the service 'wscsvc'!"},
    {"VerQueryValueW", "", L"", "VerQueryValueW"},
    {"WaitForSingleObject", "wscsvc::wait", L"", "event wait error"},
    {"WaitForSingleObject", "", L"", "WaitForSingleObject"},
    {"WscRegisterForChanges", "", L"", "WscRegisterForChanges"},
    {"crvGetFirewall", "", L"", "cannot get firewall"},
    {"", "RunUpdater", L"", "update program failed"},
};
// clang-format on

const Row kDefault = {"", "", L"", code, 0, "the result is the code of the failing call"};

bool Holds(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

// Function, callers and text, which rows and steps have in common.
template <typename Place>
bool IsThere(const Place& row, const Trial& trial) {
  return (*row.function == 0 || trial.fault.function == row.function) &&
         (*row.caller == 0 || std::any_of(trial.callers.begin(), trial.callers.end(),
                                          [&](const std::string& caller) { return Holds(caller, row.caller); })) &&
         std::wstring_view(trial.outcome.block.text).find(row.text) != std::wstring_view::npos;
}

bool Fits(const Row& row, const Trial& trial) {
  return IsThere(row, trial) && Holds(trial.scenario.name, row.extra.scenario) &&
         (row.extra.code == kAnyCode || row.extra.code == trial.fault.code);
}

template <typename Rows>
const Row& First(const Rows& rows, const Trial& trial) {
  const auto found = std::find_if(std::begin(rows), std::end(rows), [&](const Row& row) { return Fits(row, trial); });
  return found == std::end(rows) ? kDefault : *found;
}

}  // namespace

std::vector<const char*> DocumentedSteps(const Trial& trial) {
  std::vector<const char*> steps;
  for (const Step& step : kSteps) {
    if (IsThere(step, trial)) steps.push_back(step.step);
  }
  return steps;
}

const Row& Documented(const Trial& trial) {
  switch (trial.outcome.block.hit_in) {
    case Phase::load: return First(kLoadRows, trial);
    case Phase::guard: return First(kGuardRows, trial);
    case Phase::request: return First(kRequestRows, trial);
    case Phase::after: break;
  }
  return trial.scenario.request.after == After::crash ? First(kCrashRows, trial) : First(kEndRows, trial);
}

}  // namespace crv::sweep
