// matrix.exe: crashes guarded hosts in every way that the guard has to survive, and looks at what they leave.
//
//   matrix list             the cases
//   matrix run [CASE...]    plays them
//
// It prints as a program of tests does. Below the log folder it leaves the folder "matrix" with a folder for each case. There,
// dumps.tsv has a line for each dump of a case, with a tab between two columns: the case; "handled" where the system's own crash
// handling is not reached, else "reached"; the file; and what a debugger must find in it: the exception code, "-" for none; the comment;
// the innermost and the outermost frame as regular expressions, "-" for any; "throws" where the innermost one is a throw, else "-"; "full",
// "small" or "any" memory. A case without a dump has a line of its own, with the first two columns alone.
//
// Ends with 0 when all came out as the cases say, 1 when not, 2 for words that it does not understand.
#include <windows.h>
#include <shellapi.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "base/exceptions.h"
#include "base/format_message.h"
#include "matrix/cases.h"
#include "matrix/play.h"
#include "shared/area.h"
#include "shared/console.h"
#include "shared/test_lines.h"

namespace crv::standins::matrix {
namespace {

constexpr wchar_t kUsage[] =
    L"matrix list             shows the cases\r\n"
    L"matrix run [CASE...]    plays them, or those that are named; the last line counts them";

const Case& Find(const std::wstring& name) {
  for (const Case& known : Cases()) {
    if (FromUtf8(known.name) == name) return known;
  }
  throw UsageError{L"there is no case '" + name + L"'; matrix list shows them"};
}

int List() {
  for (const Case& known : Cases()) PrintLine(FromUtf8(known.name));
  return 0;
}

void List(std::ostream& list, const Case& played, const Outcome& outcome) {
  const std::string head = played.name + "\t" + (played.handled || played.exits == std::vector<DWORD>{0} ? "handled" : "reached");
  if (outcome.dumps.empty()) list << head << "\n";
  for (std::size_t i = 0; i < outcome.dumps.size(); ++i) {
    char code[16] = "-";
    if (played.exception) std::snprintf(code, std::size(code), "0x%08lx", played.code);
    const bool looked_at = !played.function.empty();
    list << head << "\t" << ToUtf8(outcome.dumps[i].substr(outcome.dumps[i].find(L"\\matrix\\") + 8)) << "\t" << code << "\t"
         << (i < played.dumps.size() ? played.dumps[i] : "?") << "\t" << (looked_at ? played.function : "-") << "\t"
         << (looked_at ? played.outermost : "-") << "\t" << (played.throws ? "throws" : "-") << "\t"
         << (!played.own_folder ? "any"
             : played.full      ? "full"
                                : "small")
         << "\n";
  }
  list.flush();  // a reader may follow
}

int Run(const Words& words) {
  std::vector<const Case*> chosen;
  for (const std::wstring& word : words) chosen.push_back(&Find(word));
  if (chosen.empty()) {
    for (const Case& known : Cases()) chosen.push_back(&known);
  }
  std::ofstream list((EmptyShelf() + L"\\dumps.tsv").c_str(), std::ios::binary);
  TestLines lines("matrix");
  for (const Case* const played : chosen) {
    lines.Begin(played->name);
    PrintError(L"case " + FromUtf8(played->name));  // among what the system itself writes there
    const Outcome outcome = Play(*played);
    List(list, *played, outcome);
    lines.End(outcome.differences);
  }
  LeaveMachineClean();
  return lines.EndAll();
}

int Main(const Words& words) {
  if (words.size() == 1 && words[0] == L"list") return List();
  if (!words.empty() && words[0] == L"run") return Run(Words(words.begin() + 1, words.end()));
  throw UsageError{words.empty() ? L"a command is missing" : L"unknown command '" + words[0] + L"'"};
}

}  // namespace
}  // namespace crv::standins::matrix

int main() {
  using namespace crv::standins;
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  try {
    return matrix::Main(Words(words + std::min(count, 1), words + count));
  } catch (const UsageError& error) {
    PrintError(L"matrix: " + error.text + L"\r\n" + matrix::kUsage);
    return 2;
  } catch (const crv::exceptions::detail::base& error) {
    PrintError(L"matrix: " + crv::FromUtf8(error.what()));
    return 1;
  }
}
