#include "instup/launch_process.h"

#include "support/import_fake.h"
#include "support/probed_installer.h"

namespace crv::instup {
namespace {

class LaunchProcessTest : public testing::Test {
 protected:
  crv::test::ProbedInstaller suite_;
  const std::wstring line_ = L"\"" + suite_.setup_ + L"\\instup.exe\"";
};

TEST_F(LaunchProcessTest, GivesTheWholeExitCodeAndTheCommandLineUnchanged) {
  const std::wstring arguments = L" /x:\"a  \"\"b\" \u017e\\\" /long:" + std::wstring(32'000 - line_.size(), L'x');
  suite_.Script(1, "exit\t0xffffff00");
  std::uint32_t code = 0xBAD;
  EXPECT_TRUE(LaunchProcess(line_ + arguments, &code));
  EXPECT_EQ(0xFFFFFF00, code);
  EXPECT_EQ("\"SETUP\\instup.exe\"" + ToUtf8(arguments), suite_.Runs().at(0));
  code = 0xBAD;
  EXPECT_FALSE(LaunchProcess(L"\"" + suite_.Path(L"missing.exe") + L"\"", &code));
  EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, GetLastError());
  EXPECT_EQ(0xBADu, code);
}

// Every call of a launch, in its order.
TEST_F(LaunchProcessTest, StartsSuspendedLetsItComeToTheFrontAndResumesIt) {
  using crv::test::ImportFake;
  std::string calls;
  PROCESS_INFORMATION process = {};
  const ImportFake<decltype(CreateProcessW)> create(
      "kernel32.dll", "CreateProcessW",
      [&](auto real, auto program, auto line, auto a, auto b, BOOL inherit, DWORD flags, auto... rest) {
        calls += "create ";
        EXPECT_TRUE(!program && !inherit && flags == 0x24);
        const BOOL result = real(program, line, a, b, inherit, flags, rest...);
        process = *std::get<3>(std::tuple(rest...));
        return result;
      });
  const ImportFake<decltype(AllowSetForegroundWindow)> allow("user32.dll", "AllowSetForegroundWindow", [&](auto, DWORD id) {
    EXPECT_EQ(process.dwProcessId, id);
    return calls += "allow ", FALSE;  // costs nothing
  });
  const ImportFake<decltype(ResumeThread)> resume("kernel32.dll", "ResumeThread", [&](auto real, HANDLE thread) {
    EXPECT_EQ(process.hThread, thread);
    return calls += "resume ", real(thread);
  });
  const ImportFake<decltype(WaitForSingleObject)> wait("kernel32.dll", "WaitForSingleObject",
                                                       [&](auto real, HANDLE waited, DWORD limit) {
                                                         EXPECT_TRUE(waited == process.hProcess && limit == INFINITE);
                                                         return calls += "wait ", real(waited, 60'000);
                                                       });
  const ImportFake<decltype(GetExitCodeProcess)> read("kernel32.dll", "GetExitCodeProcess",
                                                      [&](auto...) { return calls += "code ", FALSE; });
  const ImportFake<decltype(CloseHandle)> close("kernel32.dll", "CloseHandle", [&](auto real, HANDLE handle) {
    if (handle == process.hProcess) calls += "close-process ";
    if (handle == process.hThread) calls += "close-thread ";
    return real(handle);
  });
  std::uint32_t code = 0xBAD;
  EXPECT_TRUE(LaunchProcess(line_, &code));
  EXPECT_EQ("create allow resume wait code close-thread close-process ", std::exchange(calls, ""));
  EXPECT_EQ(0xBADu, code) << "one that cannot be read is not made up";
  EXPECT_TRUE(LaunchProcess(line_, nullptr));
  EXPECT_EQ("create allow resume close-thread close-process ", calls) << "nobody asked for its end";
  for (int i = 0; i < 1000 && suite_.Runs().size() < 2; ++i) Sleep(10);
  EXPECT_EQ(2u, suite_.Runs().size());
  Sleep(100);  // the last one lets go of its files
}

}  // namespace
}  // namespace crv::instup
