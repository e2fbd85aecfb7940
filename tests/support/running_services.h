// A Service Control Manager inside the test program, whose services run unless a test says otherwise. Real services are left
// alone. One at a time; fails the running test when a service or manager handle is left open.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>
#include <winsvc.h>

#include <string>
#include <utility>
#include <vector>

#include "support/import_fake.h"

namespace crv::test {

class RunningServices {
 public:
  ~RunningServices() { EXPECT_EQ(0, open_handles_) << "service handles are left open"; }

  // What the status queries of any service answer, in this order; the last one stays. At first: runs.
  void States(std::vector<DWORD> states) { states_ = std::move(states); }

  // Lets a step fail with the system's code from now on: "manager", "open", "query", "start" or "control". Empty: none.
  void Fail(const std::string& step, DWORD code) { failing_ = step, code_ = code; }

  // What was done since the start or the last question: "wscsvc/14 query start ", each open with the rights asked for in
  // hexadecimal; what is repeated stands once with " xN" behind it.
  std::string TakeCalls() {
    std::string text;
    for (const auto& [call, times] : calls_) text += call + (times > 1 ? " x" + std::to_string(times) : "") + " ";
    calls_.clear();
    return text;
  }

 private:
  bool Fails(const std::string& step) { return failing_ == step && (SetLastError(code_), true); }

  void Note(const std::string& call) {
    if (calls_.empty() || calls_.back().first != call) calls_.emplace_back(call, 0);
    ++calls_.back().second;
  }

  SC_HANDLE Open(const std::string& step, SC_HANDLE handle) {
    if (Fails(step)) return nullptr;
    ++open_handles_;
    return handle;
  }

  BOOL Answer(SC_HANDLE service, const std::string& step, SERVICE_STATUS* status) {
    EXPECT_EQ(kService, service);
    Note(step);
    if (Fails(step.substr(0, step.find(' ')))) return FALSE;
    *status = {SERVICE_WIN32_OWN_PROCESS, states_.front()};
    if (states_.size() > 1) states_.erase(states_.begin());
    return TRUE;
  }

  inline static const SC_HANDLE kManager = reinterpret_cast<SC_HANDLE>(0x5C0), kService = reinterpret_cast<SC_HANDLE>(0x5C4);
  std::vector<DWORD> states_ = {SERVICE_RUNNING};
  std::string failing_;
  DWORD code_ = 0;
  std::vector<std::pair<std::string, int>> calls_;
  int open_handles_ = 0;

  ImportFake<decltype(OpenSCManagerW), struct OpenManagerPlace> open_manager_{
      "advapi32.dll", "OpenSCManagerW", [this](auto*, const wchar_t* machine, std::wstring database, DWORD access) {
        EXPECT_TRUE(!machine && database == L"ServicesActive" && access == SC_MANAGER_CONNECT);
        return Open("manager", kManager);
      }};
  ImportFake<decltype(OpenServiceW), struct OpenPlace> open_service_{
      "advapi32.dll", "OpenServiceW", [this](auto*, SC_HANDLE manager, std::wstring name, DWORD access) {
        EXPECT_EQ(kManager, manager);
        char rights[16];
        _snprintf(rights, sizeof(rights), "/%lx", access);
        Note(std::string(name.begin(), name.end()) + rights);
        return Open("open", kService);
      }};
  ImportFake<decltype(QueryServiceStatus), struct QueryPlace> query_{
      "advapi32.dll", "QueryServiceStatus",
      [this](auto*, SC_HANDLE service, SERVICE_STATUS* status) { return Answer(service, "query", status); }};
  ImportFake<decltype(StartServiceW), struct StartPlace> start_{"advapi32.dll", "StartServiceW",
                                                                [this](auto*, SC_HANDLE service, DWORD count, auto*) {
                                                                  EXPECT_TRUE(service == kService && count == 0);
                                                                  return Note("start"), !Fails("start");
                                                                }};
  ImportFake<decltype(ControlService), struct ControlPlace> control_{
      "advapi32.dll", "ControlService", [this](auto*, SC_HANDLE service, DWORD control, SERVICE_STATUS* status) {
        return Answer(service, "control " + std::to_string(control), status);
      }};
  ImportFake<decltype(CloseServiceHandle), struct ClosePlace> close_{"advapi32.dll", "CloseServiceHandle",
                                                                     [this](auto*, SC_HANDLE handle) {
                                                                       EXPECT_TRUE(handle == kManager || handle == kService);
                                                                       return --open_handles_, TRUE;
                                                                     }};
};

}  // namespace crv::test
