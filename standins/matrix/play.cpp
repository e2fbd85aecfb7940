#include "matrix/play.h"

#include <dbghelp.h>
#include <shlobj.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>

#include "base/exceptions.h"
#include "base/format_message.h"
#include "driver/control.h"
#include "root/scoped_handle.h"
#include "shared/commands.h"
#include "shared/dump_files.h"
#include "shared/log_tail.h"
#include "shared/places.h"
#include "shared/program.h"

namespace crv::standins::matrix {
namespace {

constexpr DWORD kLongestCase = 150'000;  // ms; the process that watches the host ends that sooner
constexpr DWORD kEveryDump[] = {SystemInfoStream, ThreadListStream, ModuleListStream, MiscInfoStream, CommentStreamW};

std::wstring Shelf() { return LogFolder() + L"\\matrix"; }

std::wstring FolderOf(const Case& played) {
  std::wstring name = FromUtf8(played.name);
  std::replace_if(
      name.begin(), name.end(), [](wchar_t c) { return c > 127 || !std::isalnum(static_cast<int>(c)); }, L'-');
  return Shelf() + L"\\" + name;
}

void CreateFolder(const std::wstring& folder) {
  const int status = SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr);
  if (status != ERROR_SUCCESS && status != ERROR_ALREADY_EXISTS)
    throw exceptions::error(status, L"cannot create %s", folder.c_str());
}

std::string Hex(DWORD number) {
  char text[16];
  std::snprintf(text, std::size(text), "0x%08lx", number);
  return text;
}

// The lines without their ends.
Lines LinesOf(std::istream& stream) {
  Lines lines;
  for (std::string line; std::getline(stream, line); lines.push_back(line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
  }
  return lines;
}

Lines ReadLines(const std::wstring& path) {
  std::ifstream file(path.c_str(), std::ios::binary);
  return LinesOf(file);
}

// A process from its start to its end.
struct Ended {
  std::optional<DWORD> exit;
  std::string process;  // its identifier
  Lines printed;
};

// What `crasher watch` printed, its own last words apart.
Ended Watched(const std::wstring& arguments, const std::wstring& folder) {
  const std::wstring file = folder + L"\\printed.txt";
  if (!Program(L"crasher.exe", L"watch " + arguments, file).Result(kLongestCase)) return {};
  Ended ended = {.printed = ReadLines(file)};
  while (!ended.printed.empty()) {
    const std::string last = ended.printed.back();
    const bool exit = last.starts_with("exit 0x");
    if (!exit && !last.starts_with("process ")) break;
    if (exit) ended.exit = std::stoul(last.substr(5), nullptr, 16);
    if (!exit) ended.process = last.substr(8);
    ended.printed.pop_back();
  }
  return ended;
}

Ended Run(const Case& played, const std::wstring& folder, bool names_folder) {
  std::string words = played.words;
  if (words.starts_with("run ")) {
    return {.exit = Program(L"wsc_proxy.exe", FromUtf8(words.substr(4)), Output::nowhere).Result(kLongestCase)};
  }
  constexpr char kFolder[] = "{folder}";
  const std::size_t at = words.find(kFolder);
  if (at != std::string::npos) words.replace(at, std::size(kFolder) - 1, ToUtf8(folder));
  std::wstring arguments = FromUtf8(words);
  if (at != std::string::npos) {  // a folder may have blanks
    arguments.insert(arguments.find(L"/folder:"), L"\"");
    arguments += L"\"";
  } else if (names_folder) {
    arguments += L" \"/folder:" + folder + L"\"";
  }
  return Watched(arguments, folder);
}

// The crash guard's records of a process, or of all, "level text".
Lines Records(const std::wstring& log, const std::string& process) {
  Lines records;
  for (const std::string& line : ReadLines(log)) {
    std::istringstream words(line);
    std::string date, time, number, thread, level, tag, text;
    words >> date >> time >> number >> thread >> level >> tag;
    std::getline(words >> std::ws, text);
    if (tag == "crashguard" && !IsOfSystemsAge(text) && (process.empty() || process == number))
      records.push_back(level + " " + text);
  }
  return records;
}

void Differ(const std::string& what, const Lines& announced, const Lines& came, Lines& differences) {
  if (AllMatch(announced, came)) return;
  differences.push_back(what + " (- announced, + came)");
  for (const std::string& line : Compared(announced, came)) differences.push_back("  " + line);
}

void SeeDump(const Case& played, const std::wstring& path, const std::string& comment, Lines& differences) {
  const DumpContent dump = ReadDump(path);
  const std::string name = ToUtf8(path.substr(path.rfind(L'\\') + 1));
  const auto has = [&](DWORD stream) { return std::count(dump.streams.begin(), dump.streams.end(), stream) == 1; };
  if (!MatchesPattern(played.name_of_dump, name)) differences.push_back("the dump is called " + name);
  for (const DWORD stream : kEveryDump) {
    if (!has(stream)) differences.push_back(name + " has no stream " + std::to_string(stream) + ", or several");
  }
  const bool full = has(Memory64ListStream);
  if (full == has(MemoryListStream) || (full != played.full && played.own_folder)) {
    differences.push_back(name + (played.full ? " has not the full memory alone" : " has not the memory of a small dump alone"));
  }
  if (dump.comment != comment) {
    differences.push_back(name + " has the comment '" + dump.comment.value_or("(none)") + "', not '" + comment + "'");
  }
  if (dump.exception.has_value() != played.exception) {
    differences.push_back(name + (played.exception ? " has no exception" : " has an exception"));
  }
  if (!played.exception || !dump.exception) return;
  if (*dump.exception != played.code) differences.push_back(name + " has the exception " + Hex(*dump.exception));
  if (std::find(dump.threads.begin(), dump.threads.end(), dump.exception_thread) == dump.threads.end()) {
    differences.push_back(name + " does not list the thread of its exception");
  }
}

void See(const Case& played, const std::wstring& log, const Ended& ended, Outcome& outcome) {
  Lines& differences = outcome.differences;
  if (!ended.exit || std::find(played.exits.begin(), played.exits.end(), *ended.exit) == played.exits.end()) {
    std::string possible;
    for (const DWORD code : played.exits) possible += (possible.empty() ? "" : " or ") + Hex(code);
    differences.push_back("the exit code had to be " + possible + ", and was " +
                          (ended.exit ? Hex(*ended.exit) : "none: it was killed"));
  }
  Differ("printed", played.printed, ended.printed, differences);
  Differ("log", played.log, Records(log, ended.process), differences);
  if (outcome.dumps.size() != played.dumps.size()) {
    differences.push_back("there had to be " + std::to_string(played.dumps.size()) + " dumps, not " +
                          std::to_string(outcome.dumps.size()));
  }
  for (std::size_t i = 0; i < std::min(outcome.dumps.size(), played.dumps.size()); ++i) {
    SeeDump(played, outcome.dumps[i], played.dumps[i], differences);
  }
  if (played.notices >= 0 && ReadDriverCounts().fatal_dumps != static_cast<DWORD>(played.notices)) {
    differences.push_back("the driver had to get " + std::to_string(played.notices) + " notices, and got " +
                          std::to_string(ReadDriverCounts().fatal_dumps));
  }
}

// What the module left in the log folder goes to the folder of the case.
void Collect(const std::wstring& folder) {
  std::vector<std::wstring> files = DumpFiles(LogFolder());
  files.push_back(LogFile());
  for (const std::wstring& file : files) {
    MoveFileExW(file.c_str(), (folder + file.substr(file.rfind(L'\\'))).c_str(), MOVEFILE_REPLACE_EXISTING);
  }
}

void PlayGuarded(const Case& played, Outcome& outcome) {
  const std::wstring folder = FolderOf(played);
  CreateFolder(folder);
  RunCommand({L"dumper", L"write"});
  for (const std::string& command : played.before) RunLine(command);
  if (played.notices >= 0) RunCommand({L"driver", L"start"});
  if (!played.own_folder) {
    for (const std::wstring& old : DumpFiles(LogFolder())) DeleteFileW(old.c_str());
    DeleteFileW(LogFile().c_str());
  }
  const Ended ended = Run(played, folder, played.own_folder);
  if (!played.own_folder) Collect(folder);
  outcome.dumps = DumpFiles(folder + FromUtf8(played.below));
  See(played, folder + L"\\wsc.log", ended, outcome);
}

// Gives what went wrong.
template <typename Work>
Lines TroublesOf(Work work) {
  try {
    work();
    return {};
  } catch (const UsageError& error) {
    return {ToUtf8(error.text)};
  } catch (const exceptions::detail::base& error) {
    return {error.what() + (" (" + Hex(error.code()) + ")")};
  }
}

}  // namespace

Outcome Play(const Case& played) {
  Outcome outcome;
  Lines troubles = TroublesOf([&] { PlayGuarded(played, outcome); });
  if (played.notices >= 0) troubles = Joined(troubles, TroublesOf([] { RunCommand({L"driver", L"remove"}); }));
  outcome.differences = Joined(outcome.differences, troubles);
  return outcome;
}

std::wstring EmptyShelf() {
  std::error_code failed;
  std::filesystem::remove_all(Shelf(), failed);
  if (failed) throw exceptions::error(failed.value(), L"cannot empty %s", Shelf().c_str());
  CreateFolder(Shelf());
  return Shelf();
}

void LeaveMachineClean() {
  RunCommand({L"dumper", L"write"});
  RunCommand({L"script", L"CavmStart"});
}

}  // namespace crv::standins::matrix
