#include "instup/launch_process.h"

#include <windows.h>

#include "root/process.h"
#include "root/scoped_handle.h"
#include "root/system_library.h"

namespace crv::instup {
namespace {

constexpr DWORD kResumeFailed = static_cast<DWORD>(-1);

// Ends the new process when this one ends before it could let it run: a killed host would leave it suspended for good. Where the
// system allows no job, as before Windows 8 in a host that is in one already, it goes without.
class StartJob {
 public:
  StartJob() : job_(CreateJobObjectW(nullptr, nullptr)) {
    if (!Limit(JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE)) job_.reset();
  }
  StartJob(const StartJob&) = delete;
  StartJob& operator=(const StartJob&) = delete;

  void Take(HANDLE process) {
    if (job_ && !AssignProcessToJobObject(job_.get(), process)) job_.reset();
  }

  // From now on the process outlives this one, unless the system refuses: then it lives as long as the object.
  bool Lift() { return !job_ || Limit(0); }

  // Never ends the process.
  void Leave() { static_cast<void>(job_.release()); }

 private:
  // What the process starts does not belong to the job, so that it may use jobs of its own on every system.
  bool Limit(DWORD end) {
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = end | JOB_OBJECT_LIMIT_SILENT_BREAKAWAY_OK;
    return job_ && SetInformationJobObject(job_.get(), JobObjectExtendedLimitInformation, &limits, sizeof(limits));
  }

  root::ScopedKernelHandle job_;
};

}  // namespace

bool LaunchProcess(const std::wstring& command_line, std::uint32_t* exit_code) {
  // Whatever can be done before is done before: until the job has the new process, this one's end leaves it suspended.
  StartJob job;
  const auto allow = root::FindSystemFunction<decltype(AllowSetForegroundWindow)>(L"user32.dll", "AllowSetForegroundWindow");
  std::wstring writable = command_line;  // CreateProcessW writes into it
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started = {};
  // Suspended until it may take the foreground.
  if (!CreateProcessW(nullptr, writable.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED | NORMAL_PRIORITY_CLASS, nullptr,
                      nullptr, &startup, &started)) {
    return false;
  }
  const root::ScopedKernelHandle process(started.hProcess);
  job.Take(process.get());
  const root::ScopedKernelHandle thread(started.hThread);
  if (allow) allow(started.dwProcessId);
  if (ResumeThread(thread.get()) == kResumeFailed) {
    const DWORD error = GetLastError();
    TerminateProcess(process.get(), error);
    SetLastError(error);
    return false;
  }
  const bool lifted = job.Lift();
  if (exit_code) {
    *exit_code = root::WaitForExitCode(process.get());
  } else if (!lifted) {
    job.Leave();
  }
  return true;
}

}  // namespace crv::instup
