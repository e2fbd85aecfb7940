// Security Center's COM class (the stand-in security_center.dll beside the test program) registered for this process alone, on a
// thread that has joined COM's multithreaded apartment. Its state lives under HKEY_LOCAL_MACHINE, redirected or not.
#pragma once

#include <windows.h>

namespace crv::test {

class RegisteredCentre {
 public:
  RegisteredCentre();  // fails the running test when the class cannot be registered
  ~RegisteredCentre();
  RegisteredCentre(const RegisteredCentre&) = delete;
  RegisteredCentre& operator=(const RegisteredCentre&) = delete;

  // Interface pointers of the class that are still held.
  long live_objects() const;

 private:
  HMODULE library_ = nullptr;
  DWORD registration_ = 0;
};

}  // namespace crv::test
