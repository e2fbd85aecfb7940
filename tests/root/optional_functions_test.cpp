#include "root/optional_functions.h"

#include <gtest/gtest.h>
#include <sddl.h>
#include <shlwapi.h>

#include <clocale>
#include <filesystem>
#include <stdexcept>

#include "root/os_class.h"
#include "root/os_version.h"
#include "support/import_fake.h"

namespace crv::root {
namespace {

constexpr const wchar_t* kExpectedClass = L"CRV_TEST_OS_CLASS";  // environment variable of a child, see below
const HANDLE kDevice = reinterpret_cast<HANDLE>(0x5A5A);

// What the system is told to answer, and what it was asked, in order.
bool wow64, memory;
std::string missing, lookups, asked;

BOOL WINAPI IsWow64(HANDLE process, BOOL* result) { return *result = wow64, process == GetCurrentProcess(); }
BOOLEAN WINAPI Switch(BOOLEAN enable) {
  asked += "switch " + std::to_string(enable) + ";";
  return SetLastError(0xBAD), 7;  // whatever comes back is handed in again
}

class OptionalTable : public testing::Test {
 protected:
  OptionalTable() {
    wow64 = false;
    memory = true;
    missing = lookups = asked = "";
  }
  ~OptionalTable() override {
    EXPECT_EQ(0, open_sids_);
    EXPECT_EQ(0, table_.table_count);
    EXPECT_FALSE(table_.self_protection_device);
  }

  const OptionalFunctionTable& table_ = OptionalFunctions();
  HANDLE device_ = kDevice;

 private:
  int open_sids_ = 0;
  test::ImportFake<decltype(GetProcAddress)> look_up_{
      "kernel32.dll", "GetProcAddress", [](auto real, HMODULE module, const std::string& name) {
        lookups += name + ";";
        if (name == missing) return FARPROC{};
        if (name == "IsWow64Process") return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&IsWow64));
        if (name == "Wow64EnableWow64FsRedirection") return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Switch));
        return real(module, name.c_str());
      }};
  test::ImportFake<decltype(CreateFileW)> open_{
      "kernel32.dll", "CreateFileW", [this](auto, std::wstring name, DWORD access, DWORD share, auto, DWORD disposition, auto...) {
        EXPECT_EQ(L"\\\\.\\crvSP", name);
        EXPECT_EQ(GENERIC_READ, access);
        EXPECT_EQ(0u, share);
        EXPECT_EQ(DWORD{OPEN_EXISTING}, disposition);
        asked += "open;";
        return device_;
      }};
  test::ImportFake<decltype(CloseHandle)> close_{"kernel32.dll", "CloseHandle", [](auto real, HANDLE handle) {
                                                   return handle == kDevice ? asked += "close;", TRUE : real(handle);
                                                 }};
  test::ImportFake<decltype(setlocale)> locale_{"msvcrt.dll", "setlocale", [](auto, int category, const std::string& name) {
                                                  asked += "locale " + std::to_string(category) + " '" + name + "';";
                                                  return nullptr;
                                                }};
  test::ImportFake<decltype(AllocateAndInitializeSid)> make_sid_{
      "advapi32.dll", "AllocateAndInitializeSid",
      [this](auto real, auto... arguments) { return memory ? ++open_sids_, real(arguments...) : FALSE; }};
  test::ImportFake<decltype(FreeSid)> free_sid_{"advapi32.dll", "FreeSid", [this](auto real, PSID sid) { return --open_sids_, real(sid); }};
};

