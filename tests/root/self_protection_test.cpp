// What decides about a parent shows in whole runs of the host as well; here is what the driver is asked, and how.
#include "root/self_protection.h"

#include <gtest/gtest.h>

#include <map>

#include "support/import_fake.h"

namespace crv::root {
namespace {

// The driver's devices. Each handle that is open stands for one of them.
class SelfProtection : public testing::Test {
 protected:
  ~SelfProtection() override { EXPECT_TRUE(open_.empty()); }

  std::string opened_;  // every device, in order
  bool missing_ = false;
  BOOL success_ = TRUE;
  std::uint32_t answer_ = 0;
  DWORD size_ = 4;  // of the answer, bytes

 private:
  HANDLE Open(const std::wstring& name) {
    opened_ += std::string(name.begin(), name.end()) + " ";
    SetLastError(ERROR_BAD_UNIT);
    if (missing_) return INVALID_HANDLE_VALUE;
    const HANDLE handle = reinterpret_cast<HANDLE>(0x5A51 + 4 * open_.size());
    open_[handle] = name;
    return handle;
  }

  std::map<HANDLE, std::wstring> open_;
  test::ImportFake<decltype(CreateFileW)> create_{
      "kernel32.dll", "CreateFileW",
      [this](auto, std::wstring name, DWORD access, DWORD share, auto* attributes, DWORD how, DWORD flags, HANDLE) {
        EXPECT_TRUE(access == GENERIC_READ && share == (FILE_SHARE_READ | FILE_SHARE_WRITE) && how == OPEN_EXISTING);
        EXPECT_TRUE(!attributes && flags == 0);
        return Open(name);
      }};
  test::ImportFake<decltype(DeviceIoControl)> request_{
      "kernel32.dll", "DeviceIoControl",
      [this](auto, HANDLE device, DWORD code, void* in, DWORD in_size, void* out, DWORD out_size, DWORD* returned, auto) {
        EXPECT_EQ(L"\\\\.\\CRVSP_Open", open_[device]);
        if (code == 0xB2D600CC) {
          EXPECT_TRUE(in_size == 4 && *static_cast<std::uint32_t*>(in) == 1234 && out_size == 4);
          *static_cast<std::uint32_t*>(out) = answer_;
          *returned = size_;
        } else {
          EXPECT_TRUE(code == 0xB2D601B0 && !in && in_size == 0 && !out && out_size == 0);
        }
        return SetLastError(ERROR_GEN_FAILURE), success_;
      }};
  test::ImportFake<decltype(CloseHandle)> close_{
      "kernel32.dll", "CloseHandle", [this](auto real, HANDLE handle) { return open_.erase(handle) == 1 ? TRUE : real(handle); }};
};

TEST_F(SelfProtection, TheDriversOwnAnswerCountsAndWithoutOneEveryProcessIsTrusted) {
  const SelfProtectionClient client;
  EXPECT_EQ("\\\\.\\crvSP_Handler \\\\.\\CRVSP_Open \\\\.\\CRVSP ", opened_);
  const struct {
    BOOL success;
    std::uint32_t answer;
    DWORD size;
    std::uint32_t expected;
  } cases[] = {{TRUE, 0, 4, 0}, {TRUE, 1, 4, 1}, {TRUE, 7, 4, 7}, {FALSE, 0, 4, 1}, {TRUE, 0, 3, 1}};
  for (const auto& c : cases) {
    success_ = c.success, answer_ = c.answer, size_ = c.size;
    EXPECT_EQ(c.expected, client.IsTrustedProcess(1234)) << "row " << (&c - cases);
  }
  missing_ = true;
  EXPECT_EQ(1u, SelfProtectionClient().IsTrustedProcess(1234));
}

TEST_F(SelfProtection, TheDumpNoticeGoesThroughADeviceOfItsOwn) {
  EXPECT_EQ(0u, SendFatalDumpNotice());
  success_ = FALSE;
  EXPECT_EQ(DWORD{ERROR_GEN_FAILURE}, SendFatalDumpNotice());
  missing_ = true;
  EXPECT_EQ(DWORD{ERROR_BAD_UNIT}, SendFatalDumpNotice());
}

}  // namespace
}  // namespace crv::root
