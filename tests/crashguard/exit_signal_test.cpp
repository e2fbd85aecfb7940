#include "crashguard/exit_signal.h"

#include <gtest/gtest.h>

#include "support/import_fake.h"

namespace crv::crashguard {
namespace {

TEST(CrashSignalAtExit, OnlyAHandleOfTenCharactersHoldsTheProcess) {
  DWORD slept = 0;
  const test::ImportFake<decltype(Sleep)> sleep("kernel32.dll", "Sleep", [&](auto*, DWORD time) { slept = time; });
  const test::ImportFake<decltype(GetEnvironmentVariableW)> variable("kernel32.dll", "GetEnvironmentVariableW",
                                                                     [](auto* real, LPCWSTR name, LPWSTR text, DWORD size) {
                                                                       EXPECT_EQ(16u, size);
                                                                       return real(name, text, size);
                                                                     });
  const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  wchar_t valid[16], blank[16];
  swprintf(valid, 16, L"0x%08x", static_cast<unsigned>(reinterpret_cast<UINT_PTR>(event)));
  swprintf(blank, 16, L"  %08X", static_cast<unsigned>(reinterpret_cast<UINT_PTR>(event)));
  const struct {
    const wchar_t* text;
    bool holds;
  } rows[] = {{nullptr, false},       {L"0x0000000", false},  {L"0x000000001", false},
              {L"0x00000000", false}, {L"no number!", false}, {valid, true},
              {blank, true},          {L"FFFFFFFFFF", false}, {L"0x0000000000000000000000000001", false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "row " << (&row - rows));
    SetEnvironmentVariableW(L"CRV_CRASH_SIGNAL_EVENT", row.text);
    ResetEvent(event);
    slept = 0;
    CrashSignalAtExit();
    EXPECT_EQ(row.holds ? INFINITE : 0, slept);
    EXPECT_EQ(row.holds ? WAIT_OBJECT_0 : static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(event, 0));
  }
  SetEnvironmentVariableW(L"CRV_CRASH_SIGNAL_EVENT", nullptr);
  CloseHandle(event);
}

}  // namespace
}  // namespace crv::crashguard
