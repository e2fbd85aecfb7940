#include "crashguard/dump_library.h"

#include <gtest/gtest.h>

#include <string>

#include "instup/common_os.h"
#include "mi/module_counts.h"
#include "crashguard/crash_guard_module.h"
#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::crashguard {
namespace {

using test::ImportFake;

constexpr char kFailure[] = "error 0000007f Failed to bind with dbghelp!MiniDumpWriteDump";

TEST(DumpLibrary, TriesTheSuitesOwnFirst) {
  std::wstring loads;
  const ImportFake<decltype(LoadLibraryExW)> own("kernel32.dll", "LoadLibraryExW",
                                                 [&](auto*, LPCWSTR path, HANDLE, DWORD flags) -> HMODULE {
                                                   EXPECT_EQ(8u, flags);
                                                   loads += path + std::wstring(L"; ");
                                                   return nullptr;
                                                 });
  const ImportFake<decltype(LoadLibraryW)> system("kernel32.dll", "LoadLibraryW", [&](auto* real, LPCWSTR name) {
    loads += name;
    return real(name);
  });
  const DumpLibrary library;
  EXPECT_NE(nullptr, library.write());
  const std::wstring folder = instup::CmnOsProgramFolder();
  ASSERT_FALSE(folder.empty());
  EXPECT_EQ(folder + (folder.back() == L'\\' ? L"" : L"\\") + L"dbghelp.dll; dbghelp.dll", loads);
}

TEST(DumpLibrary, WithoutTheFunctionThereIsNoCrashGuard) {
  const std::uint32_t modules = mi::LiveCounts().modules;
  std::vector<HMODULE> freed;
  const ImportFake<decltype(FreeLibrary)> free("kernel32.dll", "FreeLibrary", [&](auto* real, HMODULE module) {
    freed.push_back(module);
    return real(module);
  });
  {
    const ImportFake<decltype(LoadLibraryExW)> own("kernel32.dll", "LoadLibraryExW",
                                                   [](auto*, auto...) -> HMODULE { return nullptr; });
    const ImportFake<decltype(LoadLibraryW)> system("kernel32.dll", "LoadLibraryW",
                                                    [](auto*, auto...) -> HMODULE { return nullptr; });
    EXPECT_EQ(kFailure, test::Thrown([] { CrashGuardModule module; }));
    EXPECT_TRUE(freed.empty());
  }
  const ImportFake<decltype(GetProcAddress)> function(
      "kernel32.dll", "GetProcAddress", [](auto* real, HMODULE module, LPCSTR name) {
        return std::string(name) == "MiniDumpWriteDump" ? nullptr : real(module, name);
      });
  EXPECT_EQ(kFailure, test::Thrown([] { CrashGuardModule module; }));
  EXPECT_EQ(1u, freed.size());
  EXPECT_EQ(modules, mi::LiveCounts().modules);
}

}  // namespace
}  // namespace crv::crashguard
