// Results one by one as a program of tests prints them, so that one reader understands all of them:
//
//   [ RUN      ] suite.name
//   what differs
//   [  FAILED  ] suite.name (12 ms)       or [       OK ], or [  SKIPPED ]
//   1 passed, 1 failed
#pragma once

#include <windows.h>

#include <string>

#include "shared/lines.h"

namespace crv::standins {

class TestLines {
 public:
  explicit TestLines(std::string suite) : suite_(std::move(suite)) {}

  void Begin(const std::string& name);
  void End(const Lines& differences);  // none: as it had to be
  void Skip(const std::string& reason);
  int EndAll() const;  // 1 when something failed, else 0

 private:
  const std::string suite_;
  std::string name_;
  DWORD begun_ = 0;
  std::size_t passed_ = 0;
  std::size_t failed_ = 0;
};

}  // namespace crv::standins
