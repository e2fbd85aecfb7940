// Runs a program of tests to its end: what crashes or hangs fails, and the tests behind it are run all the same.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "acceptance/machine.h"
#include "acceptance/report.h"
#include "acceptance/test_program.h"

namespace crv::acceptance {

struct Interrupted {};  // thrown when the event is set

// Whether a pattern of /only takes the test.
bool Takes(const std::string& pattern, const std::string& test);

class Runner {
 public:
  // `limit`: ms that a test may take. `only`: patterns of names, PROGRAM.TEST; the others are left out; empty: all.
  // `work`: a folder for output.
  Runner(std::vector<Trait> traits, DWORD limit, std::vector<std::string> only, std::wstring work, HANDLE interrupt)
      : traits_(std::move(traits)), limit_(limit), only_(std::move(only)), work_(std::move(work)), interrupt_(interrupt) {}

  using Progress = std::function<void(std::size_t done, std::size_t all, const Result& last)>;

  // Adds the tests in the order in which the program names them. Throws Interrupted when Ctrl-C was pressed; `results` then has those that
  // ended.
  void Run(const TestProgram& program, std::vector<Result>& results, const Progress& progress) const;

 private:
  struct Ended;
  Ended RunToEnd(const std::wstring& image, const std::wstring& arguments,
                 const std::function<bool(const std::string&)>& line) const;
  bool IsChosen(const std::string& name) const;

  const std::vector<Trait> traits_;
  const DWORD limit_;
  const std::vector<std::string> only_;
  const std::wstring work_;
  const HANDLE interrupt_;
};

}  // namespace crv::acceptance
