// What the tour leaves for other programs: a JUnit report, and the log and the minidumps with a list of what a debugger must see in them.
// Failures throw crv::exceptions::error.
#pragma once

#include <string>
#include <vector>

#include "tour/judge.h"
#include "tour/play.h"
#include "tour/scenario.h"

namespace crv::standins::tour {

// <testsuite name="tour"> with a <testcase> for each step.
class JUnitReport {
 public:
  void Add(const Chapter& chapter, std::size_t number, const Step& step, const Outcome& outcome,
           const std::vector<Difference>& differences);
  void Write(const std::wstring& path) const;

 private:
  std::string cases_;
  std::size_t tests_ = 0;
  std::size_t failures_ = 0;
};

// The folder "tour" below the log folder: what all steps together would have left if no chapter began on a clean machine. Its file dumps.tsv has a line for each dump in which somebody has to look: file name,
// exception code, regular expression of the place, and the step, with a tab between two of them.
class Shelf {
 public:
  Shelf();  // emptied

  // Moves the dumps of a step to the folder and remembers its lines of the log.
  void Keep(const Chapter& chapter, std::size_t number, const Step& step, const Outcome& outcome);
  void WriteFiles() const;  // dumps.tsv and wsc.log

 private:
  std::wstring folder_;
  std::string list_;
  std::string log_;
};

}  // namespace crv::standins::tour
