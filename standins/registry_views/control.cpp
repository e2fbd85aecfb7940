#include "registry_views/control.h"

#include <windows.h>

#include <algorithm>
#include <sstream>

#include "base/exceptions.h"
#include "base/format_message.h"
#include "root/scoped_handle.h"
#include "shared/machine.h"
#include "shared/registry.h"

namespace crv::standins {
namespace {

constexpr wchar_t kKey[] = L"SOFTWARE\\Corvid Stand-ins\\Registry Views";
constexpr wchar_t kWatched[] = L"Watched";
constexpr wchar_t kPlanted[] = L"Planted";

// The views share the policies.
constexpr struct {
  const wchar_t* view;
  const wchar_t* key;
} kShown[] = {{L"32", L"CORVID Software"}, {L"64", L"CORVID Software"}, {L"64", L"Policies\\Microsoft\\Windows Defender"}};

constexpr DWORD kLongest = 20'000;  // ms, for one run of reg.exe
constexpr DWORD kLook = 5;          // ms between two looks at what it prints

// The 64-bit program's name of a key below SOFTWARE.
std::wstring PathOf(const std::wstring& view, const std::wstring& key) {
  return L"HKEY_LOCAL_MACHINE\\SOFTWARE\\" + std::wstring(view == L"32" ? L"WOW6432Node\\" : L"") + key;
}

std::wstring Quoted(const std::wstring& text) { return L" \"" + text + L"\""; }

struct Ended {
  DWORD code;
  std::wstring output;
};

// Runs the system's 64-bit reg.exe, which a 32-bit program finds in a folder that only it sees.
Ended RunReg(const std::wstring& arguments) {
  if (!Is64BitWindows()) throw exceptions::error(ERROR_NOT_SUPPORTED, "this Windows has one view of its registry");
  wchar_t windows[MAX_PATH] = {};
  GetWindowsDirectoryW(windows, MAX_PATH);
  const std::wstring program = std::wstring(windows) + L"\\sysnative\\reg.exe";
  SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
  root::ScopedKernelHandle read, write;
  if (!CreatePipe(read.put(), write.put(), &inherited, 0)) throw exceptions::error(GetLastError(), "cannot make a pipe");
  SetHandleInformation(read.get(), HANDLE_FLAG_INHERIT, 0);
  STARTUPINFOW startup = {
      .cb = sizeof(startup), .dwFlags = STARTF_USESTDHANDLES, .hStdOutput = write.get(), .hStdError = write.get()};
  PROCESS_INFORMATION started = {};
  std::wstring command_line = L"reg " + arguments;
  if (!CreateProcessW(program.c_str(), command_line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                      &started)) {
    throw exceptions::error(GetLastError(), L"cannot start %s", program.c_str());
  }
  const root::ScopedKernelHandle process(started.hProcess);
  CloseHandle(started.hThread);
  write.reset();
  std::string output;
  char part[4096];
  for (DWORD begin = GetTickCount(), size = 0; PeekNamedPipe(read.get(), nullptr, 0, nullptr, &size, nullptr);) {
    if (size != 0 && ReadFile(read.get(), part, sizeof(part), &size, nullptr)) output.append(part, size);
    if (size == 0) Sleep(kLook);
    if (GetTickCount() - begin < kLongest) continue;
    TerminateProcess(process.get(), ERROR_TIMEOUT);
    break;
  }
  DWORD code = 0;
  if (WaitForSingleObject(process.get(), kLongest) != WAIT_OBJECT_0 || !GetExitCodeProcess(process.get(), &code) ||
      code == ERROR_TIMEOUT) {
    throw exceptions::error(ERROR_TIMEOUT, L"%s does not end", program.c_str());
  }
  return {code, FromUtf8(output)};
}

// What reg.exe prints: the whole name of a key, its values indented, each with name, type and data.
void AppendValues(const std::wstring& view, const std::wstring& output, std::vector<ViewValue>& values) {
  const std::size_t below = PathOf(view, L"").size();
  std::wstring key;
  std::wistringstream lines(output);
  for (std::wstring line; std::getline(lines, line);) {
    if (!line.empty() && line.back() == L'\r') line.pop_back();
    const std::size_t type = line.find(L"    REG_");
    const std::size_t data = type == std::wstring::npos ? type : line.find(L"    ", type + 4);
    if (data != std::wstring::npos) {
      values.push_back({view, key + L"\\" + line.substr(4, type - 4), line.substr(data + 4)});
    } else if (!line.empty() && line[0] != L' ') {
      key = line.substr(std::min(below, line.size()));
    }
  }
}

bool IsThere(const std::wstring& view, const std::wstring& key) {
  root::ScopedRegistryKey opened;
  return RegOpenKeyExW(HKEY_LOCAL_MACHINE, (L"SOFTWARE\\" + key).c_str(), 0,
                       KEY_QUERY_VALUE | (view == L"32" ? KEY_WOW64_32KEY : KEY_WOW64_64KEY), opened.put()) == ERROR_SUCCESS;
}

// The topmost key of the path that is not there; empty when all are.
std::wstring FirstMissing(const std::wstring& view, const std::wstring& key) {
  for (std::size_t end = key.find(L'\\');; end = key.find(L'\\', end + 1)) {
    if (!IsThere(view, key.substr(0, end))) return key.substr(0, end);
    if (end == std::wstring::npos) return L"";
  }
}

}  // namespace

void WatchViews() {
  RunReg(L"query" + Quoted(PathOf(L"64", L"Microsoft")));
  registry::WriteNumber(kKey, kWatched, 1);
}

bool ViewsAreWatched() { return registry::ReadNumber(kKey, kWatched).has_value(); }

std::vector<ViewValue> ReadViews() {
  std::vector<ViewValue> values;
  for (const auto& [view, key] : kShown) {
    AppendValues(view, RunReg(L"query" + Quoted(PathOf(view, key)) + L" /s").output, values);
  }
  return values;
}

std::vector<std::wstring> FoldersOfViews() {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW found = {};
  const HANDLE search = FindFirstFileW((std::wstring(kViewsFolder) + L"\\*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return names;
  do {
    if (found.cFileName[0] != L'.') names.push_back(found.cFileName);
  } while (FindNextFileW(search, &found));
  FindClose(search);
  std::sort(names.begin(), names.end());
  return names;
}

void PlantInView(const std::wstring& view, const std::wstring& key, const std::wstring& value, bool number,
                 const std::wstring& data) {
  std::vector<std::wstring> planted = registry::ReadList(kKey, kPlanted);
  const std::wstring made = FirstMissing(view, key);
  planted.push_back(made.empty() ? Quoted(PathOf(view, key)) + L" /v" + Quoted(value) : Quoted(PathOf(view, made)));
  registry::WriteList(kKey, kPlanted, planted);
  const std::wstring add = L"add" + Quoted(PathOf(view, key)) + L" /v" + Quoted(value) +
                           (number ? L" /t REG_DWORD /d" : L" /t REG_SZ /d") + Quoted(data) + L" /f";
  if (const Ended ended = RunReg(add); ended.code != 0) {
    throw exceptions::error(ended.code, L"reg %s: %s", add.c_str(), ended.output.c_str());
  }
  CreateDirectoryW(kViewsFolder, nullptr);
}

void ClearViews() {
  for (const std::wstring& planted : registry::ReadList(kKey, kPlanted)) RunReg(L"delete" + planted + L" /f");
  for (const std::wstring& name : FoldersOfViews()) RemoveDirectoryW((std::wstring(kViewsFolder) + L"\\" + name).c_str());
  RemoveDirectoryW(kViewsFolder);
  registry::DeleteKey(kKey);
}

}  // namespace crv::standins
