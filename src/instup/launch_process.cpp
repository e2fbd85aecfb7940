#include "instup/launch_process.h"

#include <windows.h>

#include "root/process.h"
#include "root/scoped_handle.h"

namespace crv::instup {
namespace {

constexpr DWORD kResumeFailed = static_cast<DWORD>(-1);

// Ends the new process when this one ends before it could let it run: a killed host would leave it suspended for good. Where the
// system allows no job, as before Windows 8 in a host that is in one already, it goes without.
class StartJob {
 public:
  explicit StartJob(HANDLE process) : job_(CreateJobObjectW(nullptr, nullptr)) {
    if (!Limit(JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE) || !AssignProcessToJobObject(job_.get(), process)) job_.reset();
  }
  StartJob(const StartJob&) = delete;
  StartJob& operator=(const StartJob&) = delete;

  // From now on the process outlives this one. A job that keeps its limit must not be closed.
  void Lift() {
    if (job_ && !Limit(0)) static_cast<void>(job_.release());
  }

 private:
  // What the process starts does not belong to the job, so that it may use jobs of its own on every system.
  bool Limit(DWORD end) {
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = end | JOB_OBJECT_LIMIT_SILENT_BREAKAWAY_OK;
    return job_ && SetInformationJobObject(job_.get(), JobObjectExtendedLimitInformation, &limits, sizeof(limits));
  }

  root::ScopedKernelHandle job_;
};

// Started suspended, so that it may take the foreground before it runs. Null, with the last error, when it does not run.
root::ScopedKernelHandle Start(std::wstring command_line) {
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started = {};
  // CreateProcessW writes into the command line.
  if (!CreateProcessW(nullptr, command_line.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED | NORMAL_PRIORITY_CLASS, nullptr,
                      nullptr, &startup, &started)) {
    return {};
  }
  root::ScopedKernelHandle process(started.hProcess);
  const root::ScopedKernelHandle thread(started.hThread);
  StartJob job(process.get());
  AllowSetForegroundWindow(started.dwProcessId);
  if (ResumeThread(thread.get()) == kResumeFailed) {
    const DWORD error = GetLastError();
    TerminateProcess(process.get(), error);
    SetLastError(error);
    return {};
  }
  job.Lift();
  return process;
}

}  // namespace

bool LaunchProcess(const std::wstring& command_line, std::uint32_t* exit_code) {
  const root::ScopedKernelHandle process = Start(command_line);
  if (!process) return false;
  if (exit_code) *exit_code = root::WaitForExitCode(process.get());
  return true;
}

}  // namespace crv::instup
