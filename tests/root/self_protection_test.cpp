#include "root/self_protection.h"

#include <gtest/gtest.h>

#include "base/format_message.h"
#include "support/import_fake.h"

namespace crv::root {
namespace {

// A driver that answers as told; notes what reaches it, in order.
class SelfProtection : public testing::Test {
 protected:
  ~SelfProtection() override { EXPECT_EQ(opened_, closed_); }

  bool missing_ = false;  // its devices
  BOOL success_ = TRUE;
  DWORD returned_ = 4;  // bytes
  std::uint32_t answer_ = 0;
  std::string asked_;

 private:
  const HANDLE device_ = reinterpret_cast<HANDLE>(0x5A51);
  int opened_ = 0, closed_ = 0;
  test::ImportFake<decltype(CreateFileW)> open_{
      "kernel32.dll", "CreateFileW",
      [this](auto, std::wstring name, DWORD access, DWORD share, auto, DWORD disposition, auto...) {
        EXPECT_TRUE(access == GENERIC_READ && share == 3 && disposition == OPEN_EXISTING);
        asked_ += ToUtf8(name) + ";";
        SetLastError(ERROR_BAD_UNIT);
        return missing_ ? INVALID_HANDLE_VALUE : (++opened_, device_);
      }};
  test::ImportFake<decltype(DeviceIoControl)> request_{
      "kernel32.dll", "DeviceIoControl",
      [this](auto, HANDLE, DWORD code, void* in, DWORD in_size, void* out, DWORD out_size, DWORD* returned, auto) {
        EXPECT_TRUE(in_size == out_size && !in == !out);
        char text[64];
        std::snprintf(text, sizeof(text), "%lx for %u;", code, in ? *static_cast<unsigned*>(in) : 0);
        asked_ += text;
        if (out) *static_cast<std::uint32_t*>(out) = answer_;
        *returned = returned_;
        return SetLastError(ERROR_GEN_FAILURE), success_;
      }};
  test::ImportFake<decltype(CloseHandle)> close_{
      "kernel32.dll", "CloseHandle", [this](auto real, HANDLE handle) {
        return handle == device_ ? ++closed_, TRUE : real(handle);
      }};
};

TEST_F(SelfProtection, OnlyAProperAnswerDecides) {
  const struct {
    BOOL success;
    DWORD returned;
    std::uint32_t answer, expected;
  } cases[] = {{FALSE, 4, 0, 1}, {TRUE, 2, 0, 1}, {TRUE, 5, 0, 1}, {TRUE, 4, 0xFFFFFFFF, 0xFFFFFFFF}, {TRUE, 4, 0, 0}};
  for (const auto& c : cases) {
    success_ = c.success;
    returned_ = c.returned;
    answer_ = c.answer;
    EXPECT_EQ(c.expected, SelfProtectionClient().IsTrustedProcess(4321)) << "row " << (&c - cases);
    EXPECT_EQ("\\\\.\\crvSP_Handler;\\\\.\\CRVSP_Open;\\\\.\\CRVSP;b2d600cc for 4321;", std::exchange(asked_, ""));
  }
  missing_ = true;
  EXPECT_EQ(1u, SelfProtectionClient().IsTrustedProcess(4321));
}

TEST_F(SelfProtection, NoticeGoesThroughADeviceOfItsOwn) {
  EXPECT_EQ(0u, SendFatalDumpNotice());
  EXPECT_EQ("\\\\.\\CRVSP_Open;b2d601b0 for 0;", asked_);
  success_ = FALSE;
  EXPECT_EQ(DWORD{ERROR_GEN_FAILURE}, SendFatalDumpNotice());
  missing_ = true;
  EXPECT_EQ(DWORD{ERROR_BAD_UNIT}, SendFatalDumpNotice());
}

}  // namespace
}  // namespace crv::root
