// The calls of "/av /enable" on an AV manager whose providers all run, and nothing else.
#include <windows.h>

#include <string>

#include "avmgr/av_manager.h"

int main() {
  using crv::wsc::ProviderInfo;
  HKEY key = nullptr;
  wchar_t folder[MAX_PATH] = {};
  DWORD size = sizeof(folder);
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\CORVID Software\\Corvid", 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS)
    return 1;
  RegQueryValueExW(key, L"ProgramFolder", nullptr, nullptr, reinterpret_cast<BYTE*>(folder), &size);
  RegCloseKey(key);
  const HMODULE library =
      LoadLibraryExW((std::wstring(folder) + L"\\cavm4h.dll").c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  if (!library) return 2;
  const auto function = [library](const char* name) { return reinterpret_cast<void*>(GetProcAddress(library, name)); };
  const auto start = reinterpret_cast<DWORD (*)(const wchar_t*, DWORD, DWORD)>(function("CavmStart"));
  const auto stop = reinterpret_cast<DWORD (*)()>(function("CavmStop"));
  const auto get_list = reinterpret_cast<DWORD (*)(ProviderInfo**, DWORD*)>(function("CavmGetProviderInfoList"));
  ProviderInfo* list = nullptr;
  DWORD count = 0;
  DWORD running = 0;
  if (start(L"localhost", 0, 0) || get_list(&list, &count)) return 3;
  for (DWORD i = 0; i < count; ++i) running += list[i].state == 1;
  HeapFree(GetProcessHeap(), 0, list);
  stop();
  FreeLibrary(library);
  return running == count ? 0 : 4;
}
