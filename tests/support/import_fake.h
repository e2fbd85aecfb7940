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

template <typename Function, typename Place = decltype([] {})>
class ImportFake;

template <typename Place, typename Result, typename... Arguments>
class ImportFake<Result WINAPI(Arguments...), Place> {
 public:
  using Function = Result WINAPI(Arguments...);

  ImportFake(const char* dll, const char* function, std::function<Result(Function*, Arguments...)> call)
      : call_((active = this, std::move(call))), patch_(dll, function, reinterpret_cast<void*>(&Thunk)) {}
  ImportFake(const ImportFake&) = delete;
  ImportFake& operator=(const ImportFake&) = delete;

 private:
  static Result WINAPI Thunk(Arguments... arguments) {
    return active->call_(active->patch_.template original<Function*>(), arguments...);
  }

  inline static const ImportFake* active = nullptr;
  std::function<Result(Function*, Arguments...)> call_;
  ImportPatch patch_;
};

}  // namespace crv::test
