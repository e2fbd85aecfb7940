// The stand-in for the suite's external dumper (cvDump32.exe): which runs it made and how it behaves. Everything lies in the
// registry. Failures to reach it throw crv::exceptions::error. Any thread, any process.
//
//   HKLM\SOFTWARE\Corvid Stand-ins\Dumper
//     Runs       list, the exact command line of each run, oldest first
//     Behaviour  text, absent: it writes the dump; "exit": it ends at once; "hang": it does nothing for a minute; "crash": it
//                crashes before it writes
//     ExitCode   DWORD, with which it ends when all went well; absent: 0
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace crv::standins {

inline constexpr wchar_t kDumperWrites[] = L"write";
inline constexpr wchar_t kDumperExits[] = L"exit";
inline constexpr wchar_t kDumperHangs[] = L"hang";
inline constexpr wchar_t kDumperCrashes[] = L"crash";
inline constexpr const wchar_t* kDumperBehaviours[] = {kDumperWrites, kDumperExits, kDumperHangs, kDumperCrashes};

struct DumperBehaviour {
  std::wstring what = kDumperWrites;
  DWORD exit_code = 0;
};

DumperBehaviour ReadDumperBehaviour();
void ScriptDumper(const DumperBehaviour& behaviour);

std::vector<std::wstring> DumperRuns();
void AddDumperRun(const std::wstring& command_line);  // for the dumper

void ClearDumper();  // a dumper that writes, and no runs

}  // namespace crv::standins
