// Calls of the suite's own libraries, whose functions answer 0 for success and any other number for a failure.
#pragma once

#include <windows.h>

#include <string>

#include "shared/scripted_calls.h"

namespace crv::standins {

inline constexpr DWORD kUnexpectedFailure = 0xDEAD;  // the stand-in itself is in trouble

// One call from its answer to its line in the journal, under the lock. A scripted status other than 0 is answered and nothing is
// done; otherwise `perform` gets the answer, does the work and gives the status. Never throws.
template <typename Perform>
DWORD AnsweredStatus(const ScriptedCalls& calls, const std::wstring& name, const std::wstring& arguments, Perform perform) {
  try {
    const NamedLock lock(calls.lock_name());
    if (!lock.held()) return kUnexpectedFailure;
    const Answer answer = calls.Take(name);
    DWORD status = static_cast<DWORD>(answer.code.value_or(0));
    if (status == 0) status = perform(answer);
    wchar_t text[16];
    _snwprintf(text, std::size(text), L"0x%08x", static_cast<unsigned>(status));
    calls.Append(name + L"(" + arguments + L") = " + text);
    return status;
  } catch (...) {
    return kUnexpectedFailure;
  }
}

}  // namespace crv::standins
