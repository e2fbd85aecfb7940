#include "shared/import_table.h"

#include <windows.h>

#include <cstring>

namespace crv::standins {
void** FindImport(const char* library, const char* function) {
  auto* const base = reinterpret_cast<BYTE*>(GetModuleHandleW(nullptr));
  const auto* const dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
  const auto* const nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  auto* descriptor = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
  for (; descriptor->Name; ++descriptor) {
    if (_stricmp(reinterpret_cast<char*>(base + descriptor->Name), library) != 0) continue;
    auto* name = reinterpret_cast<IMAGE_THUNK_DATA*>(base + descriptor->OriginalFirstThunk);
    auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + descriptor->FirstThunk);
    for (; name->u1.AddressOfData; ++name, ++slot) {
      if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
      const auto* const by_name = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
      if (std::strcmp(reinterpret_cast<const char*>(by_name->Name), function) == 0) {
        return reinterpret_cast<void**>(&slot->u1.Function);
      }
    }
  }
  return nullptr;
}

void WriteImport(void** place, void* function) {
  // The tables are read-only, and the function that changes that may be the one that is exchanged.
  static decltype(&VirtualProtect) volatile system_protect = &VirtualProtect;
  DWORD old = 0;
  system_protect(place, sizeof(*place), PAGE_READWRITE, &old);
  *place = function;
  system_protect(place, sizeof(*place), old, &old);
}

}  // namespace crv::standins
