// A Service Control Manager inside the test program, whose services run unless a test says otherwise. Real services are left
// alone. One at a time; fails the running test when a service or manager handle is left open.
#pragma once

#include <windows.h>
#include <winsvc.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/import_fake.h"

namespace crv::test {

class RunningServices {
 public:
  RunningServices();
  ~RunningServices();

  // What the status queries of any service answer, in this order; the last one stays. At first: runs. A service with a state of
  // its own always answers that one.
  void States(std::vector<DWORD> states) { states_ = std::move(states); }
  void StateOf(const std::string& service, DWORD state) { own_states_[service] = state; }

  // Lets a step fail with the system's code from now on: "manager", "open", "query", "start" or "control". Empty: none.
  void Fail(const std::string& step, DWORD code) { failing_ = step, code_ = code; }

  // What was done since the start or the last question: "wscsvc/14 query start ", each open with the rights asked for in
  // hexadecimal; what is repeated stands once with " xN" behind it.
  std::string TakeCalls();

 private:
  bool Fails(const std::string& step);
  void Note(const std::string& call);
  BOOL Answer(SERVICE_STATUS* status);

  std::vector<DWORD> states_ = {SERVICE_RUNNING};
  std::map<std::string, DWORD> own_states_;
  std::string opened_;  // the service that was opened last
  std::string failing_;
  DWORD code_ = 0;
  std::vector<std::pair<std::string, int>> calls_;
  int open_handles_ = 0;

  ImportFake<decltype(OpenSCManagerW), struct OpenManagerPlace> open_manager_;
  ImportFake<decltype(OpenServiceW), struct OpenPlace> open_service_;
  ImportFake<decltype(QueryServiceStatus), struct QueryPlace> query_;
  ImportFake<decltype(StartServiceW), struct StartPlace> start_;
  ImportFake<decltype(ControlService), struct ControlPlace> control_;
  ImportFake<decltype(CloseServiceHandle), struct ClosePlace> close_;
};

}  // namespace crv::test
