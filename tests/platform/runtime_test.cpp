// What the compiler's runtime is made to do: throws that vectored handlers see, a guard against structured exceptions, a spare stack.
#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>
#include <cstdlib>
#include <locale>
#include <new>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "platform/bounded_text.h"
#include "platform/frame_registration.h"
#include "platform/spare_stack.h"
#include "platform/structured_guard.h"
#include "platform/throw_record.h"
#include "platform/tick_count.h"
#include "platform/type_name.h"
#include "support/import_fake.h"

namespace crv::platform {
namespace {

std::vector<std::string> seen;
const void* seen_object = nullptr;
bool notes = false;   // the vectored handler below; the system keeps one for good that a fault has left
bool faults = false;  // it
bool ends = false;    // it ends the process when it sees the second throw
int unwound = 0;

LONG WINAPI Note(EXCEPTION_POINTERS* pointers) {
  const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
  if (!notes || record.ExceptionCode != kThrownObject) return EXCEPTION_CONTINUE_SEARCH;
  if (faults) RaiseException(0x99, 0, 0, nullptr);
  EXPECT_EQ(3u, record.NumberParameters);
  EXPECT_EQ(kThrowMagic, record.ExceptionInformation[kMagic]);
  const void* const before = seen_object;
  seen_object = reinterpret_cast<const void*>(record.ExceptionInformation[kObject]);
  const auto* const info = reinterpret_cast<const ThrowInfo*>(record.ExceptionInformation[kThrowInfo]);
  const auto* const array = reinterpret_cast<const CatchableTypeArray*>(info->types);
  const auto* const type = reinterpret_cast<const CatchableType*>(array->types[0]);
  seen.push_back(reinterpret_cast<const TypeDescriptor*>(type->type)->name);
  if (ends && seen.size() == 2) TerminateProcess(GetCurrentProcess(), seen_object == before ? 7 : 1);
  return EXCEPTION_CONTINUE_SEARCH;
}

EXCEPTION_DISPOSITION __cdecl CountUnwinding(EXCEPTION_RECORD* exception, void*, CONTEXT*, void*) {
  if (exception->ExceptionFlags & kUnwinding) ++unwound;
  return ExceptionContinueSearch;
}

class RuntimeHooks : public testing::Test {
 protected:
  RuntimeHooks() {
    seen.clear();
    notes = true;
  }
  ~RuntimeHooks() override {
    notes = false;
    RemoveVectoredExceptionHandler(handler_);
  }

