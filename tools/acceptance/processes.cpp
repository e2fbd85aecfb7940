#include "acceptance/processes.h"

#include <psapi.h>
#include <tlhelp32.h>

#include <cwchar>

#include "base/exceptions.h"
#include "root/system_library.h"

namespace crv::acceptance {
namespace {

constexpr DWORD kEndTakes = 5'000;  // ms at most

root::ScopedFile OpenInherited(const wchar_t* path, DWORD access, DWORD creation) {
  SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
  return root::ScopedFile(CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, creation, 0, nullptr));
}

struct Entry {
  DWORD id;
  DWORD parent;
};

std::vector<Entry> AllProcesses() {
  std::vector<Entry> all;
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof(entry);
  const root::ScopedFile snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  for (BOOL more = Process32FirstW(snapshot.get(), &entry); more; more = Process32NextW(snapshot.get(), &entry)) {
    all.push_back({entry.th32ProcessID, entry.th32ParentProcessID});
  }
  return all;
}

// A 32-bit program cannot ask a 64-bit process itself; the function that knows of both is newer than Windows XP.
std::wstring ImageOf(HANDLE process) {
  wchar_t path[MAX_PATH] = {};
  if (const DWORD length = GetModuleFileNameExW(process, nullptr, path, MAX_PATH)) return std::wstring(path, length);
  using Query = BOOL WINAPI(HANDLE, DWORD, wchar_t*, DWORD*);
  const auto query = root::FindSystemFunction<Query>(L"kernel32.dll", "QueryFullProcessImageNameW");
  DWORD length = MAX_PATH;
  return query && query(process, 0, path, &length) ? std::wstring(path, length) : std::wstring();
}

void Terminate(HANDLE process) {
  if (TerminateProcess(process, ERROR_TIMEOUT)) WaitForSingleObject(process, kEndTakes);
}

ULONGLONG CreationOf(HANDLE process) {
  FILETIME created = {}, ignored = {};
  GetProcessTimes(process, &created, &ignored, &ignored, &ignored);
  return ULONGLONG{created.dwHighDateTime} << 32 | created.dwLowDateTime;
}

// An identifier may be used anew: a child is younger than its parent.
void EndDescendants(DWORD id, ULONGLONG created) {
  for (const Entry& entry : AllProcesses()) {
    if (entry.parent != id || entry.id == id || entry.id == GetCurrentProcessId()) continue;
    const root::ScopedKernelHandle child(
        OpenProcess(PROCESS_TERMINATE | PROCESS_QUERY_INFORMATION | SYNCHRONIZE, FALSE, entry.id));
    const ULONGLONG age = child ? CreationOf(child.get()) : 0;
    if (age < created) continue;
    Terminate(child.get());
    EndDescendants(entry.id, age);
  }
}

}  // namespace

Process::Process(const std::wstring& image, const std::wstring& arguments, const std::wstring& output) {
  const root::ScopedFile nothing = OpenInherited(L"NUL", GENERIC_READ, OPEN_EXISTING);
  const root::ScopedFile file = OpenInherited(output.c_str(), GENERIC_WRITE, CREATE_ALWAYS);
  if (!file) throw exceptions::error(GetLastError(), L"cannot write %s", output.c_str());
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = nothing.get();
  startup.hStdOutput = startup.hStdError = file.get();
  // What this program's own output goes to must not wait for a process that outlives it.
  for (const DWORD own : {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) {
    SetHandleInformation(GetStdHandle(own), HANDLE_FLAG_INHERIT, 0);
  }
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX |
               SEM_NOOPENFILEERRORBOX);  // no message that somebody has to answer
  std::wstring command_line = L"\"" + image + L"\" " + arguments;
  const std::wstring folder = image.substr(0, image.rfind(L'\\'));
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(image.c_str(), command_line.data(), nullptr, nullptr, TRUE, CREATE_NEW_PROCESS_GROUP, nullptr,
                      folder.c_str(), &startup, &started)) {
    throw exceptions::error(GetLastError(), L"cannot start %s", image.c_str());
  }
  process_.reset(started.hProcess);
  id_ = started.dwProcessId;
  CloseHandle(started.hThread);
}

std::optional<DWORD> Process::Result() const {
  DWORD result = 0;
  if (WaitForSingleObject(process_.get(), 0) != WAIT_OBJECT_0 || !GetExitCodeProcess(process_.get(), &result))
    return std::nullopt;
  return result;
}

void Process::End() {
  const ULONGLONG created = CreationOf(process_.get());
  if (!Result()) Terminate(process_.get());
  EndDescendants(id_, created);
}

void EndProcessesBelow(const std::vector<std::wstring>& folders, const std::wstring& spared) {
  for (const Entry& entry : AllProcesses()) {
    if (entry.id == GetCurrentProcessId()) continue;
    const root::ScopedKernelHandle process(
        OpenProcess(PROCESS_TERMINATE | PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | SYNCHRONIZE, FALSE, entry.id));
    if (!process) continue;
    const std::wstring image = ImageOf(process.get());
    const std::wstring name = image.substr(image.rfind(L'\\') + 1);
    for (const std::wstring& folder : folders) {
      const bool below = _wcsnicmp(image.c_str(), (folder + L"\\").c_str(), folder.size() + 1) == 0;
      if (!below || _wcsicmp(name.c_str(), spared.c_str()) == 0) continue;
      Terminate(process.get());
      EndDescendants(entry.id, CreationOf(process.get()));
    }
  }
}

}  // namespace crv::acceptance
