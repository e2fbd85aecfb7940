#include "avmgr/av_manager.h"

#include <gmock/gmock.h>

#include "avmgr/actions.h"
#include "control/av_manager_control.h"
#include "instup/stage.h"
#include "support/captured_log.h"
#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::wsc {
namespace {

using standins::AvManagerCalls;
using standins::Provider;
using standins::ReadProviders;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t kLibrary[] = L"cavm4h.dll";

std::wstring OwnFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::wstring(path).substr(0, std::wstring(path).rfind(L'\\') + 1);
}

// The AV manager in the suite's program folder, with a scripted list of providers; at the end of each test the library has to be
// unloaded and every list released.
class AvManagerTest : public testing::Test {
 protected:
  AvManagerTest() {
    instup::test::SetText(instup::test::kCorvidKey, L"ProgramFolder", program_folder_);
    Install(kLibrary);
    standins::ClearAvManager();
  }
  ~AvManagerTest() override { ExpectNothingLeft(); }

  void Install(const std::wstring& variant) const {
    EXPECT_TRUE(CopyFileW((OwnFolder() + variant).c_str(), (program_folder_ + L"\\" + kLibrary).c_str(), FALSE)) << GetLastError();
  }

  static void ExpectNothingLeft() { EXPECT_EQ(nullptr, GetModuleHandleW(kLibrary)) << "the library is still loaded"; }

  static std::vector<std::wstring> TakeJournal() {
    std::vector<std::wstring> journal = AvManagerCalls().Journal();
    const std::vector<Provider> providers = ReadProviders();
    standins::ClearAvManager();
    standins::WriteProviders(providers);
    return journal;
  }

  int TakeReleases() { return std::exchange(releases_, 0); }

  static std::string SetRunning(bool running) {
    return test::Thrown([running] {
      AvManager manager;
      manager.set_providers_running(running);
    });
  }

  instup::test::Stage stage_;
  const std::wstring program_folder_ = stage_.AddFolder(L"program folder");
  test::CapturedLog log_;

 private:
  int releases_ = 0;
  const test::ImportFake<decltype(HeapFree)> free_{"kernel32.dll", "HeapFree", [this](auto* real, HANDLE heap, DWORD flags, void* block) {
                                                     EXPECT_EQ(GetProcessHeap(), heap);
                                                     EXPECT_EQ(0u, flags);
                                                     const BOOL freed = real(heap, flags, block);
                                                     EXPECT_TRUE(freed);
                                                     ++releases_;
                                                     return freed;
                                                   }};
};

constexpr wchar_t kStarted[] = L"CavmStart(localhost, 0, 0) = 0x00000000";
constexpr wchar_t kListed[] = L"CavmGetProviderInfoList(null, 0) = 0x00000000";
constexpr wchar_t kStopped[] = L"CavmStop() = 0x00000000";

TEST_F(AvManagerTest, BringsEveryProviderIntoTheRunningState) {
  standins::WriteProviders({{L"a", 2}, {L"b", 0}, {L"c", 1}, {L"d", 3}, {L"e", 0xFFFFFFFF}, {L"f", 2}});
  EXPECT_EQ("nothing", SetRunning(true));
  EXPECT_THAT(TakeJournal(), ElementsAre(kStarted, kListed, L"CavmProviderResume(a) = 0x00000000", L"CavmProviderStart(b) = 0x00000000",
                                         L"CavmProviderResume(f) = 0x00000000", kStopped));
  EXPECT_THAT(ReadProviders(), ElementsAre(Provider{L"a", 1}, Provider{L"b", 1}, Provider{L"c", 1}, Provider{L"d", 3},
                                           Provider{L"e", 0xFFFFFFFF}, Provider{L"f", 1}));
  EXPECT_EQ(1, TakeReleases());

  EXPECT_EQ("nothing", SetRunning(true)) << "all of them run";
  EXPECT_THAT(TakeJournal(), ElementsAre(kStarted, kListed, kStopped));
  EXPECT_EQ(1, TakeReleases());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AvManagerTest, StopsEveryProviderThatIsNotStopped) {
  standins::WriteProviders({{L"a", 2}, {L"b", 0}, {L"c", 1}, {L"d", 9}});
  EXPECT_EQ("nothing", SetRunning(false));
  EXPECT_THAT(TakeJournal(), ElementsAre(kStarted, kListed, L"CavmProviderStop(a) = 0x00000000", L"CavmProviderStop(c) = 0x00000000",
                                         L"CavmProviderStop(d) = 0x00000000", kStopped));
  EXPECT_EQ(1, TakeReleases());
}

