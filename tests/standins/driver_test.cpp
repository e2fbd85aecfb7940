#include <gtest/gtest.h>

#include "control/driver_control.h"
#include "root/scoped_handle.h"
#include "standins/child.h"

namespace crv::test {
namespace {

using namespace standins;

constexpr DWORD kIsTrustedProcess = 0xB2D600CC;
constexpr DWORD kFatalDumpNotice = 0xB2D601B0;
constexpr DWORD kUntouched = 0xAAAAAAAA;

root::ScopedFile Open(const wchar_t* device) {
  return root::ScopedFile(CreateFileW(device, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
}

struct Reply {
  DWORD error;
  DWORD answer;
  DWORD returned;

  bool operator==(const Reply&) const = default;
};

Reply Ask(HANDLE device, DWORD process, DWORD input_size = sizeof(DWORD), DWORD output_size = sizeof(DWORD)) {
  Reply reply = {NO_ERROR, kUntouched, 0};
  if (!DeviceIoControl(device, kIsTrustedProcess, &process, input_size, &reply.answer, output_size, &reply.returned, nullptr)) {
    reply.error = GetLastError();
  }
  return reply;
}

class Driver : public testing::Test {
 protected:
  Driver() {
    RemoveDriver();
    LoadDriver(OwnFolder() + kDriverFile);
  }
  ~Driver() override {
    RemoveDriver();
    EXPECT_FALSE(FindService(kDriverService));
    for (const wchar_t* const device : {L"\\\\.\\crvSP_Handler", L"\\\\.\\CRVSP_Open", L"\\\\.\\CRVSP"}) EXPECT_FALSE(Open(device));
  }
};

TEST_F(Driver, AnswersTheTrustedProcessQueryAsTold) {
  const root::ScopedFile device = Open(L"\\\\.\\crvsp_OPEN");
  ASSERT_TRUE(device) << GetLastError();
  EXPECT_EQ((Reply{NO_ERROR, 1, 4}), Ask(device.get(), 4711));
  Behave(DriverBehaviour{.answer = 0});
  EXPECT_EQ((Reply{NO_ERROR, 0, 4}), Ask(device.get(), 4712));
  Behave(DriverBehaviour{.answer = 0x80000007});
  EXPECT_EQ((Reply{NO_ERROR, 0x80000007, 4}), Ask(device.get(), 4713));
  Behave(DriverBehaviour{.answer = 0, .short_answer = true});
  EXPECT_EQ((Reply{NO_ERROR, kUntouched & 0xFFFF0000, 2}), Ask(device.get(), 4714));
  Behave(DriverBehaviour{.answer = 0, .status = 0xC0000022});
  EXPECT_EQ((Reply{ERROR_ACCESS_DENIED, kUntouched, 0}), Ask(device.get(), 4715));
  EXPECT_EQ(5u, ReadDriverCounts().queries);
  EXPECT_EQ(4715u, ReadDriverCounts().last_process);
  EXPECT_EQ(0u, ReadDriverCounts().fatal_dumps);
}

TEST_F(Driver, RefusesRequestsThatMakeNoSense) {
  const root::ScopedFile device = Open(L"\\\\.\\CRVSP_Open");
  EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, Ask(device.get(), 1, 2).error);
  EXPECT_EQ(DWORD{ERROR_INSUFFICIENT_BUFFER}, Ask(device.get(), 1, 4, 2).error);
  for (const wchar_t* const other : {L"\\\\.\\crvSP_Handler", L"\\\\.\\CRVSP"}) {
    const root::ScopedFile other_device = Open(other);
    ASSERT_TRUE(other_device) << other;
    EXPECT_EQ(DWORD{ERROR_INVALID_FUNCTION}, Ask(other_device.get(), 1).error);
  }
  EXPECT_EQ(0u, ReadDriverCounts().queries);
}

TEST_F(Driver, CountsFatalDumps) {
  const root::ScopedFile device = Open(L"\\\\.\\CRVSP_Open");
  DWORD returned = 0;
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(DeviceIoControl(device.get(), kFatalDumpNotice, nullptr, 0, nullptr, 0, &returned, nullptr));
  EXPECT_EQ(2u, ReadDriverCounts().fatal_dumps);
  ResetDriverCounts();
  EXPECT_EQ(0u, ReadDriverCounts().fatal_dumps);
  EXPECT_EQ(std::nullopt, ReadDriverCounts().last_process);
}

}  // namespace
}  // namespace crv::test
