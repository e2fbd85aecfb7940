// How the stand-in for the log library is told to misbehave. The script lies in the registry, so it reaches every process; the
// library reads it anew at every call. Failures to reach the registry throw crv::exceptions::error.
//
//   HKLM\SOFTWARE\Corvid Stand-ins\Log
//     NoModule   DWORD 1   AcquireLogModule hands out nothing
//     NoLogger   DWORD 1   the module hands out no logger
//     Throw      text      the operation that throws, one of kLogOperations
#pragma once

#include <windows.h>

#include <string>

namespace crv::standins {

inline constexpr wchar_t kLogKey[] = L"SOFTWARE\\Corvid Stand-ins\\Log";
inline constexpr char kLogScriptedFailure[] = "log library: scripted failure";  // text of the std::runtime_error

// The operations that a script can name, and the word for every one of them.
inline constexpr wchar_t kLogAcquire[] = L"acquire";
inline constexpr wchar_t kLogLogger[] = L"logger";
inline constexpr wchar_t kLogOpen[] = L"open";
inline constexpr wchar_t kLogMessage[] = L"message";      // every message operation, narrow and wide
inline constexpr wchar_t kLogException[] = L"exception";  // with and without a level
inline constexpr wchar_t kLogAll[] = L"all";
inline constexpr const wchar_t* kLogOperations[] = {kLogAcquire, kLogLogger, kLogOpen, kLogMessage, kLogException, kLogAll};

struct LogScript {
  bool no_module = false;
  bool no_logger = false;
  std::wstring throw_from = {};  // empty: nothing throws
};

LogScript ReadLogScript();
void ScriptLog(const LogScript& script);  // replaces the script that is there
void ClearLogScript();

// For the library: whether the operation has to throw.
bool LogThrowsFrom(const wchar_t* operation);

}  // namespace crv::standins
