#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <shlobj.h>

#include "standins/child.h"

namespace crv::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// centre.exe, the host and a library that echoes, in a folder whose name has a blank.
class Centre : public testing::Test {
 protected:
  Centre() {
    for (const wchar_t* const file : {L"centre.exe", L"wsc_proxy.exe", L"libgcc_s_dw2-1.dll"}) {
      EXPECT_TRUE(CopyFileW((OwnFolder() + L"..\\standins\\" + file).c_str(), (folder_ / file).c_str(), TRUE)) << GetLastError();
    }
    InstallLibrary(L"echo_wsc.dll");
    wchar_t common[MAX_PATH] = {};
    SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, common);
    log_folder_ = std::wstring(common) + L"\\CORVID Software\\Corvid\\log";
    SHCreateDirectoryExW(nullptr, log_folder_.c_str(), nullptr);
    DeleteLogs();
    AppendToLog("of an earlier run\r\n");
  }
  ~Centre() { DeleteLogs(); }

  void DeleteLogs() {
    for (const wchar_t* const file : {L"\\wsc.log", L"\\wsc.log.old"}) DeleteFileW((log_folder_ + file).c_str());
  }

  void InstallLibrary(const wchar_t* from) {
    EXPECT_TRUE(CopyFileW((OwnFolder() + from).c_str(), (folder_ / L"wsc.dll").c_str(), FALSE)) << GetLastError();
  }

  void AppendToLog(const std::string& text) {
    const HANDLE file =
        CreateFileW((log_folder_ + L"\\wsc.log").c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_ALWAYS, 0, nullptr);
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr));
    CloseHandle(file);
  }

  Ended Run(const std::wstring& words) { return Child(folder_.path(), L"\"" + (folder_ / L"centre.exe") + L"\" " + words).Wait(); }

  TemporaryFolder folder_;
  std::wstring log_folder_;
};

TEST_F(Centre, RunHandsTheTailOnUnchangedAndShowsTheWholeResult) {
  const Ended ended = Run(L"  run   /svc  \"a  \"\"b\" /\u017e \\\"");
  EXPECT_EQ(0u, ended.code);
  const std::string tail = "\\wsc_proxy.exe\" /svc  \"a  \"\"b\" /\u017e \\\"\r\n";
  EXPECT_THAT(ended.output, StartsWith("\"C:\\"));
  const std::size_t first = ended.output.find(tail);
  ASSERT_NE(std::string::npos, first) << ended.output;
  EXPECT_NE(std::string::npos, ended.output.find(tail, first + 1)) << "as the library received it:\n" << ended.output;
  EXPECT_THAT(ended.output, Not(HasSubstr("of an earlier run")));
  EXPECT_THAT(ended.output, EndsWith("\r\nresult 0x00000000\r\n"));
}

TEST_F(Centre, RunEndsWithOneWhenTheResultIsNotZero) {
  const Ended ended = Run(L"run /result:0x8000000a");
  EXPECT_EQ(1u, ended.code);
  EXPECT_THAT(ended.output, EndsWith("\r\nresult 0x8000000a\r\n"));
}

TEST_F(Centre, RunFollowsALogThatIsRolledOver) {
  const Ended ended = Run(L"run /roll");
  EXPECT_EQ(0u, ended.code);
  EXPECT_THAT(ended.output, Not(HasSubstr("of an earlier run")));
  EXPECT_THAT(ended.output, HasSubstr("/roll\r\nlast of the full log\r\n\"C:\\"));
}

TEST_F(Centre, HostSaysWhichLibraryOrExportIsMissing) {
  EXPECT_TRUE(DeleteFileW((folder_ / L"wsc.dll").c_str()));
  Ended ended = Run(L"run /svc");
  EXPECT_EQ(1u, ended.code);
  EXPECT_THAT(ended.output, HasSubstr("\\wsc.dll (error 126)\r\n"));
  EXPECT_THAT(ended.output, EndsWith("\r\nresult 0xe0570001\r\n"));
  InstallLibrary(L"libgcc_s_dw2-1.dll");
  ended = Run(L"run /svc");
  EXPECT_THAT(ended.output, HasSubstr("\\wsc.dll has no export _run@4 (error 127)\r\n"));
  EXPECT_THAT(ended.output, EndsWith("\r\nresult 0xe0570002\r\n"));
}

TEST_F(Centre, ExplainsWordsThatItDoesNotUnderstand) {
  const struct {
    const wchar_t* words;
    const char* message;
  } cases[] = {{L"", "centre: a command is missing\r\n"},
               {L"dance", "centre: unknown command 'dance'\r\n"},
               {L"show me", "centre: show takes: no words\r\n"},
               {L"log throw nothing", "it can from: acquire logger open message exception all\r\n"},
               {L"log sometimes", "centre: unknown behaviour of the log library: 'sometimes'\r\n"},
               {L"script IWscAVStatus.Dance ok", "is called 'IWscAVStatus.Dance'; there are:\r\n  IWscAVStatus.Create\r\n"},
               {L"script IWscAVStatus.Create maybe", "centre: IWscAVStatus.Create cannot answer 'maybe'\r\n"}};
  for (const auto& c : cases) {
    const Ended ended = Run(c.words);
    EXPECT_EQ(2u, ended.code);
    EXPECT_THAT(ended.output, HasSubstr(c.message));
  }
}

}  // namespace
}  // namespace crv::test
