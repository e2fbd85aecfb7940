// A Security Center client library inside the test program, in the place of wscapi.dll: it keeps the registration, notifies from
// whatever thread asks for it, and can refuse every step. Like the system's own it makes no call once unregistering has returned.
// One at a time; construct and destroy it while no watcher lives.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

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

  // Calls the registered callback, if there is one. Any thread.
  void Notify() {
    const std::lock_guard lock(calling_);
    if (callback_) callback_(context_);
  }

  // What is asked for next fails: "LoadLibraryW", the name of one of the two functions, or "registering". Empty: nothing fails.
  void Fail(const std::string& step) { failing_ = step; }

  // "load", "register", "unregister", "free", each with a blank behind it, since the start or the last question.
  std::string TakeCalls() {
    const std::lock_guard lock(noting_);
    return std::exchange(calls_, "");
  }

 private:
  static HRESULT WINAPI Register(void* reserved, HANDLE* registration, LPTHREAD_START_ROUTINE callback, void* context) {
    EXPECT_EQ(nullptr, reserved);
    current_->Note("register ");
    if (current_->failing_ == "registering") return E_ACCESSDENIED;
    *registration = kRegistration;
    current_->callback_ = callback;
    current_->context_ = context;
    return S_OK;
  }

  static HRESULT WINAPI Unregister(HANDLE registration) {
    EXPECT_EQ(kRegistration, registration);
    current_->Note("unregister ");
    const std::lock_guard lock(current_->calling_);
    EXPECT_TRUE(current_->callback_) << "unregistered twice";
    current_->callback_ = nullptr;
    return E_FAIL;  // nobody cares
  }

  void Note(const char* call) {
    const std::lock_guard lock(noting_);
    calls_ += call;
  }

  HMODULE Load() {
    Note("load ");
    if (failing_ == "LoadLibraryW") return SetLastError(ERROR_MOD_NOT_FOUND), nullptr;
    return ++references_, kLibrary;
  }

  FARPROC Function(const std::string& name) const {
    if (failing_ == name) return SetLastError(ERROR_PROC_NOT_FOUND), nullptr;
    if (name == "WscRegisterForChanges") return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Register));
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Unregister));
  }

  BOOL Free() {
    EXPECT_FALSE(callback_) << "freed while it may still call";
    Note("free ");
    SetLastError(ERROR_INVALID_FUNCTION);
    return --references_, TRUE;
  }

  static inline const HMODULE kLibrary = reinterpret_cast<HMODULE>(0x5CA50000);
  static inline const HANDLE kRegistration = reinterpret_cast<HANDLE>(0x5CA5);
  static inline WscapiPatch* current_ = nullptr;

  std::mutex calling_, noting_;
  LPTHREAD_START_ROUTINE callback_ = nullptr;
  void* context_ = nullptr;
  int references_ = 0;
  std::string calls_, failing_;

  ImportFake<decltype(LoadLibraryW), struct WscapiLoadPlace> load_{
      "kernel32.dll", "LoadLibraryW",
      [this](auto* real, std::wstring name) { return name == L"wscapi.dll" ? Load() : real(name.c_str()); }};
  ImportFake<decltype(GetProcAddress), struct WscapiLookUpPlace> look_up_{
      "kernel32.dll", "GetProcAddress", [this](auto* real, HMODULE library, const char* name) {
        return library == kLibrary ? Function(name) : real(library, name);
      }};
  ImportFake<decltype(FreeLibrary), struct WscapiFreePlace> free_{
      "kernel32.dll", "FreeLibrary", [this](auto* real, HMODULE which) { return which == kLibrary ? Free() : real(which); }};
};

}  // namespace crv::test
