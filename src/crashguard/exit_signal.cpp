#include "crashguard/exit_signal.h"

#include <windows.h>

#include <cerrno>
#include <cwchar>

namespace crv::crashguard {

void CrashSignalAtExit() {
  constexpr DWORD kBufferSize = 16;    // characters
  constexpr DWORD kHandleLength = 10;  // 0x and eight hexadecimal digits
  wchar_t text[kBufferSize];
  if (GetEnvironmentVariableW(L"CRV_CRASH_SIGNAL_EVENT", text, kBufferSize) != kHandleLength) return;
  errno = 0;
  const unsigned long handle = std::wcstoul(text, nullptr, 16);
  if (handle == 0 || errno == ERANGE) return;
  SetEvent(reinterpret_cast<HANDLE>(static_cast<UINT_PTR>(handle)));
  Sleep(INFINITE);
}

}  // namespace crv::crashguard
