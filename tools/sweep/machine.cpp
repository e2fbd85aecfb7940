#include "sweep/machine.h"

#include <tlhelp32.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

#include "base/exceptions.h"
#include "root/scoped_handle.h"
#include "service/control.h"
#include "shared/area.h"
#include "shared/places.h"
#include "shared/registry.h"

namespace crv::sweep {
namespace {

constexpr const wchar_t* kKeys[] = {L"SOFTWARE\\CORVID Software",
                                    L"SOFTWARE\\Vantor Software",
                                    L"SOFTWARE\\Corvid Stand-ins",
                                    L"SOFTWARE\\Policies\\Microsoft",
                                    L"SYSTEM\\CurrentControlSet\\Services\\wscsvc",
                                    L"SYSTEM\\CurrentControlSet\\Services\\WinDefend"};
constexpr wchar_t kServices[] = L"SYSTEM\\CurrentControlSet\\Services";
constexpr wchar_t kVersionKey[] = L"Software\\Wine\\AppDefaults\\sweep_host.exe";
// centre.exe carries out what a scenario has said to happen later; it must not change the stage of the next run.
constexpr const wchar_t* kPrograms[] = {L"sweep_host.exe", L"wsc_proxy.exe", L"instup.exe", L"cvDump32.exe", L"centre.exe"};
constexpr DWORD kContentLimit = 4096;  // bytes of a file that are kept to put it back

constexpr wchar_t kRegistry[] = L"registry ";
constexpr wchar_t kFile[] = L"file ";
constexpr wchar_t kService[] = L"service ";

std::wstring FolderOf(const std::wstring& path) { return path.substr(0, path.rfind(L'\\')); }
std::wstring ProgramFolder() { return FolderOf(standins::Beside(L"x")); }

// What the stand-ins note of their calls is different each time.
bool IsNote(const std::wstring& key, const std::wstring& value) {
  return key.ends_with(L"\\Journal") || value == L"Runs" || key.ends_with(L"Stand-ins\\Changes") || value == L"Queries" ||
         value == L"LastProcess" || value == L"FatalDumps";
}

void AddKey(Picture& picture, const std::wstring& path) {
  root::ScopedRegistryKey key;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) return;
  if (!path.ends_with(L"Stand-ins\\Dumper") && !path.ends_with(L"Stand-ins\\Installer")) picture[kRegistry + path + L"|"] = "";
  wchar_t name[256];
  static BYTE data[64 * 1024];
  for (DWORD i = 0;; ++i) {
    DWORD length = std::size(name), type = 0, size = sizeof(data);
    if (RegEnumValueW(key.get(), i, name, &length, nullptr, &type, data, &size) != ERROR_SUCCESS) break;
    if (IsNote(path, name)) continue;
    std::string& content = picture[kRegistry + path + L"|" + name + L"|"];
    content.assign(reinterpret_cast<const char*>(&type), sizeof(type));
    content.append(reinterpret_cast<const char*>(data), size);
  }
  for (DWORD i = 0;; ++i) {
    DWORD length = std::size(name);
    if (RegEnumKeyExW(key.get(), i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    if (!IsNote(path + L"\\" + name, L"")) AddKey(picture, path + L"\\" + name);
  }
}

bool IsLogOrDump(const std::wstring& folder, const std::wstring& name) {
  if (folder != standins::LogFolder()) return false;
  return name.starts_with(L"wsc.log") || name.ends_with(L".mdmp") || name == L"sweep.err";
}

void AddFolder(Picture& picture, const std::wstring& folder) {
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    const std::wstring name = found.cFileName;
    if (name == L"." || name == L".." || IsLogOrDump(folder, name)) continue;
    const std::wstring path = folder + L"\\" + name;
    std::string& content = picture[kFile + path];
    if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      content = "folder";
      AddFolder(picture, path);
    } else if (found.nFileSizeLow <= kContentLimit) {
      content = "text " + ReadText(path);
    } else {
      content = "size " + std::to_string(found.nFileSizeLow);
    }
  } while (FindNextFileW(search, &found));
  FindClose(search);
}

std::string DescribeService(const wchar_t* name) {
  const std::optional<standins::ServiceStatus> status = standins::FindService(name);
  return status ? std::to_string(status->state) + " " + std::to_string(status->start_type) : "missing";
}

void PutBackService(const std::wstring& name, const std::string& wanted) {
  const DWORD state = static_cast<DWORD>(std::stoul(wanted));
  const DWORD type = static_cast<DWORD>(std::stoul(wanted.substr(wanted.find(' '))));
  const std::optional<standins::ServiceStatus> now = standins::FindService(name);
  if (!now) throw exceptions::error(ERROR_SERVICE_DOES_NOT_EXIST, L"the service %s is gone", name.c_str());
  if (state == SERVICE_RUNNING && now->state != SERVICE_RUNNING) {
    if (now->start_type == SERVICE_DISABLED) standins::SetStartType(name, SERVICE_DEMAND_START);
    standins::RequestStart(name);
    standins::WaitForState(name, SERVICE_RUNNING);
  } else if (state == SERVICE_STOPPED && now->state != SERVICE_STOPPED) {
    standins::RequestStop(name);
    standins::WaitForState(name, SERVICE_STOPPED);
  }
  if (standins::FindService(name)->start_type != type) standins::SetStartType(name, type);
}

void PutBackValue(const std::wstring& place, const std::string* content) {
  const std::size_t bar = place.find(L'|');
  const std::wstring path = place.substr(0, bar);
  if (bar + 1 == place.size()) {  // the key itself
    if (!content) return standins::registry::DeleteKey(path);
    root::ScopedRegistryKey key;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, key.put(), nullptr);
    return;
  }
  const std::wstring value = place.substr(bar + 1, place.size() - bar - 2);
  if (!content) return standins::registry::DeleteValue(path, value.c_str());
  root::ScopedRegistryKey key;
  DWORD type = 0;
  std::memcpy(&type, content->data(), sizeof(type));
  if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, key.put(), nullptr) != ERROR_SUCCESS)
    return;
  RegSetValueExW(key.get(), value.c_str(), 0, type, reinterpret_cast<const BYTE*>(content->data()) + sizeof(type),
                 static_cast<DWORD>(content->size() - sizeof(type)));
}

