#include "entry/run.h"

#include <exception>
#include <memory>

#include "base/command_line.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "crashguard/crash_guard.h"
#include "crashguard/exception_filters.h"
#include "entry/com_apartment.h"
#include "entry/library_search.h"
#include "entry/log_folder.h"
#include "entry/modes.h"
#include "root/self_protection.h"

namespace crv::wsc {
namespace {

const log::Tag tag("wsc");

constexpr std::uint32_t kSucceeded = 0;
constexpr std::uint32_t kGeneralFailure = 31;  // ERROR_GEN_FAILURE

struct Mode {
  const wchar_t* name;
  void (*run)(const CommandLine&);
};

constexpr Mode kModes[] = {
    {L"av", &RunAvMode},
    {L"as", &RunAsMode},
    {L"fw", &RunFwMode},
    {L"svc", &RunSvcMode},
};

void Dispatch(const CommandLine& command_line, const wchar_t* text) {
  for (const Mode& mode : kModes) {
    if (command_line.has(mode.name)) return mode.run(command_line);
  }
  throw exceptions::fatal(exceptions::kInvalidParameter, "run: %ls", text);
}

// Guards the process against crashes, which outlasts the call, and tells the self-protection driver of fatal dumps, which does
// not.
class CrashGuard {
 public:
  CrashGuard() : module_(crashguard::AcquireCrashGuard()) {
    const std::wstring dump_folder = LogFolder();
    module_->Install(dump_folder, crashguard::install_flags::kUsual, kDumpLimit);
    fatal_dump_written_ = module_->ConnectFatalDumpWritten(&root::SendFatalDumpNotice);
  }

 private:
  static constexpr std::int32_t kDumpLimit = 3;

  std::shared_ptr<crashguard::ICrashGuardModule> module_;
  std::unique_ptr<mi::IEventConnection> fatal_dump_written_;  // ends before the module is released
};

void RunBody(const wchar_t* text) {
  if (!text) throw exceptions::fatal(exceptions::kInvalidParameter, "run: nullptr");
  const ComApartment com;
  log::OpenLogFile(LogFile());
  log::Info(tag, "wsc started: '%ls'", text);
  CommandLine command_line;
  command_line.parse(text);
  Dispatch(command_line, text);
}

// Ends the call when no other thread's crash is being dumped: the host may end the process at once.
struct CrashWait {
  ~CrashWait() { crashguard::AwaitFilter(); }
};

// A log library that fails here must not cost the host its result code.
void LogFailure(const std::exception& failure) {
  try {
    log::LogException(tag, failure, "run");
  } catch (const std::exception&) {
  }
}

}  // namespace
}  // namespace crv::wsc

extern "C" std::uint32_t __stdcall run(const wchar_t* command_line) {
  using namespace crv;
  const wsc::CrashWait crash_wait;
  try {
    wsc::LeaveCurrentFolderOutOfLibrarySearch();  // before anything is loaded
    {
      const wsc::CrashGuard crash_guard;
      wsc::RunBody(command_line);
    }
    return wsc::kSucceeded;
  } catch (const exceptions::detail::base& failure) {
    wsc::LogFailure(failure);
    return failure.code();
  } catch (const std::exception& failure) {
    wsc::LogFailure(failure);
    return wsc::kGeneralFailure;
  }
}
