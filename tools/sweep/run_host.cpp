#include "sweep/run_host.h"

#include <cstring>
#include <sstream>

#include "base/exceptions.h"
#include "root/scoped_handle.h"
#include "shared/places.h"
#include "sweep/machine.h"

namespace crv::sweep {
namespace {

constexpr DWORD kProgramsEnd = 3'000;  // ms that the suite's programs have to end when the host has ended

// The section of memory, made once and used by one host after the other.
struct Section {
  Section() : name(L"Local\\CorvidSweep" + std::to_wstring(GetCurrentProcessId())) {
    handle.reset(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(ControlBlock), name.c_str()));
    block = static_cast<ControlBlock*>(MapViewOfFile(handle.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
    if (!block) throw exceptions::error(GetLastError(), "no memory to share with the host");
  }
  std::wstring name;
  root::ScopedKernelHandle handle;
  ControlBlock* block;
};

Section& TheSection() {
  static Section section;
  return section;
}

void Fill(ControlBlock& block, const Request& request, const Fault& fault) {
  std::memset(&block, 0, sizeof(block));
  wcsncpy(block.command_line, request.command_line.c_str(), std::size(block.command_line) - 1);
  block.after = request.after;
  block.twice = request.twice;
  block.pretend_ordinary = request.pretend_ordinary;
  strncpy(block.function, fault.function.c_str(), sizeof(block.function) - 1);
  block.call = fault.call;
  block.code = fault.code;
}

root::ScopedFile ErrorFile(const std::wstring& path) {
  SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
  return root::ScopedFile(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      &inherited, CREATE_ALWAYS, 0, nullptr));
}

// "date time process thread level tag text" to "level tag text"
void AddRecords(Outcome& outcome, const std::string& text, DWORD own_process) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::istringstream words(line);
    std::string date, time, process, thread, level, tag, rest;
    words >> date >> time >> process >> thread >> level >> tag;
    std::getline(words >> std::ws, rest);
    if (process != std::to_string(own_process)) continue;  // of a host that this one started
    outcome.records.push_back(level + " " + tag + " " + rest);
    constexpr std::string_view kRun = "run: ";
    if (tag == "wsc" && rest.starts_with(kRun)) outcome.run_records.push_back(rest.substr(kRun.size()));
  }
}

}  // namespace

Outcome RunHost(const Request& request, const Fault& fault, DWORD limit) {
  Section& section = TheSection();
  Fill(*section.block, request, fault);
  RemoveLog();
  RemoveDumps();

  const std::wstring program = standins::Beside(L"sweep_host.exe");
  std::wstring command_line = L"\"" + program + L"\"";
  const std::wstring error_path = standins::LogFolder() + L"\\sweep.err";
  root::ScopedFile error_file = ErrorFile(error_path);
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = INVALID_HANDLE_VALUE;
  startup.hStdOutput = error_file.get();
  startup.hStdError = error_file.get();
  PROCESS_INFORMATION started = {};
  SetEnvironmentVariableW(kSectionVariable, section.name.c_str());
  if (!CreateProcessW(program.c_str(), command_line.data(), nullptr, nullptr, TRUE, 0, nullptr, TempFolder().c_str(), &startup,
                      &started)) {
    throw exceptions::error(GetLastError(), L"cannot start %s", program.c_str());
  }
  const root::ScopedKernelHandle process(started.hProcess), thread(started.hThread);

  Outcome outcome = {};
  outcome.timed_out = WaitForSingleObject(process.get(), limit) != WAIT_OBJECT_0;
  if (outcome.timed_out) {
    outcome.left_programs = LeftPrograms(true);
    WaitForSingleObject(process.get(), 5'000);
  } else {
    for (DWORD waited = 0; !(outcome.left_programs = LeftPrograms(false)).empty() && waited < kProgramsEnd; waited += 20)
      Sleep(20);
    if (!outcome.left_programs.empty()) LeftPrograms(true);
  }
  GetExitCodeProcess(process.get(), &outcome.exit_code);
  outcome.block = *section.block;
  error_file.reset();
  AddRecords(outcome, ReadText(LogPath()), started.dwProcessId);
  AddRecords(outcome, ReadText(error_path), started.dwProcessId);
  for (const Dump& dump : Dumps()) {
    ++outcome.dumps;
    if (dump.size == 0) ++outcome.empty_dumps;
  }
  return outcome;
}

}  // namespace crv::sweep
