#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "avmgr/actions.h"
#include "firewall/control.h"
#include "support/captured_log.h"
#include "support/import_fake.h"
#include "support/redirected_hive.h"
#include "support/thrown.h"

namespace crv::wsc {
namespace {

TEST(Firewall, IsStartedAndWhateverWasGotIsGivenBack) {
  const std::wstring got = L"crvGetFirewall(0) = 0x00000000", freed = L"crvFreeFirewall(0) = 0x00000000";
  const struct {
    const wchar_t *library, *call, *answer;  // of the call, as scripted
    const char* thrown;
    std::vector<std::wstring> journal;
  } cases[] = {
      {L"crvData.dll", L"Firewall.Start", L"ok", "nothing", {got, L"Firewall.Start(0) = 0x00000000", freed}},
      {L"crvData.dll", L"crvGetFirewall", L"null", "error ffffffff cannot get firewall", {got, freed}},
      {L"crvData_without_crvFreeFirewall.dll", L"crvGetFirewall", L"ok", "error 0000007f GetProcAddress (crvFreeFirewall)", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const test::RedirectedHive hive;
    const test::CapturedLog log;
    const test::ImportFake<decltype(LoadLibraryW)> load("kernel32.dll", "LoadLibraryW", [&c](auto* real, const wchar_t* name) {
      EXPECT_STREQ(L"crvData.dll", name);
      return real(c.library);
    });
    standins::FirewallCalls().Script(c.call, {c.answer});
    EXPECT_EQ(c.thrown, test::Thrown(start_firewall));
    EXPECT_EQ(c.journal, standins::FirewallCalls().Journal());
    EXPECT_EQ(c.thrown == std::string("nothing"), standins::FirewallIsOn());
    EXPECT_THAT(log.lines(), testing::ElementsAre("wide 1 wsc: Starting FW."));
    EXPECT_EQ(nullptr, GetModuleHandleW(c.library)) << "the library is still loaded";
  }
}

}  // namespace
}  // namespace crv::wsc
