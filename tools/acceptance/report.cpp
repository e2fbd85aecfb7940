#include "acceptance/report.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "base/exceptions.h"
#include "root/scoped_handle.h"
#include "shared/report_text.h"

namespace crv::acceptance {
namespace {

using standins::Escaped;

constexpr const wchar_t* kFiles[] = {L"\\report.txt", L"\\report.xml"};

// The bytes of the character at the begin of the text that UTF-8 and XML know; 0 for none, as for a control character.
std::size_t CharacterAt(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) { return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0u; };
  const unsigned first = byte(0);
  if (first < 0x80) return first >= ' ' || first == '\n' || first == '\t';
  const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  static constexpr unsigned kSmallest[] = {0x80, 0x800, 0x10000};
  unsigned code = first & (0xFF >> (size + 1));
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3F);
  }
  const bool known = first >= 0xC2 && first <= 0xF4 && code >= kSmallest[size - 2] && code <= 0x10FFFF;
  return known && (code < 0xD800 || code > 0xDFFF) && code != 0xFFFE && code != 0xFFFF ? size : 0;
}

// What a test printed may be anything: what is no character becomes a question mark.
std::string Readable(const std::string& text) {
  std::string readable;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t size = CharacterAt(text, at);
    readable += size ? text.substr(at, size) : "?";
    at += std::max<std::size_t>(size, 1);
  }
  return readable;
}

std::string Seconds(DWORD duration) {
  char text[32];
  std::snprintf(text, std::size(text), "%.3f", duration / 1000.0);
  return text;
}

std::string Said(const Counts& counts) {
  return std::to_string(counts.passed) + " passed, " + std::to_string(counts.failed) + " failed, " +
         std::to_string(counts.skipped) + " skipped";
}

// The results by their programs, in their order.
std::vector<std::vector<Result>> ByProgram(const std::vector<Result>& results) {
  std::vector<std::vector<Result>> groups;
  for (const Result& result : results) {
    if (groups.empty() || groups.back()[0].program != result.program) groups.push_back({});
    groups.back().push_back(result);
  }
  return groups;
}

std::string AsText(const Report& report) {
  std::string text = report.machine + "\n";
  for (const std::string& note : report.notes) text += note + "\n";
  for (const std::vector<Result>& group : ByProgram(report.results)) {
    text += "\n" + group[0].program + ": " + Said(Count(group)) + "\n";
    for (const Result& result : group) {
      static constexpr const char* kWords[] = {"passed   ", "FAILED   ", "skipped  "};
      text += kWords[static_cast<int>(result.what)] + result.test;
      text += result.what == Result::What::skipped ? ": " + result.text + "\n" : " (" + Seconds(result.duration) + " s)\n";
      if (result.what != Result::What::failed) continue;
      std::size_t begin = 0;
      for (std::size_t end; begin < result.text.size(); begin = end + 1) {
        end = std::min(result.text.find('\n', begin), result.text.size());
        text += "    " + result.text.substr(begin, end - begin) + "\n";
      }
    }
  }
  text += "\n" + Said(Count(report.results)) + "\n";
  std::string lines;  // as Windows ends them
  for (const char c : Readable(text)) lines += c == '\n' ? "\r\n" : std::string(1, c);
  return lines;
}

std::string Case(const Result& result) {
  std::string text = "    <testcase classname=\"" + Escaped(result.program) + "\" name=\"" + Escaped(result.test) + "\" time=\"" +
                     Seconds(result.duration) + "\"";
  if (result.what == Result::What::passed) return text + "/>\n";
  if (result.what == Result::What::skipped) {
    return text + ">\n      <skipped message=\"" + Escaped(result.text) + "\"/>\n    </testcase>\n";
  }
  const std::string first = result.text.substr(0, result.text.find('\n'));
  return text + ">\n      <failure message=\"" + Escaped(first) + "\">" + Escaped(result.text) + "</failure>\n    </testcase>\n";
}

std::string Attributes(const std::vector<Result>& results) {
  const Counts counts = Count(results);
  return "tests=\"" + std::to_string(results.size()) + "\" failures=\"" + std::to_string(counts.failed) + "\" skipped=\"" +
         std::to_string(counts.skipped) + "\"";
}

std::string AsJUnit(const Report& report) {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"acceptance\" " + Attributes(report.results) + ">\n";
  for (const std::vector<Result>& group : ByProgram(report.results)) {
    text += "  <testsuite name=\"" + Escaped(group[0].program) + "\" " + Attributes(group) + ">\n    <properties>\n" +
            "      <property name=\"system\" value=\"" + Escaped(report.machine) + "\"/>\n";
    for (const std::string& note : report.notes) text += "      <property name=\"note\" value=\"" + Escaped(note) + "\"/>\n";
    text += "    </properties>\n";
    for (const Result& result : group) text += Case(result);
    text += "  </testsuite>\n";
  }
  return text + "</testsuites>\n";
}

}  // namespace

Counts Count(const std::vector<Result>& results) {
  Counts counts;
  for (const Result& result : results) {
    ++(result.what == Result::What::passed   ? counts.passed
       : result.what == Result::What::failed ? counts.failed
                                             : counts.skipped);
  }
  return counts;
}

void RequireWritable(const std::wstring& folder) {
  for (const wchar_t* const file : kFiles) {
    const std::wstring path = folder + file;
    const bool there = GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
    root::ScopedFile opened(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr));
    if (!opened) throw exceptions::error(GetLastError(), L"cannot write %s", path.c_str());
    opened.reset();
    if (!there) DeleteFileW(path.c_str());
  }
}

void WriteReports(const Report& report, const std::wstring& folder) {
  standins::WriteTextFile(folder + kFiles[0], AsText(report));
  standins::WriteTextFile(folder + kFiles[1], Readable(AsJUnit(report)));
}

}  // namespace crv::acceptance
