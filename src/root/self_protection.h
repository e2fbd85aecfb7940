// The module's client of the suite's self-protection driver, which knows the processes that belong to the suite. Machines
// without the driver are normal. The questions to it neither throw nor log; any thread may ask.
#pragma once

#include <windows.h>

#include <cstdint>

#include "root/lock.h"
#include "root/scoped_handle.h"

namespace crv::root {

// Holds the driver's devices open from construction to destruction. The process-wide one, which IsTrustedProcess below uses, is
// made while the image that holds this code is being loaded and destroyed when it is unloaded.
class SelfProtectionClient {
 public:
  SelfProtectionClient();  // a device that cannot be opened stays closed; throws std::bad_alloc when there is no memory for a lock
  SelfProtectionClient(const SelfProtectionClient&) = delete;
  SelfProtectionClient& operator=(const SelfProtectionClient&) = delete;

  // Whether the driver trusts the process: 0 if not, otherwise the driver's own non-zero answer. Without the driver, and when its
  // request fails or its answer is not of 4 bytes, every process is trusted: 1.
  [[nodiscard]] std::uint32_t IsTrustedProcess(std::uint32_t process_id) const noexcept;

 private:
  void OpenDevices();

  CLockCS lock_;  // held while the devices are opened
  ScopedFile handler_device_;
  ScopedFile open_device_;
  ScopedFile main_device_;
};

// SelfProtectionClient::IsTrustedProcess of the process-wide client.
[[nodiscard]] std::uint32_t IsTrustedProcess(std::uint32_t process_id) noexcept;

// Tells the driver, through a device handle of its own, that the dump of a fatal crash was written. Returns 0, or the last error
// when the device cannot be opened or refuses. For a crashing process: it takes no lock and no heap memory itself; what the system
// takes to open a device is its own.
[[nodiscard]] std::uint32_t SendFatalDumpNotice() noexcept;

}  // namespace crv::root