void PutBackFile(const std::wstring& path, const std::string* content) {
  if (!content) {
    if (!DeleteFileW(path.c_str())) RemoveDirectoryW(path.c_str());
  } else if (*content == "folder") {
    CreateDirectoryW(path.c_str(), nullptr);
  } else if (content->starts_with("text ")) {
    std::ofstream(path.c_str(), std::ios::binary).write(content->data() + 5, static_cast<std::streamsize>(content->size() - 5));
  } else {
    throw exceptions::error(ERROR_FILE_NOT_FOUND, L"the file %s cannot be put back", path.c_str());
  }
}

void PutBackOne(const std::wstring& name, const std::string* content) {
  if (name.starts_with(kRegistry)) return PutBackValue(name.substr(std::wcslen(kRegistry)), content);
  if (name.starts_with(kFile)) return PutBackFile(name.substr(std::wcslen(kFile)), content);
  if (content) PutBackService(name.substr(std::wcslen(kService)), *content);
}

template <typename Use>
void ForEachDifference(const Picture& wanted, const Picture& found, Use use) {
  // What is too much goes first, and a key or folder after what lies in it.
  for (auto it = found.rbegin(); it != found.rend(); ++it) {
    if (!wanted.contains(it->first)) use(it->first, nullptr, &it->second);
  }
  for (const auto& [name, content] : wanted) {
    const auto other = found.find(name);
    if (other == found.end()) use(name, &content, nullptr);
    if (other != found.end() && other->second != content) use(name, &content, &other->second);
  }
}

}  // namespace

Picture TakePicture() {
  Picture picture;
  for (const wchar_t* const key : kKeys) AddKey(picture, key);
  for (const std::wstring& name : standins::registry::Subkeys(kServices))
    picture[kRegistry + std::wstring(kServices) + L"\\" + name + L"|"];
  AddFolder(picture, ProgramFolder());
  AddFolder(picture, FolderOf(standins::LogFolder()));
  AddFolder(picture, TempFolder());
  for (const wchar_t* const name : standins::kSystemServices) picture[kService + std::wstring(name)] = DescribeService(name);
  return picture;
}

