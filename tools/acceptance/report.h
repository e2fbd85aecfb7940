// The results, and the two reports of them: report.txt for people, report.xml for programs that read JUnit.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace crv::acceptance {

struct Result {
  enum class What { passed, failed, skipped };
  std::string program;
  std::string test;
  What what = What::failed;
  DWORD duration = 0;     // ms
  std::string text = {};  // of a failure its output, of a skipped one the reason
};

struct Counts {
  std::size_t passed = 0;
  std::size_t failed = 0;
  std::size_t skipped = 0;
};
Counts Count(const std::vector<Result>& results);

struct Report {
  std::string machine;             // the system's version and bitness
  std::vector<std::string> notes;  // what else is worth knowing, one line each
  std::vector<Result> results;
};

// Both into the folder. Throw crv::exceptions::error; Require before anything is begun, when they could not be written.
void RequireWritable(const std::wstring& folder);
void WriteReports(const Report& report, const std::wstring& folder);

}  // namespace crv::acceptance
