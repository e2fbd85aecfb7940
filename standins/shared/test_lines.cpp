#include "shared/test_lines.h"

#include "shared/console.h"

namespace crv::standins {

void TestLines::Begin(const std::string& name) {
  name_ = suite_ + "." + name;
  begun_ = GetTickCount();
  PrintUtf8("[ RUN      ] " + name_ + "\r\n");
}

void TestLines::End(const Lines& differences) {
  for (const std::string& line : differences) PrintUtf8(line + "\r\n");
  ++(differences.empty() ? passed_ : failed_);
  PrintUtf8((differences.empty() ? "[       OK ] " : "[  FAILED  ] ") + name_ + " (" + std::to_string(GetTickCount() - begun_) +
            " ms)\r\n");
}

void TestLines::Skip(const std::string& reason) { PrintUtf8(reason + "\r\n[  SKIPPED ] " + name_ + " (0 ms)\r\n"); }

int TestLines::EndAll() const {
  PrintUtf8(std::to_string(passed_) + " passed, " + std::to_string(failed_) + " failed\r\n");
  return failed_ ? 1 : 0;
}

}  // namespace crv::standins
