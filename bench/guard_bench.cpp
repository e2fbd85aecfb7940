// What the crash guard costs, beside the bare system calls; its throws are raised as in the product, which the other rows are not.
#include <windows.h>
#include <dbghelp.h>

#include <cstdio>
#include <string>

#include "base/exceptions.h"
#include "base/log.h"
#include "bench.h"
#include "crashguard/crash_guard.h"
#include "crashguard/dump_types.h"
#include "programs.h"

namespace crv::bench {
namespace {

constexpr int kFew = 7;  // for what takes seconds
constexpr int kSome = 15;
constexpr int kMany = 301;
constexpr std::uint32_t kInstallFlags = crashguard::install_flags::kUsual;

// A crash of this thread, as a filter gets it.
EXCEPTION_POINTERS* Crash() {
  static EXCEPTION_RECORD record = {};
  static CONTEXT context = {};
  static EXCEPTION_POINTERS pointers = {&record, &context};
  record.ExceptionCode = static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION);
  RtlCaptureContext(&context);
  return &pointers;
}

void DumpRows(crashguard::ICrashGuardModule& guard, const std::wstring& folder) {
  EXCEPTION_POINTERS* const crash = Crash();
  const std::wstring path = folder + L"\\bench.mdmp";
  PrintRow(
      "dump in-process / MiniDumpWriteDump", kFew,
      [&] { Require(guard.WriteDumpInternal(crash, L"bench.mdmp", nullptr) == 0, "WriteDumpInternal"); },
      [&] {
        const HANDLE file = CreateFileW(path.c_str(), GENERIC_ALL, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr);
        MINIDUMP_EXCEPTION_INFORMATION information = {GetCurrentThreadId(), crash, FALSE};
        Require(MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file,
                                  static_cast<MINIDUMP_TYPE>(crashguard::DumpType(GetVersion(), false)), &information, nullptr,
                                  nullptr),
                "MiniDumpWriteDump");
        CloseHandle(file);
      });
  PrintRow(
      "dump by the dumper / starting the dumper", kFew,
      [&] { Require(guard.WriteDumpExternal(crash, L"bench.mdmp", nullptr, SuiteFolder().c_str()) == 0, "WriteDumpExternal"); },
      [&] {
        wchar_t arguments[512];
        _snwprintf(arguments, 512,
                   L"--pid %lu --exception_ptr %p --thread_id %lu --dump_level 0 --dump_file \"%ls\" --comment \"\"",
                   GetCurrentProcessId(), static_cast<void*>(crash), GetCurrentThreadId(), path.c_str());
        Require(Run(SuiteFolder() + L"cvDump32.exe", arguments) == 0, "cvDump32.exe");
      });
  DeleteFileW(path.c_str());
}

void ThrowAndCatch() {
  try {
    throw exceptions::error(5, "measured");
  } catch (const exceptions::error&) {
  }
}

// The guard is installed for each turn of its own, outside of what is measured.
void ThrowRow(crashguard::ICrashGuardModule& guard, const std::wstring& folder) {
  const auto many = [] {
    for (int i = 0; i < 1000; ++i) ThrowAndCatch();
  };
  guard.Install(folder, kInstallFlags, 3);
  PrintRow("1000 throws, guarded / guarded (noise)", kSome, many, many);
  bool installed = true;
  const auto with = [&](bool wanted) {
    if (wanted != installed)
      wanted ? static_cast<void>(guard.Install(folder, kInstallFlags, 3)) : static_cast<void>(guard.Uninstall());
    installed = wanted;
    many();
  };
  PrintRow(
      "1000 throws, guarded / not (with Install and Uninstall)", kSome, [&] { with(true); }, [&] { with(false); });
  guard.Uninstall();
}

void RunAndLoadRows() {
  const std::wstring once = OwnFolder() + L"run_once.exe";
  PrintRow(
      "a process that calls run / the same without crash guard", kSome, [&] { Require(Run(once, L"guarded") == 0, "run_once"); },
      [&] { Require(Run(once, L"bare") == 0, "run_once"); });
  const auto load = [](const std::wstring& path) {
    const HMODULE library = LoadLibraryW(path.c_str());
    Require(library, "LoadLibrary");
    FreeLibrary(library);
  };
  const std::wstring product = SuiteFolder() + L"wsc.dll";
  const std::wstring empty = OwnFolder() + L"empty.dll";
  PrintRow(
      "loading and freeing wsc.dll / an empty DLL with its imports", kMany, [&] { load(product); }, [&] { load(empty); });
}

}  // namespace
}  // namespace crv::bench

int main() {
  using namespace crv;
  std::printf("%-64s %15s %15s %8s\n", "what (medians)", "module", "bare", "ratio");
  const std::wstring folder = bench::OwnFolder() + L"dumps";
  CreateDirectoryW(folder.c_str(), nullptr);
  const std::wstring log = folder + L"\\wsc.log";
  log::OpenLogFile(log);
  const auto guard = crashguard::AcquireCrashGuard();
  guard->SetFullDumpRatio(0);
  guard->SetDumpFolder(folder);
  bench::RunAndLoadRows();
  bench::ThrowRow(*guard, folder);
  bench::DumpRows(*guard, folder);
  DeleteFileW(log.c_str());
  RemoveDirectoryW(folder.c_str());
}
