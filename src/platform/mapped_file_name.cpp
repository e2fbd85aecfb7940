#include "platform/mapped_file_name.h"

#include <cwchar>
#include <string>

namespace crv::platform {

DWORD DocumentMappedFileName(DWORD length, wchar_t* name, DWORD size) {
  constexpr wchar_t kDosDevices[] = L"\\??\\";
  constexpr DWORD kPrefixLength = 4;
  // A name that did not fit has its whole length for an answer and is not there to be read.
  if (length >= size || length < kPrefixLength + 2 || std::wcsncmp(name, kDosDevices, kPrefixLength) != 0 ||
      name[kPrefixLength + 1] != L':') {
    return length;
  }

  const wchar_t drive[] = {name[kPrefixLength], L':', L'\0'};
  wchar_t device[MAX_PATH];
  if (!QueryDosDeviceW(drive, device, MAX_PATH)) return length;
  const std::wstring converted = device + std::wstring(name + kPrefixLength + 2, length - kPrefixLength - 2);
  if (converted.size() >= size) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  converted.copy(name, converted.size());
  name[converted.size()] = L'\0';
  return static_cast<DWORD>(converted.size());
}

}  // namespace crv::platform
