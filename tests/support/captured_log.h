// A log library inside the test program: keeps what the module logs, hands out no logger or throws when told to. A test program
// links it instead of log.dll by naming crv_captured_log. One at a time; records of all threads are kept.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace crv::test {

class CapturedLog {
 public:
  CapturedLog();  // starts empty and well-behaved
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  // One line per record, "operation level tag: text", for example "narrow 1 wsc: Registering struct IWscAVStatus". Operations:
  // "narrow", "wide", "variadic", "exception" (text "context: what [code]", nested ones behind " <- "), "exception at", "open"
  // (text "path size append").
  std::vector<std::string> lines() const;
  std::vector<std::string> module_lines() const;  // without those of the crash guard, which the first run of a process installs
  void clear();

  enum class Behaviour { normal, no_module, no_logger, throws };
  void Behave(Behaviour behaviour);

  // References to the library's objects that the module holds.
  long live_references() const;

  // Acquisitions of the module object so far.
  int acquisitions() const;
};

}  // namespace crv::test
