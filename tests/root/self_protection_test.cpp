// How the driver's answers about a parent decide shows in whole runs of the host; here is the notice of a dump.
#include "root/self_protection.h"

#include <gtest/gtest.h>

#include "support/import_fake.h"

namespace crv::root {
namespace {

TEST(SelfProtection, TheDumpNoticeGoesThroughADeviceOfItsOwn) {
  const HANDLE kDevice = reinterpret_cast<HANDLE>(0x5A51);
  bool missing = false;
  BOOL success = TRUE;
  int open_devices = 0;
  const test::ImportFake<decltype(CreateFileW)> open("kernel32.dll", "CreateFileW", [&](auto, std::wstring name, auto...) {
    EXPECT_EQ(L"\\\\.\\CRVSP_Open", name);
    SetLastError(ERROR_BAD_UNIT);
    return missing ? INVALID_HANDLE_VALUE : (++open_devices, kDevice);
  });
  const test::ImportFake<decltype(DeviceIoControl)> request("kernel32.dll", "DeviceIoControl",
                                                            [&](auto, HANDLE device, DWORD code, auto...) {
                                                              EXPECT_TRUE(device == kDevice && code == 0xB2D601B0);
                                                              return SetLastError(ERROR_GEN_FAILURE), success;
                                                            });
  const test::ImportFake<decltype(CloseHandle)> close("kernel32.dll", "CloseHandle", [&](auto real, HANDLE handle) {
    return handle == kDevice ? --open_devices, TRUE : real(handle);
  });
  EXPECT_EQ(0u, SendFatalDumpNotice());
  success = FALSE;
  EXPECT_EQ(DWORD{ERROR_GEN_FAILURE}, SendFatalDumpNotice());
  missing = true;
  EXPECT_EQ(DWORD{ERROR_BAD_UNIT}, SendFatalDumpNotice());
  EXPECT_EQ(0, open_devices);
}

}  // namespace
}  // namespace crv::root
