#include "instup/launch_process.h"

#include "support/import_fake.h"
#include "support/probed_installer.h"

namespace crv::instup {
namespace {

class LaunchProcessTest : public testing::Test {
 protected:
  std::uint32_t Launch(const std::wstring& command_line) {
    std::uint32_t code = 0xBAD;
    return LaunchProcess(command_line, &code) ? code : 0xFA11ED;
  }

  crv::test::ProbedInstaller suite_;
  const std::wstring installer_ = suite_.setup_ + L"\\instup.exe";
};

TEST_F(LaunchProcessTest, GivesTheWholeExitCodeAndTheCommandLineUnchanged) {
  const std::wstring line = L"\"" + installer_ + L"\"";
  const std::wstring arguments[] = {L"", L" /x:\"a  \"\"b\" \u017e\\\" ", L" /long:" + std::wstring(32'000 - line.size(), L'x')};
  const char* const codes[] = {"0", "256", "0xffffffff"};
  for (int i = 0; i < 3; ++i) {
    suite_.Script(i + 1, std::string("exit\t") + codes[i]);
    EXPECT_EQ(std::strtoul(codes[i], nullptr, 0), Launch(line + arguments[i]));
    ASSERT_EQ(i + 1u, suite_.Runs().size());
    EXPECT_EQ("\"SETUP\\instup.exe\"" + ToUtf8(arguments[i]), suite_.Runs().back());
  }
}

TEST_F(LaunchProcessTest, AProgramThatCannotBeStartedLeavesThePlaceAlone) {
  std::ofstream(suite_.Path(L"text.exe").c_str()) << "no program";
  for (const std::wstring& line : {L"\"" + suite_.Path(L"missing.exe") + L"\"", L"\"" + suite_.Path(L"text.exe") + L"\"", std::wstring()}) {
    std::uint32_t code = 0xBAD;
    EXPECT_FALSE(LaunchProcess(line, &code));
    EXPECT_NE(0u, GetLastError());
    EXPECT_EQ(0xBADu, code);
    EXPECT_FALSE(LaunchProcess(line, nullptr));
  }
}

// Every call of a launch, in its order.
TEST_F(LaunchProcessTest, StartsSuspendedLetsItComeToTheFrontAndResumesIt) {
  std::string calls;
  std::size_t launches = 0;
  PROCESS_INFORMATION process = {};
  const crv::test::ImportFake<decltype(CreateProcessW)> create(
      "kernel32.dll", "CreateProcessW",
      [&](auto* real, const wchar_t* program, wchar_t* line, auto* process_security, auto* thread_security, BOOL inherit, DWORD flags,
          void* environment, const wchar_t* folder, STARTUPINFOW* startup, PROCESS_INFORMATION* started) {
        calls += "create ";
        EXPECT_FALSE(program || process_security || thread_security || inherit || environment || folder);
        EXPECT_EQ(0x24u, flags);
        STARTUPINFOW expected = {};
        expected.cb = 68;
        EXPECT_EQ(0, memcmp(&expected, startup, sizeof(expected)));
        line[0] = line[0];  // writable
        const BOOL result = real(program, line, process_security, thread_security, inherit, flags, environment, folder, startup, started);
        process = *started;
        return result;
      });
  const crv::test::ImportFake<decltype(AllowSetForegroundWindow)> allow("user32.dll", "AllowSetForegroundWindow", [&](auto*, DWORD id) {
    EXPECT_EQ(process.dwProcessId, id);
    EXPECT_EQ(launches++, suite_.Runs().size()) << "it runs already";
    calls += "allow ";
    return FALSE;  // costs nothing
  });
  const crv::test::ImportFake<decltype(ResumeThread)> resume("kernel32.dll", "ResumeThread", [&](auto* real, HANDLE thread) {
    EXPECT_EQ(process.hThread, thread);
    calls += "resume ";
    return real(thread);
  });
  const crv::test::ImportFake<decltype(WaitForSingleObject)> wait("kernel32.dll", "WaitForSingleObject", [&](auto* real, HANDLE waited, DWORD limit) {
    EXPECT_EQ(process.hProcess, waited);
    EXPECT_EQ(INFINITE, limit);
    calls += "wait ";
    return real(waited, 60'000);
  });
  bool fail = false;
  const crv::test::ImportFake<decltype(GetExitCodeProcess)> read("kernel32.dll", "GetExitCodeProcess", [&](auto* real, HANDLE asked, DWORD* code) {
    EXPECT_EQ(process.hProcess, asked);
    calls += "code ";
    return fail ? FALSE : real(asked, code);
  });
  const crv::test::ImportFake<decltype(CloseHandle)> close("kernel32.dll", "CloseHandle", [&](auto* real, HANDLE handle) {
    if (handle == process.hProcess) calls += "close-process ";
    if (handle == process.hThread) calls += "close-thread ";
    return real(handle);
  });
  const std::wstring line = L"\"" + installer_ + L"\"";
  EXPECT_EQ(0u, Launch(line));
  EXPECT_EQ("create allow resume wait code close-thread close-process ", std::exchange(calls, ""));
  fail = true;
  EXPECT_EQ(0xBADu, Launch(line));
  EXPECT_EQ("create allow resume wait code close-thread close-process ", std::exchange(calls, ""));
  EXPECT_TRUE(LaunchProcess(line, nullptr));
  EXPECT_EQ("create allow resume close-thread close-process ", calls) << "nobody asked for its end";
  for (int i = 0; i < 1000 && suite_.Runs().size() < 3; ++i) Sleep(10);
  EXPECT_EQ(3u, suite_.Runs().size());
  Sleep(100);  // the last one lets go of its files
}

}  // namespace
}  // namespace crv::instup
