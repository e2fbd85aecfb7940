#include "root/lock.h"

#include <gtest/gtest.h>

#include <new>

#include "support/import_patch.h"

namespace crv::root {
namespace {

std::string calls;  // what reached the system, in order
void* freed = nullptr;

BOOL WINAPI NoMemory(CRITICAL_SECTION*, DWORD) { return FALSE; }
void WINAPI Enter(CRITICAL_SECTION*) { calls += "enter "; }
void WINAPI Leave(CRITICAL_SECTION*) { calls += "leave "; }
void(WINAPI* real_delete)(CRITICAL_SECTION*) = nullptr;
void WINAPI Delete(CRITICAL_SECTION* section) {
  calls += "delete ";
  real_delete(section);
}
void(__cdecl* real_free)(void*) = nullptr;
void __cdecl Free(void* memory) {
  freed = memory;
  real_free(memory);
}

// Another module calls the object by its slots.
struct Slots {
  void(__thiscall* lock)(CLock*);
  void(__thiscall* unlock)(CLock*);
  void(__thiscall* destroy)(CLock*, bool free_memory);
};

TEST(LockObject, WorksThroughTheSlotsOfItsInterface) {
  alignas(CLockCS) unsigned char place[sizeof(CLockCS)];
  for (const bool on_heap : {true, false}) {
    auto* const object = on_heap ? new CLockCS : new (place) CLockCS;
    EXPECT_EQ(1, object->count());
    CLock* const lock = object;
    const Slots& slots = **reinterpret_cast<Slots**>(lock);
    calls.clear();
    freed = nullptr;
    {
      const test::ImportPatch enter("kernel32.dll", "EnterCriticalSection", reinterpret_cast<void*>(&Enter));
      const test::ImportPatch leave("kernel32.dll", "LeaveCriticalSection", reinterpret_cast<void*>(&Leave));
      const test::ImportPatch remove("kernel32.dll", "DeleteCriticalSection", reinterpret_cast<void*>(&Delete));
      const test::ImportPatch free("msvcrt.dll", "free", reinterpret_cast<void*>(&Free));
      real_delete = remove.original<decltype(real_delete)>();
      real_free = free.original<decltype(real_free)>();
      slots.lock(lock);
      slots.unlock(lock);
      slots.destroy(lock, on_heap);
    }
    EXPECT_EQ("enter leave delete ", calls);
    EXPECT_EQ(on_heap ? object : nullptr, freed);
  }
}

TEST(LockObject, WithoutMemoryThereIsNone) {
  const test::ImportPatch make("kernel32.dll", "InitializeCriticalSectionAndSpinCount", reinterpret_cast<void*>(&NoMemory));
  EXPECT_THROW(CLockCS(), std::bad_alloc);
}

}  // namespace
}  // namespace crv::root
