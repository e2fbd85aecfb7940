#include "tour/report.h"

#include <windows.h>

#include <cstdio>
#include <iterator>

#include "base/exceptions.h"
#include "base/format_message.h"
#include "shared/places.h"
#include "shared/report_text.h"

namespace crv::standins::tour {
namespace {

std::string Title(const Chapter& chapter, std::size_t number, const Step& step) {
  return chapter.name + " " + std::to_string(number) + ": " +
         (step.crash.empty() ? "wsc_proxy.exe " + step.request : "crasher.exe " + step.crash);
}

}  // namespace

void JUnitReport::Add(const Chapter& chapter, std::size_t number, const Step& step, const Outcome& outcome,
                      const std::vector<Difference>& differences) {
  ++tests_;
  char seconds[32];
  std::snprintf(seconds, std::size(seconds), "%.3f", outcome.duration / 1000.0);
  cases_ += "  <testcase classname=\"tour." + chapter.name + "\" name=\"" + Escaped(Title(chapter, number, step)) + "\" time=\"" +
            seconds + "\"";
  if (differences.empty()) {
    cases_ += "/>\n";
    return;
  }
  ++failures_;
  std::string text;
  for (const Difference& difference : differences) {
    text += difference.what + " (- announced, + came)\n";
    for (const std::string& line : difference.text) text += line + "\n";
  }
  cases_ +=
      ">\n    <failure message=\"" + Escaped(differences[0].what) + " differs\">" + Escaped(text) + "</failure>\n  </testcase>\n";
}

void JUnitReport::Write(const std::wstring& path) const {
  WriteTextFile(path, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"tour\" tests=\"" + std::to_string(tests_) +
                          "\" failures=\"" + std::to_string(failures_) + "\">\n" + cases_ + "</testsuite>\n");
}

Shelf::Shelf() : folder_(LogFolder() + L"\\tour") {
  if (!CreateDirectoryW(folder_.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
    throw exceptions::error(GetLastError(), L"cannot create %s", folder_.c_str());
  }
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW((folder_ + L"\\*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    DeleteFileW((folder_ + L"\\" + found.cFileName).c_str());  // refused for "." and ".."
  } while (FindNextFileW(search, &found));
  FindClose(search);
}

void Shelf::Keep(const Chapter& chapter, std::size_t number, const Step& step, const Outcome& outcome) {
  log_ += outcome.log_text;
  for (std::size_t i = 0; i < outcome.dump_files.size(); ++i) {
    const std::wstring& file = outcome.dump_files[i];
    const std::wstring name = file.substr(file.rfind(L'\\') + 1);
    if (!MoveFileExW(file.c_str(), (folder_ + L"\\" + name).c_str(), MOVEFILE_REPLACE_EXISTING)) {
      throw exceptions::error(GetLastError(), L"cannot move %s", file.c_str());
    }
    if (i >= step.dumps.size() || step.dumps[i].stopped.empty()) continue;
    list_ += ToUtf8(name) + "\t" + Hex(step.dumps[i].exception) + "\t" + step.dumps[i].stopped + "\t" +
             Title(chapter, number, step) + "\n";
  }
}

void Shelf::WriteFiles() const {
  WriteTextFile(folder_ + L"\\dumps.tsv", list_);
  WriteTextFile(folder_ + L"\\wsc.log", log_);
}

}  // namespace crv::standins::tour
