#include "crashguard/dump_library.h"

#include <gtest/gtest.h>

#include <string>

#include "crashguard/crash_guard_module.h"
#include "instup/common_os.h"
#include "mi/module_counts.h"
#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::crashguard {
namespace {

using test::ImportFake;

// The suite's own comes first; without the function there is no crash guard, and no library stays loaded.
TEST(DumpLibrary, IsBoundOrThereIsNoCrashGuard) {
  constexpr char kFailure[] = "error 0000007f Failed to bind with dbghelp!MiniDumpWriteDump";
  const std::uint32_t modules = mi::LiveCounts().modules;
  std::wstring loads;
  bool there = true;
  int freed = 0;
  const ImportFake<decltype(LoadLibraryExW)> own("kernel32.dll", "LoadLibraryExW",
                                                 [&](auto*, LPCWSTR path, HANDLE, DWORD flags) -> HMODULE {
                                                   EXPECT_EQ(8u, flags);
                                                   loads += path + std::wstring(L"; ");
                                                   return nullptr;
                                                 });
  const ImportFake<decltype(LoadLibraryW)> system("kernel32.dll", "LoadLibraryW", [&](auto* real, LPCWSTR name) {
    loads += name;
    return there ? real(name) : nullptr;
  });
  const ImportFake<decltype(FreeLibrary)> free("kernel32.dll", "FreeLibrary",
                                               [&](auto* real, HMODULE module) { return ++freed, real(module); });
  EXPECT_NE(nullptr, DumpLibrary().write());
  const std::wstring folder = instup::CmnOsProgramFolder();
  ASSERT_FALSE(folder.empty());
  EXPECT_EQ(folder + (folder.back() == L'\\' ? L"" : L"\\") + L"dbghelp.dll; dbghelp.dll", loads);
  EXPECT_EQ(1, freed);

  there = false;
  EXPECT_EQ(kFailure, test::Thrown([] { CrashGuardModule module; }));
  EXPECT_EQ(1, freed);
  there = true;
  const ImportFake<decltype(GetProcAddress)> function(
      "kernel32.dll", "GetProcAddress", [](auto* real, HMODULE module, LPCSTR name) {
        return !IS_INTRESOURCE(name) && std::string(name) == "MiniDumpWriteDump" ? nullptr : real(module, name);
      });
  EXPECT_EQ(kFailure, test::Thrown([] { CrashGuardModule module; }));
  EXPECT_EQ(2, freed);
  EXPECT_EQ(modules, mi::LiveCounts().modules);
}

}  // namespace
}  // namespace crv::crashguard
