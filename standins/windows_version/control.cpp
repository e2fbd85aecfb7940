#include "windows_version/control.h"

#include <windows.h>
#include <shlwapi.h>

#include <algorithm>

#include "base/exceptions.h"
#include "shared/registry.h"

namespace crv::standins {
namespace {

constexpr wchar_t kBackup[] = L"SOFTWARE\\Corvid Stand-ins\\Windows Version";
constexpr wchar_t kComplete[] = L"Complete";
constexpr wchar_t kSet[] = L"Set";

constexpr wchar_t kProgramKey[] = L"Software\\Wine\\AppDefaults\\wsc_proxy.exe";  // of the user
constexpr wchar_t kProgramValue[] = L"Version";
constexpr wchar_t kProgram[] = L"Program";

constexpr wchar_t kMachineKey[] = L"Software\\Microsoft\\Windows NT\\CurrentVersion";
constexpr const wchar_t* kMachineValues[] = {L"CurrentVersion", L"CurrentBuildNumber", L"CSDVersion"};
constexpr struct {
  const wchar_t* version;
  const wchar_t* values[std::size(kMachineValues)];
} kOfMachine[] = {{L"vista", {L"6.0", L"6000", L""}}, {L"win11", {L"10.0", L"22000", L""}}};

constexpr wchar_t kServicePackKey[] = L"System\\CurrentControlSet\\Control\\Windows";
constexpr wchar_t kServicePackValue[] = L"CSDVersion";
constexpr wchar_t kServicePack[] = L"ServicePack";

std::optional<std::wstring> ReadProgramVersion() {
  wchar_t text[64] = {};
  DWORD size = sizeof(text) - sizeof(wchar_t);
  if (SHGetValueW(HKEY_CURRENT_USER, kProgramKey, kProgramValue, nullptr, text, &size) != ERROR_SUCCESS) return std::nullopt;
  return text;
}

void WriteProgramVersion(const std::optional<std::wstring>& version) {
  LSTATUS status = ERROR_SUCCESS;
  if (version) {
    const DWORD size = static_cast<DWORD>((version->size() + 1) * sizeof(wchar_t));
    status = SHSetValueW(HKEY_CURRENT_USER, kProgramKey, kProgramValue, REG_SZ, version->c_str(), size);
  } else {
    status = SHDeleteValueW(HKEY_CURRENT_USER, kProgramKey, kProgramValue);
    if (status == ERROR_FILE_NOT_FOUND) status = ERROR_SUCCESS;
  }
  if (status != ERROR_SUCCESS) throw exceptions::error(status, L"cannot write HKCU\\%s", kProgramKey);
}

void PutText(const std::wstring& key, const wchar_t* value, const std::optional<std::wstring>& text) {
  text ? registry::WriteText(key, value, *text) : registry::DeleteValue(key, value);
}

void PutNumber(const std::wstring& key, const wchar_t* value, const std::optional<DWORD>& number) {
  number ? registry::WriteNumber(key, value, *number) : registry::DeleteValue(key, value);
}

void BackUp() {
  registry::DeleteKey(kBackup);  // of a process that was ended before its first change
  PutText(kBackup, kProgram, ReadProgramVersion());
  for (const wchar_t* const value : kMachineValues) PutText(kBackup, value, registry::ReadText(kMachineKey, value));
  PutNumber(kBackup, kServicePack, registry::ReadNumber(kServicePackKey, kServicePackValue));
  registry::WriteNumber(kBackup, kComplete, 1);
}

}  // namespace

bool IsWindowsVersion(const std::wstring& version) {
  return std::find(std::begin(kWindowsVersions), std::end(kWindowsVersions), version) != std::end(kWindowsVersions);
}

void SetWindowsVersion(const std::wstring& version) {
  RestoreWindowsVersion();
  BackUp();
  registry::WriteText(kBackup, kSet, version);
  const auto of_machine = std::find_if(std::begin(kOfMachine), std::end(kOfMachine),
                                       [&version](const auto& other) { return other.version == version; });
  if (of_machine != std::end(kOfMachine)) {
    WriteProgramVersion(std::nullopt);
    for (std::size_t i = 0; i < std::size(kMachineValues); ++i)
      registry::WriteText(kMachineKey, kMachineValues[i], of_machine->values[i]);
    registry::WriteNumber(kServicePackKey, kServicePackValue, 0);
  } else {
    WriteProgramVersion(version == L"vistasp2" ? L"vista" : version);  // as Wine calls it
  }
}

void RestoreWindowsVersion() {
  if (!registry::ReadNumber(kBackup, kComplete)) return;
  WriteProgramVersion(registry::ReadText(kBackup, kProgram));
  for (const wchar_t* const value : kMachineValues) PutText(kMachineKey, value, registry::ReadText(kBackup, value));
  PutNumber(kServicePackKey, kServicePackValue, registry::ReadNumber(kBackup, kServicePack));
  registry::DeleteKey(kBackup);
}

std::optional<std::wstring> CurrentWindowsVersion() {
  return registry::ReadNumber(kBackup, kComplete) ? registry::ReadText(kBackup, kSet) : std::nullopt;
}

}  // namespace crv::standins
