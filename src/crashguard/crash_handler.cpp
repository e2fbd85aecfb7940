#include "crashguard/crash_handler.h"

#include <rpc.h>

#include <cstdlib>
#include <utility>

#include "crashguard/crash_guard.h"
#include "crashguard/exception_filters.h"
#include "crashguard/exit_signal.h"
#include "crashguard/guard_log.h"
#include "root/proc_address.h"
#include "root/system_library.h"

namespace crv::crashguard {
namespace {

constexpr UINT kQuietErrors = SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX;
constexpr std::int32_t kUsualFullDumpDivisor = 256;

// The same for the life of the process, different in others.
std::int32_t MakeSampleKey() {
  UUID uuid = {};
  const auto create = root::FindSystemFunction<decltype(UuidCreate)>(L"rpcrt4.dll", "UuidCreate");
  const RPC_STATUS status = create ? create(&uuid) : RPC_S_UUID_NO_ADDRESS;
  if (status == RPC_S_OK || status == RPC_S_UUID_LOCAL_ONLY) return static_cast<std::int32_t>(uuid.Data1);
  LARGE_INTEGER counter = {};
  QueryPerformanceCounter(&counter);
  return static_cast<std::int32_t>(counter.LowPart);
}

bool IsFolder(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool IsFile(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

// Empty, after a record, when the name cannot be read.
std::wstring HostFolder() {
  wchar_t path[MAX_PATH] = {};
  if (!GetModuleFileNameW(GetModuleHandleW(nullptr), path, MAX_PATH)) {
    const DWORD error = GetLastError();
    Record([&] {
      log::Error(tag, "Install failed: cannot get filename of current process due to error: %d", static_cast<int>(error));
    });
    return std::wstring();
  }
  path[MAX_PATH - 1] = L'\0';  // Windows XP leaves a name that was cut without its end
  const std::wstring name = path;
  const std::size_t end = name.rfind(L'\\');
  return end == std::wstring::npos ? std::wstring() : name.substr(0, end);
}

}  // namespace

CrashHandler::CrashHandler()
    : gui_thread_watcher_(std::make_shared<detail::GuiThreadWatcherController>()),
      full_dump_divisor_(kUsualFullDumpDivisor),
      sample_key_(MakeSampleKey()) {
  InitializeCriticalSection(&lock_);
}

CrashHandler::~CrashHandler() {
  gui_thread_watcher_->StopAndDetach();
  DeleteCriticalSection(&lock_);
}

void CrashHandler::SetPath(std::wstring& path, std::wstring value) {
  EnterCriticalSection(&lock_);
  path.swap(value);
  LeaveCriticalSection(&lock_);
}

void CrashHandler::SetDumpFolder(const std::wstring& folder) { SetPath(dump_folder_, folder); }

std::int32_t CrashHandler::SetFullDumpRatio(std::int32_t divisor) { return full_dump_divisor_.exchange(divisor); }

std::uint32_t CrashHandler::Install(const std::wstring& dump_folder, const std::wstring& dumper_folder, std::uint32_t flags,
                                    std::int32_t dump_limit) noexcept {
  if (installed_) {
    Record([] { log::Warning(tag, "Attempting to install crashguard twice, ignored."); });
    return install_status::kAlreadyInstalled;
  }
  installed_ = true;
  dumps_left_ = dump_limit;
  try {
    return InstallAfterMark(dump_folder, dumper_folder, flags);
  } catch (...) {  // no memory for a path
    Record([] { log::Error(tag, "Failed to install crash hooks"); });
    return install_status::kHooksFailed;
  }
}

std::uint32_t CrashHandler::InstallAfterMark(const std::wstring& dump_folder, const std::wstring& dumper_folder,
                                             std::uint32_t flags) {
  SetDumpFolder(dump_folder);
  if (!IsFolder(dump_folder)) {
    Record([&] {
      log::LogStream(log::LogLevel::error, tag)
          << L"Dump path '" << dump_folder << L"' does not exist. Directory should be already created.";
    });
    return install_status::kNoDumpFolder;
  }

  std::wstring folder = dumper_folder.empty() ? HostFolder() : dumper_folder;
  if (folder.empty()) return install_status::kNoHostName;
  if (folder.back() != L'\\') folder += L'\\';
  const std::wstring dumper = folder + kDumperFile;
  SetPath(dumper_path_, dumper);

  std::atexit(&CrashSignalAtExit);
  if (!InstallGlobalHandler(flags)) {
    Record([] { log::Error(tag, "Failed to install crash hooks"); });
    return install_status::kHooksFailed;
  }
  if (IsFile(dumper)) {
    Record([] { log::Info(tag, "CrashGuard initialized successfully, external dumping enabled"); });
    return install_status::kInstalled;
  }
  Record([] { log::Info(tag, "CrashGuard initialized successfully, only internal dumping available"); });
  return install_status::kInternalOnly;
}

bool CrashHandler::InstallGlobalHandler(std::uint32_t flags) {
  bool result = true;
  ctrl_routine_ =
      reinterpret_cast<std::uintptr_t>(root::FindFunction<DWORD WINAPI(void*)>(GetModuleHandleW(L"kernel32.dll"), "CtrlRoutine"));
  if (!ctrl_routine_) Record([] { log::Error(tag, "Failed to get address of CtrlRoutine"); });

  if (global_handler_installed_) {
    Record([] { log::Error(tag, "Call to InstallGlobalHandler while being already installed."); });
    Record([] { log::Error(tag, "Failed to install global crashhandler."); });
    result = false;
  } else {
    previous_filter_ = SetUnhandledExceptionFilter(&TopLevelExceptionFilter);
    global_handler_installed_ = true;
    if (flags & install_flags::kLockFilter) filter_lock_.Lock();
    Record([] { log::Info(tag, "CrashGuard global exception handler installed"); });
  }

  if (flags & install_flags::kVectoredHandler) {
    constexpr ULONG kCalledLast = 0;
    vectored_handler_ = AddVectoredExceptionHandler(kCalledLast, &VectoredExceptionHandler);
    if (!vectored_handler_) {
      Record([] { log::Error(tag, "Failed to install vectored handler."); });
      result = false;
    }
  }
  if (flags & install_flags::kErrorMode) saved_error_mode_ = SetErrorMode(kQuietErrors);
  return result;
}

bool CrashHandler::Uninstall() noexcept {
  if (!installed_) return false;
  installed_ = false;
  if (UninstallGlobalHandler()) return true;
  Record([] { log::Error(tag, "Failed to uninstall crash hooks"); });
  return false;
}

bool CrashHandler::UninstallGlobalHandler() {
  bool result = false;
  if (!global_handler_installed_) {
    Record([] { log::Error(tag, "Call to UninstallGlobalHandler without being installed first"); });
  } else {
    filter_lock_.Unlock();  // first, or the next call would have no effect
    SetUnhandledExceptionFilter(std::exchange(previous_filter_, nullptr));
    global_handler_installed_ = false;
    Record([] { log::Info(tag, "CrashGuard global exception handler uninstalled"); });
    result = true;
  }
  if (vectored_handler_ && !RemoveVectoredExceptionHandler(std::exchange(vectored_handler_, nullptr))) {
    Record([] { log::Error(tag, "Failed to uninstall vectored handler."); });
  }
  Record([&] { gui_thread_watcher_->StopAndJoin(); });  // refused, and left to its end, on the watcher thread itself
  return result;
}

}  // namespace crv::crashguard
