// The suite's installation: where it is registered, its files and its libraries.
#include <windows.h>
#include <shlobj.h>

#include "base/exceptions.h"
#include "shared/area.h"
#include "shared/console.h"
#include "shared/places.h"
#include "shared/words.h"
#include "installation/control.h"

namespace crv::standins {
namespace {

constexpr wchar_t kNewDirectory[] = L"New_1";
constexpr const wchar_t* kLibraries[] = {L"cavm4h.dll", L"crvData.dll", L"cvDump32.exe"};
constexpr wchar_t kAway[] = L".away";  // behind the name of a library that was taken away

constexpr struct {
  const wchar_t* word;
  const wchar_t* key;  // null: none
} kProducts[] = {{L"current", kCurrentProduct},
                 {L"older", kOlderProduct},
                 {L"5.0", kOlderProduct5},
                 {L"4.0", kOlderProduct4},
                 {L"none", nullptr}};

std::wstring FolderOf(const std::wstring& path) { return path.substr(0, path.rfind(L'\\')); }

std::wstring ProgramFolder() { return FolderOf(Beside(L"centre.exe")); }
std::wstring DataFolder() { return FolderOf(LogFolder()); }
std::wstring SetupFolder() { return ProgramFolder() + L"\\setup"; }

bool IsThere(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

void MakeInstallation() {
  CreateInstallationFiles(ProgramFolder(), DataFolder(), SetupFolder(), Beside(L"corvid_installer.exe"), kNewDirectory);
  RegisterInstallation(kCurrentProduct, ProgramFolder(), DataFolder(), SetupFolder());
}

void Install() {
  MakeInstallation();
  PrintLine(L"the suite is installed in " + ProgramFolder());
}

// One library, which may be there already.
void PutBack(const std::wstring& library) {
  const std::wstring path = Beside(library.c_str());
  if (IsThere(path)) return;
  if (!MoveFileW((path + kAway).c_str(), path.c_str()))
    throw exceptions::error(GetLastError(), L"cannot put %s back", path.c_str());
}

void TakeAway(const std::wstring& library) {
  const std::wstring path = Beside(library.c_str());
  if (!IsThere(path)) return;
  if (!MoveFileExW(path.c_str(), (path + kAway).c_str(), MOVEFILE_REPLACE_EXISTING)) {
    throw exceptions::error(GetLastError(), L"cannot take %s away", path.c_str());
  }
}

void Clear() {
  DeleteFileW(RebootMarker().c_str());
  for (const wchar_t* const library : kLibraries) PutBack(library);
  MakeInstallation();
}

Table Rows() {
  Table rows = {{L"Installed as", L"New installer in", L"Restart due"}};
  const wchar_t* registered = L"(not registered)";
  for (const auto& product : kProducts) {
    if (product.key && IsRegistered(product.key)) registered = product.word;
  }
  rows.push_back({registered, ReadSetupSettings(SetupFolder()).value_or(kNothing), IsThere(RebootMarker()) ? L"yes" : L"no"});
  return rows;
}

void RegisterAs(const Words& words) {
  for (const auto& product : kProducts) {
    if (words[0] != product.word) continue;
    UnregisterInstallation();
    if (product.key) RegisterInstallation(product.key, ProgramFolder(), DataFolder(), SetupFolder());
    return;
  }
  throw UsageError{L"the suite is registered as current, older, 5.0, 4.0 or none, not as '" + words[0] + L"'"};
}

void WorkLibrary(const Words& words) {
  bool known = false;
  for (const wchar_t* const library : kLibraries) known = known || words[0] == library;
  if (!known || (words[1] != L"away" && words[1] != L"back")) {
    throw UsageError{L"cavm4h.dll, crvData.dll or cvDump32.exe goes away or comes back, not '" + words[0] + L" " + words[1] +
                     L"'"};
  }
  words[1] == L"away" ? TakeAway(words[0]) : PutBack(words[0]);
}

void RemoveSettings(const Words&) { DeleteFileW((SetupFolder() + L"\\setup.ini").c_str()); }

}  // namespace

const Area& InstallationArea() {
  static const Area area = {
      .commands = {{L"installation", L"current | older | 5.0 | 4.0 | none",
                    L"the product key under which the suite is registered", 1, 1, &RegisterAs},
                   {L"settings-away", L"", L"deletes the installer's setup.ini", 0, 0, &RemoveSettings},
                   {L"library", L"cavm4h.dll | crvData.dll | cvDump32.exe away | back",
                    L"takes a file of the suite away, or puts it back", 2, 2, &WorkLibrary}},
      .install = &Install,
      .uninstall = &UnregisterInstallation,
      .table = &Rows,
      .clear = &Clear,
  };
  return area;
}

}  // namespace crv::standins
