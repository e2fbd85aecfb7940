#include "avmgr/av_manager.h"

#include <gtest/gtest.h>

#include "av_manager/control.h"
#include "avmgr/actions.h"
#include "base/format_message.h"
#include "instup/stage.h"
#include "support/captured_log.h"
#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::wsc {
namespace {

using standins::AvManagerCalls;

constexpr wchar_t kLibrary[] = L"\\cavm4h.dll";

// The AV manager in the suite's program folder. What it is asked for has to leave the library unloaded.
class AvManagerTest : public testing::Test {
 protected:
  AvManagerTest() {
    instup::test::SetText(instup::test::kCorvidKey, L"ProgramFolder", program_folder_);
    Install(kLibrary);
  }

  void Install(const std::wstring& variant) const {
    wchar_t own[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, own, MAX_PATH);
    const std::wstring from = std::wstring(own).substr(0, std::wstring(own).rfind(L'\\')) + variant;
    EXPECT_TRUE(CopyFileW(from.c_str(), (program_folder_ + kLibrary).c_str(), FALSE)) << GetLastError();
  }

  std::string SetRunning(bool running) {
    releases_ = 0;
    log_.clear();
    const std::string thrown = test::Thrown([running] { AvManager().set_providers_running(running); });
    EXPECT_EQ(nullptr, GetModuleHandleW(kLibrary + 1)) << "the library is still loaded";
    return thrown;
  }

  // The calls that reached the library, without the prefix of their names, with the statuses that are not 0; and forgets them.
  static std::string TakeJournal() {
    std::string text;
    for (const std::wstring& line : AvManagerCalls().Journal()) text += std::string(line.begin() + 4, line.end()) + "; ";
    for (const std::string usual : {" = 0x00000000", "Provider"}) {
      for (std::size_t at; (at = text.find(usual)) != std::string::npos;) text.erase(at, usual.size());
    }
    standins::ClearAvManager();
    return text;
  }

  instup::test::Stage stage_;
  const std::wstring program_folder_ = stage_.AddFolder(L"program folder");
  test::CapturedLog log_;
  int releases_ = 0;  // of blocks of the process heap

 private:
  const test::ImportFake<decltype(HeapFree)> free_{"kernel32.dll", "HeapFree",
                                                   [this](auto* real, HANDLE heap, DWORD flags, void* block) {
                                                     EXPECT_EQ(GetProcessHeap(), heap);
                                                     ++releases_;
                                                     return real(heap, flags, block);
                                                   }};
  const test::ImportFake<decltype(LoadLibraryExW)> load_{
      "kernel32.dll", "LoadLibraryExW", [this](auto* real, const wchar_t* path, HANDLE file, DWORD flags) {
        EXPECT_EQ(program_folder_ + kLibrary, path);
        EXPECT_EQ(DWORD{LOAD_WITH_ALTERED_SEARCH_PATH}, flags) << "the library's own imports lie beside it";
        return real(path, file, flags);
      }};
};

// Providers are named a, b, c, ...; states are written as digits.
TEST_F(AvManagerTest, BringsTheProvidersIntoTheWantedStateUntilACallFails) {
  const std::string start = "Start(localhost, 0, 0); GetInfoList(null, 0)";
  const struct {
    bool running;
    std::string before, after;
    const wchar_t *call, *answer;  // of the call, as scripted
    const char* thrown;
    std::string journal;
    int releases = 1;
    std::string log = "";
  } cases[] = {
      {true, "2019", "1119", L"CavmStop", L"ok", "nothing", start + "; Resume(a); Start(b); Stop(); "},
      {true, "", "", L"CavmStop", L"ok", "nothing", start + "; Stop(); "},  // an empty list is released too
      {false, "209", "000", L"CavmStop", L"ok", "nothing", start + "; Stop(a); Stop(c); Stop(); "},
      {true, "20", "20", L"CavmStart", L"0xffffffff", "error ffffffff CavmStart failed", "Start(localhost, 0, 0) = 0xffffffff; ",
       0},
      {true, "20", "20", L"CavmGetProviderInfoList", L"0x8", "error 00000008 provider info failes",
       start + " = 0x00000008; Stop(); ", 0},
      {true, "20", "20", L"CavmGetProviderInfoList", L"null", "error ffffffff no providers returned", start + "; Stop(); ", 0},
      {true, "020", "120", L"CavmProviderResume", L"0x9", "error 00000009 provider resume",
       start + "; Start(a); Resume(b) = 0x00000009; Stop(); "},
      {true, "20", "10", L"CavmProviderStart", L"0x15", "error 00000015 provider start",
       start + "; Resume(a); Start(b) = 0x00000015; Stop(); "},
      {false, "202", "202", L"CavmProviderStop", L"0x9", "error 00000009 provider stop",
       start + "; Stop(a) = 0x00000009; Stop(); "},
      {true, "0", "1", L"CavmStop", L"0x7", "nothing", start + "; Start(a); Stop() = 0x00000007; ", 1,
       "wide 4 wsc: cavmstop failed 7"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    std::vector<standins::Provider> providers;
    for (wchar_t name = L'a'; const char state : c.before) providers.push_back({std::wstring(1, name++), DWORD(state - '0')});
    standins::WriteProviders(providers);
    AvManagerCalls().Script(c.call, {c.answer});
    EXPECT_EQ(c.thrown, SetRunning(c.running));
    std::string after;
    for (const standins::Provider& provider : standins::ReadProviders()) after += static_cast<char>('0' + provider.state);
    EXPECT_EQ(c.after, after);
    EXPECT_EQ(c.releases, releases_);
    EXPECT_EQ(c.journal, TakeJournal());
    EXPECT_EQ(c.log, log_.lines().empty() ? "" : log_.lines().front());
  }
}

TEST_F(AvManagerTest, EnablingTheProductsStartsTheirProviders) {
  standins::WriteProviders({{L"a", 0}, {L"b", 2}});
  enable();
  EXPECT_EQ((std::vector<standins::Provider>{{L"a", 1}, {L"b", 1}}), standins::ReadProviders());
  EXPECT_EQ(std::vector<std::string>{"wide 1 wsc: wsc starting providers"}, log_.lines());
}

TEST_F(AvManagerTest, ALogThatFailsAtTheStopCostsNothing) {
  AvManagerCalls().Script(L"CavmStop", {L"0x7"});
  log_.Behave(test::CapturedLog::Behaviour::throws);
  EXPECT_EQ("nothing", SetRunning(true));
}

TEST_F(AvManagerTest, WhatIsMissingIsReportedAndNothingCalled) {
  for (const std::string function :
       {"CavmStart", "CavmStop", "CavmGetProviderInfoList", "CavmProviderResume", "CavmProviderStart", "CavmProviderStop"}) {
    Install(L"\\cavm4h_without_" + std::wstring(function.begin(), function.end()) + L".dll");
    EXPECT_EQ("error 0000007f GetProcAddress (" + function + ")", SetRunning(true));
  }
  EXPECT_EQ("", TakeJournal());
  DeleteFileW((program_folder_ + kLibrary).c_str());
  EXPECT_EQ("error ffffffff cannot load " + ToUtf8(program_folder_ + kLibrary), SetRunning(true));
  instup::test::DeleteValue(instup::test::kCorvidKey, L"ProgramFolder");
  EXPECT_EQ("error 00000002 Unable to retrieve path of the program directory!", SetRunning(true));
}

}  // namespace
}  // namespace crv::wsc
