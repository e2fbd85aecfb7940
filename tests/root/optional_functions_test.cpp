#include "root/optional_functions.h"

#include <gtest/gtest.h>
#include <shlwapi.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "root/os_class.h"
#include "root/os_version.h"
#include "support/import_patch.h"

namespace crv::root {
namespace {

constexpr const wchar_t* kExpectedClass = L"CRV_TEST_OS_CLASS";  // environment variable of a child, see below
const HANDLE kDevice = reinterpret_cast<HANDLE>(0x5A5A);

// What the system is told to answer, and what it was asked, in order.
struct Script {
  bool wow64 = false;
  HANDLE device = kDevice;
  bool memory = true;
  std::string lookups;
  std::string asked;
  int open_sids = 0;
} script;
decltype(&GetProcAddress) look_up;
decltype(&CloseHandle) close_handle;
decltype(&AllocateAndInitializeSid) make_sid;
decltype(&FreeSid) free_sid;

BOOL WINAPI IsWow64(HANDLE process, BOOL* wow64) {
  EXPECT_EQ(GetCurrentProcess(), process);
  *wow64 = script.wow64;
  return TRUE;
}
BOOLEAN WINAPI Switch(BOOLEAN enable) {
  script.asked += "switch " + std::to_string(enable) + ";";
  SetLastError(0xBAD);
  return 7;  // whatever comes back is handed in again
}
template <typename Function>
FARPROC Address(Function* function) {
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
}
FARPROC WINAPI LookUp(HMODULE module, const char* name) {
  const std::string function = name;
  script.lookups += function + ";";
  if (function == "IsWow64Process") return Address(&IsWow64);
  if (function == "Wow64EnableWow64FsRedirection") return Address(&Switch);
  return look_up(module, name);
}
HANDLE WINAPI OpenDevice(const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES*, DWORD disposition, DWORD, HANDLE) {
  EXPECT_STREQ(L"\\\\.\\crvSP", name);
  EXPECT_EQ(GENERIC_READ, access);
  EXPECT_EQ(0u, share);
  EXPECT_EQ(DWORD{OPEN_EXISTING}, disposition);
  script.asked += "open;";
  return script.device;
}
BOOL WINAPI CloseDevice(HANDLE handle) {
  if (handle != kDevice) return close_handle(handle);
  script.asked += "close;";
  return TRUE;
}
char* SetLocale(int category, const char* locale) {
  script.asked += "locale " + std::to_string(category) + " '" + locale + "';";
  return nullptr;
}
BOOL WINAPI MakeSid(SID_IDENTIFIER_AUTHORITY* authority, BYTE count, DWORD a, DWORD b, DWORD c, DWORD d, DWORD e, DWORD f, DWORD g,
                    DWORD h, PSID* sid) {
  if (!script.memory) return FALSE;
  ++script.open_sids;
  return make_sid(authority, count, a, b, c, d, e, f, g, h, sid);
}
void* WINAPI FreeSidCounted(PSID sid) {
  --script.open_sids;
  return free_sid(sid);
}
BOOL WINAPI NoLock(CRITICAL_SECTION*, DWORD) { return SetLastError(ERROR_NO_SYSTEM_RESOURCES), FALSE; }
BOOL WINAPI OldVersion(OSVERSIONINFOW* version) {  // fills the plain form only, and lies
  script.asked += "version " + std::to_string(version->dwOSVersionInfoSize) + ";";
  version->dwMajorVersion = 4;
  return version->dwOSVersionInfoSize == 276;
}

class OptionalTable : public testing::Test {
 protected:
  OptionalTable() {
    script = {};
    look_up = patches_[0].original<decltype(look_up)>();
    close_handle = patches_[1].original<decltype(close_handle)>();
    make_sid = patches_[2].original<decltype(make_sid)>();
    free_sid = patches_[3].original<decltype(free_sid)>();
  }
  ~OptionalTable() override {
    EXPECT_EQ(0, script.open_sids);
    EXPECT_EQ(0, table_.table_count);
    EXPECT_FALSE(table_.self_protection_device);
  }

  const OptionalFunctionTable& table_ = OptionalFunctions();

