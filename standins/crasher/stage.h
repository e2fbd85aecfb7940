// What one crash happens on: the crash guard as it was told to be installed. Built by main.cpp, used by the cases.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>

#include "crashguard/crash_guard.h"

namespace crv::standins::crasher {

struct Stage {
  std::wstring folder;         // of the dumps
  std::wstring dumper_folder;  // empty: that of the program
  std::uint32_t flags = crashguard::install_flags::kUsual;
  std::int32_t limit = 3;
  std::shared_ptr<crashguard::ICrashGuardModule> guard;
  std::unique_ptr<mi::IEventConnection> spoilt;  // the handler that SpoilHandler connected

  std::uint32_t Install() const { return guard->Install(folder, dumper_folder, flags, limit); }
};

// One way to crash. What it returns, if it does, is the program's exit code.
struct Case {
  const wchar_t* name;
  const wchar_t* purpose;
  int (*run)(Stage& stage);
  bool installs_itself = false;  // the guard is not installed beforehand
};

// The cases, by the file that they are in. Each list ends with a case without a name.
extern const Case kFaults[];         // one fault in a process that is guarded
extern const Case kInstallations[];  // what becomes of the guard before the fault, and afterwards

// A fault whose place a debugger can name: writes one byte to address 0.
void WriteToNull();

// Makes an imported function behave as it does elsewhere: "shutdown", the system is shutting down; "service", the process runs
// under LocalSystem. False when the word is unknown.
bool Pretend(const std::wstring& what);

// What the log library does at every record from now on, and what an event handler does, before they go on: "raises", they tell
// the debugger something, which the system does by an exception; "faults"; "throws". False when the word is unknown.
bool SpoilLog(const std::wstring& how);
bool SpoilHandler(Stage& stage, const std::wstring& how);

}  // namespace crv::standins::crasher
