#include "tour/stage.h"

#include <algorithm>

#include "base/format_message.h"

namespace crv::standins::tour {
namespace {

constexpr char kSuccess[] = " = 0x00000000";

std::string Text(Words cells) {
  while (!cells.empty() && cells.back() == kNothing) cells.pop_back();
  std::string text;
  for (const std::wstring& cell : cells) text += (text.empty() ? "" : " | ") + (cell == kNothing ? "-" : ToUtf8(cell));
  return text;
}

Words Key(const Words& row, std::size_t cells) { return Words(row.begin(), row.begin() + std::min(cells, row.size())); }

// The rows without the heading.
std::vector<Words> Rows(const Table& table) { return {table.begin() + (table.empty() ? 0 : 1), table.end()}; }

void AppendChanges(const Table& before, const Table& after, std::size_t key_cells, Lines& changes) {
  std::vector<Words> old_rows = Rows(before);
  const std::vector<Words> rows = Rows(after);
  for (const Words& row : rows) {
    const auto same = std::find(old_rows.begin(), old_rows.end(), row);
    if (same == old_rows.end()) {
      changes.push_back(Text(row));
    } else {
      old_rows.erase(same);
    }
  }
  for (const Words& row : old_rows) {
    const Words key = Key(row, key_cells);
    if (std::any_of(rows.begin(), rows.end(), [&](const Words& other) { return Key(other, key_cells) == key; })) continue;
    changes.push_back(Text(key) + " | gone");
  }
}

}  // namespace

Stage::Stage() {
  for (const Area* const area : Areas()) tables_.push_back(area->table ? area->table() : Table());
}

Lines Stage::ChangesSince(const Stage& earlier) const {
  Lines changes;
  for (std::size_t i = 0; i < tables_.size(); ++i) {
    AppendChanges(earlier.tables_[i], tables_[i], Areas()[i]->key_cells, changes);
  }
  return changes;
}

Lines Calls() {
  Lines calls;
  for (const Area* const area : Areas()) {
    if (!area->calls) continue;
    for (const std::wstring& line : area->calls->Journal()) {
      std::string call = ToUtf8(line);
      if (const std::size_t at = call.rfind(kSuccess); at != std::string::npos) call.erase(at, std::size(kSuccess) - 1);
      calls.push_back(call);
    }
  }
  return calls;
}

void ForgetCalls() {
  for (const Area* const area : Areas()) {
    if (area->calls) area->calls->ClearJournal();
  }
}

}  // namespace crv::standins::tour
