// A stage on which HKEY_LOCAL_MACHINE of the test process is an empty key of the user's hive. Keys that COM needs (Software\Classes)
// are not there; use it for code that only reads and writes the registry. One at a time, on one thread.
#pragma once

#include <windows.h>

namespace crv::test {

class RedirectedHive {
 public:
  RedirectedHive();   // fails the running test when the redirection is refused
  ~RedirectedHive();  // ends the redirection and deletes everything below the key
  RedirectedHive(const RedirectedHive&) = delete;
  RedirectedHive& operator=(const RedirectedHive&) = delete;

 private:
  HKEY key_ = nullptr;
};

}  // namespace crv::test
