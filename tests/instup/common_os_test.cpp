// The common OS library and the table of optional functions below it, whose state is that of a process.
#include "instup/common_os.h"

#include <sddl.h>

#include <clocale>
#include <utility>

#include "instup/folder_lookup.h"
#include "instup/library_folders.h"
#include "instup/stage.h"
#include "root/optional_functions.h"
#include "support/import_fake.h"

namespace crv::instup {
namespace {

using crv::test::ImportFake;
using test::kCorvidKey;

const HANDLE kDevice = reinterpret_cast<HANDLE>(0x5A5A);

class CommonOs : public test::StageTest {
 protected:
  // What was done since the last question: "locale open " and "close lock ", and what else concerns the whole process.
  std::string Done() { return std::exchange(done_, ""); }
  int References() const { return root::OptionalFunctions().table_count; }

  static std::wstring SystemRoot() {
    wchar_t folder[MAX_PATH * 2] = {};
    return std::wstring(folder, GetEnvironmentVariableW(L"SystemRoot", folder, std::size(folder)));
  }

  bool memory_ = true;

 private:
  std::string done_;
  ImportFake<decltype(CreateFileW)> open_{
      "kernel32.dll", "CreateFileW",
      [this](auto real, const wchar_t* name, DWORD access, DWORD share, auto*, DWORD how, auto... rest) {
        if (name != std::wstring(L"\\\\.\\crvSP")) return real(name, access, share, nullptr, how, rest...);
        EXPECT_TRUE(access == GENERIC_READ && share == 0 && how == OPEN_EXISTING);
        return done_ += "open ", kDevice;
      }};
  ImportFake<decltype(CloseHandle)> close_{"kernel32.dll", "CloseHandle", [this](auto real, HANDLE handle) {
                                             return handle == kDevice ? done_ += "close ", TRUE : real(handle);
                                           }};
  ImportFake<decltype(DeleteCriticalSection)> delete_lock_{
      "kernel32.dll", "DeleteCriticalSection", [this](auto real, auto* section) { return done_ += "lock ", real(section); }};
  ImportFake<char*(int, const char*)> locale_{"msvcrt.dll", "setlocale", [this](auto, int category, std::string name) {
                                                EXPECT_TRUE(category == LC_ALL && name.empty());
                                                return done_ += "locale ", nullptr;
                                              }};
  ImportFake<decltype(InitializeAcl)> acl_{"advapi32.dll", "InitializeAcl",
                                           [this](auto real, auto... arguments) { return memory_ ? real(arguments...) : FALSE; }};
};

// The system's true version, whatever else reports.
LONG WINAPI Windows7(OSVERSIONINFOW* version) {
  EXPECT_EQ(284u, version->dwOSVersionInfoSize);
  return version->dwMajorVersion = 6, version->dwMinorVersion = 1, version->dwPlatformId = 2, 0;
}

TEST_F(CommonOs, FirstReferenceSetsUpAndLastTearsDown) {
  std::string looked_up;
  const ImportFake<decltype(GetProcAddress)> lookup("kernel32.dll", "GetProcAddress",
                                                    [&](auto real, HMODULE module, std::string name) {
                                                      looked_up += name + " ";
                                                      if (name == "RtlGetVersion")
                                                        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Windows7));
                                                      return real(module, name.c_str());
                                                    });
  AddFile(L"program\\crvCmnOS.dll");
  AddFile(L"data\\corvid5.ini");
  test::SetText(kCorvidKey, L"ProgramFolder", Path(L"program"));
  test::SetText(kCorvidKey, L"DataFolder", Path(L"data"));
  test::SetText(kCorvidKey, L"TempFolder", Path(L"temp"));
  const std::wstring system_root = SystemRoot();
  SetEnvironmentVariableW(L"SystemRoot", nullptr);
  EXPECT_EQ(L"", CmnOsProgramFolder());
  EXPECT_EQ(0u, CmnOsUninitialize()) << "before the first initialisation there is nothing to release";

