// Other circumstances than this machine's, by exchanging entries of the program's own import table.
#include <windows.h>

#include "shared/import_table.h"
#include "crasher/stage.h"

namespace crv::standins::crasher {
namespace {

int WINAPI ShuttingDown(int index) { return index == SM_SHUTTINGDOWN ? 1 : 0; }
BOOL WINAPI EverySidIsEqual(PSID, PSID) { return TRUE; }

bool Replace(const char* library, const char* function, void* replacement) {
  void** const place = FindImport(library, function);
  if (place) WriteImport(place, replacement);
  return place != nullptr;
}

}  // namespace

bool Pretend(const std::wstring& what) {
  if (what == L"shutdown") return Replace("user32.dll", "GetSystemMetrics", reinterpret_cast<void*>(&ShuttingDown));
  if (what == L"service") return Replace("advapi32.dll", "EqualSid", reinterpret_cast<void*>(&EverySidIsEqual));
  return false;
}

}  // namespace crv::standins::crasher
