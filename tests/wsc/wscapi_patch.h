// A Security Center client library inside the test program, in the place of wscapi.dll: it keeps the registrations, notifies from
// whatever thread asks for it, and can refuse every step. Like the system's own it makes no call once unregistering has returned.
// One at a time; construct and destroy it while no watcher lives.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

#include "support/import_patch.h"

namespace crv::test {

class WscapiPatch {
 public:
  WscapiPatch();
  ~WscapiPatch();  // fails the running test when a registration or a reference to the library is left

  // Calls the callback of the newest registration, if there is one, and says whether there was. `made` runs after the callback
  // and before unregistering can return. Any thread.
  bool Notify(const std::function<void()>& made = [] {});

  // What is asked for next fails: "LoadLibraryW" (with ERROR_MOD_NOT_FOUND), the name of one of the two functions (is missing,
  // ERROR_PROC_NOT_FOUND), or "registering" (with E_ACCESSDENIED). Empty: nothing fails.
  void Fail(const std::string& step);

  // "load", "register", "unregister", "free", each with a blank behind it, since the start or the last question.
  std::string TakeCalls();

 private:
  ImportPatch load_;
  ImportPatch look_up_;
  ImportPatch free_;
};

}  // namespace crv::test
