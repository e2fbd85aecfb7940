// Other circumstances than this machine's, by exchanging entries of the program's own import table, and components that misbehave.
#include <windows.h>

#include <cstdio>
#include <optional>
#include <stdexcept>

#include "base/log_library.h"
#include "shared/import_table.h"
#include "shared/looked_up.h"
#include "crasher/stage.h"

namespace crv::standins::crasher {
namespace {

int WINAPI ShuttingDown(int index) { return index == SM_SHUTTINGDOWN ? 1 : 0; }
BOOL WINAPI EverySidIsEqual(PSID, PSID) { return TRUE; }

enum class Way { raises, faults, throws };

std::optional<Way> FindWay(const std::wstring& word) {
  if (word == L"raises") return Way::raises;
  if (word == L"faults") return Way::faults;
  if (word == L"throws") return Way::throws;
  return std::nullopt;
}

void Misbehave(Way way) {
  if (way == Way::raises) OutputDebugStringA("crasher");
  if (way == Way::faults) WriteToNull();
  if (way == Way::throws) throw std::runtime_error("crasher");
}

using AcquireLogModule = decltype(log::detail::AcquireLogModule);
AcquireLogModule* acquire_log_module = nullptr;
Way log_way;

std::shared_ptr<log::detail::ILogModule> AcquireSpoilt() {
  Misbehave(log_way);
  return acquire_log_module();
}

bool Replace(const char* library, const char* function, void* replacement) {
  void** const place = FindImport(library, function);
  if (place) WriteImport(place, replacement);
  return place != nullptr;
}

}  // namespace

bool Pretend(const std::wstring& what) {
  if (what == L"shutdown")
    return AnswerLookUps("user32.dll", "GetSystemMetrics", reinterpret_cast<void*>(&ShuttingDown)) != nullptr;
  if (what == L"service") return Replace("advapi32.dll", "EqualSid", reinterpret_cast<void*>(&EverySidIsEqual));
  return false;
}

bool SpoilLog(const std::wstring& how) {
  const std::optional<Way> way = FindWay(how);
  if (!way) return false;
  log_way = *way;
  constexpr char kLibrary[] = "log.dll";
  constexpr char kFunction[] = "_ZN3crv3log6detail16AcquireLogModuleEv";
  acquire_log_module = reinterpret_cast<AcquireLogModule*>(*FindImport(kLibrary, kFunction));
  return Replace(kLibrary, kFunction, reinterpret_cast<void*>(&AcquireSpoilt));
}

bool SpoilHandler(Stage& stage, const std::wstring& how) {
  const std::optional<Way> way = FindWay(how);
  if (!way) return false;
  stage.spoilt = stage.guard->ConnectDumpWritten([way] {
    Misbehave(*way);
    std::puts("the handler went on");
    std::fflush(stdout);
  });
  return true;
}

}  // namespace crv::standins::crasher
