// The programs of the kit that hold tests: how each one is asked for its tests and told to run some, and what it prints.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace crv::acceptance {

// What can be run by itself: one test, or a chapter of the tour, whose steps need each other.
struct Unit {
  std::string name;                     // as the program knows it
  std::vector<std::string> tests = {};  // as they are reported
};

class TestProgram {
 public:
  enum class Kind { tests, tour, matrix };

  explicit TestProgram(std::wstring image);

  const std::wstring& image() const { return image_; }
  const std::string& name() const { return name_; }

  std::wstring ListArguments() const;
  std::vector<Unit> ReadList(const std::string& printed) const;
  std::wstring RunArguments(const std::vector<const Unit*>& units) const;

 private:
  std::wstring image_;
  std::string name_;
  Kind kind_;
};

// One line of what a program of tests prints.
struct TestLine {
  enum class What { begins, passed, failed, skipped, other };
  What what = What::other;
  std::string name = {};
};
TestLine ReadTestLine(const std::string& line);

}  // namespace crv::acceptance
