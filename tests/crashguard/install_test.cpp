#include <cstdlib>
#include <cstring>
#include <fstream>

#include "crashguard/crash_guard.h"
#include "crashguard/stage.h"

namespace crv::crashguard {
namespace {

using test::ImportFake;
using testing::ElementsAre;

constexpr std::uint32_t kEverything = 0x3FD;
constexpr char kHooked[] = "narrow 1 crashguard: CrashGuard global exception handler installed";
constexpr char kUnhooked[] = "narrow 1 crashguard: CrashGuard global exception handler uninstalled";
constexpr char kInternal[] = "narrow 1 crashguard: CrashGuard initialized successfully, only internal dumping available";
constexpr char kHooksFailed[] = "narrow 4 crashguard: Failed to install crash hooks";

LONG WINAPI OtherFilter(EXCEPTION_POINTERS*) { return EXCEPTION_CONTINUE_SEARCH; }

class Install : public DumpStage {
 protected:
  ~Install() override {
    handler_.Uninstall();
    SetUnhandledExceptionFilter(before_);
    SetErrorMode(error_mode_);
  }

  std::uint32_t InstallHere(std::uint32_t flags) { return handler_.Install(folder_, folder_, flags, 3); }

  // Whether another filter than the guard's is set. A locked function answers null.
  static bool OtherFilterIsSet() { return SetUnhandledExceptionFilter(&OtherFilter) == &OtherFilter; }

