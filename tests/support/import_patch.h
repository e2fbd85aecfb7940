// Makes one imported function of the test program behave as told, by patching the program's import table for the length of a
// scope. Sees every call that the test program and the product's static libraries in it make through the import; calls made
// inside other DLLs are untouched. Not for use while other threads call the function.
#pragma once

#include <windows.h>

namespace crv::test {

class ImportPatch {
 public:
  // `dll` as the import table names it, without regard to case ("advapi32.dll"). Fails the running test when the program does
  // not import the function.
  ImportPatch(const char* dll, const char* function, void* replacement);
  ~ImportPatch();
  ImportPatch(const ImportPatch&) = delete;
  ImportPatch& operator=(const ImportPatch&) = delete;

  // The function as it was.
  template <typename Function>
  Function original() const {
    return reinterpret_cast<Function>(original_);
  }

 private:
  void** slot_ = nullptr;
  void* original_ = nullptr;
};

}  // namespace crv::test
