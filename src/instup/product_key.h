// Names under HKEY_LOCAL_MACHINE that the suite's installer and its modules agree on. Keys compare without regard to case, so the
// two spellings of the product key are one key.
#pragma once

namespace crv::instup {

inline constexpr const wchar_t* kProductKey = L"SOFTWARE\\CORVID Software\\Corvid";
inline constexpr const wchar_t* kLibraryProductKey = L"Software\\CORVID Software\\Corvid";  // as the common OS library spells it

inline constexpr const wchar_t* kProgramFolderValue = L"ProgramFolder";
inline constexpr const wchar_t* kDataFolderValue = L"DataFolder";
inline constexpr const wchar_t* kTempFolderValue = L"TempFolder";

}  // namespace crv::instup
