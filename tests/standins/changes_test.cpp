#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "control/changes_control.h"
#include "control/security_center_control.h"
#include "control/service_control_panel.h"
#include "root/scoped_handle.h"
#include "standins/child.h"
#include "support/redirected_hive.h"

namespace crv::test {
namespace {

using namespace standins;

constexpr DWORD kLimit = 10'000;  // ms
constexpr DWORD kQuiet = 200;     // ms: four times as long as the library takes to notice a change

// Counts its calls; the first one may be held.
struct Listener {
  std::atomic<DWORD> calls{0};
  std::atomic<DWORD> thread{0};
  root::ScopedKernelHandle entered{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  root::ScopedKernelHandle let_go{CreateEventW(nullptr, TRUE, TRUE, nullptr)};

  static DWORD WINAPI Called(void* context) {
    auto* const self = static_cast<Listener*>(context);
    self->thread = GetCurrentThreadId();
    ++self->calls;
    SetEvent(self->entered.get());
    WaitForSingleObject(self->let_go.get(), kLimit);
    return 0;
  }
  bool HasCalls(DWORD count) const {
    for (DWORD waited = 0; waited < kLimit && calls < count; waited += 10) Sleep(10);
    return calls >= count;
  }
};

// The library called in this process, with a registry of its own; the services are the machine's.
class Changes : public testing::Test {
 protected:
  using RegisterFunction = HRESULT(WINAPI*)(void*, HANDLE*, LPTHREAD_START_ROUTINE, void*);
  using UnRegisterFunction = HRESULT(WINAPI*)(HANDLE);

  template <typename T>
  T Function(const char* name) {
    return reinterpret_cast<T>(reinterpret_cast<void*>(GetProcAddress(library_.get(), name)));
  }
  HRESULT Register(HANDLE* handle) {
    return Function<RegisterFunction>("WscRegisterForChanges")(nullptr, handle, &Listener::Called, &listener_);
  }
  HRESULT UnRegister(HANDLE handle) { return Function<UnRegisterFunction>("WscUnRegisterChanges")(handle); }

  RedirectedHive hive_;
  Listener listener_;
  root::ScopedModule library_{LoadLibraryW((OwnFolder() + L"wscapi.dll").c_str())};
};

TEST_F(Changes, AreNotifiedOnAThreadOfTheLibraryOneByOne) {
  HANDLE registration = nullptr;
  ASSERT_EQ(S_OK, Register(&registration));
  Sleep(kQuiet);
  EXPECT_EQ(0u, listener_.calls) << "nothing has changed";
  WriteProduct(kFirewall, {L"path", L"name", std::nullopt, std::nullopt});
  EXPECT_TRUE(listener_.HasCalls(1));
  WriteProduct(kFirewall, {L"path", L"name", 1, std::nullopt});
  EXPECT_TRUE(listener_.HasCalls(2));
  RemoveProduct(kFirewall);
  EXPECT_TRUE(listener_.HasCalls(3));
  Sleep(kQuiet);
  EXPECT_EQ(3u, listener_.calls);
  EXPECT_NE(GetCurrentThreadId(), listener_.thread);
  EXPECT_EQ(S_OK, UnRegister(registration));
}

TEST_F(Changes, OfTheServiceAreNotified) {
  const bool was_there = FindService(kCenterService).has_value();
  if (!was_there) InstallService(kCenterService, OwnFolder() + kServiceProgram, SERVICE_AUTO_START);
  MakeServiceHealthy(kCenterService);
  HANDLE registration = nullptr;
  ASSERT_EQ(S_OK, Register(&registration));
  RequestStop(kCenterService);
  EXPECT_TRUE(listener_.HasCalls(1));
  EXPECT_TRUE(WaitForState(kCenterService, SERVICE_STOPPED));
  Sleep(kQuiet);
  const DWORD before = listener_.calls;
  RequestStart(kCenterService);
  EXPECT_TRUE(listener_.HasCalls(before + 1));
  EXPECT_EQ(S_OK, UnRegister(registration));
  if (was_there) {
    MakeServiceHealthy(kCenterService);
  } else {
    RemoveService(kCenterService);
  }
}

TEST_F(Changes, AreNotifiedInBurstsOnRequest) {
  HANDLE first = nullptr;
  HANDLE second = nullptr;
  RequestNotifications(4, 0);  // before anybody listens
  EXPECT_FALSE(SomebodyListens());
  ASSERT_EQ(S_OK, Register(&first));
  ASSERT_EQ(S_OK, Register(&second));
  EXPECT_TRUE(SomebodyListens());
  RequestNotifications(3, 40);
  EXPECT_TRUE(listener_.HasCalls(6));
  Sleep(kQuiet);
  EXPECT_EQ(6u, listener_.calls);
  EXPECT_EQ(S_OK, UnRegister(first));
  RequestNotifications(1, 0);
  EXPECT_TRUE(listener_.HasCalls(7));
  EXPECT_EQ(S_OK, UnRegister(second));
  EXPECT_FALSE(SomebodyListens());
}

TEST_F(Changes, EndWithTheRegistration) {
  HANDLE registration = nullptr;
  ASSERT_EQ(S_OK, Register(&registration));
  ResetEvent(listener_.let_go.get());
  RequestNotifications(1'000, 1'000'000);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(listener_.entered.get(), kLimit));
  // Taken back by another thread while the callback is inside.
  struct TakeBack {
    UnRegisterFunction unregister;
    HANDLE registration;
    static DWORD WINAPI Run(void* self) {
      const auto* const call = static_cast<TakeBack*>(self);
      return static_cast<DWORD>(call->unregister(call->registration));
    }
  } take_back = {Function<UnRegisterFunction>("WscUnRegisterChanges"), registration};
  const root::ScopedKernelHandle thread(CreateThread(nullptr, 0, &TakeBack::Run, &take_back, 0, nullptr));
  EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(thread.get(), 500)) << "it returned while the callback ran";
  SetEvent(listener_.let_go.get());
  ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread.get(), kLimit));
  DWORD result = STILL_ACTIVE;
  GetExitCodeThread(thread.get(), &result);
  EXPECT_EQ(static_cast<DWORD>(S_OK), result);
  Sleep(kQuiet);
  EXPECT_EQ(1u, listener_.calls);
  EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE), UnRegister(registration));
}

