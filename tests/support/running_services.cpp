#include "support/running_services.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cwchar>

namespace crv::test {
namespace {

const SC_HANDLE kManager = reinterpret_cast<SC_HANDLE>(0x5C0);
const SC_HANDLE kService = reinterpret_cast<SC_HANDLE>(0x5C1);

}  // namespace

RunningServices::RunningServices()
    : open_manager_("advapi32.dll", "OpenSCManagerW",
                    [this](auto*, auto...) { return Fails("manager") ? nullptr : (++open_handles_, kManager); }),
      open_service_("advapi32.dll", "OpenServiceW",
                    [this](auto*, SC_HANDLE manager, const wchar_t* name, DWORD access) -> SC_HANDLE {
                      EXPECT_EQ(kManager, manager);
                      opened_ = std::string(name, name + std::wcslen(name));
                      char rights[16];
                      _snprintf(rights, sizeof(rights), "/%lx", access);
                      Note(opened_ + rights);
                      if (Fails("open")) return nullptr;
                      ++open_handles_;
                      return kService;
                    }),
      query_("advapi32.dll", "QueryServiceStatus",
             [this](auto*, SC_HANDLE, SERVICE_STATUS* status) {
               Note("query");
               return Fails("query") ? FALSE : Answer(status);
             }),
      start_("advapi32.dll", "StartServiceW",
             [this](auto*, auto...) {
               Note("start");
               return Fails("start") ? FALSE : TRUE;
             }),
      control_("advapi32.dll", "ControlService",
               [this](auto*, SC_HANDLE, DWORD control, SERVICE_STATUS* status) {
                 Note("control " + std::to_string(control));
                 return Fails("control") ? FALSE : Answer(status);
               }),
      close_("advapi32.dll", "CloseServiceHandle", [this](auto*, auto...) { return --open_handles_, TRUE; }) {}

RunningServices::~RunningServices() { EXPECT_EQ(0, open_handles_) << "service handles are left open"; }

std::string RunningServices::TakeCalls() {
  std::string text;
  for (const auto& [call, times] : calls_) text += call + (times > 1 ? " x" + std::to_string(times) : "") + " ";
  calls_.clear();
  return text;
}

bool RunningServices::Fails(const std::string& step) {
  if (failing_ != step) return false;
  SetLastError(code_);
  return true;
}

void RunningServices::Note(const std::string& call) {
  if (calls_.empty() || calls_.back().first != call) calls_.emplace_back(call, 0);
  ++calls_.back().second;
}

BOOL RunningServices::Answer(SERVICE_STATUS* status) {
  *status = {};
  status->dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  if (const auto own = own_states_.find(opened_); own != own_states_.end()) {
    status->dwCurrentState = own->second;
    return TRUE;
  }
  status->dwCurrentState = states_.front();
  if (states_.size() > 1) states_.erase(states_.begin());
  return TRUE;
}

}  // namespace crv::test