  void* const handler_ = AddVectoredExceptionHandler(1, &Note);
};

TEST_F(RuntimeHooks, EveryThrowIsSeenBeforeItIsCaught) {
  try {
    throw std::runtime_error("x");
  } catch (const std::runtime_error& failure) {
    EXPECT_EQ(&failure, seen_object);
  }
  EXPECT_THROW(std::string().at(1), std::out_of_range);
  EXPECT_THROW(throw 3, int);
  EXPECT_EQ((std::vector<std::string>{"class std::runtime_error", "class std::out_of_range", "class int"}), seen);
  using LongName = std::make_integer_sequence<int, 100>;
  EXPECT_THROW(throw LongName(), LongName);
  EXPECT_EQ(255u, seen.back().size()) << "it is cut";
}

TEST_F(RuntimeHooks, AnotherExceptionMeanwhileIsNotTakenForTheThrow) {
  faults = true;
  EXPECT_EQ(0x99u, Guarded([] { EXPECT_THROW(throw 3, int); }));
  faults = false;
}

[[gnu::noinline]] void ThrowThree() { throw 3; }

TEST_F(RuntimeHooks, WhatNobodyCatchesIsRaisedAgainAndAbortAsksItsHandler) {
  const auto fail = []() noexcept {
    ends = true;
    ThrowThree();
  };
  EXPECT_EXIT(fail(), testing::ExitedWithCode(7), "");
  EXPECT_EXIT((std::signal(SIGABRT, [](int) { std::_Exit(8); }), std::abort()), testing::ExitedWithCode(8), "");
}

struct Counted {
  explicit Counted(int& count) : count_(count) { ++count_; }
  ~Counted() { --count_; }
  int& count_;
};

TEST(StructuredGuard, GivesTheCodeOfWhatEndedTheBody) {
  const void* const chain = HandlerChain();
  int sum = 7;
  volatile int* volatile const nowhere = nullptr;
  EXPECT_EQ(std::nullopt, Guarded([&] { sum += 1; }));
  EXPECT_EQ(0u, Guarded([&] { RaiseException(0, 0, 0, nullptr); }));
  EXPECT_EQ(static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION), Guarded([&] { sum += *nowhere; }));
  EXPECT_EQ(0x1234u, Guarded([&] {
              const FrameRegistration between(&CountUnwinding);
              EXPECT_EQ(0x77u, Guarded([] { RaiseException(0x77, 0, 0, nullptr); }));
              RaiseException(0x1234, EXCEPTION_NONCONTINUABLE, 0, nullptr);
              sum = 0;
            }));
  EXPECT_EQ(8, sum);
  EXPECT_EQ(1, unwound) << "the frames in between are asked to clean up";
  int alive = 0;
  EXPECT_THROW(std::ignore = Guarded([&] {
                 const Counted counted(alive);
                 throw 3;
               }),
               int)
      << "a C++ exception is none of the guard's";
  EXPECT_EQ(0, alive);
  EXPECT_EQ(chain, HandlerChain());
}

// The handler at the end of the thread's chain, all of which lies on what the system knows as the stack; null when it does not.
FrameHandler LastHandler() {
  const auto* frame = static_cast<const FrameRegistration*>(HandlerChain());
  for (; IsOnThreadStack(frame); frame = frame->previous) {
    if (reinterpret_cast<std::intptr_t>(frame->previous) == -1) return frame->handler;
  }
  return nullptr;
}

TEST(SpareStack, RunsTheBodyElsewhereAndComesBack) {
  static FrameHandler last_handler;
  const void* const chain = HandlerChain();
  ASSERT_NE(nullptr, last_handler = LastHandler());
  const char* place = nullptr;
  RunOnSpareStack(
      [](void* context) {
        volatile char much[kSpareStackSize / 2] = {};
        const char* const here = const_cast<const char*>(much);
        *static_cast<const char**>(context) = here;
        EXPECT_THROW(throw 3, int);
        EXPECT_FALSE(IsOnThreadStack(here)) << "a dump shows the other stack";
        EXPECT_EQ(0x77u, Guarded([here] {
                    const KnownSpareStack stack;
                    EXPECT_TRUE(IsOnThreadStack(here));
                    EXPECT_EQ(last_handler, LastHandler()) << "Windows may look at all of it before it asks anyone";
                    EXPECT_THROW(throw 3, int);
                    OutputDebugStringA("raises and goes on");
                    RaiseException(0x77, 0, 0, nullptr);
                  }));
        EXPECT_FALSE(IsOnThreadStack(here)) << "after a fault, too";
        { const KnownSpareStack stack; }
        EXPECT_FALSE(IsOnThreadStack(here));
      },
      &place);
  EXPECT_EQ(chain, HandlerChain());
  const KnownSpareStack nothing_here;
  EXPECT_FALSE(IsOnThreadStack(place));
  MEMORY_BASIC_INFORMATION end = {};
  VirtualQuery(place - kSpareStackSize / 2 + 0x800, &end, sizeof(end));  // amid the guard page
  EXPECT_EQ(DWORD{PAGE_NOACCESS}, end.Protect);
}

TEST(TypeName, IsWholeOrThereIsNoMemory) {
  EXPECT_EQ("struct std::runtime_error", StructTypeName(typeid(std::runtime_error)));
  EXPECT_EQ("class std::exception", ClassTypeName(typeid(std::exception)));
  const test::ImportFake<void*(void*, std::size_t)> none("msvcrt.dll", "realloc",
                                                         [](auto*, auto...) -> void* { return nullptr; });
  EXPECT_THROW(StructTypeName(typeid(std::runtime_error)), std::bad_alloc);
}

TEST(Once, NeedsNoMemoryAndDoesAgainWhatThrew) {
  const test::ImportFake<void*(std::size_t, std::size_t)> none("msvcrt.dll", "calloc",
                                                               [](auto*, auto...) -> void* { return nullptr; });
  static int calls;
  pthread_once_t once = PTHREAD_ONCE_INIT;
  EXPECT_THROW(pthread_once(&once, [] { throw ++calls; }), int);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(0, pthread_once(&once, [] { ++calls; }));
  EXPECT_EQ(2, calls);
}

// The exception passes functions of the C++ library: each needs its exception frames in the image.
TEST(Runtime, FailedAllocationsInTheLibrarysOwnFunctionsAreCaught) {
  const std::string text(100, 'x');
  const test::ImportFake<void*(std::size_t)> none("msvcrt.dll", "malloc", [](auto, std::size_t) { return nullptr; });
  const test::ImportFake<void*(std::size_t, std::size_t)> nor_cleared("msvcrt.dll", "calloc",
                                                                      [](auto*, auto...) -> void* { return nullptr; });
  EXPECT_THROW(std::runtime_error("of a C string"), std::bad_alloc);
  EXPECT_THROW(std::runtime_error{text}, std::bad_alloc);
  EXPECT_THROW(std::string(text).size(), std::bad_alloc);
  EXPECT_THROW(std::to_string(1.0e300).size(), std::bad_alloc);
  EXPECT_THROW(std::locale(std::locale::classic(), new std::ctype<char>), std::bad_alloc);
}

TEST(BoundedText, WhatDoesNotFitLeavesNothing) {
  wchar_t text[] = L"\0    behind";
  EXPECT_TRUE(wcscpy_s(text, 5, L"ab") && wcscat_s(text, 5, L"cd"));
  EXPECT_STREQ(L"abcd", text);
  EXPECT_STREQ(L"behind", text + 5);
  EXPECT_FALSE(wcscat_s(text, 5, L"e"));
  EXPECT_STREQ(L"", text);
  EXPECT_TRUE(swprintf_s(text, 5, L"%s%d", L"abc", 1));
  EXPECT_STREQ(L"abc1", text);
  EXPECT_FALSE(wcscpy_s(text, 5, L"abcde"));
  EXPECT_STREQ(L"", text);
  EXPECT_FALSE(swprintf_s(text, 5, L"%s", L"abcde"));
  EXPECT_STREQ(L"", text);
}

// Behind the third question another thread asks as well, when the system has begun again.
constexpr DWORD kTicks[] = {5, 0xFFFFFFFF, 0xFFFFFFFF, 3, 3, 2};
const DWORD* next_tick = kTicks;
volatile LONGLONG last_tick = 0;

DWORD WINAPI NextTick() {
  if (next_tick == &kTicks[2]) last_tick = 1LL << 32;
  return *next_tick++;
}

TEST(TickCount, GoesOnWhereTheSystemsBeginsAgain) {
  for (const ULONGLONG expected : {5ULL, 0xFFFFFFFFULL, 0x100000003ULL, 0x100000003ULL, 0x200000002ULL}) {
    EXPECT_EQ(expected, LongTickCount(last_tick, &NextTick));
  }
}

}  // namespace
}  // namespace crv::platform
