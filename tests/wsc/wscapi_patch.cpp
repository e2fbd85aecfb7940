#include "wsc/wscapi_patch.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <utility>

namespace crv::test {
namespace {

const HMODULE kLibrary = reinterpret_cast<HMODULE>(0x5CA50000);
const HANDLE kRegistration = reinterpret_cast<HANDLE>(0x5CA5);

std::mutex registration_mutex;
std::condition_variable none_under_way;
int under_way = 0;  // notifications
LPTHREAD_START_ROUTINE callback = nullptr;
void* callback_context = nullptr;

std::mutex calls_mutex;
std::string calls;
std::string failing;
int references = 0;

decltype(&LoadLibraryW) load_library = nullptr;
decltype(&GetProcAddress) get_proc_address = nullptr;
decltype(&FreeLibrary) free_library = nullptr;

void Note(const char* call) {
  const std::lock_guard lock(calls_mutex);
  calls += call;
}

HRESULT WINAPI Register(void* reserved, HANDLE* registration, LPTHREAD_START_ROUTINE routine, void* context) {
  EXPECT_EQ(nullptr, reserved);
  Note("register ");
  if (failing == "registering") return E_ACCESSDENIED;
  const std::lock_guard lock(registration_mutex);
  *registration = kRegistration;
  callback = routine;
  callback_context = context;
  return S_OK;
}

HRESULT WINAPI Unregister(HANDLE registration) {
  EXPECT_EQ(kRegistration, registration);
  Note("unregister ");
  std::unique_lock lock(registration_mutex);
  EXPECT_TRUE(callback) << "unregistered twice";
  callback = nullptr;
  none_under_way.wait(lock, [] { return under_way == 0; });
  return E_FAIL;  // nobody cares
}

HMODULE WINAPI Load(const wchar_t* name) {
  if (std::wstring(name) != L"wscapi.dll") return load_library(name);
  Note("load ");
  if (failing == "LoadLibraryW") return SetLastError(ERROR_MOD_NOT_FOUND), nullptr;
  ++references;
  return kLibrary;
}

FARPROC WINAPI LookUp(HMODULE library, const char* name) {
  if (library != kLibrary) return get_proc_address(library, name);
  if (failing != name) {
    if (name == std::string("WscRegisterForChanges")) return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Register));
    if (name == std::string("WscUnRegisterChanges")) return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Unregister));
  }
  return SetLastError(ERROR_PROC_NOT_FOUND), nullptr;
}

BOOL WINAPI Free(HMODULE library) {
  if (library != kLibrary) return free_library(library);
  EXPECT_FALSE(callback) << "freed while it may still call";
  Note("free ");
  --references;
  SetLastError(ERROR_INVALID_FUNCTION);
  return TRUE;
}

}  // namespace

WscapiPatch::WscapiPatch()
    : load_("kernel32.dll", "LoadLibraryW", reinterpret_cast<void*>(&Load)),
      look_up_("kernel32.dll", "GetProcAddress", reinterpret_cast<void*>(&LookUp)),
      free_("kernel32.dll", "FreeLibrary", reinterpret_cast<void*>(&Free)) {
  load_library = load_.original<decltype(load_library)>();
  get_proc_address = look_up_.original<decltype(get_proc_address)>();
  free_library = free_.original<decltype(free_library)>();
  calls = failing = "";
}

WscapiPatch::~WscapiPatch() {
  EXPECT_FALSE(callback) << "a registration is left";
  EXPECT_EQ(0, references) << "references to the library are left";
  callback = nullptr;
  references = 0;
}

bool WscapiPatch::Notify(const std::function<void()>& made) {
  std::unique_lock lock(registration_mutex);
  if (!callback) return false;
  const auto call = callback;
  void* const context = callback_context;
  ++under_way;
  lock.unlock();
  EXPECT_EQ(0u, call(context));
  made();
  lock.lock();
  if (--under_way == 0) none_under_way.notify_all();
  return true;
}

void WscapiPatch::Fail(const std::string& step) { failing = step; }

std::string WscapiPatch::TakeCalls() {
  const std::lock_guard lock(calls_mutex);
  return std::exchange(calls, "");
}

}  // namespace crv::test
