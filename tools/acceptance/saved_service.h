// A service as the Service Control Manager has it, and making it so again. Failures throw crv::exceptions::error.
#pragma once

#include <windows.h>

#include <optional>
#include <string>

namespace crv::acceptance {

struct SavedService {
  DWORD type = 0;
  DWORD start = 0;
  DWORD error_control = 0;
  std::wstring image = {};
  std::wstring account = {};
  bool runs = false;
  bool operator==(const SavedService&) const = default;
};

std::optional<SavedService> ReadService(const std::wstring& name);  // empty: there is no such service

// One that was not there goes away; one that was there gets back what it was, and runs again when it did.
void RestoreService(const std::wstring& name, const std::optional<SavedService>& saved);

}  // namespace crv::acceptance
