#include "root/optional_functions.h"

#include <gtest/gtest.h>
#include <sddl.h>

#include <clocale>
#include <stdexcept>

#include "root/os_class.h"
#include "root/os_version.h"
#include "support/import_fake.h"

namespace crv::root {
namespace {

const HANDLE kDevice = reinterpret_cast<HANDLE>(0x5A5A);

// What the system is told to answer, and what it was asked, in order.
bool wow64 = false, memory = true;
std::string missing, asked;

BOOL WINAPI IsWow64(HANDLE process, BOOL* result) { return *result = wow64, process == GetCurrentProcess(); }
BOOLEAN WINAPI Switch(BOOLEAN enable) {
  asked += "switch " + std::to_string(enable) + ";";
  return SetLastError(0xBAD), 7;  // whatever comes back is handed in again
}

FARPROC LookUp(decltype(GetProcAddress)* real, HMODULE module, const std::string& name) {
  if (name == missing) return nullptr;
  if (name == "IsWow64Process") return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&IsWow64));
  if (name == "Wow64EnableWow64FsRedirection") return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Switch));
  return real(module, name.c_str());
}

// The first stage of the table happens once in a process, in whichever test comes first.
class OptionalTable : public testing::Test {
 protected:
  OptionalTable() { asked = ""; }

  const OptionalFunctionTable& table_ = OptionalFunctions();
  HANDLE device_ = kDevice;

 private:
  HANDLE Open(const std::wstring& name, DWORD access, DWORD share, DWORD disposition) const {
    EXPECT_TRUE(name == L"\\\\.\\crvSP" && access == GENERIC_READ && share == 0 && disposition == OPEN_EXISTING);
    return asked += "open;", device_;
  }

  test::ImportFake<decltype(GetProcAddress)> look_up_{"kernel32.dll", "GetProcAddress", LookUp};
  test::ImportFake<decltype(CreateFileW)> open_{
      "kernel32.dll", "CreateFileW", [this](auto, auto name, DWORD access, DWORD share, auto, DWORD disposition, auto...) {
        return Open(name, access, share, disposition);
      }};
  test::ImportFake<decltype(CloseHandle)> close_{
      "kernel32.dll", "CloseHandle", [](auto real, HANDLE handle) {
        return handle == kDevice ? asked += "close;", TRUE : real(handle);
      }};
  test::ImportFake<decltype(setlocale)> locale_{
      "msvcrt.dll", "setlocale", [](auto, int category, const std::string& name) {
        return asked += "locale " + std::to_string(category) + name + ";", nullptr;
      }};
  test::ImportFake<decltype(AllocateAndInitializeSid)> make_sid_{
      "advapi32.dll", "AllocateAndInitializeSid",
      [](auto real, auto... arguments) { return memory ? real(arguments...) : FALSE; }};
};

TEST_F(OptionalTable, FirstReferenceFillsItAndTheLastOneClosesTheDevice) {
  EXPECT_EQ(0u, OptionalTableInit(0));
  const OSVERSIONINFOEXW& version = table_.version;
  EXPECT_EQ(OsVersionRecord().dwBuildNumber, version.dwBuildNumber);
  EXPECT_EQ(ComputeOsClass(2, version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber), table_.os_class);
  EXPECT_EQ(table_.os_class >= kOsClass8, table_.prefetch_virtual_memory != nullptr);
  EXPECT_EQ("open;locale 0;", std::exchange(asked, ""));
  EXPECT_EQ(0u, OptionalTableInit(0));
  EXPECT_EQ(0u, OptionalTableRelease());
  EXPECT_EQ("", asked);
  EXPECT_EQ(0u, OptionalTableRelease());
  EXPECT_EQ("close;", std::exchange(asked, ""));
  EXPECT_NE(nullptr, table_.nt_open_file);  // what was looked up stays

  SECURITY_ATTRIBUTES* const open_to_everyone = OpenSecurityAttributes();
  ASSERT_TRUE(open_to_everyone && open_to_everyone->nLength == 12 && !open_to_everyone->bInheritHandle);
  wchar_t* text = nullptr;
  ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(open_to_everyone->lpSecurityDescriptor, SDDL_REVISION_1,
                                                                   DACL_SECURITY_INFORMATION, &text, nullptr));
  EXPECT_STREQ(L"D:(A;OIIO;GA;;;WD)(A;CI;FA;;;WD)", text);
  LocalFree(text);

  memory = false;
  EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, OptionalTableInit(0));
  EXPECT_EQ("open;close;", std::exchange(asked, ""));
  EXPECT_EQ(nullptr, OpenSecurityAttributes());

  memory = true;
  device_ = INVALID_HANDLE_VALUE;
  EXPECT_EQ(0u, OptionalTableInit(0));
  EXPECT_EQ(0u, OptionalTableRelease());
  EXPECT_EQ("open;locale 0;", asked);
  EXPECT_EQ(0, table_.table_count);
}

TEST_F(OptionalTable, RedirectionIsOffForTheCallOnlyUnderWow64) {
  const struct {
    bool wow64;
    const char* missing;
    bool switches;
  } cases[] = {
      {true, "", true}, {false, "", false}, {true, "Wow64EnableWow64FsRedirection", false}, {true, "IsWow64Process", false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    wow64 = c.wow64;
    missing = c.missing;
    asked = "";
    EXPECT_EQ(0u, OptionalTableInit(kTableWithoutSideEffects));
    EXPECT_EQ(3, WithoutFsRedirection([] { return asked += "call;", SetLastError(5), 3; }));
    EXPECT_EQ(5u, GetLastError());
    EXPECT_THROW(WithoutFsRedirection([]() { throw std::runtime_error(""); }), std::runtime_error);
    EXPECT_EQ(c.switches ? "switch 0;call;switch 7;switch 0;switch 7;" : "call;", asked);
    EXPECT_EQ(0u, OptionalTableRelease());
  }
}

}  // namespace
}  // namespace crv::root