// Stands first: the first stage happens once in a process.
TEST_F(OptionalTable, FirstStageKnowsTheTrueVersionAndTheTableWhatItHas) {
  OSVERSIONINFOEXW version = ReadOsVersion();
  int os_class = ComputeOsClass(version.dwPlatformId, version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber);
  if (wchar_t text[8]; GetEnvironmentVariableW(kExpectedClass, text, std::size(text))) os_class = _wtoi(text);
  std::string unknown;
  if (os_class == 1) {  // only what GetVersionExW reports is left
    unknown = missing = "RtlGetVersion";
    version.dwBuildNumber = 1110;
  }
  EXPECT_EQ(nullptr, OpenSecurityAttributes());
  EXPECT_EQ(1, WithoutFsRedirection([] { return 1; }));
  {
    const test::ImportFake<decltype(InitializeCriticalSectionAndSpinCount)> fake(
        "kernel32.dll", "InitializeCriticalSectionAndSpinCount", [](auto...) { return SetLastError(ERROR_NO_SYSTEM_RESOURCES), FALSE; });
    EXPECT_EQ(DWORD{ERROR_NO_SYSTEM_RESOURCES}, OsInfoAcquire());
    EXPECT_EQ(DWORD{ERROR_NO_SYSTEM_RESOURCES}, OptionalTableInit(0));
    EXPECT_EQ(0, table_.first_stage_count);
  }
  // Knows the plain form only, and lies.
  const test::ImportFake<decltype(GetVersionExW)> fake("kernel32.dll", "GetVersionExW", [](auto, OSVERSIONINFOW* reported) {
    asked += "version " + std::to_string(reported->dwOSVersionInfoSize) + ";";
    reported->dwMajorVersion = 4;
    reported->dwBuildNumber = 1110;
    return reported->dwOSVersionInfoSize == 276;
  });
  lookups = "";
  ASSERT_EQ(0u, OptionalTableInit(0));
  EXPECT_EQ("version 284;version 276;open;locale 0 '';", asked);
  EXPECT_EQ("RtlGetVersion;IsWow64Process;GetLogicalProcessorInformation;GetTickCount64;" +
                std::string(os_class >= 15 ? "PrefetchVirtualMemory;" : "") +
                "RtlNtStatusToDosError;NtOpenFile;NtReadFile;NtWriteFile;NtQueryInformationFile;NtSetInformationFile;"
                "NtQueryVirtualMemory;NtQueryObject;NtQueryVolumeInformationFile;NtQueryInformationProcess;NtQuerySystemInformation;"
                "RtlSetThreadErrorMode;" + (unknown.empty() ? "" : unknown + ";") + "NtWow64QueryInformationProcess64;"
                "NtWow64GetNativeSystemInformation;NtWow64QueryVirtualMemory64;NtWow64ReadVirtualMemory64;",
            lookups);
  EXPECT_EQ(os_class, table_.os_class);
  EXPECT_EQ(version.dwBuildNumber, table_.version.dwBuildNumber);
  EXPECT_EQ(os_class >= 15, table_.prefetch_virtual_memory != nullptr);
  EXPECT_EQ(GetProcAddress(GetModuleHandleW(L"ntdll"), "NtQuerySystemInformation"), table_.nt_query_system_information);
  EXPECT_TRUE(table_.page_size == 4096 && table_.allocation_granularity == 65536 && table_.processor_count > 0);
  EXPECT_LT(reinterpret_cast<const void*>(&version), table_.highest_application_address);
  EXPECT_EQ(1, table_.first_stage_count);
  EXPECT_EQ(0u, OptionalTableRelease());
}

// The same in children that take the system for another one; class 1 stands for a system that does not tell its true version.
TEST(OptionalTableOnOtherWindows, FirstStageKnowsTheTrueVersionAndTheTableWhatItHas) {
  wchar_t program[MAX_PATH];
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  const std::wstring setting = L"Software\\Wine\\AppDefaults\\" + std::filesystem::path(program).filename().wstring();
  const std::pair<std::wstring, const wchar_t*> cases[] = {{L"winxp", L"12"}, {L"win7", L"14"}, {L"win8", L"15"}, {L"win10", L"1"}};
  for (const auto& [name, os_class] : cases) {
    SCOPED_TRACE(_wtoi(os_class));
    SHSetValueW(HKEY_CURRENT_USER, setting.c_str(), L"Version", REG_SZ, name.c_str(), (name.size() + 1) * sizeof(wchar_t));
    SetEnvironmentVariableW(kExpectedClass, os_class);
    std::wstring command = L"\"" + std::wstring(program) + L"\" --gtest_brief=1 --gtest_filter=OptionalTable.FirstStage*";
    STARTUPINFOW startup = {.cb = sizeof(startup)};
    PROCESS_INFORMATION process = {};
    ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process));
    const ScopedKernelHandle child(process.hProcess), thread(process.hThread);
    if (WaitForSingleObject(child.get(), 20000) != WAIT_OBJECT_0) TerminateProcess(child.get(), 99);
    DWORD exit_code = 98;
    EXPECT_TRUE(GetExitCodeProcess(child.get(), &exit_code));
    EXPECT_EQ(0u, exit_code);
  }
  SetEnvironmentVariableW(kExpectedClass, nullptr);
  SHDeleteKeyW(HKEY_CURRENT_USER, setting.c_str());
}