 private:
  const test::ImportPatch patches_[6] = {{"kernel32.dll", "GetProcAddress", reinterpret_cast<void*>(&LookUp)},
                                         {"kernel32.dll", "CloseHandle", reinterpret_cast<void*>(&CloseDevice)},
                                         {"advapi32.dll", "AllocateAndInitializeSid", reinterpret_cast<void*>(&MakeSid)},
                                         {"advapi32.dll", "FreeSid", reinterpret_cast<void*>(&FreeSidCounted)},
                                         {"kernel32.dll", "CreateFileW", reinterpret_cast<void*>(&OpenDevice)},
                                         {"msvcrt.dll", "setlocale", reinterpret_cast<void*>(&SetLocale)}};
};

// Stands first: the first stage happens once in a process.
TEST_F(OptionalTable, FirstStageKnowsTheTrueVersionAndTheTableWhatItHas) {
  const OSVERSIONINFOEXW version = ReadOsVersion();
  int os_class = ComputeOsClass(version.dwPlatformId, version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber);
  if (wchar_t text[8]; GetEnvironmentVariableW(kExpectedClass, text, std::size(text))) os_class = _wtoi(text);
  script.lookups = "";

  EXPECT_EQ(nullptr, OpenSecurityAttributes());
  EXPECT_EQ(1, WithoutFsRedirection([] { return 1; }));
  {
    const test::ImportPatch patch("kernel32.dll", "InitializeCriticalSectionAndSpinCount", reinterpret_cast<void*>(&NoLock));
    EXPECT_EQ(DWORD{ERROR_NO_SYSTEM_RESOURCES}, OsInfoAcquire());
    EXPECT_EQ(DWORD{ERROR_NO_SYSTEM_RESOURCES}, OptionalTableInit(0));
    EXPECT_EQ(0, table_.first_stage_count);
  }
  const test::ImportPatch patch("kernel32.dll", "GetVersionExW", reinterpret_cast<void*>(&OldVersion));
  ASSERT_EQ(0u, OptionalTableInit(0));
  EXPECT_EQ("version 284;version 276;open;locale 0 '';", script.asked);
  EXPECT_EQ("RtlGetVersion;IsWow64Process;GetLogicalProcessorInformation;GetTickCount64;" +
                std::string(os_class >= 15 ? "PrefetchVirtualMemory;" : "") +
                "RtlNtStatusToDosError;NtOpenFile;NtReadFile;NtWriteFile;NtQueryInformationFile;NtSetInformationFile;NtQueryVirtualMemory;"
                "NtQueryObject;NtQueryVolumeInformationFile;NtQueryInformationProcess;NtQuerySystemInformation;RtlSetThreadErrorMode;"
                "NtWow64QueryInformationProcess64;NtWow64GetNativeSystemInformation;NtWow64QueryVirtualMemory64;NtWow64ReadVirtualMemory64;",
            script.lookups);
  EXPECT_EQ(os_class, table_.os_class);
  EXPECT_EQ(version.dwBuildNumber, table_.version.dwBuildNumber);
  EXPECT_EQ(os_class >= 15, table_.prefetch_virtual_memory != nullptr);
  EXPECT_EQ(look_up(GetModuleHandleW(L"ntdll"), "NtQuerySystemInformation"), table_.nt_query_system_information);
  EXPECT_EQ(look_up(GetModuleHandleW(L"kernel32"), "GetTickCount64"), table_.get_tick_count_64);
  EXPECT_EQ(4096u, table_.page_size);
  EXPECT_EQ(65536u, table_.allocation_granularity);
  EXPECT_LT(reinterpret_cast<void*>(&script), table_.highest_application_address);
  EXPECT_LE(1u, table_.processor_count);

  EXPECT_EQ(1, table_.first_stage_count);
  EXPECT_EQ(0u, OsInfoAcquire());
  EXPECT_EQ(2, table_.first_stage_count);
  EXPECT_EQ(0u, OptionalTableRelease());
}

// The same in children that take the system for another one.
TEST(OptionalFunctionsOnOtherWindows, FirstStageKnowsTheTrueVersionAndTheTableWhatItHas) {
  wchar_t program[MAX_PATH];
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  const std::wstring setting = L"Software\\Wine\\AppDefaults\\" + std::filesystem::path(program).filename().wstring();
  struct { const wchar_t *version, *os_class; } const cases[] = {{L"winxp", L"12"}, {L"vista", L"13"}, {L"win7", L"14"},
                                                       {L"win8", L"15"},  {L"win81", L"16"}, {L"win10", L"17"}};
  for (const auto& c : cases) {
    SHSetValueW(HKEY_CURRENT_USER, setting.c_str(), L"Version", REG_SZ, c.version, (std::wcslen(c.version) + 1) * sizeof(wchar_t));
    SetEnvironmentVariableW(kExpectedClass, c.os_class);
    std::wstring command = L"\"" + std::wstring(program) + L"\" --gtest_brief=1 --gtest_filter=OptionalTable.FirstStage*";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process));
    if (WaitForSingleObject(process.hProcess, 20000) != WAIT_OBJECT_0) TerminateProcess(process.hProcess, 99);
    DWORD exit_code = 98;
    EXPECT_TRUE(GetExitCodeProcess(process.hProcess, &exit_code));
    EXPECT_EQ(0u, exit_code) << "class " << std::filesystem::path(c.os_class);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
  }
  SetEnvironmentVariableW(kExpectedClass, nullptr);
  SHDeleteKeyW(HKEY_CURRENT_USER, setting.c_str());
}