TEST_F(AvManagerTest, AnEmptyListIsReleasedToo) {
  standins::WriteProviders({});
  EXPECT_EQ("nothing", SetRunning(true));
  EXPECT_THAT(TakeJournal(), ElementsAre(kStarted, kListed, kStopped));
  EXPECT_EQ(1, TakeReleases());
}

TEST_F(AvManagerTest, EachFailingCallHasItsCodeAndItsClearingUp) {
  struct Case {
    bool running;
    const wchar_t* call;
    std::vector<std::wstring> answers;
    const char* thrown;
    std::vector<std::wstring> journal;
    int releases;
    std::vector<DWORD> states;  // of the providers, which were 2, 0, 2, 0
  };
  const std::vector<DWORD> untouched = {2, 0, 2, 0};
  const std::wstring resume_a = L"CavmProviderResume(a) = 0x00000000", start_b = L"CavmProviderStart(b) = 0x00000000",
                     stop_a = L"CavmProviderStop(a) = 0x00000000";
  const Case cases[] = {
      {true, L"CavmStart", {L"0x5"}, "error 00000005 CavmStart failed", {L"CavmStart(localhost, 0, 0) = 0x00000005"}, 0, untouched},
      {true, L"CavmStart", {L"0xffffffff"}, "error ffffffff CavmStart failed", {L"CavmStart(localhost, 0, 0) = 0xffffffff"}, 0, untouched},
      {true, L"CavmGetProviderInfoList", {L"0x8"}, "error 00000008 provider info failes",
       {kStarted, L"CavmGetProviderInfoList(null, 0) = 0x00000008", kStopped}, 0, untouched},
      {true, L"CavmGetProviderInfoList", {L"null"}, "error ffffffff no providers returned", {kStarted, kListed, kStopped}, 0, untouched},
      {true, L"CavmProviderResume", {L"0x80000001"}, "error 80000001 provider resume",
       {kStarted, kListed, L"CavmProviderResume(a) = 0x80000001", kStopped}, 1, untouched},
      {true, L"CavmProviderStart", {L"0x15"}, "error 00000015 provider start",
       {kStarted, kListed, resume_a, L"CavmProviderStart(b) = 0x00000015", kStopped}, 1, {1, 0, 2, 0}},
      {true, L"CavmProviderResume", {L"ok", L"0x7"}, "error 00000007 provider resume",
       {kStarted, kListed, resume_a, start_b, L"CavmProviderResume(c) = 0x00000007", kStopped}, 1, {1, 1, 2, 0}},
      {false, L"CavmProviderStop", {L"ok", L"0x9"}, "error 00000009 provider stop",
       {kStarted, kListed, stop_a, L"CavmProviderStop(c) = 0x00000009", kStopped}, 1, {0, 0, 2, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    standins::WriteProviders({{L"a", 2}, {L"b", 0}, {L"c", 2}, {L"d", 0}});
    AvManagerCalls().Script(c.call, c.answers);
    EXPECT_EQ(c.thrown, SetRunning(c.running));
    EXPECT_EQ(c.journal, TakeJournal());
    EXPECT_EQ(c.releases, TakeReleases());
    std::vector<DWORD> states;
    for (const Provider& provider : ReadProviders()) states.push_back(provider.state);
    EXPECT_EQ(c.states, states);
    ExpectNothingLeft();
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AvManagerTest, AFailingStopIsLoggedAndCostsNothing) {
  AvManagerCalls().Script(L"CavmStop", {L"0x80000001"});
  EXPECT_EQ("nothing", SetRunning(true));
  EXPECT_THAT(log_.lines(), ElementsAre("wide 4 wsc: cavmstop failed -2147483647"));
  ExpectNothingLeft();

  AvManagerCalls().Script(L"CavmStop", {L"0x6"});
  AvManagerCalls().Script(L"CavmGetProviderInfoList", {L"0x8"});
  EXPECT_EQ("error 00000008 provider info failes", SetRunning(true));
  EXPECT_EQ("wide 4 wsc: cavmstop failed 6", log_.lines().back());
  ExpectNothingLeft();

  AvManagerCalls().Script(L"CavmStop", {L"0x7"});
  log_.Behave(test::CapturedLog::Behaviour::throws);
  EXPECT_EQ("nothing", SetRunning(true));
}

TEST_F(AvManagerTest, ALibraryWithoutAFunctionIsFreedUncalled) {
  for (const char* const function :
       {"CavmStart", "CavmStop", "CavmGetProviderInfoList", "CavmProviderResume", "CavmProviderStart", "CavmProviderStop"}) {
    Install(L"cavm4h_without_" + std::wstring(function, function + strlen(function)) + L".dll");
    EXPECT_EQ("error 0000007f GetProcAddress (" + std::string(function) + ")", SetRunning(true));
    EXPECT_THAT(TakeJournal(), IsEmpty());
    ExpectNothingLeft();
  }
}

TEST_F(AvManagerTest, TheFunctionsAreResolvedInTheirOrderFromTheLibraryInTheProgramFolder) {
  std::string names;
  const test::ImportFake<decltype(LoadLibraryExW)> load("kernel32.dll", "LoadLibraryExW", [&](auto* real, const wchar_t* path, HANDLE file, DWORD flags) {
    EXPECT_EQ(program_folder_ + L"\\cavm4h.dll", path);
    EXPECT_EQ(nullptr, file);
    EXPECT_EQ(8u, flags);
    return real(path, file, flags);
  });
  const test::ImportFake<decltype(GetProcAddress)> resolve("kernel32.dll", "GetProcAddress", [&](auto* real, HMODULE library, const char* name) {
    names += std::string(name) + " ";
    return real(library, name);
  });
  EXPECT_EQ("nothing", SetRunning(true));
  EXPECT_EQ("CavmStart CavmStop CavmGetProviderInfoList CavmProviderResume CavmProviderStart CavmProviderStop ", names);
}

TEST_F(AvManagerTest, AMissingLibraryOrInstallationIsReported) {
  EXPECT_TRUE(DeleteFileW((program_folder_ + L"\\" + kLibrary).c_str()));
  const std::string path(program_folder_.begin(), program_folder_.end());
  EXPECT_EQ("error ffffffff cannot load " + path + "\\cavm4h.dll", SetRunning(true));
  instup::test::DeleteValue(instup::test::kCorvidKey, L"ProgramFolder");
  EXPECT_EQ("error 00000002 Unable to retrieve path of the program directory!", SetRunning(true));
}

TEST_F(AvManagerTest, EnableLogsBetweenTheStartAndTheProviders) {
  standins::WriteProviders({{L"a", 0}});
  EXPECT_EQ("nothing", test::Thrown(enable));
  EXPECT_THAT(log_.lines(), ElementsAre("wide 1 wsc: wsc starting providers"));
  EXPECT_THAT(ReadProviders(), ElementsAre(Provider{L"a", 1}));
  log_.clear();
  AvManagerCalls().Script(L"CavmStart", {L"0x5"});
  EXPECT_EQ("error 00000005 CavmStart failed", test::Thrown(enable));
  EXPECT_THAT(log_.lines(), IsEmpty());
  TakeJournal();
  AvManagerCalls().Script(L"CavmGetProviderInfoList", {L"0x5"});
  EXPECT_EQ("error 00000005 provider info failes", test::Thrown(enable));
  EXPECT_THAT(log_.lines(), ElementsAre("wide 1 wsc: wsc starting providers"));
  EXPECT_EQ(kStopped, TakeJournal().back());
}

}  // namespace
}  // namespace crv::wsc