TEST_F(OptionalTable, FirstReferenceFillsItAndTheLastOneClosesTheDevice) {
  EXPECT_EQ(0u, OptionalTableInit(0));
  EXPECT_EQ("open;locale 0 '';", asked);
  asked = lookups = "";
  EXPECT_EQ(0u, OptionalTableInit(0));
  EXPECT_EQ(2, table_.table_count);
  EXPECT_EQ(0u, OptionalTableRelease());
  EXPECT_EQ("", asked + lookups);
  EXPECT_EQ(0u, OptionalTableRelease());
  EXPECT_EQ("close;", asked);
  EXPECT_NE(nullptr, table_.nt_open_file);  // what was looked up stays

  memory = false;
  asked = "";
  EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, OptionalTableInit(0));
  EXPECT_EQ("open;close;", asked);
  EXPECT_EQ(nullptr, OpenSecurityAttributes());

  memory = true;
  device_ = INVALID_HANDLE_VALUE;
  asked = "";
  EXPECT_EQ(0u, OptionalTableInit(0));
  EXPECT_EQ(0u, OptionalTableRelease());
  EXPECT_EQ("open;locale 0 '';", asked);
}

TEST_F(OptionalTable, RedirectionIsOffForTheCallOnlyUnderWow64) {
  struct { bool wow64; const char* missing; bool switches; } const cases[] = {
      {true, "", true}, {false, "", false}, {true, "Wow64EnableWow64FsRedirection", false}, {true, "IsWow64Process", false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    wow64 = c.wow64;
    missing = c.missing;
    asked = "";
    EXPECT_EQ(0u, OptionalTableInit(kTableWithoutSideEffects));
    EXPECT_EQ(wow64 && missing != "IsWow64Process", table_.is_wow64);
    EXPECT_EQ(3, WithoutFsRedirection([] { return asked += "call;", SetLastError(5), 3; }));
    EXPECT_EQ(5u, GetLastError());
    EXPECT_THROW(WithoutFsRedirection([]() { throw std::runtime_error(""); }), std::runtime_error);
    EXPECT_EQ(c.switches ? "switch 0;call;switch 7;switch 0;switch 7;" : "call;", asked);
    EXPECT_EQ(0u, OptionalTableRelease());
  }
  EXPECT_TRUE(lookups.starts_with("IsWow64Process;Wow64EnableWow64FsRedirection;GetLogicalProcessorInformation;")) << lookups;
}

TEST_F(OptionalTable, OpenSecurityLetsEveryoneDoAnything) {
  EXPECT_EQ(0u, OptionalTableInit(kTableWithoutSideEffects));
  EXPECT_EQ(0u, OptionalTableRelease());
  SECURITY_ATTRIBUTES* const attributes = OpenSecurityAttributes();
  ASSERT_TRUE(attributes && IsValidSecurityDescriptor(attributes->lpSecurityDescriptor));
  EXPECT_EQ(12u, attributes->nLength);
  EXPECT_FALSE(attributes->bInheritHandle);
  const auto& descriptor = *static_cast<const SECURITY_DESCRIPTOR*>(attributes->lpSecurityDescriptor);
  EXPECT_EQ(SE_DACL_PRESENT, descriptor.Control);
  ASSERT_TRUE(descriptor.Dacl);
  EXPECT_EQ(2, descriptor.Dacl->AclRevision);
  EXPECT_EQ(2048, descriptor.Dacl->AclSize);
  wchar_t* text = nullptr;
  ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(attributes->lpSecurityDescriptor, SDDL_REVISION_1,
                                                                   DACL_SECURITY_INFORMATION, &text, nullptr));
  EXPECT_STREQ(L"D:(A;OIIO;GA;;;WD)(A;CI;FA;;;WD)", text);
  LocalFree(text);
}

}  // namespace
}  // namespace crv::root
