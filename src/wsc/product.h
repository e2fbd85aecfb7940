// What all product kinds of the suite share towards Security Center.
#pragma once

namespace crv::wsc {

// The name under which every product is shown, on every system.
inline constexpr wchar_t kDisplayName[] = L"Corvid Antivirus";

// The module's own key under HKEY_LOCAL_MACHINE, in the default registry view.
inline constexpr wchar_t kModuleKey[] = L"SOFTWARE\\CORVID Software\\Corvid\\Wsc";

}  // namespace crv::wsc
