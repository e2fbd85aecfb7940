#include "shared/looked_up.h"

#include <windows.h>

#include <map>
#include <string>

#include "shared/import_table.h"

namespace crv::standins {
namespace {

std::map<std::string, void*> answers;
decltype(&GetProcAddress) real_look_up = nullptr;

FARPROC WINAPI LookUp(HMODULE module, const char* name) {
  if (!IS_INTRESOURCE(name)) {
    const auto found = answers.find(name);
    if (found != answers.end()) return reinterpret_cast<FARPROC>(found->second);
  }
  return real_look_up(module, name);
}

// For the whole life of the program: whatever else takes the import's place later comes before and gives it back.
[[maybe_unused]] const bool exchanged = [] {
  void** const place = FindImport("kernel32.dll", "GetProcAddress");
  if (!place) return false;
  real_look_up = reinterpret_cast<decltype(real_look_up)>(*place);
  WriteImport(place, reinterpret_cast<void*>(&LookUp));
  return true;
}();

}  // namespace

void* AnswerLookUps(const char* library, const char* function, void* answer) {
  answers[function] = answer;
  return real_look_up ? reinterpret_cast<void*>(real_look_up(LoadLibraryA(library), function)) : nullptr;
}

void EndAnswer(const char* function) { answers.erase(function); }

}  // namespace crv::standins
