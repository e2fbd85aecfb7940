#include "crashguard/crash_guard_module.h"

#include <new>

#include "crashguard/user_crash.h"
#include "mi/event_connection.h"

namespace crv::crashguard {

CrashGuardModule::~CrashGuardModule() {
  if (handler_.IsInstalled()) handler_.Uninstall();
}

std::uint32_t CrashGuardModule::Install(const std::wstring& dump_folder, std::uint32_t flags, std::int32_t dump_limit) {
  return handler_.Install(dump_folder, std::wstring(), flags, dump_limit);
}

std::uint32_t CrashGuardModule::Install(const std::wstring& dump_folder, const std::wstring& dumper_folder, std::uint32_t flags,
                                        std::int32_t dump_limit) {
  return handler_.Install(dump_folder, dumper_folder, flags, dump_limit);
}

bool CrashGuardModule::Uninstall() { return handler_.Uninstall(); }
bool CrashGuardModule::IsInstalled() const { return handler_.IsInstalled(); }
void CrashGuardModule::SetDumpFolder(const std::wstring& folder) { handler_.SetDumpFolder(folder); }
std::int32_t CrashGuardModule::SetFullDumpRatio(std::int32_t divisor) { return handler_.SetFullDumpRatio(divisor); }

std::unique_ptr<mi::IEventConnection> CrashGuardModule::ConnectDumpWritten(const EventHandler& handler) {
  return Connect(dump_written_, handler);
}

std::unique_ptr<mi::IEventConnection> CrashGuardModule::ConnectFatalDumpWritten(const EventHandler& handler) {
  return Connect(fatal_dump_written_, handler);
}

std::unique_ptr<mi::IEventConnection> CrashGuardModule::Connect(Event& event, const EventHandler& handler) {
  boost::signals2::scoped_connection pending(event.connect(handler));  // until somebody owns it
  auto connection = std::make_unique<mi::EventConnection>(pending);
  pending.release();
  return connection;
}

std::uint32_t CrashGuardModule::WriteDumpInternal(EXCEPTION_POINTERS* exception, const wchar_t* file_name,
                                                  const wchar_t* comment) {
  return handler_.WriteDumpInternal(exception, file_name, comment);
}

std::uint32_t CrashGuardModule::WriteDumpExternal(EXCEPTION_POINTERS* exception, const wchar_t* file_name, const wchar_t* comment,
                                                  const wchar_t* dumper_folder) {
  return handler_.WriteDumpExternal(exception, file_name, comment, dumper_folder);
}

void CrashGuardModule::CrashNow() { crashguard::CrashNow(); }
HANDLE CrashGuardModule::CrashAfter(std::uint32_t delay) { return crashguard::CrashAfter(delay); }

namespace {

// Never destroyed: a thread may crash while the library is being unloaded.
std::weak_ptr<CrashGuardModule>& TheModule() {
  alignas(std::weak_ptr<CrashGuardModule>) static unsigned char place[sizeof(std::weak_ptr<CrashGuardModule>)];
  static auto* const module = new (place) std::weak_ptr<CrashGuardModule>();
  return *module;
}

}  // namespace

std::shared_ptr<CrashGuardModule> AcquireCrashGuardModule() {
  static const std::shared_ptr<CrashGuardModule> module = [] {
    const std::shared_ptr<CrashGuardModule> made(new CrashGuardModule);
    TheModule() = made;
    return made;
  }();
  return module;
}

std::shared_ptr<CrashGuardModule> FindCrashGuardModule() noexcept { return TheModule().lock(); }

std::shared_ptr<ICrashGuardModule> AcquireCrashGuard() { return AcquireCrashGuardModule(); }

}  // namespace crv::crashguard
