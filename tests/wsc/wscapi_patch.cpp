#include "wsc/wscapi_patch.h"

#include <gtest/gtest.h>

#include <utility>

namespace crv::test {
namespace {

const HMODULE kLibrary = reinterpret_cast<HMODULE>(0x5CA50000);
const HANDLE kRegistration = reinterpret_cast<HANDLE>(0x5CA5);
WscapiPatch* current = nullptr;

}  // namespace

WscapiPatch::WscapiPatch()
    : load_("kernel32.dll", "LoadLibraryW",
            [this](auto* real, const wchar_t* name) -> HMODULE {
              if (std::wstring(name) != L"wscapi.dll") return real(name);
              Note("load ");
              if (failing_ == "LoadLibraryW") return SetLastError(ERROR_MOD_NOT_FOUND), nullptr;
              ++references_;
              return kLibrary;
            }),
      look_up_("kernel32.dll", "GetProcAddress",
               [this](auto* real, HMODULE library, const char* name) {
                 return library == kLibrary ? Function(name) : real(library, name);
               }),
      free_("kernel32.dll", "FreeLibrary", [this](auto* real, HMODULE library) -> BOOL {
        if (library != kLibrary) return real(library);
        EXPECT_FALSE(callback_) << "freed while it may still call";
        Note("free ");
        --references_;
        SetLastError(ERROR_INVALID_FUNCTION);
        return TRUE;
      }) {
  current = this;
}

WscapiPatch::~WscapiPatch() {
  EXPECT_FALSE(callback_) << "a registration is left";
  EXPECT_EQ(0, references_) << "references to the library are left";
}

FARPROC WscapiPatch::Function(const std::string& name) const {
  if (failing_ != name) {
    if (name == "WscRegisterForChanges") return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Register));
    if (name == "WscUnRegisterChanges") return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Unregister));
  }
  return SetLastError(ERROR_PROC_NOT_FOUND), nullptr;
}

HRESULT WINAPI WscapiPatch::Register(void* reserved, HANDLE* registration, LPTHREAD_START_ROUTINE callback, void* context) {
  EXPECT_EQ(nullptr, reserved);
  current->Note("register ");
  if (current->failing_ == "registering") return E_ACCESSDENIED;
  const std::lock_guard lock(current->mutex_);
  *registration = kRegistration;
  current->callback_ = callback;
  current->context_ = context;
  return S_OK;
}

HRESULT WINAPI WscapiPatch::Unregister(HANDLE registration) {
  EXPECT_EQ(kRegistration, registration);
  current->Note("unregister ");
  std::unique_lock lock(current->mutex_);
  EXPECT_TRUE(current->callback_) << "unregistered twice";
  current->callback_ = nullptr;
  current->none_under_way_.wait(lock, [] { return current->under_way_ == 0; });
  return E_FAIL;  // nobody cares
}

bool WscapiPatch::Notify(const std::function<void()>& made) {
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

std::string WscapiPatch::TakeCalls() {
  const std::lock_guard lock(mutex_);
  return std::exchange(calls_, "");
}

void WscapiPatch::Note(const char* call) {
  const std::lock_guard lock(mutex_);
  calls_ += call;
}

}  // namespace crv::test
