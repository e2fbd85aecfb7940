// The crash guard: sees to it that a crash of the process leaves a minidump in the suite's log folder, and that the process then
// ends in a controlled way. One object for the whole process, reached through this interface; made on first use, which must not
// race with another first use, and kept until the library is unloaded, which uninstalls it.
//
// Install and Uninstall are for one thread. All else may be called from any thread; writers wait for each other, except that one
// called from within another one on the same thread is refused. Failures are logged under the tag "crashguard" and reported as
// status values. What is thrown: std::bad_alloc, and what a subscribed handler throws during a direct call of a writer.
#pragma once

#include <windows.h>

#include <boost/function.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include "mi/exportable.h"

namespace crv::crashguard {

// Bits of the install flags; others are ignored.
namespace install_flags {
inline constexpr std::uint32_t kLockFilter = 0x1;         // nobody else can replace the unhandled-exception filter
inline constexpr std::uint32_t kVectoredHandler = 0x100;  // every throw of crv::exceptions::fatal is dumped as it happens
inline constexpr std::uint32_t kErrorMode = 0x200;        // the system shows no error boxes; not taken back by Uninstall
inline constexpr std::uint32_t kUsual = 0x3FD;            // what the suite's hosts pass: these three, and bits without a meaning
}  // namespace install_flags

namespace install_status {
inline constexpr std::uint32_t kInstalled = 0;         // the external dumper is there
inline constexpr std::uint32_t kInternalOnly = 1;      // installed; the dumper's file is missing
inline constexpr std::uint32_t kAlreadyInstalled = 2;  // ignored
inline constexpr std::uint32_t kNoDumpFolder = 3;      // it does not exist or is no folder
inline constexpr std::uint32_t kHooksFailed = 5;       // not all hooks could be installed; those that could are
inline constexpr std::uint32_t kNoHostName = 6;        // the host executable's file name could not be read
}  // namespace install_status

namespace dump_status {
inline constexpr std::uint32_t kWritten = 0;
inline constexpr std::uint32_t kException = 1;  // a structured exception ended the writing
inline constexpr std::uint32_t kNotInstalled = 2;
inline constexpr std::uint32_t kNoDumper =
    4;  // external: no dumper folder given and none known before Install; or its path is too long
inline constexpr std::uint32_t kNoFile = 5;       // the dump's path is too long; internal: the file could not be created
inline constexpr std::uint32_t kWriteFailed = 6;  // internal: all three attempts failed
inline constexpr std::uint32_t kNotStarted =
    7;  // external: the dumper could not be started or waited for, or its exit code not be read
inline constexpr std::uint32_t kRefused = 8;  // dump limit reached, context already dumped, or a writer is busy
// Any other value of the external writer is the dumper's exit code.
}  // namespace dump_status

using EventHandler = boost::function<void()>;

// The order of the operations is part of the binary interface.
class ICrashGuardModule : public virtual mi::IModule {
 public:
  // Installs the hooks. `dump_folder` must exist. `dump_limit`: how many counted dumps (those of thrown fatal errors) may be
  // written. `dumper_folder` holds cvDump32.exe; empty, or left out, is the folder of the host executable. Answers an
  // install_status; after a failure, too, IsInstalled holds until Uninstall.
  virtual std::uint32_t Install(const std::wstring& dump_folder, std::uint32_t flags, std::int32_t dump_limit) = 0;
  virtual std::uint32_t Install(const std::wstring& dump_folder, const std::wstring& dumper_folder, std::uint32_t flags,
                                std::int32_t dump_limit) = 0;

  // Takes the hooks back. False when nothing was installed or no hook was there.
  virtual bool Uninstall() = 0;

  virtual bool IsInstalled() const = 0;

  // Where dumps go from now on. A folder that is not there when a dump is written is made then.
  virtual void SetDumpFolder(const std::wstring& folder) = 0;

  // One process in `divisor` writes dumps with its full memory; 0: none, 1: every one. Starts at 256. Returns the old divisor.
  virtual std::int32_t SetFullDumpRatio(std::int32_t divisor) = 0;

  // `handler` is called on the thread that writes a dump, while other writers are locked out, until the connection, which the
  // caller owns, ends. DumpWritten: after each run of a writer that began to write, whatever came of it. FatalDumpWritten: only
  // after those since an exception that nobody handled.
  [[nodiscard]] virtual std::unique_ptr<mi::IEventConnection> ConnectDumpWritten(const EventHandler& handler) = 0;
  [[nodiscard]] virtual std::unique_ptr<mi::IEventConnection> ConnectFatalDumpWritten(const EventHandler& handler) = 0;

  // Write a dump of this process, in-process or through cvDump32.exe, whose end is waited for without limit. `exception` may be
  // null: a dump of the running process. `file_name` (in the dump folder) null: "unp<time>.mdmp". `comment` may be null; for the
  // dumper it may hold no double quote and at most 2048 characters. `dumper_folder` null: the one given to Install. Answer a
  // dump_status.
  virtual std::uint32_t WriteDumpInternal(EXCEPTION_POINTERS* exception, const wchar_t* file_name, const wchar_t* comment) = 0;
  virtual std::uint32_t WriteDumpExternal(EXCEPTION_POINTERS* exception, const wchar_t* file_name, const wchar_t* comment,
                                          const wchar_t* dumper_folder) = 0;

  // Crashes the process on request: at once on this thread, or in `delay` ms on a new thread whose handle, null when it could not
  // be made, the caller owns.
  virtual void CrashNow() = 0;
  [[nodiscard]] virtual HANDLE CrashAfter(std::uint32_t delay) = 0;
};

// The process-wide crash guard. Throws crv::exceptions::error with code 127 and "Failed to bind with dbghelp!MiniDumpWriteDump"
// when the system has no dump writer; the next call tries again.
std::shared_ptr<ICrashGuardModule> AcquireCrashGuard();

}  // namespace crv::crashguard