  EXPECT_EQ(0u, CmnOsInitialize(0));
  EXPECT_EQ("open locale ", Done());
  EXPECT_EQ(14, root::OptionalFunctions().os_class);
  BOOL wow64 = FALSE;
  IsWow64Process(GetCurrentProcess(), &wow64);
  EXPECT_EQ(std::string("RtlGetVersion IsWow64Process ") + (wow64 ? "Wow64EnableWow64FsRedirection " : "") +
                "GetLogicalProcessorInformation GetTickCount64 RtlNtStatusToDosError NtOpenFile NtReadFile "
                "NtWriteFile NtQueryInformationFile NtSetInformationFile NtQueryVirtualMemory NtQueryObject "
                "NtQueryVolumeInformationFile NtQueryInformationProcess NtQuerySystemInformation RtlSetThreadErrorMode "
                "NtWow64QueryInformationProcess64 NtWow64GetNativeSystemInformation NtWow64QueryVirtualMemory64 "
                "NtWow64ReadVirtualMemory64 ",
            looked_up);
  EXPECT_EQ(system_root, SystemRoot());
  EXPECT_EQ(Path(L"program"), CmnOsProgramFolder());
  EXPECT_TRUE(test::IsDirectory(Path(L"data\\journal")));
  RemoveDirectoryW(Path(L"data\\journal").c_str());
  EXPECT_EQ(0u, CmnOsInitialize(0));
  EXPECT_FALSE(test::IsDirectory(Path(L"data\\journal"))) << "a further reference only counts";
  EXPECT_EQ(0u, CmnOsUninitialize());
  EXPECT_EQ(1, References());
  EXPECT_EQ("", Done());
  for (const char* done : {"lock close ", ""}) {  // one release too many is not counted
    EXPECT_EQ(0u, CmnOsUninitialize());
    EXPECT_EQ(0, References());
    EXPECT_EQ(done, Done());
  }
  EXPECT_NE(nullptr, root::OptionalFunctions().nt_open_file) << "what was looked up stays";

  SECURITY_ATTRIBUTES* const open_to_everyone = root::OpenSecurityAttributes();
  ASSERT_TRUE(open_to_everyone && open_to_everyone->nLength == 12 && !open_to_everyone->bInheritHandle);
  wchar_t* text = nullptr;
  ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(open_to_everyone->lpSecurityDescriptor, SDDL_REVISION_1,
                                                                   DACL_SECURITY_INFORMATION, &text, nullptr));
  EXPECT_STREQ(L"D:(A;OIIO;GA;;;WD)(A;CI;FA;;;WD)", text);
  LocalFree(text);

  const std::wstring long_root(300, L'x');
  SetEnvironmentVariableW(L"SystemRoot", long_root.c_str());
  memory_ = false;
  EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, CmnOsInitialize(0));
  EXPECT_EQ("open close ", Done());
  EXPECT_EQ(0, References()) << "a failure is undone";
  EXPECT_EQ(nullptr, root::OpenSecurityAttributes());
  EXPECT_EQ(long_root, SystemRoot());
  SetEnvironmentVariableW(L"SystemRoot", L"X:");
  memory_ = true;
  test::SetText(kCorvidKey, L"ProgramFolder", Path(L"host"));
  EXPECT_EQ(0u, CmnOsInitialize(root::kTableWithoutSideEffects));
  EXPECT_EQ("", Done());
  EXPECT_EQ(1, References());
  EXPECT_EQ(L"X:", SystemRoot()) << "a value that is there counts";
  EXPECT_EQ(Path(L"program"), CmnOsProgramFolder()) << "settled folders outlive the release";
  EXPECT_TRUE(test::IsDirectory(Path(L"data\\journal"))) << "sub-folders are looked up again";
  SetEnvironmentVariableW(L"SystemRoot", system_root.c_str());
  EXPECT_EQ(0u, CmnOsUninitialize());
}

// A system under WOW64 or not, as GetProcAddress shows it to the table, and the state of its redirection.
BOOL wow64_success, wow64_answer, switches;
bool redirection = true, asked_for;
BOOL WINAPI AnswerWow64(HANDLE, BOOL* wow64) { return *wow64 = wow64_answer, wow64_success; }
BOOLEAN WINAPI SwitchRedirection(BOOLEAN enable) {
  SetLastError(0xBAD), asked_for = enable;
  return switches ? redirection = enable, TRUE : FALSE;
}

