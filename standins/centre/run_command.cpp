#include "centre/run_command.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "base/exceptions.h"
#include "base/format_message.h"
#include "shared/area.h"
#include "shared/console.h"
#include "shared/places.h"
#include "root/scoped_handle.h"

namespace crv::standins::centre {
namespace {

constexpr DWORD kLongestRun = 20 * 60 * 1000;  // ms; a call that stays pending ends by itself after 15 minutes
constexpr UINT kKilled = ERROR_TIMEOUT;

bool IsBlank(wchar_t character) { return character == L' ' || character == L'\t'; }

// A file at one moment: which one it is, however it is called later, and how far it was written.
struct Mark {
  std::uint64_t identity;
  std::uint64_t size;  // bytes
};

std::optional<Mark> MarkOf(HANDLE file) {
  BY_HANDLE_FILE_INFORMATION information = {};
  if (!GetFileInformationByHandle(file, &information)) return std::nullopt;
  return Mark{std::uint64_t{information.nFileIndexHigh} << 32 | information.nFileIndexLow,
              std::uint64_t{information.nFileSizeHigh} << 32 | information.nFileSizeLow};
}

root::ScopedFile OpenToRead(const std::wstring& path) {
  return root::ScopedFile(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

std::optional<Mark> MarkOf(const std::wstring& path) {
  const root::ScopedFile file = OpenToRead(path);
  return file ? MarkOf(file.get()) : std::nullopt;
}

void PrintFrom(HANDLE file, std::uint64_t offset) {
  LARGE_INTEGER position;
  position.QuadPart = static_cast<LONGLONG>(offset);
  SetFilePointerEx(file, position, nullptr, FILE_BEGIN);
  std::string text;
  char buffer[16384];
  for (DWORD read = 0; ReadFile(file, buffer, sizeof(buffer), &read, nullptr) && read > 0;) text.append(buffer, read);
  PrintUtf8(text);
}

// What was written since the mark. The file may have been renamed in between, and another one begun.
void PrintNewLines(const std::optional<Mark>& before) {
  if (const root::ScopedFile file = OpenToRead(LogFile())) {
    const std::optional<Mark> now = MarkOf(file.get());
    if (before && now && now->identity == before->identity && now->size >= before->size) {
      PrintFrom(file.get(), before->size);
      return;
    }
    if (before) {
      if (const root::ScopedFile old_file = OpenToRead(OldLogFile())) {
        const std::optional<Mark> old = MarkOf(old_file.get());
        PrintFrom(old_file.get(), old && old->identity == before->identity ? before->size : 0);
      }
    }
    PrintFrom(file.get(), 0);
  }
}

// What each area shows now; empty for one that shows nothing.
std::vector<std::wstring> ShowAreas() {
  std::vector<std::wstring> shown;
  for (const Area* const area : Areas()) shown.push_back(area->show ? Caught(area->show) : std::wstring());
  return shown;
}

// Starts the host, waits and gives its result.
DWORD Start(std::wstring command_line) {
  // A crash must end the host, not show a message that nobody answers.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION information = {};
  const std::wstring program = Beside(L"wsc_proxy.exe");
  if (!CreateProcessW(program.c_str(), command_line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                      &information)) {
    throw exceptions::error(GetLastError(), L"cannot start %s", program.c_str());
  }
  const root::ScopedKernelHandle process(information.hProcess);
  const root::ScopedKernelHandle thread(information.hThread);
  if (WaitForSingleObject(process.get(), kLongestRun) != WAIT_OBJECT_0) {
    TerminateProcess(process.get(), kKilled);
    WaitForSingleObject(process.get(), 10'000);
    PrintLine(L"wsc_proxy.exe did not end within 20 minutes and was killed");
  }
  DWORD result = kKilled;
  GetExitCodeProcess(process.get(), &result);
  return result;
}

}  // namespace

std::wstring Tail(const wchar_t* command_line, int words) {
  const wchar_t* at = command_line;
  for (; words > 0; --words) {
    while (IsBlank(*at)) ++at;
    for (bool quoted = false; *at && (quoted || !IsBlank(*at)); ++at) {
      if (*at == L'"') quoted = !quoted;
    }
  }
  while (IsBlank(*at)) ++at;
  return at;
}

int RunHost(const std::wstring& tail) {
  const std::wstring command_line = L"\"" + Beside(L"wsc_proxy.exe") + L"\" " + tail;
  PrintLine(command_line);
  const std::optional<Mark> before = MarkOf(LogFile());
  const std::vector<std::wstring> stage = ShowAreas();
  const DWORD result = Start(command_line);
  PrintNewLines(before);
  const std::vector<std::wstring> changed = ShowAreas();
  for (std::size_t i = 0; i < changed.size(); ++i) {
    if (!Areas()[i]->show_after_run && changed[i] == stage[i]) continue;
    if (i > 0) PrintLine();
    Print(changed[i]);
  }
  wchar_t last[32];
  _snwprintf(last, std::size(last), L"result 0x%08x", static_cast<unsigned>(result));
  PrintLine(last);
  return result == 0 ? 0 : 1;
}

}  // namespace crv::standins::centre
