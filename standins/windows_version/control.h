// Which Windows wsc_proxy.exe believes to run on. Wine takes that from the registry: most versions can be named for one program;
// the oldest Vista, which has no service pack, and Windows 11 (build 22000) only as the whole machine's, for the programs of centre.exe's
// own kind. Failures to reach the registry throw crv::exceptions::error. One process at a time.
//
//   HKLM\SOFTWARE\Corvid Stand-ins\Windows Version     what stood there before, while another version is set
//     Program, CurrentVersion, CurrentBuildNumber, CSDVersion   texts, absent: there was none
//     ServicePack                                                DWORD, the same
//     Set                                                        text, the version that is set
//     Complete                                                   DWORD 1, written last: before it nothing is changed
#pragma once

#include <optional>
#include <string>

namespace crv::standins {

inline constexpr const wchar_t* kWindowsVersions[] = {L"winxp", L"vista", L"vistasp2", L"win7", L"win8", L"win10", L"win11"};

bool IsWindowsVersion(const std::wstring& version);  // one of those above

void SetWindowsVersion(const std::wstring& version);  // until it is restored

// Puts back what stood there before the first change, also after a process that was ended in the middle of one.
// Without a change it does nothing.
void RestoreWindowsVersion();

std::optional<std::wstring> CurrentWindowsVersion();  // the one that is set; empty: the machine's own

}  // namespace crv::standins
