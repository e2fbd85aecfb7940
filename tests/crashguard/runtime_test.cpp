// What the compiler's runtime is made to do: throws that vectored handlers see, and a guard against structured exceptions.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "base/exceptions.h"
#include "platform/frame_registration.h"
#include "platform/spare_stack.h"
#include "platform/structured_guard.h"
#include "platform/throw_record.h"

namespace crv::platform {
namespace {

std::vector<std::string> seen;
const void* seen_object = nullptr;

LONG WINAPI Note(EXCEPTION_POINTERS* pointers) {
  const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
  if (record.ExceptionCode != kThrownObject) return EXCEPTION_CONTINUE_SEARCH;
  EXPECT_EQ(3u, record.NumberParameters);
  EXPECT_EQ(kThrowMagic, record.ExceptionInformation[kMagic]);
  seen_object = reinterpret_cast<const void*>(record.ExceptionInformation[kObject]);
  const auto* const info = reinterpret_cast<const ThrowInfo*>(record.ExceptionInformation[kThrowInfo]);
  const auto* const array = reinterpret_cast<const CatchableTypeArray*>(info->types);
  const auto* const type = reinterpret_cast<const CatchableType*>(array->types[0]);
  seen.push_back(reinterpret_cast<const TypeDescriptor*>(type->type)->name);
  return EXCEPTION_CONTINUE_SEARCH;
}

class RuntimeHooks : public testing::Test {
 protected:
  RuntimeHooks() { seen.clear(); }
  ~RuntimeHooks() override { RemoveVectoredExceptionHandler(handler_); }

  void* const handler_ = AddVectoredExceptionHandler(1, &Note);
};

TEST_F(RuntimeHooks, EveryThrowIsSeenBeforeItIsCaught) {
  const void* caught = nullptr;
  try {
    throw exceptions::fatal(87, "x");
  } catch (const exceptions::fatal& failure) {
    caught = &failure;
    EXPECT_EQ(std::vector<std::string>{"class crv::exceptions::fatal"}, seen);
    EXPECT_EQ(caught, seen_object);
  }
  EXPECT_THROW(std::string().at(1), std::out_of_range);
  EXPECT_THROW(throw 3, int);
  EXPECT_EQ((std::vector<std::string>{"class crv::exceptions::fatal", "class std::out_of_range", "class int"}), seen);
}

struct Counted {
  explicit Counted(int& count) : count_(count) { ++count_; }
  ~Counted() { --count_; }
  int& count_;
};

TEST_F(RuntimeHooks, ATypeWithALongNameIsCut) {
  struct ALocalTypeWithANameThatIsLongerThanTheRoomInTheRecord_0123456789012345678901234567890123456789012345678901234567890123456789
      : std::vector<std::vector<std::vector<std::vector<std::string>>>> {};
  using Long = ALocalTypeWithANameThatIsLongerThanTheRoomInTheRecord_0123456789012345678901234567890123456789012345678901234567890123456789;
  struct Longer {};
  try {
    throw std::pair<Long, std::vector<std::vector<std::vector<Long>>>>();
  } catch (...) {
  }
  ASSERT_EQ(1u, seen.size());
  EXPECT_EQ(255u, seen[0].size());
}

TEST_F(RuntimeHooks, TheHandlerChainIsAsBefore) {
  const void* const chain = HandlerChain();
  int alive = 0;
  try {
    Guarded([&] {
      const Counted counted(alive);
      throw std::runtime_error("through the guard");
    });
    ADD_FAILURE() << "a C++ exception is none of the guard's";
  } catch (const std::runtime_error&) {
  }
  EXPECT_EQ(0, alive);
  EXPECT_EQ(chain, HandlerChain());
}

TEST(StructuredGuard, GivesTheCodeOfWhatEndedTheBody) {
  const void* const chain = HandlerChain();
  int sum = 7;
  volatile int* volatile const nowhere = nullptr;
  EXPECT_EQ(0u, Guarded([&] { sum += 1; }));
  EXPECT_EQ(static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION), Guarded([&] { sum += *nowhere; }));
  EXPECT_EQ(0x1234u, Guarded([&] {
              EXPECT_EQ(0x77u, Guarded([] { RaiseException(0x77, 0, 0, nullptr); }));
              RaiseException(0x1234, EXCEPTION_NONCONTINUABLE, 0, nullptr);
              sum = 0;
            }));
  EXPECT_EQ(8, sum);
  EXPECT_EQ(chain, HandlerChain());
}

TEST(SpareStack, RunsTheBodyElsewhereAndComesBack) {
  struct Frames {
    const char* here;
    std::ptrdiff_t distance;
  } frames = {};
  char local = 0;
  frames.here = &local;
  RunOnSpareStack(
      [](void* context) {
        volatile char far_away[kSpareStackSize / 2] = {};
        Frames& frames = *static_cast<Frames*>(context);
        frames.distance = const_cast<const char*>(far_away) - frames.here;
        try {
          throw std::runtime_error("caught on the spare stack");
        } catch (const std::runtime_error&) {
        }
      },
      &frames);
  EXPECT_GT(std::abs(frames.distance), 0x10000);
}

}  // namespace
}  // namespace crv::platform
