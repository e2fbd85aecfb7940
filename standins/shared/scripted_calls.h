// The calls of one stand-in: how each one is told to answer, and the journal of what was asked. Both lie in the registry, so they
// reach every process. Failures to reach the registry throw crv::exceptions::error. Any thread, any process; what says so has to
// be done while holding the lock.
//
//   <key>\Script    one list of answers per call, named as the call
//   <key>\Journal
//     Calls         list, one line per call
//
// Each call takes the first answer of its list and behaves normally once the list is empty. A call "A.b" without answers of its
// own takes those of the call "A", where there is one. An answer is
//
//   ok            behave normally
//   0x8000000a    answer this code; a failure changes nothing, a success code is given after performing the call
//   null          succeed with a null interface pointer; only for calls that hand one out
//   crash         write to address 0
//
// optionally with "forever " before it (never used up) or " xN" behind it (good for N calls).
#pragma once

#include <windows.h>

#include <cstdio>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "base/exceptions.h"
#include "shared/named_lock.h"

namespace crv::standins {

struct Answer {
  std::optional<HRESULT> code;  // absent: behave normally
  bool null_pointer = false;
};

// Calls that answer an HRESULT.
struct ComCall {
  using Result = HRESULT;
  static bool Failed(Result result) { return FAILED(result); }
  static Result OwnTrouble(DWORD error) { return HRESULT_FROM_WIN32(error); }
};

// Calls of the suite's own libraries: 0 is success, every other number a failure.
struct StatusCall {
  using Result = DWORD;
  static bool Failed(Result result) { return result != 0; }
  static Result OwnTrouble(DWORD) { return 0xDEAD; }
};

class ScriptedCalls {
 public:
  struct Call {
    std::wstring name;
    bool hands_out_interface = false;
  };

  // `lock_name` and the name of each call stay the same for all processes.
  ScriptedCalls(const wchar_t* key, const wchar_t* lock_name, std::vector<Call> calls);

  const wchar_t* lock_name() const { return lock_name_; }
  std::vector<std::wstring> Names() const;

  // Replaces the answers of one call; an empty list lets it behave normally. A name or an answer that is none throws
  // crv::exceptions::fatal with code 87.
  void Script(const std::wstring& name, const std::vector<std::wstring>& answers) const;

  // The journal: the last 2,000 lines, oldest first. A call that repeats the one before it adds to that line's " xN".
  std::vector<std::wstring> Journal() const;
  void ClearJournal() const;

  // For the stand-in, under the lock: the answer that the call has to give now, used up; and a line of the journal.
  Answer Take(const std::wstring& name) const;
  void Append(const std::wstring& line) const;

  // For the stand-in: one call from its answer to its line in the journal, under the lock. A `refusal` is answered at once and
  // uses up no answer; one that is no failure refuses nothing. `perform` gets the answer, changes the state and gives the normal
  // result. Never throws. `Kind` says how the call tells a failure.
  template <typename Kind = ComCall, typename Perform>
  typename Kind::Result Answered(const std::wstring& name, const std::wstring& arguments, typename Kind::Result refusal,
                                 Perform perform) const;

 private:
  const Call* Find(const std::wstring& name) const;  // null: there is no such call

  std::wstring script_key_;
  std::wstring journal_key_;
  const wchar_t* lock_name_;
  std::vector<Call> calls_;
};

template <typename Kind, typename Perform>
typename Kind::Result ScriptedCalls::Answered(const std::wstring& name, const std::wstring& arguments,
                                              typename Kind::Result refusal, Perform perform) const {
  try {
    const NamedLock lock(lock_name_);
    if (!lock.held()) return Kind::OwnTrouble(WAIT_TIMEOUT);
    typename Kind::Result result = refusal;
    if (!Kind::Failed(refusal)) {
      const Answer answer = Take(name);
      result = static_cast<typename Kind::Result>(answer.code.value_or(0));
      if (!Kind::Failed(result)) {
        const typename Kind::Result performed = perform(answer);
        if (!answer.code) result = performed;
      }
    }
    wchar_t code[16];
    _snwprintf(code, std::size(code), L"0x%08x", static_cast<unsigned>(result));
    Append(name + L"(" + arguments + L") = " + code);
    return result;
  } catch (const exceptions::error& error) {
    return Kind::OwnTrouble(error.code());
  } catch (...) {
    return Kind::OwnTrouble(ERROR_GEN_FAILURE);
  }
}

}  // namespace crv::standins
