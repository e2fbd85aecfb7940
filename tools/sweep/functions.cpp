#include "sweep/functions.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace crv::sweep {
namespace {

constexpr DWORD kInvalidHandle = 0xFFFFFFFF;
constexpr DWORD kFalse = 0;
constexpr DWORD kMinusOne = 0xFFFFFFFF;
constexpr DWORD kNone = 0;  // no value: the code is the result

constexpr DWORD kDenied = ERROR_ACCESS_DENIED;
constexpr DWORD kNoMemory = ERROR_NOT_ENOUGH_MEMORY;
constexpr DWORD kNotFound = ERROR_FILE_NOT_FOUND;
constexpr DWORD kBadParameter = ERROR_INVALID_PARAMETER;
constexpr DWORD kElevationRequired = 740;
constexpr DWORD kNoResources = ERROR_NO_SYSTEM_RESOURCES;

constexpr DWORD kComDenied = 0x80070005;
constexpr DWORD kComNoMemory = 0x8007000E;
constexpr DWORD kComNotFound = 0x80070002;
constexpr DWORD kComDiskFull = 0x80070070;
constexpr DWORD kComFailed = 0x80004005;
constexpr DWORD kClassNotRegistered = 0x80040154;
constexpr DWORD kWrongApartment = 0x80010106;
constexpr DWORD kServerUnavailable = 0x800706BA;
constexpr DWORD kWmiFailed = 0x80041001;
constexpr DWORD kWmiNotFound = 0x80041002;
constexpr DWORD kWmiDenied = 0x80041003;
constexpr DWORD kWmiBadParameter = 0x80041008;

constexpr DWORD kNtDenied = 0xC0000022;
constexpr DWORD kNtNoMemory = 0xC0000017;
constexpr DWORD kNtNotFound = 0xC0000034;

using enum Channel;

// One line each: name, bytes of arguments, value that means failure, channel, codes, position of a text.
const Function kFailing[] = {
    // Memory. The C++ runtime asks for all of it here.
    {"malloc", kCdecl, 0, none, {0}},
    {"calloc", kCdecl, 0, none, {0}},
    {"realloc", kCdecl, 0, none, {0}},
    {"SysAllocString", 4, 0, none, {0}, 0},

    // Files, devices, modules, the environment.
    {"CreateFileW", 28, kInvalidHandle, last_error, {kDenied, kNoMemory, kNotFound, ERROR_SHARING_VIOLATION}, 0},
    {"CreateDirectoryW", 8, kFalse, last_error, {kDenied, kNoMemory, ERROR_PATH_NOT_FOUND}, 0},
    {"DeviceIoControl", 32, kFalse, last_error, {kDenied, kNoMemory, kNotFound, ERROR_NOT_SUPPORTED}},
    {"GetFileAttributesW", 4, kMinusOne, last_error, {kDenied, kNoMemory, kNotFound}, 0},
    {"GetFileSizeEx", 8, kFalse, last_error, {kDenied, kNoMemory, ERROR_INVALID_HANDLE}},
    {"SetFilePointer", 16, kMinusOne, last_error, {kDenied, ERROR_INVALID_HANDLE}},
    {"SetEndOfFile", 4, kFalse, last_error, {kDenied, ERROR_INVALID_HANDLE}},
    {"ReadFile", 20, kFalse, last_error, {kDenied, kNoMemory, ERROR_READ_FAULT}},
    {"LockFileEx", 24, kFalse, last_error, {kDenied, kNoMemory, ERROR_LOCK_VIOLATION}},
    {"GetFileVersionInfoSizeW", 8, 0, last_error, {kDenied, kNoMemory, ERROR_RESOURCE_TYPE_NOT_FOUND}, 0},
    {"GetFileVersionInfoW", 16, kFalse, last_error, {kDenied, kNoMemory, ERROR_RESOURCE_TYPE_NOT_FOUND}, 0},
    {"VerQueryValueW", 16, kFalse, last_error, {kDenied, kNoMemory, ERROR_RESOURCE_TYPE_NOT_FOUND}},
    {"LoadLibraryW", 4, 0, last_error, {kDenied, kNoMemory, ERROR_MOD_NOT_FOUND}, 0},
    {"LoadLibraryExW", 12, 0, last_error, {kDenied, kNoMemory, ERROR_MOD_NOT_FOUND}, 0},
    {"GetModuleHandleW", 4, 0, last_error, {kNoMemory, ERROR_MOD_NOT_FOUND}, 0, 0},
    {"LoadLibraryA", 4, 0, last_error, {kDenied, kNoMemory, ERROR_MOD_NOT_FOUND}},
    {"GetModuleHandleA", 4, 0, last_error, {kNoMemory, ERROR_MOD_NOT_FOUND}, kNarrow, 0},
    {"GetModuleHandleExW", 12, kFalse, last_error, {kNoMemory, ERROR_MOD_NOT_FOUND}},
    {"GetModuleFileNameW", 12, 0, last_error, {kDenied, kNoMemory, ERROR_MOD_NOT_FOUND}},
    {"GetMappedFileNameW", 16, 0, last_error, {kDenied, kNoMemory, ERROR_UNEXP_NET_ERR}},
    {"GetProcAddress", 8, 0, last_error, {kNoMemory, ERROR_PROC_NOT_FOUND}, kNarrow | 1},
    {"GetSystemDirectoryW", 8, 0, last_error, {kDenied, kNoMemory}},
    {"GetDllDirectoryW", 8, 0, last_error, {kNoMemory, ERROR_INVALID_FUNCTION}},
    {"SetDllDirectoryW", 4, kFalse, last_error, {kNoMemory, kBadParameter}},
    {"GetShortPathNameW", 12, 0, last_error, {kDenied, kNoMemory, kNotFound}, 0},
    {"GetWindowsDirectoryW", 8, 0, last_error, {kDenied, kNoMemory}},
    {"GetEnvironmentVariableW", 12, 0, last_error, {kNoMemory, ERROR_ENVVAR_NOT_FOUND}, 0},
    {"SetEnvironmentVariableW", 8, kFalse, last_error, {kNoMemory, kBadParameter}, 0, 1},
    {"ExpandEnvironmentStringsW", 12, 0, last_error, {kNoMemory, kBadParameter}, 0},
    {"PathAppendW", 8, kFalse, none, {0}},
    {"SHCreateDirectory", 8, kNone, result, {kDenied, kNoMemory, ERROR_PATH_NOT_FOUND}},
    {"SHGetFolderPathW", 20, kNone, result, {kComDenied, kComNoMemory, kComNotFound, kComFailed, S_FALSE}},
    {"setlocale", kCdecl, 0, none, {0}},

    // Volumes.
    {"FindFirstVolumeW", 8, kInvalidHandle, last_error, {kDenied, kNoMemory, ERROR_NO_MORE_FILES}},
    {"FindNextVolumeW", 12, kFalse, last_error, {kDenied, kNoMemory, ERROR_NO_MORE_FILES}},
    {"QueryDosDeviceW", 12, 0, last_error, {kDenied, kNoMemory, kNotFound}, 0},
    {"GetVolumePathNamesForVolumeNameW", 16, kFalse, last_error, {kDenied, kNoMemory, kNotFound}, 0, 1},

    // Processes, threads and what they wait for.
    {"CreateProcessW", 40, kFalse, last_error, {kDenied, kNoMemory, kNotFound, kElevationRequired}, 1},
    {"ShellExecuteExW", 4, kFalse, last_error, {kDenied, kNoMemory, kNotFound, ERROR_CANCELLED}},
    {"CreateJobObjectW", 8, 0, last_error, {kDenied, kNoMemory, kNoResources}},
    {"SetInformationJobObject", 16, kFalse, last_error, {kDenied, kNoMemory}},
    {"AssignProcessToJobObject", 8, kFalse, last_error, {kDenied, kNoMemory}},
    {"ResumeThread", 4, kMinusOne, last_error, {kDenied, kNoMemory}},
    {"AllowSetForegroundWindow", 4, kFalse, last_error, {kDenied, kNoMemory}},
    {"GetExitCodeProcess", 8, kFalse, last_error, {kDenied, kNoMemory, ERROR_INVALID_HANDLE}},
    {"_beginthreadex", kCdecl, 0, none, {0}},
    {"CreateEventW", 16, 0, last_error, {kDenied, kNoMemory, kNoResources}},
    {"CreateEventA", 16, 0, last_error, {kDenied, kNoMemory, kNoResources}},
    {"SetEvent", 4, kFalse, last_error, {kDenied, kNoMemory}},
    {"WaitForSingleObject", 8, kMinusOne, last_error, {kDenied, kNoMemory, ERROR_INVALID_HANDLE}},
    {"SetThreadPriority", 8, kFalse, last_error, {kDenied, kNoMemory}},
    {"InitializeCriticalSectionAndSpinCount", 8, kFalse, last_error, {kNoMemory}},
    {"TlsAlloc", 0, kMinusOne, last_error, {kNoMemory}},
    {"TlsSetValue", 8, kFalse, last_error, {kNoMemory}},
    {"AddVectoredExceptionHandler", 8, 0, last_error, {kDenied, kNoMemory}},
    {"VirtualProtect", 16, kFalse, last_error, {kDenied, kNoMemory, ERROR_INVALID_ADDRESS}},
    {"GetVersionExW", 4, kFalse, last_error, {kDenied, kNoMemory}},
    {"UuidCreate", 4, kNone, result, {1739 /* RPC_S_UUID_NO_ADDRESS */, kNoMemory}},
    {"NtQueryInformationProcess", 20, kNone, result, {kNtDenied, kNtNoMemory, kNtNotFound}},
    {"IsWow64Process", 8, kFalse, last_error, {kDenied, kNoMemory}},
    {"MiniDumpWriteDump", 28, kFalse, last_error, {kComDenied, kComNoMemory, kComDiskFull}},

    // Tokens and security descriptors.
    {"OpenThreadToken", 16, kFalse, last_error, {kDenied, kNoMemory}},
    {"OpenProcessToken", 12, kFalse, last_error, {kDenied, kNoMemory}},
    {"DuplicateToken", 12, kFalse, last_error, {kDenied, kNoMemory}},
    {"GetTokenInformation", 20, kFalse, last_error, {kDenied, kNoMemory}},
    {"CheckTokenMembership", 12, kFalse, last_error, {kDenied, kNoMemory, ERROR_NO_IMPERSONATION_TOKEN}},
    {"AllocateAndInitializeSid", 44, kFalse, last_error, {kDenied, kNoMemory}},
    {"InitializeAcl", 12, kFalse, last_error, {kDenied, kNoMemory}},
    {"AddAccessAllowedAceEx", 20, kFalse, last_error, {kDenied, kNoMemory, ERROR_ALLOTTED_SPACE_EXCEEDED}},
    {"InitializeSecurityDescriptor", 8, kFalse, last_error, {kDenied, kNoMemory}},
    {"SetSecurityDescriptorDacl", 16, kFalse, last_error, {kDenied, kNoMemory}},

    // The registry.
    {"RegOpenKeyExW", 20, kNone, result, {kDenied, kNoMemory, kNotFound}, 1},
    {"RegCreateKeyExW", 36, kNone, result, {kDenied, kNoMemory, ERROR_CHILD_MUST_BE_VOLATILE}, 1},
    {"RegQueryValueExW", 24, kNone, result, {kDenied, kNoMemory, kNotFound}, 1},
    {"RegSetValueExW", 24, kNone, result, {kDenied, kNoMemory, ERROR_KEY_DELETED}, 1},
    {"RegDeleteKeyW", 8, kNone, result, {kDenied, kNoMemory, kNotFound}, 1},
    {"RegDeleteKeyExW", 16, kNone, result, {kDenied, kNoMemory, kNotFound}, 1},
    {"RegEnumKeyW", 16, kNone, result, {kDenied, kNoMemory}},

    // Services.
    {"OpenSCManagerW", 12, 0, last_error, {kDenied, kNoMemory, RPC_S_SERVER_UNAVAILABLE}},
    {"OpenServiceW", 12, 0, last_error, {kDenied, kNoMemory, ERROR_SERVICE_DOES_NOT_EXIST}, 1},
    {"QueryServiceStatus", 8, kFalse, last_error, {kDenied, kNoMemory, RPC_S_SERVER_UNAVAILABLE}},
    {"StartServiceW", 12, kFalse, last_error, {kDenied, kNoMemory, kNotFound, ERROR_SERVICE_DISABLED}},
    {"ControlService", 12, kFalse, last_error, {kDenied, kNoMemory, ERROR_SERVICE_CANNOT_ACCEPT_CTRL}},

    // COM, Security Center and WMI.
    {"CoInitializeEx", 8, kNone, result, {kComDenied, kComNoMemory, kWrongApartment}},
    {"CoCreateInstance", 20, kNone, result, {kComDenied, kComNoMemory, kComNotFound, kClassNotRegistered}},
    {"IWscAVStatus.Register", 20, kNone, result, {kComDenied, kComNoMemory, kComNotFound, kComFailed}, 2},
    {"IWscAVStatus.Unregister", 4, kNone, result, {kComDenied, kComNoMemory, kComNotFound, kServerUnavailable}},
    {"IWscAVStatus.UpdateStatus", 12, kNone, result, {kComDenied, kComNoMemory, kComNotFound, kServerUnavailable}},
    {"IWscASStatus.Register", 20, kNone, result, {kComDenied, kComNoMemory, kComNotFound, kComFailed}, 2},
    {"IWscASStatus.Unregister", 4, kNone, result, {kComDenied, kComNoMemory, kComNotFound, kServerUnavailable}},
    {"IWscASStatus.UpdateStatus", 12, kNone, result, {kComDenied, kComNoMemory, kComNotFound, kServerUnavailable}},
    {"IWscFWStatus.Register", 20, kNone, result, {kComDenied, kComNoMemory, kComNotFound, kComFailed}, 2},
    {"IWscFWStatus.Unregister", 4, kNone, result, {kComDenied, kComNoMemory, kComNotFound, kServerUnavailable}},
    {"IWscFWStatus.UpdateStatus", 8, kNone, result, {kComDenied, kComNoMemory, kComNotFound, kServerUnavailable}},
    {"IWbemLocator.ConnectServer", 36, kNone, result, {kComDenied, kComNoMemory, kWmiDenied, kWmiNotFound}, 1},
    {"IWbemServices.GetObject", 24, kNone, result, {kComDenied, kComNoMemory, kWmiNotFound}, 1},
    {"IWbemServices.PutInstance", 20, kNone, result, {kComDenied, kComNoMemory, kWmiNotFound, kWmiDenied}},
    {"IWbemServices.DeleteInstance", 20, kNone, result, {kComDenied, kComNoMemory, kWmiNotFound, kWmiDenied}, 1},
    {"IWbemClassObject.SpawnInstance", 12, kNone, result, {kComDenied, kComNoMemory, kWmiFailed}},
    {"IWbemClassObject.Put", 20, kNone, result, {kComDenied, kComNoMemory, kWmiBadParameter}, 1},
    {"WscRegisterForChanges", 16, kNone, result, {kComDenied, kComNoMemory, kServerUnavailable}},

    // The suite's own libraries.
    {"AcquireLogModule", kCdecl, 0, throws, {0}},
    {"CavmStart", kCdecl, kNone, result, {kDenied, kNoMemory, kNotFound, kMinusOne}},
    {"CavmStop", kCdecl, kNone, result, {kDenied, kNoMemory, kNotFound}},
    {"CavmGetProviderInfoList", kCdecl, kNone, result, {kDenied, kNoMemory, kNotFound}},
    {"CavmProviderResume", kCdecl, kNone, result, {kDenied, kNoMemory, kNotFound}},
    {"CavmProviderStart", kCdecl, kNone, result, {kDenied, kNoMemory, kNotFound}},
    {"crvGetFirewall", kCdecl, kNone, result, {kDenied, kNoMemory, kNotFound}},
    {"Firewall.Start", 4, kNone, result, {kDenied, kNoMemory, kNotFound}},
};

struct Reason {
  std::string_view name;
  const char* reason;
};

constexpr char kCloses[] = "gives back what is held; nobody could do anything about a failure";
constexpr char kAnswers[] = "has no failure to report";
constexpr char kThreads[] = "the thread library asks it of objects of its own, and only while threads meet";
constexpr char kText[] = "works on text or memory that the library owns";
constexpr char kEnds[] = "ends the process, or changes where the thread goes on";
constexpr char kRuntime[] = "the compiler's runtime calls it while it ends or unwinds";

const Reason kCannotFail[] = {
    {"CloseHandle", kCloses},
    {"CloseServiceHandle", kCloses},
    {"CoUninitialize", kCloses},
    {"DeleteCriticalSection", kCloses},
    {"FindVolumeClose", kCloses},
    {"FreeLibrary", kCloses},
    {"FreeSid", kCloses},
    {"HeapFree", kCloses},
    {"LocalFree", kCloses},
    {"RegCloseKey", kCloses},
    {"RemoveVectoredExceptionHandler", kCloses},
    {"SysFreeString", kCloses},
    {"TlsFree", kCloses},
    {"UnlockFileEx", kCloses},
    {"VariantClear", kCloses},
    {"WscUnRegisterChanges", kCloses},
    {"crvFreeFirewall", kCloses},
    {"free", kCloses},

    {"EnterCriticalSection", kAnswers},
    {"EqualSid", kAnswers},
    {"FlushInstructionCache", kAnswers},
    {"GetCurrentProcess", kAnswers},
    {"GetCurrentProcessId", kAnswers},
    {"GetCurrentThread", kAnswers},
    {"GetCurrentThreadId", kAnswers},
    {"GetLastError", kAnswers},
    {"GetProcessHeap", kAnswers},
    {"GetSystemInfo", kAnswers},
    {"GetSystemMetrics", kAnswers},
    {"GetSystemTimeAsFileTime", kAnswers},
    {"GetTickCount", kAnswers},
    {"GetTickCount64", kAnswers},
    {"GetVersion", kAnswers},
    {"InitializeCriticalSection", kAnswers},
    {"LeaveCriticalSection", kAnswers},
    {"QueryPerformanceCounter", kAnswers},
    {"SetErrorMode", kAnswers},
    {"SetLastError", kAnswers},
    {"SetUnhandledExceptionFilter", kAnswers},
    {"Sleep", kAnswers},
    {"TlsGetValue", kAnswers},
    {"TryEnterCriticalSection", kAnswers},
    {"RtlGetVersion", "always succeeds for a structure of the right size"},
    {"CtrlRoutine", "only its address is taken"},
    {"wine_get_version", "only whether it is there counts"},

    {"GetHandleInformation", kThreads},
    {"ReleaseSemaphore", kThreads},
    {"ResetEvent", kThreads},
    {"WaitForMultipleObjects", kThreads},
    {"WaitForSingleObjectEx", kThreads},

    {"RaiseException", kEnds},
    {"RtlUnwind", kEnds},
    {"TerminateProcess", kEnds},
    {"_amsg_exit", kEnds},
    {"_assert", kEnds},
    {"_endthreadex", kEnds},
    {"_setjmp3", kEnds},
    {"exit", kEnds},
    {"longjmp", kEnds},
    {"signal", kEnds},

    {"MultiByteToWideChar", kText},
    {"WideCharToMultiByte", kText},
    {"___lc_codepage_func", kText},
    {"__mb_cur_max", kText},
    {"_vscprintf", kText},
    {"_errno", kText},
    {"_initterm", kText},
    {"_iob", kText},
    {"_lock", kText},
    {"_snwprintf", kText},
    {"_ultoa", kText},
    {"_unlock", kText},
    {"_vscwprintf", kText},
    {"_vsnprintf", kText},
    {"_vsnwprintf", kText},
    {"_wcsnicmp", kText},
    {"atoi", kText},
    {"getenv", kText},
    {"isspace", kText},
    {"iswctype", kText},
    {"localeconv", kText},
    {"memchr", kText},
    {"memcmp", kText},
    {"memcpy", kText},
    {"memmove", kText},
    {"memset", kText},
    {"sprintf", kText},
    {"strchr", kText},
    {"strcmp", kText},
    {"strcoll", kText},
    {"strerror", kText},
    {"strftime", kText},
    {"strlen", kText},
    {"strncmp", kText},
    {"strncpy", kText},
    {"strstr", kText},
    {"strtoul", kText},
    {"strxfrm", kText},
    {"towlower", kText},
    {"towupper", kText},
    {"wcschr", kText},
    {"wcscmp", kText},
    {"wcscoll", kText},
    {"wcsftime", kText},
    {"wcslen", kText},
    {"wcsncmp", kText},
    {"wcstoul", kText},
    {"wcsxfrm", kText},
};

constexpr char kNobody[] = "only code of the linked-in runtime names it that nothing reaches";
constexpr char kOthers[] = "only an operation names it that run does not use";

// The sweep fails when one of these is called after all.
const Reason kNeverCalled[] = {
    {"CreateSemaphoreA", kNobody},
    {"DuplicateHandle", kNobody},
    {"GetThreadPriority", kNobody},
    {"VirtualQuery", kNobody},
    {"_strdup", kNobody},
    {"DeleteFileW", "only when all three attempts at a dump have failed"},
    {"GetCurrentDirectoryW", "only when the environment names no temp folder"},
    {"FormatMessageA", kNobody},
    {"FormatMessageW", kNobody},
    {"GetProcessAffinityMask", kNobody},
    {"GetThreadContext", kNobody},
    {"IsDBCSLeadByteEx", kNobody},
    {"IsDebuggerPresent", kNobody},
    {"OpenProcess", kNobody},
    {"OutputDebugStringA", kNobody},
    {"SetProcessAffinityMask", kNobody},
    {"SetThreadContext", kNobody},
    {"SuspendThread", kNobody},
    {"_close", kNobody},
    {"_read", kNobody},
    {"_write", kNobody},
    {"fprintf", kNobody},
    {"fputc", kNobody},
    {"fputs", kNobody},
    {"fwrite", kNobody},
    {"printf", kNobody},
    {"vfprintf", kNobody},
    {"CavmProviderStop", kOthers},
    {"CreateThread", kOthers},
    {"Wow64EnableWow64FsRedirection", "32-bit Windows has one view of its files"},
    {"GetLogicalProcessorInformation", kOthers},
    {"PrefetchVirtualMemory", kOthers},
    {"RtlNtStatusToDosError", kOthers},
    {"NtOpenFile", kOthers},
    {"NtReadFile", kOthers},
    {"NtWriteFile", kOthers},
    {"NtQueryInformationFile", kOthers},
    {"NtSetInformationFile", kOthers},
    {"NtQueryVirtualMemory", kOthers},
    {"NtQueryObject", kOthers},
    {"NtQueryVolumeInformationFile", kOthers},
    {"NtQuerySystemInformation", kOthers},
    {"RtlSetThreadErrorMode", kOthers},
    {"NtWow64QueryInformationProcess64", kOthers},
    {"NtWow64GetNativeSystemInformation", kOthers},
    {"NtWow64QueryVirtualMemory64", kOthers},
    {"NtWow64ReadVirtualMemory64", kOthers},
};

template <typename Rows>
auto FindRow(const Rows& rows, std::string_view name) -> decltype(std::begin(rows)) {
  const auto found = std::find_if(std::begin(rows), std::end(rows), [&](const auto& row) { return row.name == name; });
  return found == std::end(rows) ? nullptr : found;
}

// The compiler's own runtime, libgcc, which unwinds and divides.
bool IsOfCompiler(std::string_view name) {
  return name.starts_with("_Unwind_") || name.starts_with("__register_frame") || name.starts_with("__deregister_frame") ||
         name == "__emutls_get_address" || (name.starts_with("__") && (name.ends_with("di3") || name.ends_with("di4")));
}

}  // namespace

const Function* FindFailing(std::string_view name) { return FindRow(kFailing, name); }

const char* ReasonNotToFail(std::string_view name) {
  if (IsOfCompiler(name)) return kRuntime;
  if (const Reason* const row = FindRow(kCannotFail, name)) return row->reason;
  const Reason* const row = FindRow(kNeverCalled, name);
  return row ? row->reason : nullptr;
}

std::vector<std::string_view> ListedNames() {
  std::vector<std::string_view> names;
  for (const Function& row : kFailing) names.push_back(row.name);
  for (const Reason& row : kCannotFail) names.push_back(row.name);
  return names;
}

std::vector<std::string_view> NamesListedTwice() {
  std::vector<std::string_view> names = ListedNames(), twice;
  for (const Reason& row : kNeverCalled) names.push_back(row.name);
  std::sort(names.begin(), names.end());
  for (std::size_t i = 1; i < names.size(); ++i) {
    if (names[i] == names[i - 1]) twice.push_back(names[i]);
  }
  return twice;
}

bool IsListedAsNeverCalled(std::string_view name) { return FindRow(kNeverCalled, name) != nullptr; }

}  // namespace crv::sweep
