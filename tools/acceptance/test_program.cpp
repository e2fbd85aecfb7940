#include "acceptance/test_program.h"

#include <iterator>
#include <sstream>

#include "base/format_message.h"

namespace crv::acceptance {
namespace {

std::string NameOf(const std::wstring& image) {
  const std::wstring file = image.substr(image.rfind(L'\\') + 1);
  return ToUtf8(file.substr(0, file.rfind(L'.')));
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line); lines.push_back(line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
  }
  return lines;
}

}  // namespace

TestProgram::TestProgram(std::wstring image)
    : image_(std::move(image)),
      name_(NameOf(image_)),
      kind_(name_ == "tour"     ? Kind::tour
            : name_ == "matrix" ? Kind::matrix
                                : Kind::tests) {}

std::wstring TestProgram::ListArguments() const {
  return kind_ == Kind::tests ? L"--gtest_list_tests" : kind_ == Kind::tour ? L"list --steps" : L"list";
}

std::vector<Unit> TestProgram::ReadList(const std::string& printed) const {
  std::vector<Unit> units;
  std::string suite;
  for (const std::string& line : LinesOf(printed)) {
    if (line.empty()) continue;
    if (kind_ == Kind::matrix) {
      units.push_back({line, {name_ + "." + line}});
    } else if (kind_ == Kind::tour) {  // "chapter.1 words"
      const std::string chapter = line.substr(0, line.find('.'));
      if (units.empty() || units.back().name != chapter) units.push_back({chapter});
      units.back().tests.push_back(name_ + "." + line);
    } else if (const std::string text = line.substr(0, line.find("  #")); text.starts_with("  ")) {
      units.push_back({suite + text.substr(2), {name_ + "." + suite + text.substr(2)}});
    } else {
      suite = text;  // ends with a dot
    }
  }
  return units;
}

std::wstring TestProgram::RunArguments(const std::vector<const Unit*>& units) const {
  std::wstring arguments = kind_ == Kind::tests  ? L"--gtest_color=no --gtest_filter="
                           : kind_ == Kind::tour ? L"run --tests"
                                                 : L"run";
  for (const Unit* const unit : units) {
    arguments += kind_ == Kind::tests ? FromUtf8(unit->name) + L":" : L" \"" + FromUtf8(unit->name) + L"\"";
  }
  return arguments;
}

TestLine ReadTestLine(const std::string& line) {
  static constexpr struct {
    const char* mark;
    TestLine::What what;
  } kMarks[] = {{"[ RUN      ] ", TestLine::What::begins},
                {"[       OK ] ", TestLine::What::passed},
                {"[  FAILED  ] ", TestLine::What::failed},
                {"[  SKIPPED ] ", TestLine::What::skipped}};
  for (const auto& [mark, what] : kMarks) {
    if (!line.starts_with(mark)) continue;
    std::string name = line.substr(std::char_traits<char>::length(mark));
    if (what == TestLine::What::begins) return {what, name};
    const std::size_t time = name.rfind(" (");
    if (time == std::string::npos || !name.ends_with(" ms)")) return {};  // of the summary
    name.resize(time);
    return {what, name.substr(0, name.find(", where "))};
  }
  return {};
}

}  // namespace crv::acceptance