TEST_F(OptionalTable, TableIsFilledByTheFirstReferenceAndClosedByTheLast) {
  EXPECT_EQ(0u, OptionalTableInit(0));
  EXPECT_EQ("open;locale 0 '';", script.asked);
  script.asked = script.lookups = "";
  EXPECT_EQ(0u, OptionalTableInit(0));
  EXPECT_EQ(2, table_.table_count);
  EXPECT_EQ(0u, OptionalTableRelease());
  EXPECT_EQ("", script.asked + script.lookups);
  EXPECT_EQ(0u, OptionalTableRelease());
  EXPECT_EQ("close;", script.asked);
  EXPECT_NE(nullptr, table_.nt_open_file);  // what was looked up stays

  script.asked = "";
  script.device = INVALID_HANDLE_VALUE;
  EXPECT_EQ(0u, OptionalTableInit(0));
  EXPECT_EQ(0u, OptionalTableRelease());
  EXPECT_EQ("open;locale 0 '';", script.asked);
  script.asked = "";
  EXPECT_EQ(0u, OptionalTableInit(kTableWithoutSideEffects));
  EXPECT_EQ(0u, OptionalTableRelease());
  EXPECT_EQ("", script.asked);
}

TEST_F(OptionalTable, ShortageOfMemoryGivesEverythingBack) {
  script.memory = false;
  EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, OptionalTableInit(0));
  EXPECT_EQ("open;close;", script.asked);
  EXPECT_EQ(nullptr, OpenSecurityAttributes());
}

TEST_F(OptionalTable, RedirectionIsOffForTheCallOnlyUnderWow64) {
  const auto call = [] { return script.asked += "call;", SetLastError(5), GetLastError(); };
  EXPECT_EQ(0u, OptionalTableInit(kTableWithoutSideEffects));
  EXPECT_EQ(5u, WithoutFsRedirection(call));
  EXPECT_FALSE(table_.is_wow64);
  EXPECT_EQ("call;", script.asked);
  OptionalTableRelease();

  script.wow64 = true;
  script.lookups = script.asked = "";
  EXPECT_EQ(0u, OptionalTableInit(kTableWithoutSideEffects));
  EXPECT_TRUE(table_.is_wow64);
  EXPECT_EQ(0u, script.lookups.find("IsWow64Process;Wow64EnableWow64FsRedirection;GetLogical"));
  EXPECT_EQ(5u, WithoutFsRedirection(call));
  EXPECT_EQ(5u, GetLastError());
  EXPECT_EQ("switch 0;call;switch 7;", script.asked);
  script.asked = "";
  EXPECT_THROW(WithoutFsRedirection([] { throw std::runtime_error(""); }), std::runtime_error);
  EXPECT_EQ("switch 0;switch 7;", script.asked);
  OptionalTableRelease();
  script.wow64 = false;
  OptionalTableInit(kTableWithoutSideEffects);
  OptionalTableRelease();
}

TEST_F(OptionalTable, OpenSecurityLetsEveryoneDoAnything) {
  EXPECT_EQ(0u, OptionalTableInit(kTableWithoutSideEffects));
  SECURITY_ATTRIBUTES* const attributes = OpenSecurityAttributes();
  ASSERT_TRUE(attributes);
  EXPECT_EQ(12u, attributes->nLength);
  EXPECT_FALSE(attributes->bInheritHandle);
  ASSERT_TRUE(IsValidSecurityDescriptor(attributes->lpSecurityDescriptor));
  BOOL present = FALSE, defaulted = TRUE;
  ACL* acl = nullptr;
  ASSERT_TRUE(GetSecurityDescriptorDacl(attributes->lpSecurityDescriptor, &present, &acl, &defaulted));
  EXPECT_TRUE(present);
  EXPECT_FALSE(defaulted);
  ASSERT_TRUE(acl && IsValidAcl(acl));
  EXPECT_EQ(2, acl->AclRevision);
  EXPECT_EQ(2048, acl->AclSize);
  ASSERT_EQ(2, acl->AceCount);
  constexpr struct { BYTE flags; DWORD mask; } kExpected[] = {{0x09, 0x10000000}, {0x02, 0x001F01FF}};
  SID everyone = {1, 1, {SECURITY_WORLD_SID_AUTHORITY}, {0}};
  for (DWORD i = 0; i < 2; ++i) {
    void* ace = nullptr;
    ASSERT_TRUE(GetAce(acl, i, &ace));
    auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
    EXPECT_EQ(ACCESS_ALLOWED_ACE_TYPE, allowed->Header.AceType);
    EXPECT_EQ(kExpected[i].flags, allowed->Header.AceFlags);
    EXPECT_EQ(kExpected[i].mask, allowed->Mask);
    EXPECT_TRUE(EqualSid(&everyone, &allowed->SidStart));
  }
  OptionalTableRelease();
}

}  // namespace
}  // namespace crv::root
