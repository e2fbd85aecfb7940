// The crash guard's one handler: its configuration, the process-wide hooks and the dump writers. What is thrown and what is not
// is said in crash_guard.h; the filters of exception_filters.h call it on the crashing thread.
//
// The external writer works in a process that may have lost its heap: everything that it needs lies in fixed buffers here.
#pragma once

#include <windows.h>
#include <dbghelp.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "crashguard/dump_library.h"
#include "crashguard/filter_lock.h"
#include "crashguard/gui_thread_watcher.h"
#include "crashguard/system_calls.h"

namespace crv::crashguard {

inline constexpr wchar_t kDumperFile[] = L"cvDump32.exe";

class CrashGuardModule;

class CrashHandler {
 public:
  CrashHandler();  // throws what DumpLibrary throws
  ~CrashHandler();
  CrashHandler(const CrashHandler&) = delete;
  CrashHandler& operator=(const CrashHandler&) = delete;

  // As the operations of ICrashGuardModule.
  std::uint32_t Install(const std::wstring& dump_folder, const std::wstring& dumper_folder, std::uint32_t flags,
                        std::int32_t dump_limit) noexcept;
  bool Uninstall() noexcept;
  bool IsInstalled() const { return installed_; }
  void SetDumpFolder(const std::wstring& folder);
  std::int32_t SetFullDumpRatio(std::int32_t divisor);
  std::uint32_t WriteDumpInternal(EXCEPTION_POINTERS* exception, const wchar_t* file_name, const wchar_t* comment);
  std::uint32_t WriteDumpExternal(EXCEPTION_POINTERS* exception, const wchar_t* file_name, const wchar_t* comment,
                                  const wchar_t* dumper_folder);

  // A dump unless there is a reason against one: external first, in-process when that fails. A `counted` dump uses up the dump
  // limit. What is dumped already is not dumped again: a context that equals the last one, and a fatal error whose throw was
  // dumped when it comes back because nobody caught it. Answers a dump_status.
  std::uint32_t WriteDump(EXCEPTION_POINTERS* exception, bool counted, const wchar_t* comment) noexcept;

  // From now on every dump is one of a fatal crash.
  void SetFatal() { fatal_ = true; }

  // Whether the system is shutting down.
  bool IsShutdown() const { return system_.system_metrics && system_.system_metrics(SM_SHUTTINGDOWN); }

  // Address of kernel32's CtrlRoutine in this process, or null.
  std::uintptr_t ctrl_routine() const { return ctrl_routine_; }

 private:
  class Writer;

  static constexpr std::size_t kPathSize = 261;   // characters, the terminating NUL included
  static constexpr std::size_t kPathLimit = 260;  // of the texts that make up a dump path
  static constexpr std::size_t kCommandLineSize = 3072;
  static constexpr std::size_t kCommentSize = 2304;  // for any comment that the dumper would take, too
  static constexpr std::size_t kKnownThrows = 16;    // dumps of thrown objects that are remembered

  std::uint32_t InstallAfterMark(const std::wstring& dump_folder, const std::wstring& dumper_folder, std::uint32_t flags);
  void SetPath(std::wstring& path, std::wstring value);
  bool InstallGlobalHandler(std::uint32_t flags);
  bool UninstallGlobalHandler();

  std::uint32_t WriteGuarded(EXCEPTION_POINTERS* exception, const wchar_t* comment);
  bool IsDumped(const EXCEPTION_POINTERS& exception, ULONG_PTR fatal_again) const;
  void ForgetThrow(ULONG_PTR object);
  void RememberThrow(ULONG_PTR object);
  [[nodiscard]] static bool AppendName(wchar_t* path, std::size_t size, const wchar_t* name);
  [[nodiscard]] bool AppendToDumpPath(const wchar_t* name);
  [[nodiscard]] bool BuildDumpPath(const wchar_t* file_name);
  [[nodiscard]] bool BuildDumperPath(const wchar_t* dumper_folder);
  bool IsFullDumpHandler() const;
  std::uint32_t StartDumperAndWait(Writer& writer);
  std::uint32_t WriteDumpFile(EXCEPTION_POINTERS* exception, const wchar_t* comment);
  std::uint32_t WriteDumpFileWith(EXCEPTION_POINTERS* exception, wchar_t* text);
  void RaiseEvents();
  void CloseDumper();
  LONG LockDepth() const;
  void AbandonWriters(LONG depth);

  UINT saved_error_mode_ = 0;
  void* vectored_handler_ = nullptr;
  LPTOP_LEVEL_EXCEPTION_FILTER previous_filter_ = nullptr;
  bool global_handler_installed_ = false;
  FilterLock filter_lock_;
  const std::shared_ptr<detail::GuiThreadWatcherController> gui_thread_watcher_;
  std::uintptr_t ctrl_routine_ = 0;
  std::atomic<bool> installed_ = false;  // an install was attempted
  std::atomic<bool> fatal_ = false;      // never cleared
  std::atomic<std::int32_t> full_dump_divisor_;
  std::atomic<bool> writing_ = false;
  std::atomic<std::int32_t> dumps_left_ = 0;
  std::int32_t sample_key_;
  const DumpLibrary dump_library_;
  const SystemCalls system_;
  CRITICAL_SECTION lock_;  // held by the writers

  // The thrown objects whose dumps were written; the oldest goes first.
  std::array<std::atomic<ULONG_PTR>, kKnownThrows> known_throws_ = {};
  std::atomic<std::uint32_t> next_known_throw_ = 0;

  // Under the lock.
  std::wstring dumper_path_;
  std::wstring dump_folder_;

  // The writers' own, under the lock.
  wchar_t path_[kPathSize] = {};
  wchar_t file_name_[kPathSize] = {};
  wchar_t dumper_[kPathSize] = {};
  wchar_t command_line_[kCommandLineSize] = {};
  wchar_t comment_[kCommentSize] = {};
  STARTUPINFOW startup_ = {};
  PROCESS_INFORMATION dumper_process_ = {};
  HANDLE dump_file_ = INVALID_HANDLE_VALUE;
  std::shared_ptr<CrashGuardModule> raising_;  // keeps the module while its handlers are called
};

}  // namespace crv::crashguard
