#include "root/self_protection.h"

#include <winioctl.h>

namespace crv::root {
namespace {

constexpr const wchar_t* kHandlerDevice = L"\\\\.\\crvSP_Handler";
constexpr const wchar_t* kOpenDevice = L"\\\\.\\CRVSP_Open";  // takes both requests below
constexpr const wchar_t* kMainDevice = L"\\\\.\\CRVSP";

constexpr DWORD kDeviceType = 0xB2D6;
constexpr DWORD kIsTrustedProcess = CTL_CODE(kDeviceType, 0x33, METHOD_BUFFERED, FILE_ANY_ACCESS);  // process id in, answer out
constexpr DWORD kFatalDumpNotice = CTL_CODE(kDeviceType, 0x6C, METHOD_BUFFERED, FILE_ANY_ACCESS);   // nothing in, nothing out
static_assert(kIsTrustedProcess == 0xB2D600CC && kFatalDumpNotice == 0xB2D601B0);

constexpr std::uint32_t kTrusted = 1;

HANDLE OpenDevice(const wchar_t* name) {
  return CreateFileW(name, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
}

// Made by whoever asks first, so that other static initialisation may use it.
const SelfProtectionClient& TheClient() {
  static const SelfProtectionClient client;
  return client;
}

// Opens the devices at load time. It stands beside the function that every reader calls, so the linker never drops it.
[[maybe_unused]] const SelfProtectionClient& opened_at_load = TheClient();

}  // namespace

SelfProtectionClient::SelfProtectionClient() {
  lock_.Lock();
  OpenDevices();
  lock_.Unlock();
}

void SelfProtectionClient::OpenDevices() {
  if (!handler_device_) handler_device_.reset(OpenDevice(kHandlerDevice));
  if (!open_device_) open_device_.reset(OpenDevice(kOpenDevice));
  if (!main_device_) main_device_.reset(OpenDevice(kMainDevice));
}

std::uint32_t SelfProtectionClient::IsTrustedProcess(std::uint32_t process_id) const noexcept {
  if (!open_device_) return kTrusted;
  std::uint32_t answer = kTrusted;
  DWORD returned = 0;  // bytes
  if (!DeviceIoControl(open_device_.get(), kIsTrustedProcess, &process_id, sizeof(process_id), &answer, sizeof(answer), &returned,
                       nullptr) ||
      returned != sizeof(answer)) {
    return kTrusted;
  }
  return answer;
}

std::uint32_t IsTrustedProcess(std::uint32_t process_id) noexcept { return TheClient().IsTrustedProcess(process_id); }

std::uint32_t SendFatalDumpNotice() noexcept {
  const ScopedFile device(OpenDevice(kOpenDevice));
  if (!device) return GetLastError();
  DWORD returned = 0;
  if (!DeviceIoControl(device.get(), kFatalDumpNotice, nullptr, 0, nullptr, 0, &returned, nullptr)) return GetLastError();
  return ERROR_SUCCESS;
}

}  // namespace crv::root
