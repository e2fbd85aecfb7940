// COM classes of the stand-ins (libraries beside the test program) registered for this process alone, on a thread that has joined
// COM's multithreaded apartment. Their state lies under HKEY_LOCAL_MACHINE, redirected or not.
#pragma once

#include <windows.h>

namespace crv::test {

class RegisteredClass {
 public:
  RegisteredClass(const wchar_t* library, REFCLSID class_id);  // fails the running test when the class cannot be registered
  ~RegisteredClass();
  RegisteredClass(const RegisteredClass&) = delete;
  RegisteredClass& operator=(const RegisteredClass&) = delete;

  // Interface pointers of the library's objects that are still held.
  long live_objects() const;

 private:
  HMODULE library_ = nullptr;
  DWORD registration_ = 0;
};

// Security Center's class for products.
class RegisteredCentre : public RegisteredClass {
 public:
  RegisteredCentre();
};

// WMI's locator, with Security Center's namespaces behind it.
class RegisteredWmi : public RegisteredClass {
 public:
  RegisteredWmi();
};

}  // namespace crv::test
