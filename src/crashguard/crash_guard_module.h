// The object behind the crash guard's interface: one CrashHandler and the two events.
#pragma once

#include <boost/signals2/signal.hpp>

#include "crashguard/crash_guard.h"
#include "crashguard/crash_handler.h"
#include "mi/module_base.h"

namespace crv::crashguard {

class CrashGuardModule : public mi::Module<ICrashGuardModule> {
 public:
  using Event = boost::signals2::signal<void()>;

  CrashGuardModule() = default;  // throws what CrashHandler throws
  ~CrashGuardModule() override;

  std::uint32_t InterfaceVersion() const noexcept override { return mi::kInterfaceVersion; }

  std::uint32_t Install(const std::wstring& dump_folder, std::uint32_t flags, std::int32_t dump_limit) override;
  std::uint32_t Install(const std::wstring& dump_folder, const std::wstring& dumper_folder, std::uint32_t flags,
                        std::int32_t dump_limit) override;
  bool Uninstall() override;
  bool IsInstalled() const override;
  void SetDumpFolder(const std::wstring& folder) override;
  std::int32_t SetFullDumpRatio(std::int32_t divisor) override;
  std::unique_ptr<mi::IEventConnection> ConnectDumpWritten(const EventHandler& handler) override;
  std::unique_ptr<mi::IEventConnection> ConnectFatalDumpWritten(const EventHandler& handler) override;
  std::uint32_t WriteDumpInternal(EXCEPTION_POINTERS* exception, const wchar_t* file_name, const wchar_t* comment) override;
  std::uint32_t WriteDumpExternal(EXCEPTION_POINTERS* exception, const wchar_t* file_name, const wchar_t* comment,
                                  const wchar_t* dumper_folder) override;
  void CrashNow() override;
  HANDLE CrashAfter(std::uint32_t delay) override;

  CrashHandler& handler() { return handler_; }
  void RaiseDumpWritten() { dump_written_(); }
  void RaiseFatalDumpWritten() { fatal_dump_written_(); }

 private:
  static std::unique_ptr<mi::IEventConnection> Connect(Event& event, const EventHandler& handler);

  CrashHandler handler_;
  Event dump_written_;
  Event fatal_dump_written_;
};

// The process-wide object itself; as AcquireCrashGuard.
std::shared_ptr<CrashGuardModule> AcquireCrashGuardModule();

// The same for a crashing thread: null before the object is made and from the beginning of its end on. Throws nothing.
std::shared_ptr<CrashGuardModule> FindCrashGuardModule() noexcept;

}  // namespace crv::crashguard
