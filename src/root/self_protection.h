// The module's client of the suite's self-protection driver, which knows the processes that belong to the suite. Machines
// without the driver are normal. Nothing here throws or logs; any thread.
#pragma once

#include <windows.h>

#include <cstdint>

#include "root/lock.h"
#include "root/scoped_handle.h"

namespace crv::root {

// Holds the driver's devices open from construction to destruction. The process-wide one, which the functions below use, lives
// as long as the image that holds this code is loaded.
class SelfProtectionClient {
 public:
  SelfProtectionClient();  // a device that cannot be opened stays closed; throws std::bad_alloc when there is no memory for a lock
  SelfProtectionClient(const SelfProtectionClient&) = delete;
  SelfProtectionClient& operator=(const SelfProtectionClient&) = delete;

  // Whether the driver trusts the process: 0 if not, otherwise the driver's own non-zero answer. Without a driver that answers
  // properly every process is trusted: 1.
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
// when the device cannot be opened or refuses. For a crashing process: it takes neither a lock nor memory itself.
[[nodiscard]] std::uint32_t SendFatalDumpNotice() noexcept;

}  // namespace crv::root