void PutBack(const Picture& wanted, const Picture& found) {
  ForEachDifference(wanted, found,
                    [](const std::wstring& name, const std::string* content, const std::string*) { PutBackOne(name, content); });
}

std::vector<std::wstring> Differences(const Picture& wanted, const Picture& found) {
  std::vector<std::wstring> lines;
  ForEachDifference(wanted, found, [&](const std::wstring& name, const std::string* content, const std::string* now) {
    lines.push_back((!content ? L"added " : !now ? L"removed " : L"changed ") + name);
  });
  return lines;
}

void SetWindows(const std::wstring& version) {
  root::ScopedRegistryKey key;
  const LSTATUS result =
      RegCreateKeyExW(HKEY_CURRENT_USER, kVersionKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, key.put(), nullptr);
  if (result != ERROR_SUCCESS) throw exceptions::error(result, "cannot name the version of Windows");
  RegSetValueExW(key.get(), L"Version", 0, REG_SZ, reinterpret_cast<const BYTE*>(version.c_str()),
                 static_cast<DWORD>((version.size() + 1) * sizeof(wchar_t)));
}

void Tell(const std::wstring& command) {
  standins::Words words;
  for (std::size_t at = 0; at != std::wstring::npos;) {
    const std::size_t blank = command.find(L' ', at);
    words.push_back(command.substr(at, blank == std::wstring::npos ? blank : blank - at));
    at = blank == std::wstring::npos ? blank : blank + 1;
  }
  const std::wstring name = words.front();
  words.erase(words.begin());
  for (const standins::Area* const area : standins::Areas()) {
    for (const standins::Command& known : area->commands) {
      if (name == known.name) return known.run(words);
    }
    if (name != L"script" || !area->calls) continue;
    const std::vector<std::wstring> names = area->calls->Names();
    if (std::find(names.begin(), names.end(), words.front()) == names.end()) continue;
    return area->calls->Script(words.front(), {words.begin() + 1, words.end()});
  }
  throw exceptions::error(ERROR_INVALID_PARAMETER, L"the stand-ins know no '%s'", command.c_str());
}

void ClearStandIns() {
  for (const standins::Area* const area : standins::Areas()) {
    if (area->clear) area->clear();
  }
}

std::vector<std::wstring> LeftPrograms(bool kill) {
  std::vector<std::wstring> left;
  const root::ScopedFile snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W process = {};
  process.dwSize = sizeof(process);
  for (BOOL more = Process32FirstW(snapshot.get(), &process); more; more = Process32NextW(snapshot.get(), &process)) {
    for (const wchar_t* const name : kPrograms) {
      if (_wcsicmp(process.szExeFile, name) != 0) continue;
      left.push_back(name);
      if (!kill) continue;
      const root::ScopedKernelHandle handle(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, process.th32ProcessID));
      TerminateProcess(handle.get(), ERROR_TIMEOUT);
      WaitForSingleObject(handle.get(), 5'000);
    }
  }
  return left;
}

std::wstring TempFolder() {
  wchar_t path[MAX_PATH + 1] = {};
  GetTempPathW(MAX_PATH, path);
  return std::wstring(path, std::wcslen(path) - 1);
}

std::wstring LogPath() { return standins::LogFile(); }

void RemoveLog() {
  DeleteFileW(standins::LogFile().c_str());
  DeleteFileW(standins::OldLogFile().c_str());
}

std::string ReadText(const std::wstring& path) {
  std::ifstream file(path.c_str(), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::vector<Dump> Dumps() {
  std::vector<Dump> dumps;
  WIN32_FIND_DATAW found;
  const std::wstring folder = standins::LogFolder();
  const HANDLE search = FindFirstFileW((folder + L"\\*.mdmp").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return dumps;
  do {
    dumps.push_back({folder + L"\\" + found.cFileName, found.nFileSizeLow});
  } while (FindNextFileW(search, &found));
  FindClose(search);
  return dumps;
}

void RemoveDumps() {
  for (const Dump& dump : Dumps()) DeleteFileW(dump.path.c_str());
}

}  // namespace crv::sweep
