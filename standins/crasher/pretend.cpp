// Other circumstances than this machine's, by exchanging entries of the program's own import table.
#include <windows.h>

#include <cstring>

#include "crasher/stage.h"

namespace crv::standins::crasher {
namespace {

int WINAPI ShuttingDown(int index) { return index == SM_SHUTTINGDOWN ? 1 : 0; }
BOOL WINAPI EverySidIsEqual(PSID, PSID) { return TRUE; }

bool Replace(const char* library, const char* function, void* replacement) {
  auto* const base = reinterpret_cast<unsigned char*>(GetModuleHandleW(nullptr));
  const auto& headers = *reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
  const DWORD at = headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  for (auto* from = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + at); from->Name; ++from) {
    if (_stricmp(reinterpret_cast<char*>(base + from->Name), library) != 0) continue;
    auto* name = reinterpret_cast<IMAGE_THUNK_DATA*>(base + from->OriginalFirstThunk);
    auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + from->FirstThunk);
    for (; name->u1.AddressOfData; ++name, ++slot) {
      if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
      const auto* const named = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
      if (std::strcmp(reinterpret_cast<const char*>(named->Name), function) != 0) continue;
      DWORD protection = 0;
      VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection);
      slot->u1.Function = reinterpret_cast<DWORD>(replacement);
      VirtualProtect(slot, sizeof(*slot), protection, &protection);
      return true;
    }
  }
  return false;
}

}  // namespace

bool Pretend(const std::wstring& what) {
  if (what == L"shutdown") return Replace("user32.dll", "GetSystemMetrics", reinterpret_cast<void*>(&ShuttingDown));
  if (what == L"service") return Replace("advapi32.dll", "EqualSid", reinterpret_cast<void*>(&EverySidIsEqual));
  return false;
}

}  // namespace crv::standins::crasher