TEST_F(CommonOs, FoldersAreTouchedWithoutRedirectionUnderWow64Only) {
  const ImportFake<decltype(GetProcAddress)> lookup(
      "kernel32.dll", "GetProcAddress", [](auto real, HMODULE module, std::string name) {
        if (name == "IsWow64Process") return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&AnswerWow64));
        if (name != "Wow64EnableWow64FsRedirection") return real(module, name.c_str());
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&SwitchRedirection));
      });
  std::string calls;
  const auto note = [&](const char* call) { calls += call + std::string(redirection ? "! " : " "); };
  const ImportFake<decltype(GetFileAttributesW)> look(
      "kernel32.dll", "GetFileAttributesW", [&](auto...) { return note("look"), SetLastError(5), INVALID_FILE_ATTRIBUTES; });
  const ImportFake<decltype(CreateDirectoryW)> make("kernel32.dll", "CreateDirectoryW",
                                                    [&](auto...) { return note("make"), FALSE; });
  const ImportFake<decltype(GetCurrentDirectoryW)> current("kernel32.dll", "GetCurrentDirectoryW",
                                                           [&](auto...) { return note("current"), DWORD{0}; });
  const std::wstring temp = _wgetenv(L"TEMP"), tmp = _wgetenv(L"TMP");
  for (const auto& [success, answer, works] :
       {std::tuple(TRUE, TRUE, TRUE), {TRUE, TRUE, FALSE}, {TRUE, FALSE, TRUE}, {FALSE, TRUE, TRUE}}) {
    wow64_success = success, wow64_answer = answer, switches = works, asked_for = works;
    EXPECT_EQ(0u, root::OptionalTableInit(root::kTableWithoutSideEffects));
    EXPECT_FALSE(VerifyFolder(L"C:\\x", {}, kCreateIfMissing));
    EXPECT_EQ(5u, GetLastError());
    SetEnvironmentVariableW(L"TEMP", nullptr), SetEnvironmentVariableW(L"TMP", nullptr);
    LibraryFolders folders;
    folders.data = L"settled";
    SettleLibraryFolders(folders);
    SetEnvironmentVariableW(L"TEMP", temp.c_str()), SetEnvironmentVariableW(L"TMP", tmp.c_str());
    EXPECT_EQ(success && answer && works ? "look make look current look make " : "look! make! look! current! look! make! ",
              std::exchange(calls, ""));
    EXPECT_TRUE(redirection && asked_for == works) << "at the end the switch is told what it answered";
    root::OptionalTableRelease();
  }
}

// The whole library on the machine as it is: what it makes and looks for in the system folder is the real one, which a 32-bit program
// sees under another name on 64-bit Windows, and afterwards the names mean again what they do for everybody.
TEST_F(CommonOs, TheSystemFolderIsTheRealOne) {
  wchar_t windows[MAX_PATH];
  GetWindowsDirectoryW(windows, MAX_PATH);
  const bool wow64 = GetSystemWow64DirectoryW(windows, 0) != 0;
  const std::wstring name = L"\\corvid tests " + std::to_wstring(GetCurrentProcessId());
  const std::wstring given = windows + (L"\\system32" + name), real = windows + ((wow64 ? L"\\sysnative" : L"\\system32") + name);
  test::SetText(kCorvidKey, L"JournalFolder", given);
  EXPECT_EQ(0u, CmnOsInitialize(root::kTableWithoutSideEffects));
  EXPECT_TRUE(DirectoryExists(given));
  EXPECT_EQ(0u, CmnOsUninitialize());
  EXPECT_TRUE(RemoveDirectoryW(real.c_str()));
  EXPECT_FALSE(RemoveDirectoryW(given.c_str()));
  EXPECT_FALSE(DirectoryExists(given));
  ASSERT_TRUE(CreateDirectoryW(given.c_str(), nullptr));  // the redirection is on again
  EXPECT_EQ(!wow64, DirectoryExists(given));
  EXPECT_TRUE(RemoveDirectoryW(given.c_str()));
}

}  // namespace
}  // namespace crv::instup