  const LPTOP_LEVEL_EXCEPTION_FILTER before_ = SetUnhandledExceptionFilter(&OtherFilter);
  const UINT error_mode_ = SetErrorMode(0);
  CrashHandler handler_;
};

TEST_F(Install, TheFlagsChooseTheHooks) {
  int handlers = 0;
  const ImportFake<decltype(AddVectoredExceptionHandler)> add("kernel32.dll", "AddVectoredExceptionHandler",
                                                              [&](auto* real, ULONG first, auto* handler) {
                                                                EXPECT_EQ(0u, first);
                                                                ++handlers;
                                                                return real(first, handler);
                                                              });
  const struct {
    std::uint32_t flags;
    bool locked;
    int handlers;
    UINT error_mode;
  } rows[] = {{0, false, 0, 0},          {0x1, true, 0, 0},   {0x100, false, 1, 0},
              {0x200, false, 0, 0x8003}, {0xFC, false, 0, 0}, {kEverything, true, 1, 0x8003}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.flags);
    handlers = 0;
    EXPECT_EQ(1u, InstallHere(row.flags));
    EXPECT_EQ(row.handlers, handlers);
    const void* const function = reinterpret_cast<void*>(&SetUnhandledExceptionFilter);
    MEMORY_BASIC_INFORMATION page = {};
    VirtualQuery(function, &page, sizeof(page));
    EXPECT_EQ(DWORD{PAGE_EXECUTE_READ}, page.Protect);
    EXPECT_EQ(row.locked, std::memcmp(function, "\x31\xC0\xC2\x04", 5) == 0) << "it pops its argument";
    const LPTOP_LEVEL_EXCEPTION_FILTER ours = SetUnhandledExceptionFilter(&OtherFilter);
    EXPECT_EQ(row.locked, ours == nullptr);
    if (!row.locked) SetUnhandledExceptionFilter(ours);
    EXPECT_EQ(2u, InstallHere(row.flags));
    EXPECT_TRUE(handler_.Uninstall());
    EXPECT_FALSE(handler_.IsInstalled());
    EXPECT_TRUE(OtherFilterIsSet());
    EXPECT_EQ(row.error_mode, SetErrorMode(0) & ~SEM_NOALIGNMENTFAULTEXCEPT) << "it stays";
  }
}

TEST_F(Install, LooksForTheDumperAndTheDumpFolder) {
  const std::wstring dumper = folder_ + L"\\cvDump32.exe";
  std::filesystem::create_directory(dumper);
  EXPECT_EQ(1u, InstallHere(0)) << "a folder is no dumper";
  handler_.Uninstall();
  std::filesystem::remove(dumper);
  std::ofstream{std::filesystem::path(dumper)};
  EXPECT_EQ(0u, handler_.Install(folder_, folder_ + L"\\", 0, 3));
  handler_.Uninstall();
  log_.clear();
  const std::string narrow(dumper.begin(), dumper.end());
  EXPECT_EQ(3u, handler_.Install(dumper, folder_, kEverything, 3)) << "a file is no folder";
  EXPECT_TRUE(handler_.IsInstalled());
  EXPECT_TRUE(OtherFilterIsSet());
  EXPECT_FALSE(handler_.Uninstall());
  EXPECT_THAT(log_.lines(), ElementsAre("variadic 4 crashguard: Dump path '" + narrow +
                                            "' does not exist. Directory should be already created.",
                                        "narrow 4 crashguard: Call to UninstallGlobalHandler without being installed first",
                                        "narrow 4 crashguard: Failed to uninstall crash hooks"));
}

TEST_F(Install, TheProcessIsHeldAtItsExitOnceThereIsADumpFolder) {
  const auto leave = [&](const std::wstring& dump_folder) {
    static const ImportFake<decltype(Sleep)> held("kernel32.dll", "Sleep",
                                                  [](auto*, DWORD) { TerminateProcess(GetCurrentProcess(), 7); });
    SetEnvironmentVariableW(L"CRV_CRASH_SIGNAL_EVENT", L"0x00000001");
    handler_.Install(dump_folder, folder_, 0, 3);
    std::exit(0);
  };
  EXPECT_EXIT(leave(folder_), testing::ExitedWithCode(7), "");
  EXPECT_EXIT(leave(folder_ + L"\\missing"), testing::ExitedWithCode(0), "");
}

TEST_F(Install, ReportsWhatTheSystemRefuses) {
  {
    const ImportFake<decltype(GetModuleFileNameW)> fake("kernel32.dll", "GetModuleFileNameW",
                                                        [](auto*, HMODULE, LPWSTR, DWORD size) {
                                                          EXPECT_EQ(260u, size);
                                                          SetLastError(ERROR_GEN_FAILURE);
                                                          return DWORD{0};
                                                        });
    EXPECT_EQ(6u, handler_.Install(folder_, L"", kEverything, 3));
    EXPECT_THAT(log_.lines(), ElementsAre("narrow 4 crashguard: Install failed: cannot get filename of current process due to "
                                          "error: 31"));
    EXPECT_FALSE(handler_.Uninstall());
  }
  log_.clear();
  {
    const ImportFake<decltype(AddVectoredExceptionHandler)> fake("kernel32.dll", "AddVectoredExceptionHandler",
                                                                 [](auto*, auto...) -> void* { return nullptr; });
    EXPECT_EQ(5u, InstallHere(kEverything));
    EXPECT_TRUE(handler_.Uninstall()) << "the filter was installed";
  }
  EXPECT_THAT(log_.lines(),
              ElementsAre(kHooked, "narrow 4 crashguard: Failed to install vectored handler.", kHooksFailed, kUnhooked));
  log_.clear();
  const ImportFake<decltype(RemoveVectoredExceptionHandler)> fake(
      "kernel32.dll", "RemoveVectoredExceptionHandler", [](auto* real, void* handler) { return real(handler), ULONG{0}; });
  EXPECT_EQ(1u, InstallHere(kEverything));
  EXPECT_TRUE(handler_.Uninstall());
  EXPECT_THAT(log_.lines(),
              ElementsAre(kHooked, kInternal, kUnhooked, "narrow 4 crashguard: Failed to uninstall vectored handler."));
}

TEST_F(Install, GoesOnWithoutCtrlRoutineAndWithoutTheLock) {
  {
    const ImportFake<decltype(GetProcAddress)> fake("kernel32.dll", "GetProcAddress",
                                                    [](auto*, auto...) -> FARPROC { return nullptr; });
    EXPECT_EQ(1u, InstallHere(kEverything));
    EXPECT_EQ(0u, handler_.ctrl_routine());
  }
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 4 crashguard: Failed to get address of CtrlRoutine", kHooked, kInternal));
  EXPECT_TRUE(handler_.Uninstall());
  const ImportFake<decltype(VirtualProtect)> fake("kernel32.dll", "VirtualProtect", [](auto*, auto...) { return FALSE; });
  EXPECT_EQ(1u, InstallHere(kEverything));
  const LPTOP_LEVEL_EXCEPTION_FILTER ours = SetUnhandledExceptionFilter(nullptr);
  EXPECT_NE(nullptr, ours) << "not locked";
  SetUnhandledExceptionFilter(ours);
  EXPECT_TRUE(handler_.Uninstall());
  EXPECT_TRUE(OtherFilterIsSet());
}

// Another thread that calls the function finds it as it was or as it is to be, after every single instruction of the exchange.
std::vector<std::int64_t> code_seen;
bool stepping = false;
LONG WINAPI LookAtCode(EXCEPTION_POINTERS* pointers) {
  constexpr DWORD kTrap = 0x100;
  if (pointers->ExceptionRecord->ExceptionCode != static_cast<DWORD>(EXCEPTION_SINGLE_STEP)) return EXCEPTION_CONTINUE_SEARCH;
  std::int64_t code;
  std::memcpy(&code, reinterpret_cast<void*>(&SetUnhandledExceptionFilter), sizeof(code));
  if (code_seen.back() != code) code_seen.push_back(code);
  DWORD& flags = pointers->ContextRecord->EFlags;
  flags = stepping ? flags | kTrap : flags & ~kTrap;
  return EXCEPTION_CONTINUE_EXECUTION;
}

TEST_F(Install, TheFunctionIsExchangedAtOnce) {
  code_seen.assign(1, 0);
  code_seen.reserve(100);
  const ImportFake<decltype(VirtualProtect)> protect("kernel32.dll", "VirtualProtect",
                                                     [](auto* real, void* place, SIZE_T size, DWORD protection, DWORD* old) {
                                                       stepping = false;
                                                       const BOOL result = real(place, size, protection, old);
                                                       stepping = protection == PAGE_EXECUTE_READWRITE;
                                                       if (stepping)
                                                         asm volatile("pushf; orl $0x100, (%%esp); popf" ::: "cc", "memory");
                                                       return result;
                                                     });
  void* const handler = AddVectoredExceptionHandler(1, &LookAtCode);
  InstallHere(install_flags::kLockFilter);
  handler_.Uninstall();
  RemoveVectoredExceptionHandler(handler);
  EXPECT_THAT(code_seen, testing::SizeIs(4)) << "none, the system's, the guard's, the system's";
}

TEST_F(Install, ALogLibraryThatThrowsCostsNothingElse) {
  log_.Behave(test::CapturedLog::Behaviour::throws);
  EXPECT_EQ(1u, InstallHere(kEverything));
  EXPECT_TRUE(handler_.Uninstall());
  EXPECT_EQ(3u, handler_.Install(folder_ + L"\\missing", folder_, kEverything, 3));
  EXPECT_TRUE(OtherFilterIsSet());
}

}  // namespace
}  // namespace crv::crashguard
