#include "crashguard/thrown_type.h"

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "base/exceptions.h"
#include "platform/structured_guard.h"
#include "platform/throw_record.h"
#include "support/import_fake.h"

namespace crv::crashguard {
namespace {

using namespace platform;

DWORD Address(const void* pointer) { return reinterpret_cast<DWORD>(pointer); }

// A record as Microsoft's compiler makes it, with addresses counted from `base`.
struct Throw {
  explicit Throw(const char* name, const void* base = nullptr) {
    std::strcpy(descriptor.name, name);
    catchable.type = Address(&descriptor) - Address(base);
    array.count = 1;
    array.types[0] = Address(&catchable) - Address(base);
    info.types = Address(&array) - Address(base);
    record.ExceptionCode = kThrownObject;
    record.NumberParameters = base ? 4 : 3;
    record.ExceptionInformation[kMagic] = kThrowMagic;
    record.ExceptionInformation[kThrowInfo] = Address(&info);
    record.ExceptionInformation[kImageBase] = Address(base);
  }

  TypeDescriptor descriptor = {};
  CatchableType catchable = {};
  CatchableTypeArray array = {};
  ThrowInfo info = {};
  EXCEPTION_RECORD record = {};
};

TEST(ThrownType, IsTheWholeNameOfTheFirstType) {
  const int base = 0;
  EXPECT_TRUE(IsFatalException(Throw("class crv::exceptions::fatal").record));
  EXPECT_TRUE(IsFatalException(Throw(".?AVfatal@exceptions@crv@@").record));
  EXPECT_TRUE(IsFatalException(Throw(".?AVfatal@exceptions@crv@@", &base).record));
  for (const char* name : {"class crv::exceptions::error", ".?AVerror@exceptions@crv@@", "class crv::exceptions::fatal2",
                           "crv::exceptions::fatal", ".?AVfatal@exceptions@crv@", ""}) {
    EXPECT_FALSE(IsFatalException(Throw(name).record)) << name;
  }
  Throw thrown("class crv::exceptions::fatal");
  EXPECT_FALSE(IsUncaughtAgain(thrown.record));
  thrown.info.attributes = kUncaught;
  EXPECT_TRUE(IsFatalException(thrown.record) && IsUncaughtAgain(thrown.record));
}

bool fatal = false;

LONG WINAPI Note(EXCEPTION_POINTERS* pointers) {
  fatal = IsFatalException(*pointers->ExceptionRecord);
  return EXCEPTION_CONTINUE_SEARCH;
}

TEST(ThrownType, IsKnownWithoutMemoryForItsName) {
  const test::ImportFake<void*(void*, std::size_t)> none("msvcrt.dll", "realloc",
                                                         [](auto*, auto...) -> void* { return nullptr; });
  void* const handler = AddVectoredExceptionHandler(1, &Note);
  std::ignore = Guarded([] { ThrowRecord(nullptr, typeid(exceptions::fatal)).Raise(); });
  EXPECT_TRUE(fatal);
  std::ignore = Guarded([] { ThrowRecord(nullptr, typeid(exceptions::error)).Raise(); });
  EXPECT_FALSE(fatal);
  RemoveVectoredExceptionHandler(handler);
}

TEST(ThrownType, ARecordThatIsNotWhatItClaimsIsNobodysThrow) {
  const struct {
    const char* description;
    void (*spoil)(Throw& thrown);
  } rows[] = {
      {"another code", [](Throw& t) { t.record.ExceptionCode = 0xE06D7364; }},
      {"too few parameters", [](Throw& t) { t.record.NumberParameters = 2; }},
      {"thrown again", [](Throw& t) { t.record.ExceptionInformation[kThrowInfo] = 0; }},
      {"wild information", [](Throw& t) { t.record.ExceptionInformation[kThrowInfo] = 0x10; }},
      {"a wild array", [](Throw& t) { t.info.types = 0xFFFFFFF0; }},
      {"no types", [](Throw& t) { t.array.count = 0; }},
      {"a wild type", [](Throw& t) { t.array.types[0] = 3; }},
      {"a wild name", [](Throw& t) { t.catchable.type = 0x7FFF0000; }},
      {"a wild base", [](Throw& t) { t.record.NumberParameters = 4, t.record.ExceptionInformation[kImageBase] = 0x7F000000; }},
  };
  for (const auto& row : rows) {
    Throw thrown("class crv::exceptions::fatal");
    row.spoil(thrown);
    EXPECT_FALSE(IsFatalException(thrown.record)) << row.description;
  }
}

}  // namespace
}  // namespace crv::crashguard
