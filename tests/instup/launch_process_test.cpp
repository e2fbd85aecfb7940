#include "instup/launch_process.h"

#include "support/import_fake.h"
#include "support/probed_installer.h"

namespace crv::instup {
namespace {

using crv::test::ImportFake;

TEST(LaunchProcess, StartsSuspendedWaitsOnlyForACodeAndClosesItsHandles) {
  const crv::test::ProbedInstaller suite;
  std::string calls;
  PROCESS_INFORMATION process = {};
  const ImportFake<decltype(CreateProcessW)> create("kernel32.dll", "CreateProcessW", [&](auto real, auto... arguments) {
    const auto all = std::tuple(arguments...);
    EXPECT_TRUE(!std::get<0>(all) && !std::get<4>(all) && std::get<5>(all) == 0x24) << "no program, no inheritance; suspended";
    const BOOL result = real(arguments...);
    process = *std::get<9>(all);
    return result;
  });
  const ImportFake<decltype(AllowSetForegroundWindow)> allow("user32.dll", "AllowSetForegroundWindow", [&](auto, DWORD id) {
    EXPECT_EQ(process.dwProcessId, id);
    return calls += "allow ", FALSE;  // costs nothing
  });
  const ImportFake<decltype(ResumeThread)> resume(
      "kernel32.dll", "ResumeThread", [&](auto real, HANDLE thread) { return calls += "resume ", real(thread); });
  const ImportFake<decltype(WaitForSingleObject)> wait(
      "kernel32.dll", "WaitForSingleObject", [&](auto real, HANDLE, DWORD limit) {
        EXPECT_EQ(INFINITE, limit);
        return calls += "wait ", real(process.hProcess, 60'000);
      });
  BOOL readable = TRUE;
  const ImportFake<decltype(GetExitCodeProcess)> read(
      "kernel32.dll", "GetExitCodeProcess", [&](auto real, auto... arguments) { return readable && real(arguments...); });
  const ImportFake<decltype(CloseHandle)> close("kernel32.dll", "CloseHandle", [&](auto real, HANDLE handle) {
    if (handle == process.hProcess || handle == process.hThread) calls += "close ";
    return real(handle);
  });

  const std::wstring line = L"\"" + suite.setup_ + L"\\instup.exe\"";
  const std::wstring arguments = L" /x:\"a  \"\"b\" \u017e\\\" /long:" + std::wstring(32'000 - line.size(), L'x');
  suite.Script(1, "exit\t0xffffff00");
  std::uint32_t code = 0xBAD;
  EXPECT_TRUE(LaunchProcess(line + arguments, &code));
  EXPECT_EQ(0xFFFFFF00, code);
  EXPECT_EQ("\"SETUP\\instup.exe\"" + ToUtf8(arguments), suite.Runs().at(0));
  EXPECT_EQ("allow resume wait close close ", std::exchange(calls, ""));

  code = 0xBAD;
  readable = FALSE;
  EXPECT_TRUE(LaunchProcess(line, &code));
  EXPECT_EQ(0xBADu, code) << "a code that cannot be read is not made up";
  calls = "";
  EXPECT_TRUE(LaunchProcess(line, nullptr));
  EXPECT_EQ("allow resume close close ", std::exchange(calls, "")) << "nobody asked for its end";
  for (int i = 0; i < 1000 && suite.Runs().size() < 3; ++i) Sleep(10);
  EXPECT_EQ(3u, suite.Runs().size());
  Sleep(100);  // the last one lets go of its files

  EXPECT_FALSE(LaunchProcess(L"\"" + suite.Path(L"missing.exe") + L"\"", &code));
  EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, GetLastError());
  EXPECT_EQ(0xBADu, code);
}

}  // namespace
}  // namespace crv::instup
