// One imported function of the test program answered by a callable for the length of a scope; see import_patch.h for what the
// import sees. The callable gets the real function and then the call's arguments:
//
//   const test::ImportFake<decltype(GetFileSize)> fake("kernel32.dll", "GetFileSize", [](auto* real, auto... arguments) {
//     return real(arguments...) + 1;
//   });
//
// Each place in the source that names the type has a thunk of its own, so it holds one living object at a time.
#pragma once

#include <functional>
#include <utility>

#include "support/import_patch.h"

namespace crv::test {

template <typename Function, typename Place, typename Result, typename... Arguments>
class ImportFakeBase {
 public:
  ImportFakeBase(const ImportFakeBase&) = delete;
  ImportFakeBase& operator=(const ImportFakeBase&) = delete;

 protected:
  using Call = std::function<Result(Function*, Arguments...)>;

  ImportFakeBase(const char* dll, const char* function, Call call, Function* thunk)
      : call_((active = this, std::move(call))), patch_(dll, function, reinterpret_cast<void*>(thunk)) {}

  static Result Forward(Arguments... arguments) {
    return active->call_(active->patch_.template original<Function*>(), arguments...);
  }

 private:
  inline static const ImportFakeBase* active = nullptr;
  Call call_;
  ImportPatch patch_;
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
