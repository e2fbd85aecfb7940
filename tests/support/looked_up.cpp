#include "support/looked_up.h"

#include <windows.h>

#include <map>
#include <string>

#include "shared/import_table.h"

namespace crv::test {
namespace {

decltype(&GetProcAddress) real_look_up = nullptr;

std::map<std::string, void*>& Answers() {
  static std::map<std::string, void*> answers;
  return answers;
}

FARPROC WINAPI LookUp(HMODULE module, const char* name) {
  if (!IS_INTRESOURCE(name)) {
    const auto found = Answers().find(name);
    if (found != Answers().end()) return reinterpret_cast<FARPROC>(found->second);
  }
  return real_look_up(module, name);
}

}  // namespace

void* AnswerLookUps(const char* library, const char* function, void* answer) {
  // Stays: a test may have put a look-up of its own in front of it by the time that the answer ends.
  [[maybe_unused]] static const bool exchanged = [] {
    void** const place = standins::FindImport("kernel32.dll", "GetProcAddress");
    real_look_up = reinterpret_cast<decltype(real_look_up)>(*place);
    standins::WriteImport(place, reinterpret_cast<void*>(&LookUp));
    return true;
  }();
  Answers()[function] = answer;
  return reinterpret_cast<void*>(real_look_up(LoadLibraryA(library), function));
}

void EndAnswer(const char* function) { Answers().erase(function); }

}  // namespace crv::test
