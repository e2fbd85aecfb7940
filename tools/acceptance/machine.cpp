#include "acceptance/machine.h"

#include <windows.h>
#include <shlobj.h>

#include <cstdio>
#include <iterator>

#include "acceptance/registry_tree.h"
#include "base/format_message.h"
#include "root/os_version.h"
#include "root/scoped_handle.h"

namespace crv::acceptance {
namespace {

template <typename Function>
Function* Find(const wchar_t* library, const char* function) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(library), function)));
}

const char* WineVersion() {
  auto* const ask = Find<const char*()>(L"ntdll.dll", "wine_get_version");
  return ask ? ask() : nullptr;
}

bool Is64Bit() {
  auto* const ask = Find<BOOL WINAPI(HANDLE, BOOL*)>(L"kernel32.dll", "IsWow64Process");
  BOOL answer = FALSE;
  return ask && ask(GetCurrentProcess(), &answer) && answer;
}

std::string ProductName() {
  const auto name = ReadValue({HKEY_LOCAL_MACHINE, 64, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion"}, L"ProductName");
  if (!name || name->type != REG_SZ) return {};
  const auto* const text = reinterpret_cast<const wchar_t*>(name->data.data());
  const std::wstring whole(text, name->data.size() / sizeof(wchar_t));
  return ToUtf8(whole.substr(0, whole.find(L'\0')));
}

bool FindsFoldersInHive() {
  constexpr wchar_t kPlace[] = L"Software\\Corvid Tests";
  root::ScopedRegistryKey empty;
  wchar_t folder[MAX_PATH] = {};
  if (RegCreateKeyExW(HKEY_CURRENT_USER, kPlace, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, empty.put(), nullptr) != ERROR_SUCCESS ||
      RegOverridePredefKey(HKEY_LOCAL_MACHINE, empty.get()) != ERROR_SUCCESS) {
    return false;
  }
  const HRESULT found = SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder);
  RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
  return found != S_OK;
}

}  // namespace

std::string MachineText() {
  const OSVERSIONINFOEXW& version = root::OsVersionRecord();
  char text[64], pack[16] = "";
  if (version.wServicePackMajor) std::snprintf(pack, std::size(pack), " SP%u", version.wServicePackMajor);
  std::snprintf(text, std::size(text), "Windows %lu.%lu.%lu%s, %s", version.dwMajorVersion, version.dwMinorVersion,
                version.dwBuildNumber, pack, Is64Bit() ? "64-bit" : "32-bit");
  const std::string product = ProductName();
  const std::string wine = WineVersion() ? std::string(" on Wine ") + WineVersion() : "";
  return text + wine + (product.empty() ? "" : " (" + product + ")");
}

std::vector<Trait> MachineTraits(bool guarded) {
  std::vector<Trait> traits;
  if (!WineVersion()) traits.push_back(Trait::real_windows);
  if (!WineVersion() && Is64Bit()) traits.push_back(Trait::real_64_bit);
  if (!WineVersion() && root::OsVersionRecord().dwMajorVersion == 5) traits.push_back(Trait::real_xp);
  if (!GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "CtrlRoutine")) traits.push_back(Trait::no_ctrl_routine);
  if (guarded) traits.push_back(Trait::guarded);
  if (ProductName() == "ReactOS") traits.push_back(Trait::reactos);
  if (FindsFoldersInHive()) traits.push_back(Trait::folders_from_hive);
  return traits;
}

}  // namespace crv::acceptance
