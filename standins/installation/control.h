// An installation of the suite as its installer would leave it: registry keys, program, data and setup folders with their marker
// files, and setup.ini. Failures throw crv::exceptions::error. Any process, one at a time.
#pragma once

#include <optional>
#include <string>

namespace crv::standins {

// The product keys that an installation can be registered under, the current one and the older ones.
inline constexpr wchar_t kCurrentProduct[] = L"SOFTWARE\\CORVID Software\\Corvid";
inline constexpr wchar_t kOlderProduct[] = L"SOFTWARE\\Vantor Software\\Corvid";
inline constexpr wchar_t kOlderProduct5[] = L"SOFTWARE\\Vantor Software\\Corvid\\5.0";
inline constexpr wchar_t kOlderProduct4[] = L"SOFTWARE\\Vantor Software\\Corvid\\4.0";  // knows a program folder only
inline constexpr const wchar_t* kProductKeys[] = {kCurrentProduct, kOlderProduct, kOlderProduct5, kOlderProduct4};

// Registers the folders under one product key and removes their values from the others. What the module itself keeps below the
// current key stays.
void RegisterInstallation(const std::wstring& product_key, const std::wstring& program_folder, const std::wstring& data_folder,
                          const std::wstring& setup_folder);
void UnregisterInstallation();
bool IsRegistered(const std::wstring& product_key);

// Makes the folders, the marker files, setup.ini with `new_directory`, and copies of `installer` in the setup folder and in its
// new folder.
void CreateInstallationFiles(const std::wstring& program_folder, const std::wstring& data_folder,
                             const std::wstring& setup_folder, const std::wstring& installer, const std::wstring& new_directory);

// Writes setup.ini as the installer does: UTF-16 with its signature and carriage returns. The read gives the new directory of a
// file so written, nothing when there is none.
void WriteSetupSettings(const std::wstring& setup_folder, const std::wstring& new_directory);
std::optional<std::wstring> ReadSetupSettings(const std::wstring& setup_folder);

// The file by which the installer says that a restart of the system is due. It makes the folder on the way.
std::wstring RebootMarker();
void LeaveRebootMarker();

}  // namespace crv::standins
