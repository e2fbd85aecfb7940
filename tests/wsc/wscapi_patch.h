// A Security Center client library inside the test program, in the place of wscapi.dll: it keeps the registration, notifies from
// whatever thread asks for it, and can refuse every step. Like the system's own it makes no call once unregistering has returned.
// One at a time; construct and destroy it while no watcher lives.
#pragma once

#include <windows.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>

#include "support/import_fake.h"

namespace crv::test {

class WscapiPatch {
 public:
  WscapiPatch();
  ~WscapiPatch();  // fails the running test when a registration or a reference to the library is left

  // Calls the registered callback, if there is one, and says whether there was. `made` runs after the callback and before
  // unregistering can return. Any thread.
  bool Notify(const std::function<void()>& made = [] {});

  // What is asked for next fails: "LoadLibraryW" (with ERROR_MOD_NOT_FOUND), the name of one of the two functions (is missing,
  // ERROR_PROC_NOT_FOUND), or "registering" (with E_ACCESSDENIED). Empty: nothing fails.
  void Fail(const std::string& step) { failing_ = step; }

  // "load", "register", "unregister", "free", each with a blank behind it, since the start or the last question.
  std::string TakeCalls();

 private:
  static HRESULT WINAPI Register(void* reserved, HANDLE* registration, LPTHREAD_START_ROUTINE callback, void* context);
  static HRESULT WINAPI Unregister(HANDLE registration);
  FARPROC Function(const std::string& name) const;
  void Note(const char* call);

  std::mutex mutex_;
  std::condition_variable none_under_way_;
  LPTHREAD_START_ROUTINE callback_ = nullptr;
  void* context_ = nullptr;
  int under_way_ = 0;  // notifications
  int references_ = 0;
  std::string calls_;
  std::string failing_;

  ImportFake<decltype(LoadLibraryW), struct WscapiLoadPlace> load_;
  ImportFake<decltype(GetProcAddress), struct WscapiLookUpPlace> look_up_;
  ImportFake<decltype(FreeLibrary), struct WscapiFreePlace> free_;
};

}  // namespace crv::test
