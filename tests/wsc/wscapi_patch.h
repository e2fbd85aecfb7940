// A Security Center client library inside the test program, in the place of wscapi.dll: it keeps the registration, notifies from
// whatever thread asks for it, and can refuse every step. Like the system's own it makes no call once unregistering has returned.
// One at a time; construct and destroy it while no watcher lives.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

#include "support/import_fake.h"

namespace crv::test {

class WscapiPatch {
 public:
  WscapiPatch() { current_ = this; }
  ~WscapiPatch() {
    EXPECT_FALSE(callback_) << "a registration is left";
    EXPECT_EQ(0, references_) << "references to the library are left";
  }

  // Calls the registered callback, if there is one, and says whether there was. `made` runs after the callback and before
  // unregistering can return. Any thread.
  bool Notify(const std::function<void()>& made = [] {}) {
    std::unique_lock lock(mutex_);
    if (!callback_) return false;
    const auto callback = callback_;
    void* const context = context_;
    ++under_way_;
    lock.unlock();
    EXPECT_EQ(0u, callback(context));
    made();
    lock.lock();
    if (--under_way_ == 0) none_under_way_.notify_all();
    return true;
  }

  // What is asked for next fails: "LoadLibraryW" (with ERROR_MOD_NOT_FOUND), the name of one of the two functions (is missing,
  // ERROR_PROC_NOT_FOUND), or "registering" (with E_ACCESSDENIED). Empty: nothing fails.
  void Fail(const std::string& step) { failing_ = step; }

  // "load", "register", "unregister", "free", each with a blank behind it, since the start or the last question.
  std::string TakeCalls() {
    const std::lock_guard lock(mutex_);
    return std::exchange(calls_, "");
  }

 private:
  static HRESULT WINAPI Register(void* reserved, HANDLE* registration, LPTHREAD_START_ROUTINE callback, void* context) {
    EXPECT_EQ(nullptr, reserved);
    current_->Note("register ");
    if (current_->failing_ == "registering") return E_ACCESSDENIED;
    const std::lock_guard lock(current_->mutex_);
    *registration = kRegistration;
    current_->callback_ = callback;
    current_->context_ = context;
    return S_OK;
  }

  static HRESULT WINAPI Unregister(HANDLE registration) {
    EXPECT_EQ(kRegistration, registration);
    current_->Note("unregister ");
    std::unique_lock lock(current_->mutex_);
    EXPECT_TRUE(current_->callback_) << "unregistered twice";
    current_->callback_ = nullptr;
    current_->none_under_way_.wait(lock, [] { return current_->under_way_ == 0; });
    return E_FAIL;  // nobody cares
  }

  FARPROC Function(const std::string& name) const {
    if (failing_ == name) return SetLastError(ERROR_PROC_NOT_FOUND), nullptr;
    void* const function =
        name == "WscRegisterForChanges" ? reinterpret_cast<void*>(&Register) : reinterpret_cast<void*>(&Unregister);
    return reinterpret_cast<FARPROC>(function);
  }

  void Note(const char* call) {
    const std::lock_guard lock(mutex_);
    calls_ += call;
  }

  static inline const HMODULE kLibrary = reinterpret_cast<HMODULE>(0x5CA50000);
  static inline const HANDLE kRegistration = reinterpret_cast<HANDLE>(0x5CA5);
  static inline WscapiPatch* current_ = nullptr;

  std::mutex mutex_;
  std::condition_variable none_under_way_;
  LPTHREAD_START_ROUTINE callback_ = nullptr;
  void* context_ = nullptr;
  int under_way_ = 0;  // notifications
  int references_ = 0;
  std::string calls_;
  std::string failing_;

  ImportFake<decltype(LoadLibraryW), struct WscapiLoadPlace> load_{"kernel32.dll", "LoadLibraryW",
                                                                   [this](auto* real, const wchar_t* name) -> HMODULE {
                                                                     if (std::wstring(name) != L"wscapi.dll") return real(name);
                                                                     Note("load ");
                                                                     if (failing_ == "LoadLibraryW")
                                                                       return SetLastError(ERROR_MOD_NOT_FOUND), nullptr;
                                                                     ++references_;
                                                                     return kLibrary;
                                                                   }};
  ImportFake<decltype(GetProcAddress), struct WscapiLookUpPlace> look_up_{
      "kernel32.dll", "GetProcAddress", [this](auto* real, HMODULE library, const char* name) {
        return library == kLibrary ? Function(name) : real(library, name);
      }};
  ImportFake<decltype(FreeLibrary), struct WscapiFreePlace> free_{"kernel32.dll", "FreeLibrary",
                                                                  [this](auto* real, HMODULE library) -> BOOL {
                                                                    if (library != kLibrary) return real(library);
                                                                    EXPECT_FALSE(callback_) << "freed while it may still call";
                                                                    Note("free ");
                                                                    --references_;
                                                                    SetLastError(ERROR_INVALID_FUNCTION);
                                                                    return TRUE;
                                                                  }};
};

}  // namespace crv::test
