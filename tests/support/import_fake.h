// Answers one function of the system with a callable for the length of a scope: an import of the test program by exchanging its place
// in the import table, and one that the product looks up by name by answering the look-up. It sees every call that the test program and
// the product's static libraries in it make; calls made inside DLLs are untouched. Set it up and end it only while no other thread calls
// the function. The callable gets the real function and then the call's arguments:
//
//   const test::ImportFake<decltype(GetFileSize)> fake("kernel32.dll", "GetFileSize", [](auto* real, auto... arguments) {
//     return real(arguments...) + 1;
//   });
//
// Each place in the source that names the type has a thunk of its own, so it holds one living object at a time.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <functional>
#include <utility>

#include "shared/import_table.h"
#include "shared/looked_up.h"

namespace crv::test {

template <typename Function, typename Place, typename Result, typename... Arguments>
class ImportFakeBase {
 public:
  ImportFakeBase(const ImportFakeBase&) = delete;
  ImportFakeBase& operator=(const ImportFakeBase&) = delete;

 protected:
  using Call = std::function<Result(Function*, Arguments...)>;

  // `dll` as the import table names it, without regard to case. Fails the running test when the library has no such function.
  ImportFakeBase(const char* dll, const char* function, Call call, Function* thunk)
      : call_(std::move(call)), function_(function), slot_(standins::FindImport(dll, function)) {
    active = this;
    if (slot_) {
      real_ = reinterpret_cast<Function*>(*slot_);
      standins::WriteImport(slot_, reinterpret_cast<void*>(thunk));
    } else {
      real_ = reinterpret_cast<Function*>(standins::AnswerLookUps(dll, function, reinterpret_cast<void*>(thunk)));
      EXPECT_NE(nullptr, real_) << "there is no " << dll << "!" << function;
    }
  }
  ~ImportFakeBase() {
    if (slot_) {
      standins::WriteImport(slot_, reinterpret_cast<void*>(real_));
    } else {
      standins::EndAnswer(function_);
    }
  }

  static Result Forward(Arguments... arguments) { return active->call_(active->real_, arguments...); }

 private:
  inline static const ImportFakeBase* active = nullptr;
  const Call call_;
  const char* const function_;
  void** const slot_;  // null: it is looked up
  Function* real_ = nullptr;
};

template <typename Function, typename Place = decltype([] {})>
class ImportFake;

template <typename Place, typename Result, typename... Arguments>
class ImportFake<Result WINAPI(Arguments...), Place> : ImportFakeBase<Result WINAPI(Arguments...), Place, Result, Arguments...> {
 public:
  ImportFake(const char* dll, const char* function, typename ImportFake::Call call)
      : ImportFake::ImportFakeBase(dll, function, std::move(call), &Thunk) {}

 private:
  static Result WINAPI Thunk(Arguments... arguments) { return ImportFake::Forward(arguments...); }
};

template <typename Place, typename Result, typename... Arguments>
class ImportFake<Result(Arguments...), Place> : ImportFakeBase<Result(Arguments...), Place, Result, Arguments...> {
 public:
  ImportFake(const char* dll, const char* function, typename ImportFake::Call call)
      : ImportFake::ImportFakeBase(dll, function, std::move(call), &Thunk) {}

 private:
  static Result Thunk(Arguments... arguments) { return ImportFake::Forward(arguments...); }
};

}  // namespace crv::test
