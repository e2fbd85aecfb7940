// What the library calls of the system and of the suite, and how each of these functions says that it failed. Every import of
// wsc.dll and every function that it looks up stands here once, in one of three ways: it can fail, it cannot, or it is never
// called by what the sweep runs.
#pragma once

#include <windows.h>

#include <initializer_list>
#include <string_view>
#include <vector>

namespace crv::sweep {

// Where a failure's code is found.
enum class Channel {
  last_error,  // GetLastError; the function returns `failed`
  result,      // the function returns the code: a Windows error, an HRESULT, an NTSTATUS or a component's status
  none,        // the function returns `failed` and gives no code
  throws,      // a C++ exception, std::runtime_error
};

inline constexpr int kCdecl = 0;  // the caller takes the arguments off the stack
inline constexpr int kNoText = -1;
inline constexpr int kNarrow = 0x100;  // beside the position of a text: it is a narrow one

struct Function {
  std::string_view name;  // of a method: "Interface.Method"
  int argument_bytes;     // that a stdcall function takes off the stack; kCdecl
  DWORD failed;           // what it returns when it fails, unless that is the code
  Channel channel;
  std::initializer_list<DWORD> codes;  // with which it is made to fail, one after the other
  int text_argument = kNoText;         // the position of a text that says what the call is about
  int needed_argument = kNoText;       // a call with null at this position is none that fails
};

// The names of what the library calls, and those that stand in more than one list.
std::vector<std::string_view> ListedNames();
std::vector<std::string_view> NamesListedTwice();

// Null for a function that cannot fail or is never called.
const Function* FindFailing(std::string_view name);

// Why a function does not stand among those that fail; null when it does, or is not known at all.
const char* ReasonNotToFail(std::string_view name);

// Whether the list says of a function that no scenario calls it; a call is then a fault of the list.
bool IsListedAsNeverCalled(std::string_view name);

}  // namespace crv::sweep
