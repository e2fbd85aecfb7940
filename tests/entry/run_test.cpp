#include "entry/run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <objbase.h>
#include <shellapi.h>
#include <shlobj.h>

#include <stdexcept>
#include <thread>

#include "crashguard/crash_guard_module.h"
#include "entry/log_folder.h"
#include "instup/stage.h"
#include "mi/module_counts.h"
#include "support/captured_log.h"
#include "support/import_fake.h"

namespace crv::wsc {
namespace {

using testing::ElementsAre;
using testing::EndsWith;

// Runs with COM's initialisation counted instead of done, so that the balance shows.
class Run : public testing::Test {
 protected:
  Run() { SetErrorMode(0); }
  ~Run() override {
    EXPECT_EQ(0, com_balance_);
    crashguard::AcquireCrashGuard()->Uninstall();
  }

  test::CapturedLog log_;
  int com_balance_ = 0;
  const test::ImportFake<decltype(CoInitializeEx)> initialize_{"ole32.dll", "CoInitializeEx", [this](auto*, void*, DWORD model) {
                                                                 EXPECT_EQ(DWORD{COINIT_MULTITHREADED}, model);
                                                                 return ++com_balance_, S_FALSE;
                                                               }};
  const test::ImportFake<decltype(CoUninitialize)> uninitialize_{"ole32.dll", "CoUninitialize",
                                                                 [this](auto*) { --com_balance_; }};
};

// Where no suite is installed, so that enabling fails by its first step, which tells that it was tried.
TEST_F(Run, ARequestGivesTheCodeOfItsFirstFailureAndOneRecordOfIt) {
  const test::RedirectedHive nothing_installed;
  EXPECT_EQ(87u, ::run(nullptr));
  EXPECT_THAT(log_.module_lines(), ElementsAre("exception 0 wsc: run: run: nullptr [00000057]")) << "before anything else";
  const struct {
    const wchar_t* text;
    std::uint32_t result;
    std::string failure, log = "";  // the record; what stands before it, behind the first two
  } cases[] = {
      {L"", 87, "run:  [00000057]"},
      {L"  \t", 87, "run:   \t [00000057]"},
      {L"/svc", 87, "run: /svc [00000057]"},
      {L"host /svc /register /unregister antivirus", 160, "no product specified [000000a0]"},
      {L"host /SVC /Update /Firewall", 160, "to_prod_state  [000000a0]"},
      {L"host /svc /update /antivirus /state:on", 160, "to_signature_status  [000000a0]"},
      {L"host /svc /update /antispyware /state:on /signatures:Up", 160, "to_signature_status Up [000000a0]"},
      {L"\"h h\" /as:1 /x w", 0xFFFFFFFF, "unsupported cmdline options: \"h h\" /as:1 /x \"w\" [ffffffff]"},
      {L"host /svc /fw", 0xFFFFFFFF, "unsupported cmdline options: \"host\" /fw /svc [ffffffff]"},  // fw before svc
      {L"host /av /enable /disable", 2, "Unable to retrieve path of the program directory! [00000002]"},
      {L"host /as /disable /enable /update", 2, "Unable to retrieve path of the program directory! [00000002]"},
      {L"host /as /fw /enable", 2, "Unable to retrieve path of the program directory! [00000002]"},
      {L"host /AV:x /UPDATE:y /Upgrade", 0xFFFFFFFF, "update program failed [ffffffff]", "wide 1 wsc: Updating AV."},
      {L"host /av /as /fw /svc /upgrade", 0, "", "wide 1 wsc: Upgrading AV."},
      {L"host /av enable disable update", 0, ""},
      {L"host /fw /enable /disable", 0, "", "wide 1 wsc: Starting FW."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    log_.clear();
    EXPECT_EQ(c.result, ::run(c.text));
    const std::string text(c.text, c.text + std::char_traits<wchar_t>::length(c.text));
    std::vector<std::string> expected = {"narrow 1 wsc: wsc started: '" + text + "'"};
    if (!c.log.empty()) expected.push_back(c.log);
    if (!c.failure.empty()) expected.push_back("exception 0 wsc: run: " + c.failure);
    std::vector<std::string> lines = log_.module_lines();
    EXPECT_THAT(lines.at(0), EndsWith("\\CORVID Software\\Corvid\\log\\wsc.log 4194304 true"));
    lines.erase(lines.begin());
    EXPECT_EQ(expected, lines);
  }
}

TEST_F(Run, ALibraryThatFailsEverywhereCostsNoResult) {
  log_.Behave(test::CapturedLog::Behaviour::throws);
  EXPECT_EQ(31u, ::run(L"host /av"));
  EXPECT_EQ(87u, ::run(nullptr));
  log_.Behave(test::CapturedLog::Behaviour::no_logger);
  EXPECT_EQ(0u, ::run(L"host /av"));
}

TEST_F(Run, GuardsTheProcessForGoodAndTellsTheDriverOfFatalDumpsMeanwhile) {
  SHCreateDirectory(nullptr, LogFolder().c_str());
  std::vector<std::wstring> opened;
  const test::ImportFake<decltype(CreateFileW)> device(
      "kernel32.dll", "CreateFileW", [&](auto*, auto* name, auto...) { return opened.push_back(name), INVALID_HANDLE_VALUE; });
  const auto dump = [](auto...) {  // of which two are not fatal
    EXPECT_TRUE(crashguard::AcquireCrashGuard()->IsInstalled());
    for (int i = 0; i < 2; ++i) crashguard::AcquireCrashGuardModule()->RaiseDumpWritten();
    crashguard::AcquireCrashGuardModule()->RaiseFatalDumpWritten();
    return E_FAIL;
  };
  const test::ImportFake<decltype(CoInitializeEx)> during("ole32.dll", "CoInitializeEx", dump);
  EXPECT_EQ(static_cast<std::uint32_t>(E_FAIL), ::run(L"host /av"));
  EXPECT_THAT(opened, ElementsAre(L"\\\\.\\CRVSP_Open"));
  dump();
  EXPECT_EQ(1u, opened.size()) << "the handler is still connected";
  EXPECT_EQ(0u, mi::LiveCounts().exported_objects);
  EXPECT_EQ(nullptr, SetUnhandledExceptionFilter(nullptr)) << "not locked";
  EXPECT_EQ(0x8003u, SetErrorMode(0) & ~SEM_NOALIGNMENTFAULTEXCEPT) << "which some systems never clear";
  EXPECT_EQ(static_cast<std::uint32_t>(E_FAIL), ::run(L"host /av"));
  EXPECT_THAT(log_.lines(), testing::Contains("narrow 3 crashguard: Attempting to install crashguard twice, ignored.").Times(1));
}

TEST_F(Run, WithoutAFolderForItsDumpsNothingBegins) {
  const test::ImportFake<decltype(SHGetFolderPathW)> unknown("shell32.dll", "SHGetFolderPathW",
                                                             [](auto*, auto...) { return HRESULT{E_ACCESSDENIED}; });
  const test::RedirectedHive no_registry_either;
  EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, ::run(nullptr));
  EXPECT_FALSE(crashguard::AcquireCrashGuard()->IsInstalled());
}

TEST_F(Run, OtherStandardExceptionsAre31AndForeignOnesLeave) {
  bool exhausted = true;
  const test::ImportFake<decltype(CoInitializeEx)> throws("ole32.dll", "CoInitializeEx", [&](auto*, auto...) -> HRESULT {
    if (exhausted) throw std::bad_alloc();
    throw 42;
  });
  EXPECT_EQ(31u, ::run(L"host /av"));
  EXPECT_THAT(log_.module_lines(), ElementsAre("exception 0 wsc: run: std::bad_alloc"));
  exhausted = false;
  EXPECT_THROW(::run(L"host /av"), int);
}

TEST_F(Run, DisablingFirstRestartsTheHostAsAnAdministrator) {
  const test::ImportFake<decltype(CheckTokenMembership)> nobody(
      "advapi32.dll", "CheckTokenMembership", [](auto*, HANDLE, PSID, BOOL* member) { return *member = FALSE, TRUE; });
  const test::ImportFake<decltype(ShellExecuteExW)> refuse("shell32.dll", "ShellExecuteExW",
                                                           [](auto*, auto...) { return SetLastError(ERROR_CANCELLED), FALSE; });
  for (const wchar_t* text : {L"host /av /disable", L"host /as /disable"}) EXPECT_EQ(ERROR_CANCELLED, ::run(text));
}

// A library that is missing where it belongs is not taken from the folder where the host was started.
TEST_F(Run, TheCurrentFolderIsNoPlaceToLoadFrom) {
  const instup::test::Stage stage;
  wchar_t before[MAX_PATH], own[MAX_PATH];
  GetCurrentDirectoryW(MAX_PATH, before);
  GetModuleFileNameW(nullptr, own, MAX_PATH);
  const std::wstring library = std::filesystem::path(own).replace_filename(L"crvData.dll").wstring();
  ASSERT_TRUE(CopyFileW(library.c_str(), stage.Path(L"planted.dll").c_str(), FALSE));
  SetCurrentDirectoryW(stage.Path(L"").c_str());
  const test::ImportFake<decltype(LoadLibraryW)> missing("kernel32.dll", "LoadLibraryW", [](auto* real, std::wstring name) {
    return real(name == L"crvData.dll" ? L"planted.dll" : name.c_str());
  });
  const auto enable = [](const wchar_t* search) { return SetDllDirectoryW(search), ::run(L"host /fw /enable"); };
  {
    const test::ImportFake<decltype(GetProcAddress)> old_xp(
        "kernel32.dll", "GetProcAddress",
        [](auto* real, auto dll, std::string name) { return name == "SetDllDirectoryW" ? nullptr : real(dll, name.c_str()); });
    EXPECT_EQ(0u, enable(nullptr)) << "found where the system looks by itself";
  }
  EXPECT_EQ(0xFFFFFFFF, enable(nullptr));
  EXPECT_EQ("exception 0 wsc: run: cannot load crvData.dll [ffffffff]", log_.module_lines().back());
  EXPECT_EQ(0u, enable(stage.Path(L"").c_str())) << "the host's own choice of a folder holds";
  SetDllDirectoryW(nullptr);
  SetCurrentDirectoryW(before);
}

TEST(RunWithCom, RefusesAThreadOfASingleThreadedApartmentAndLeavesOthersAsTheyWere) {
  const test::CapturedLog log;
  std::thread([] {
    EXPECT_EQ(0u, ::run(L"host /av"));
    EXPECT_EQ(0xFFFFFFFFu, ::run(L"host /as"));
    EXPECT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) << "the thread still belongs to an apartment";
    EXPECT_EQ(static_cast<std::uint32_t>(RPC_E_CHANGED_MODE), ::run(L"host /av"));
    CoUninitialize();
  }).join();
  EXPECT_EQ("exception 0 wsc: run: CoInitializeEx [80010106]", log.module_lines().back());
}

}  // namespace
}  // namespace crv::wsc
