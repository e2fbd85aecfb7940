#include "centre/run_command.h"

#include <cstdio>

#include "shared/area.h"
#include "shared/console.h"
#include "shared/log_tail.h"
#include "shared/program.h"
#include "wsc/pending.h"

namespace crv::standins::centre {
namespace {

constexpr wchar_t kHost[] = L"wsc_proxy.exe";

// A call that Security Center answers "pending" for ever ends by itself: the pauses between the repeats are only a part of the
// time that they take.
constexpr DWORD kAllPauses = wsc::kPendingRetryLimit * wsc::kPendingPause;  // ms
constexpr DWORD kLongestRun = 3 * kAllPauses;

bool IsBlank(wchar_t character) { return character == L' ' || character == L'\t'; }

// The table of each area; empty for one that has none.
std::vector<Table> Tables() {
  std::vector<Table> tables;
  for (const Area* const area : Areas()) tables.push_back(area->table ? area->table() : Table());
  return tables;
}

}  // namespace

std::wstring Tail(const wchar_t* command_line, int words) {
  const wchar_t* at = command_line;
  for (; words > 0; --words) {
    while (IsBlank(*at)) ++at;
    for (bool quoted = false; *at && (quoted || !IsBlank(*at)); ++at) {
      if (*at == L'"') quoted = !quoted;
    }
  }
  while (IsBlank(*at)) ++at;
  return at;
}

int RunHost(const std::wstring& tail) {
  PrintLine(Program::CommandLine(kHost, tail));
  const LogTail log;
  const std::vector<Table> before = Tables();
  const std::optional<DWORD> result = Program(kHost, tail, Output::shared).Result(kLongestRun);
  PrintUtf8(log.Read());
  const std::vector<Table> after = Tables();
  for (std::size_t i = 0; i < after.size(); ++i) {
    if (!Areas()[i]->show_after_run && after[i] == before[i]) continue;
    if (i > 0) PrintLine();
    PrintTable(after[i]);
  }
  if (!result) PrintLine(std::wstring(kHost) + L" did not end and was killed");
  wchar_t last[32];
  _snwprintf(last, std::size(last), L"result 0x%08x", static_cast<unsigned>(result.value_or(ERROR_TIMEOUT)));
  PrintLine(last);
  return result == DWORD{0} ? 0 : 1;
}

}  // namespace crv::standins::centre
