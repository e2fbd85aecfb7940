#include "shared/words.h"

#include <cwchar>

#include "base/exceptions.h"
#include "shared/area.h"
#include "shared/places.h"
#include "root/scoped_handle.h"

namespace crv::standins {

DWORD NumberFrom(const std::wstring& word) {
  wchar_t* end = nullptr;
  const unsigned long number = std::wcstoul(word.c_str(), &end, 0);
  if (word.empty() || *end || !(word[0] >= L'0' && word[0] <= L'9')) throw UsageError{L"'" + word + L"' is no number"};
  return number;
}

void RunLater(DWORD delay, const std::vector<std::wstring>& words) {
  const std::wstring program = Beside(L"centre.exe");
  std::wstring command_line = L"\"" + program + L"\" " + kWaitAnd + L" " + std::to_wstring(delay);
  for (const std::wstring& word : words) command_line += L" \"" + word + L"\"";
  // No standard handles: a reader of this program's output must not wait for the other one.
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = startup.hStdOutput = startup.hStdError = INVALID_HANDLE_VALUE;
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(program.c_str(), command_line.data(), nullptr, nullptr, FALSE, DETACHED_PROCESS, nullptr, nullptr, &startup,
                      &started)) {
    throw exceptions::error(GetLastError(), L"cannot start %s", program.c_str());
  }
  CloseHandle(started.hThread);
  CloseHandle(started.hProcess);
}

}  // namespace crv::standins
