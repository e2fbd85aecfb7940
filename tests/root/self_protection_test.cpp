#include "root/self_protection.h"

#include <gtest/gtest.h>

#include <set>

#include "base/format_message.h"
#include "support/import_fake.h"

namespace crv::root {
namespace {

// A driver that answers as told; notes what reaches it, in order.
class SelfProtection : public testing::Test {
 protected:
  ~SelfProtection() override { EXPECT_TRUE(held_.empty()); }

  std::set<std::wstring> missing_;  // devices
  BOOL success_ = TRUE;
  DWORD returned_ = 4;  // bytes
  std::uint32_t answer_ = 0;
  std::string asked_;

 private:
  int opens_ = 0;
  std::set<HANDLE> held_;
  test::ImportFake<decltype(CreateFileW)> open_{
      "kernel32.dll", "CreateFileW",
      [this](auto, std::wstring name, DWORD access, DWORD share, auto, DWORD disposition, auto...) -> HANDLE {
        EXPECT_TRUE(access == GENERIC_READ && share == 3 && disposition == OPEN_EXISTING);
        asked_ += ToUtf8(name) + ";";
        SetLastError(ERROR_BAD_UNIT);
        if (missing_.contains(name)) return INVALID_HANDLE_VALUE;
        return *held_.insert(reinterpret_cast<HANDLE>(0x5A50 + ++opens_)).first;
      }};
  test::ImportFake<decltype(DeviceIoControl)> request_{
      "kernel32.dll", "DeviceIoControl",
      [this](auto, HANDLE device, DWORD code, void* in, DWORD in_size, void* out, DWORD out_size, DWORD* returned, auto) {
        EXPECT_TRUE(held_.contains(device) && in_size == out_size && !in == !out);
        char text[64];
        std::snprintf(text, sizeof(text), "%lx on %p", code, device);
        asked_ += text + (in && in_size == 4 ? " for " + std::to_string(*static_cast<std::uint32_t*>(in)) : "") + ";";
        if (out) *static_cast<std::uint32_t*>(out) = answer_;
        *returned = returned_;
        SetLastError(ERROR_GEN_FAILURE);
        return success_;
      }};
  test::ImportFake<decltype(CloseHandle)> close_{"kernel32.dll", "CloseHandle", [this](auto real, HANDLE handle) {
                                                   SetLastError(0xBAD);
                                                   return held_.erase(handle) ? TRUE : real(handle);
                                                 }};
};

TEST_F(SelfProtection, OnlyAProperAnswerOfTheOpenDeviceDecides) {
  const struct {
    BOOL success;
    DWORD returned;
    std::uint32_t answer, expected;
  } cases[] = {{FALSE, 4, 0, 1}, {TRUE, 2, 0, 1}, {TRUE, 5, 0, 1}, {TRUE, 4, 0xFFFFFFFF, 0xFFFFFFFF}, {TRUE, 4, 0, 0}};
  const SelfProtectionClient client;
  EXPECT_EQ("\\\\.\\crvSP_Handler;\\\\.\\CRVSP_Open;\\\\.\\CRVSP;", asked_);
  for (const auto& c : cases) {
    asked_ = "";
    success_ = c.success;
    returned_ = c.returned;
    answer_ = c.answer;
    EXPECT_EQ(c.expected, client.IsTrustedProcess(4321)) << "row " << (&c - cases);
    EXPECT_EQ("b2d600cc on 00005a52 for 4321;", asked_);
  }
  missing_ = {L"\\\\.\\CRVSP_Open"};
  EXPECT_EQ(1u, SelfProtectionClient().IsTrustedProcess(4321));
}

TEST_F(SelfProtection, NoticeGoesThroughADeviceOfItsOwn) {
  EXPECT_EQ(0u, SendFatalDumpNotice());
  EXPECT_EQ("\\\\.\\CRVSP_Open;b2d601b0 on 00005a51;", asked_);
  success_ = FALSE;
  EXPECT_EQ(DWORD{ERROR_GEN_FAILURE}, SendFatalDumpNotice());
  missing_ = {L"\\\\.\\CRVSP_Open"};
  EXPECT_EQ(DWORD{ERROR_BAD_UNIT}, SendFatalDumpNotice());
}

}  // namespace
}  // namespace crv::root
