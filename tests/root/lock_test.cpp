#include "root/lock.h"

#include <gtest/gtest.h>

#include <new>

#include "support/import_fake.h"

namespace crv::root {
namespace {

// Another module calls the object by its slots.
struct Slots {
  void(__thiscall* lock)(CLock*);
  void(__thiscall* unlock)(CLock*);
  void(__thiscall* destroy)(CLock*, bool free_memory);
};

TEST(LockObject, WorksThroughTheSlotsOfItsInterface) {
  std::string calls;
  const auto note = [&](const char* call) {
    return [&calls, call](auto real, auto* object) { return calls += call, real(object); };
  };
  const test::ImportFake<decltype(EnterCriticalSection)> enter("kernel32.dll", "EnterCriticalSection", note("enter "));
  const test::ImportFake<decltype(LeaveCriticalSection)> leave("kernel32.dll", "LeaveCriticalSection", note("leave "));
  const test::ImportFake<decltype(DeleteCriticalSection)> remove("kernel32.dll", "DeleteCriticalSection", note("delete "));
  const void* object = nullptr;
  const test::ImportFake<void(void*)> free("msvcrt.dll", "free", [&](auto real, void* memory) {
    if (memory == object) calls += "free ";
    real(memory);
  });
  alignas(CLockCS) unsigned char place[sizeof(CLockCS)];  // whose memory is not given back
  for (CLock* const lock : {new CLockCS, new (place) CLockCS}) {
    calls = "";
    object = lock;
    const Slots& slots = **reinterpret_cast<Slots* const*>(lock);
    slots.lock(lock);
    slots.unlock(lock);
    slots.destroy(lock, object != place);
    EXPECT_EQ(object != place ? "enter leave delete free " : "enter leave delete ", calls);
  }
  const test::ImportFake<decltype(InitializeCriticalSectionAndSpinCount)> no_memory(
      "kernel32.dll", "InitializeCriticalSectionAndSpinCount", [](auto...) { return FALSE; });
  EXPECT_THROW(CLockCS(), std::bad_alloc);
}

}  // namespace
}  // namespace crv::root