TEST_F(Changes, AreRefusedAsScripted) {
  const HANDLE untouched = this;
  HANDLE registration = untouched;
  ChangesCalls().Script(kRegisterForChanges, {L"0x80004005"});
  EXPECT_EQ(E_FAIL, Register(&registration));
  EXPECT_EQ(untouched, registration);
  EXPECT_FALSE(SomebodyListens());
  const auto register_for = Function<RegisterFunction>("WscRegisterForChanges");
  EXPECT_EQ(E_INVALIDARG, register_for(this, &registration, &Listener::Called, nullptr));
  EXPECT_EQ(E_INVALIDARG, register_for(nullptr, nullptr, &Listener::Called, nullptr));
  EXPECT_EQ(E_INVALIDARG, register_for(nullptr, &registration, nullptr, nullptr));
  // A failure to unregister leaves nothing registered either.
  ChangesCalls().Script(kUnRegisterChanges, {L"0x80004005"});
  EXPECT_EQ(S_OK, Register(&registration));
  EXPECT_EQ(E_FAIL, UnRegister(registration));
  EXPECT_FALSE(SomebodyListens());
  EXPECT_THAT(ChangesCalls().Journal(),
              testing::ElementsAre(L"WscRegisterForChanges() = 0x80004005", L"WscRegisterForChanges() = 0x80070057 x3",
                                   L"WscRegisterForChanges() = 0x00000000", L"WscUnRegisterChanges() = 0x80004005"));
}

TEST_F(Changes, LibraryHasVariantsThatLackOneFunction) {
  const struct {
    const wchar_t* file;
    bool registers;
    bool unregisters;
  } variants[] = {{L"wscapi.dll", true, true},
                  {L"wscapi_without_register.dll", false, true},
                  {L"wscapi_without_unregister.dll", true, false}};
  for (const auto& variant : variants) {
    library_.reset(LoadLibraryW((OwnFolder() + variant.file).c_str()));
    ASSERT_TRUE(library_) << variant.file;
    EXPECT_EQ(variant.registers, Function<void*>("WscRegisterForChanges") != nullptr) << variant.file;
    EXPECT_EQ(variant.unregisters, Function<void*>("WscUnRegisterChanges") != nullptr) << variant.file;
  }
}

}  // namespace
}  // namespace crv::test
