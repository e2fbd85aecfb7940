#include "acceptance/journal.h"

#include <windows.h>
#include <shlobj.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "acceptance/processes.h"
#include "acceptance/registry_tree.h"
#include "acceptance/saved_service.h"
#include "base/exceptions.h"
#include "base/format_message.h"
#include "driver/control.h"
#include "registry_views/control.h"
#include "root/scoped_handle.h"
#include "service/control.h"
#include "shared/report_text.h"

// The file is text in UTF-8, a fact in each line. What is not plain in a name is written as %XX of its UTF-8 bytes.
//
//   corvid acceptance journal 1
//   tree HKLM 32 PATH                      a key; what is below it follows, none for one that is not there
//   key PATH                                   a key below it, or itself with the path "."
//   value NAME TYPE HEX                        of the key before it
//   only HKLM 32 PATH NAME [TYPE HEX]      one value of a key, the rest of which nobody touches
//   service NAME [TYPE START ERROR IMAGE ACCOUNT RUNS]
//   folder PATH                            one that is not there
//   end of the journal
namespace crv::acceptance {
namespace {

constexpr char kHead[] = "corvid acceptance journal 1";
constexpr char kEnd[] = "end of the journal\n";

constexpr const wchar_t* kMachineKeys[] = {
    L"SOFTWARE\\CORVID Software",
    L"SOFTWARE\\Vantor Software",
    L"SOFTWARE\\Corvid Stand-ins",
    L"SOFTWARE\\Classes\\CLSID\\{F2102C37-90C3-450C-B3F6-92BE1693BDF2}",  // Security Center's product class
    L"SOFTWARE\\Classes\\CLSID\\{4590F811-1D3A-11D0-891F-00AA004B2E24}",  // WMI's locator
    L"SOFTWARE\\Policies\\Microsoft\\Windows Defender",
};
constexpr const wchar_t* kUserKeys[] = {L"Software\\Wine", L"Software\\Corvid Tests"};

// By which another Windows is pretended where that is possible.
constexpr struct {
  const wchar_t* key;
  const wchar_t* name;
} kValues[] = {
    {L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", L"CurrentVersion"},
    {L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", L"CurrentBuild"},
    {L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", L"CurrentBuildNumber"},
    {L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", L"CSDVersion"},
    {L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", L"ProductName"},
    {L"SYSTEM\\CurrentControlSet\\Control\\Windows", L"CSDVersion"},
};
constexpr const wchar_t* kServices[] = {standins::kCenterService, standins::kDefenderService, standins::kDriverService};

constexpr DWORD kFilesAreFreed = 10'000;  // ms, after which the processes that were ended hold no file any more
constexpr DWORD kLook = 100;              // ms

std::wstring KnownFolder(int folder) {
  wchar_t path[MAX_PATH] = {};
  const HRESULT result = SHGetFolderPathW(nullptr, folder, nullptr, SHGFP_TYPE_CURRENT, path);
  if (FAILED(result)) throw exceptions::error(result, "cannot find a folder of the system");
  return path;
}

bool IsThere(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

// The folders of the suite; none of them may be there.
std::vector<std::wstring> Folders() {
  std::vector<std::wstring> folders;
  const auto add = [&](const std::wstring& parent) {
    for (const wchar_t* const maker : {L"\\CORVID Software", L"\\Vantor Software"}) {
      if (std::find(folders.begin(), folders.end(), parent + maker) == folders.end()) folders.push_back(parent + maker);
    }
  };
  add(KnownFolder(CSIDL_PROGRAM_FILES));
  add(KnownFolder(CSIDL_COMMON_APPDATA));
  wchar_t others[MAX_PATH] = {};  // on a 64-bit system those of the 64-bit programs
  if (const DWORD length = GetEnvironmentVariableW(L"ProgramW6432", others, MAX_PATH); length > 0 && length < MAX_PATH)
    add(others);
  folders.push_back(standins::kViewsFolder);
  return folders;
}

std::vector<RegistryPlace> Trees() {
  std::vector<RegistryPlace> trees;
  for (const int view : {32, 64}) {
    for (const wchar_t* const key : kMachineKeys) trees.push_back({HKEY_LOCAL_MACHINE, view, key});
  }
  for (const wchar_t* const key : kUserKeys) trees.push_back({HKEY_CURRENT_USER, 32, key});
  return trees;
}

// --- the text --------------------------------------------------------------------------------------------------------------------

std::string Escaped(const std::wstring& text) {
  std::string escaped;
  for (const char c : ToUtf8(text)) {
    if (c > ' ' && c < 0x7F && c != '%') {
      escaped += c;
    } else {
      char code[8];
      std::snprintf(code, std::size(code), "%%%02X", static_cast<unsigned char>(c));
      escaped += code;
    }
  }
  return escaped.empty() ? "%" : escaped;  // by itself: nothing
}

std::wstring Unescaped(const std::string& escaped) {
  std::string text;
  for (std::size_t i = 0; i < escaped.size() && escaped != "%"; ++i) {
    text += escaped[i] == '%' ? static_cast<char>(std::stoul(escaped.substr(i + 1, 2), nullptr, 16)) : escaped[i];
    if (escaped[i] == '%') i += 2;
  }
  return FromUtf8(text);
}

std::string Written(const RegistryValue& value) {
  std::string text = std::to_string(value.type) + " =";
  for (const BYTE byte : value.data) {
    char code[4];
    std::snprintf(code, std::size(code), "%02x", byte);
    text += code;
  }
  return text;
}

RegistryValue ReadWritten(std::istream& words) {
  RegistryValue value;
  std::string hex;
  words >> value.type >> hex;
  for (std::size_t i = 1; i + 1 < hex.size(); i += 2) {
    value.data.push_back(static_cast<BYTE>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return value;
}

std::string Written(const RegistryPlace& place) {
  return std::string(place.root == HKEY_CURRENT_USER ? "HKCU " : "HKLM ") + std::to_string(place.view) + " " +
         Escaped(place.path);
}

RegistryPlace ReadPlace(std::istream& words) {
  std::string root, path;
  RegistryPlace place;
  words >> root >> place.view >> path;
  if (root == "HKCU") place.root = HKEY_CURRENT_USER;
  place.path = Unescaped(path);
  return place;
}

void WriteTree(std::ostream& text, const std::wstring& path, const RegistryTree& tree) {
  text << "key " << Escaped(path.empty() ? L"." : path) << "\n";
  for (const auto& [name, value] : tree.values) text << "value " << Escaped(name) << " " << Written(value) << "\n";
  for (const auto& [name, below] : tree.keys) WriteTree(text, path.empty() ? name : path + L"\\" + name, below);
}

// Everything that is saved, as text. Two of the same machine are the same.
std::string Describe() {
  std::ostringstream text;
  text << kHead << "\n";
  for (const RegistryPlace& place : Trees()) {
    const std::optional<RegistryTree> tree = ReadTree(place);
    text << "tree " << Written(tree ? place : FirstMissing(place)) << "\n";
    if (tree) WriteTree(text, L"", *tree);
  }
  for (const int view : {32, 64}) {
    for (const auto& [key, name] : kValues) {
      const RegistryPlace place = {HKEY_LOCAL_MACHINE, view, key};
      const std::optional<RegistryValue> value = ReadValue(place, name);
      text << "only " << Written(place) << " " << Escaped(name) << (value ? " " + Written(*value) : "") << "\n";
    }
  }
  for (const wchar_t* const name : kServices) {
    text << "service " << Escaped(name);
    if (const std::optional<SavedService> service = ReadService(name)) {
      text << " " << service->type << " " << service->start << " " << service->error_control << " " << Escaped(service->image)
           << " " << Escaped(service->account) << " " << service->runs;
    }
    text << "\n";
  }
  for (const std::wstring& folder : Folders()) text << "folder " << Escaped(folder) << "\n";
  text << kEnd;
  return text.str();
}

// --- putting back ----------------------------------------------------------------------------------------------------------------

RegistryTree& Key(RegistryTree& tree, const std::wstring& path) {
  if (path == L".") return tree;
  const std::size_t at = path.find(L'\\');
  RegistryTree& below = tree.keys[path.substr(0, at)];
  return at == std::wstring::npos ? below : Key(below, path.substr(at + 1));
}

struct Saved {
  std::vector<std::pair<RegistryPlace, std::optional<RegistryTree>>> trees;
  std::vector<std::tuple<RegistryPlace, std::wstring, std::optional<RegistryValue>>> values;
  std::vector<std::pair<std::wstring, std::optional<SavedService>>> services;
  std::vector<std::wstring> folders;
};

// Throws std::logic_error at what is no number.
Saved ParseLines(const std::string& text) {
  Saved saved;
  std::istringstream lines(text);
  RegistryTree* key = nullptr;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string word, name;
    words >> word;
    if (word == "tree") {
      saved.trees.emplace_back(ReadPlace(words), std::nullopt);
    } else if (word == "key" && !saved.trees.empty()) {
      words >> name;
      std::optional<RegistryTree>& tree = saved.trees.back().second;
      if (!tree) tree = RegistryTree();
      key = &Key(*tree, Unescaped(name));
    } else if (word == "value" && key) {
      words >> name;
      key->values[Unescaped(name)] = ReadWritten(words);
    } else if (word == "only") {
      const RegistryPlace place = ReadPlace(words);
      words >> name >> std::ws;
      saved.values.emplace_back(place, Unescaped(name), words.eof() ? std::nullopt : std::optional(ReadWritten(words)));
    } else if (word == "service") {
      words >> name >> std::ws;
      std::optional<SavedService> service;
      if (!words.eof()) {
        std::string image, account;
        service.emplace();
        words >> service->type >> service->start >> service->error_control >> image >> account >> service->runs;
        service->image = Unescaped(image);
        service->account = Unescaped(account);
      }
      saved.services.emplace_back(Unescaped(name), service);
    } else if (word == "folder") {
      words >> name;
      saved.folders.push_back(Unescaped(name));
    }
  }
  return saved;
}

Saved Parse(const std::string& text) {
  try {
    if (text.starts_with(kHead) && text.ends_with(kEnd)) return ParseLines(text);
  } catch (const std::logic_error&) {
  }
  throw exceptions::error(ERROR_INVALID_DATA, L"%s is damaged: nothing is put back", JournalFile().c_str());
}

std::string ReadText(const std::wstring& path) {
  const root::ScopedFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  std::string text(file ? GetFileSize(file.get(), nullptr) : 0, '\0');
  DWORD read = 0;
  if (!file || !ReadFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr)) {
    throw exceptions::error(GetLastError(), L"cannot read %s", path.c_str());
  }
  return text;
}

// A file, or a folder with all that is in it; what a link in it leads to stays.
void Delete(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return;
  if (attributes & FILE_ATTRIBUTE_READONLY) SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
  if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
    DeleteFileW(path.c_str());
    return;
  }
  WIN32_FIND_DATAW found;
  const bool link = attributes & FILE_ATTRIBUTE_REPARSE_POINT;
  const HANDLE search = link ? INVALID_HANDLE_VALUE : FindFirstFileW((path + L"\\*").c_str(), &found);
  if (search != INVALID_HANDLE_VALUE) {
    do {
      const std::wstring name = found.cFileName;
      if (name != L"." && name != L"..") Delete(path + L"\\" + name);
    } while (FindNextFileW(search, &found));
    FindClose(search);
  }
  RemoveDirectoryW(path.c_str());
}

// Without the limit of 260 characters: a test may have made a long path.
void DeleteForSure(const std::wstring& path) {
  for (DWORD waited = 0; IsThere(path); waited += kLook) {
    if (waited >= kFilesAreFreed) {
      throw exceptions::error(ERROR_SHARING_VIOLATION, L"cannot delete %s: a program holds it, or a file in it", path.c_str());
    }
    if (waited > 0) {
      EndProcessesBelow({path}, L"");  // what was just being started
      Sleep(kLook);
    }
    Delete(L"\\\\?\\" + path);
  }
}

// The first line of the one that the other lacks, for a person.
std::string FirstLineOf(const std::string& text, const std::string& other) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (("\n" + other).find("\n" + line + "\n") == std::string::npos) return line;
  }
  return {};
}

std::wstring JournalFolder() { return KnownFolder(CSIDL_COMMON_APPDATA) + L"\\Corvid Acceptance"; }

}  // namespace

std::vector<std::wstring> InTheWay() {
  std::vector<std::wstring> found;
  for (const std::wstring& folder : Folders()) {
    if (IsThere(folder)) found.push_back(folder);
  }
  for (const int view : {32, 64}) {
    for (const wchar_t* const key : {kMachineKeys[0], kMachineKeys[1], kMachineKeys[2]}) {
      const RegistryPlace place = {HKEY_LOCAL_MACHINE, view, key};
      if (ReadTree(place)) found.push_back(place.Text());
    }
  }
  if (ReadService(standins::kDriverService)) found.push_back(std::wstring(L"the service ") + standins::kDriverService);
  return found;
}

std::wstring JournalFile() { return JournalFolder() + L"\\journal.txt"; }

bool IsJournalThere() { return IsThere(JournalFile()); }

void WriteJournal() {
  const std::wstring folder = JournalFolder();
  if (!CreateDirectoryW(folder.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
    throw exceptions::error(GetLastError(), L"cannot create %s", folder.c_str());
  }
  try {
    const std::wstring unfinished = JournalFile() + L".new";
    standins::WriteTextFile(unfinished, Describe());
    if (!MoveFileExW(unfinished.c_str(), JournalFile().c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
      throw exceptions::error(GetLastError(), L"cannot write %s", JournalFile().c_str());
    }
  } catch (...) {
    Delete(folder);
    throw;
  }
}

void RestoreFromJournal() {
  const std::string text = ReadText(JournalFile());
  const Saved saved = Parse(text);
  // What fails keeps nothing else from being put back.
  std::optional<exceptions::error> failed;
  const auto attempt = [&](auto step) {
    try {
      step();
    } catch (const exceptions::error& failure) {
      if (!failed) failed = failure;
    }
  };
  EndProcessesBelow(saved.folders, standins::kServiceProgram);
  for (const auto& [name, service] : saved.services) attempt([&] { RestoreService(name, service); });
  EndProcessesBelow(saved.folders, L"");
  for (const std::wstring& folder : saved.folders) attempt([&] { DeleteForSure(folder); });
  for (const auto& [place, tree] : saved.trees) attempt([&] { RestoreTree(place, tree); });
  for (const auto& [place, name, value] : saved.values) attempt([&] { RestoreValue(place, name, value); });
  if (failed) throw *failed;
  if (const std::string now = Describe(); text != now) {
    throw exceptions::error(ERROR_INVALID_DATA, L"not all is as it was: '%s' is '%s' now",
                            FromUtf8(FirstLineOf(text, now)).c_str(), FromUtf8(FirstLineOf(now, text)).c_str());
  }
  DeleteForSure(JournalFile());
  Delete(JournalFolder());
}

std::vector<std::wstring> Touched() {
  std::vector<std::wstring> touched;
  for (const std::wstring& folder : Folders()) touched.push_back(folder);
  for (const RegistryPlace& place : Trees()) {
    if (place.view == 32) touched.push_back((place.root == HKEY_CURRENT_USER ? L"HKCU\\" : L"HKLM\\") + place.path);
  }
  for (const auto& [key, name] : kValues) touched.push_back(std::wstring(L"HKLM\\") + key + L", the value " + name + L" alone");
  for (const wchar_t* const name : kServices) touched.push_back(std::wstring(L"the service ") + name);
  return touched;
}

}  // namespace crv::acceptance
