#include "installation/control.h"

#include <windows.h>
#include <shlobj.h>

#include <iterator>

#include "base/exceptions.h"
#include "shared/registry.h"
#include "root/scoped_handle.h"

namespace crv::standins {
namespace {

constexpr DWORD kInstallerEnds = 10'000;  // ms
constexpr DWORD kLook = 50;               // ms between two tries

constexpr wchar_t kOldestProgramFolder[] = L"Corvid4ProgramFolder";
constexpr wchar_t kNewDirectoryName[] = L"NewDirectoryName=";
constexpr wchar_t kPersistentFolder[] = L"\\CORVID Software\\Persistent Data\\Corvid";

std::wstring SettingsFile(const std::wstring& setup_folder) { return setup_folder + L"\\setup.ini"; }

void CreateFolder(const std::wstring& folder) {
  const int result = SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr);
  if (result != ERROR_SUCCESS && result != ERROR_ALREADY_EXISTS && result != ERROR_FILE_EXISTS) {
    throw exceptions::error(result, L"cannot create %s", folder.c_str());
  }
}

void WriteFileBytes(const std::wstring& path, const void* bytes, std::size_t size) {
  const root::ScopedFile file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  DWORD written = 0;
  if (!file || !WriteFile(file.get(), bytes, static_cast<DWORD>(size), &written, nullptr)) {
    throw exceptions::error(GetLastError(), L"cannot write %s", path.c_str());
  }
}

// An installer that still runs there is waited for.
void CopyTo(const std::wstring& file, const std::wstring& folder) {
  CreateFolder(folder);
  for (const DWORD begin = GetTickCount(); !CopyFileW(file.c_str(), (folder + L"\\instup.exe").c_str(), FALSE); Sleep(kLook)) {
    const DWORD error = GetLastError();
    if (error != ERROR_SHARING_VIOLATION || GetTickCount() - begin >= kInstallerEnds) {
      throw exceptions::error(error, L"cannot copy %s", file.c_str());
    }
  }
}

}  // namespace

void RegisterInstallation(const std::wstring& product_key, const std::wstring& program_folder, const std::wstring& data_folder,
                          const std::wstring& setup_folder) {
  UnregisterInstallation();
  const bool oldest = product_key == kOlderProduct4;
  registry::WriteText(product_key, oldest ? kOldestProgramFolder : L"ProgramFolder", program_folder);
  if (!oldest) registry::WriteText(product_key, L"DataFolder", data_folder);
  if (!setup_folder.empty()) registry::WriteText(product_key, L"SetupFolder", setup_folder);
  registry::WriteText(product_key, L"Version", L"5.1.889");
  registry::WriteNumber(product_key, L"SetupVersion", 889);
}

bool IsRegistered(const std::wstring& product_key) {
  const wchar_t* const value = product_key == kOlderProduct4 ? kOldestProgramFolder : L"ProgramFolder";
  return registry::ReadText(product_key, value).has_value();
}

void UnregisterInstallation() {
  for (const wchar_t* const key : kProductKeys) {
    if (!registry::KeyExists(key)) continue;
    for (const wchar_t* const value :
         {L"ProgramFolder", L"DataFolder", kOldestProgramFolder, L"SetupFolder", L"Version", L"SetupVersion"}) {
      registry::DeleteValue(key, value);
    }
  }
}

void CreateInstallationFiles(const std::wstring& program_folder, const std::wstring& data_folder,
                             const std::wstring& setup_folder, const std::wstring& installer, const std::wstring& new_directory) {
  CreateFolder(program_folder);
  CreateFolder(data_folder);
  WriteFileBytes(program_folder + L"\\crvCmnOS.dll", "", 0);
  WriteFileBytes(data_folder + L"\\corvid5.ini", "", 0);
  CopyTo(installer, setup_folder);
  CopyTo(installer, setup_folder + L"\\" + new_directory);
  WriteSetupSettings(setup_folder, new_directory);
}

void WriteSetupSettings(const std::wstring& setup_folder, const std::wstring& new_directory) {
  const std::wstring text = L"\uFEFF; written by the installer\r\n[Common]\r\n" + (kNewDirectoryName + new_directory) +
                            L"\r\nProductVersion=5.1.889\r\n";
  WriteFileBytes(SettingsFile(setup_folder), text.data(), text.size() * sizeof(wchar_t));
}

std::optional<std::wstring> ReadSetupSettings(const std::wstring& setup_folder) {
  const root::ScopedFile file(CreateFileW(SettingsFile(setup_folder).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                          nullptr, OPEN_EXISTING, 0, nullptr));
  if (!file) return std::nullopt;
  std::wstring text(4096, L'\0');
  DWORD read = 0;
  ReadFile(file.get(), text.data(), static_cast<DWORD>(text.size() * sizeof(wchar_t)), &read, nullptr);
  text.resize(read / sizeof(wchar_t));
  const std::size_t name = text.find(kNewDirectoryName);
  if (name == std::wstring::npos) return std::nullopt;
  const std::size_t start = name + std::size(kNewDirectoryName) - 1;
  return text.substr(start, text.find(L'\r', start) - start);
}

std::wstring RebootMarker() {
  wchar_t folder[MAX_PATH] = {};
  const HRESULT result = SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder);
  if (FAILED(result)) throw exceptions::error(result, "cannot find the folder for common application data");
  return std::wstring(folder) + kPersistentFolder + L"\\Reboot.txt";
}

void LeaveRebootMarker() {
  const std::wstring marker = RebootMarker();
  CreateFolder(marker.substr(0, marker.rfind(L'\\')));
  WriteFileBytes(marker, "", 0);
}

}  // namespace crv::standins
