#include "shared/scripted_calls.h"

#include <algorithm>
#include <cwchar>

#include "shared/registry.h"

namespace crv::standins {
namespace {

constexpr wchar_t kCalls[] = L"Calls";
constexpr wchar_t kForever[] = L"forever ";
constexpr std::size_t kJournalLines = 2000;

// Splits a trailing " xN" off and gives N; 1 when there is none.
unsigned long TakeRepeat(std::wstring& text) {
  const std::size_t blank = text.rfind(L" x");
  if (blank == std::wstring::npos || blank + 2 == text.size()) return 1;
  if (text.find_first_not_of(L"0123456789", blank + 2) != std::wstring::npos) return 1;
  const unsigned long repeat = std::wcstoul(text.c_str() + blank + 2, nullptr, 10);
  text.erase(blank);
  return repeat;
}

std::wstring WithRepeat(const std::wstring& text, unsigned long repeat) {
  return repeat > 1 ? text + L" x" + std::to_wstring(repeat) : text;
}

[[gnu::noinline]] void CrashAsTold() {
  volatile char* volatile const nothing = nullptr;
  *nothing = 1;
}

struct ScriptEntry {
  std::wstring text;
  bool forever = false;
  unsigned long repeat = 1;
  bool crash = false;
  Answer answer;
};

std::optional<ScriptEntry> Parse(std::wstring text) {
  ScriptEntry entry;
  entry.forever = text.starts_with(kForever);
  if (entry.forever) text.erase(0, std::size(kForever) - 1);
  entry.repeat = TakeRepeat(text);
  entry.text = text;
  if (text == L"null") {
    entry.answer.null_pointer = true;
  } else if (text == L"crash") {
    entry.crash = true;
  } else if (text != L"ok") {
    wchar_t* end = nullptr;
    entry.answer.code = static_cast<HRESULT>(std::wcstoul(text.c_str(), &end, 0));
    if (!text.starts_with(L"0x") || end == text.c_str() + 2 || *end) return std::nullopt;
  }
  if (entry.repeat == 0) return std::nullopt;
  return entry;
}

}  // namespace

ScriptedCalls::ScriptedCalls(const wchar_t* key, const wchar_t* lock_name, std::vector<Call> calls)
    : script_key_(std::wstring(key) + L"\\Script"),
      journal_key_(std::wstring(key) + L"\\Journal"),
      lock_name_(lock_name),
      calls_(std::move(calls)) {}

std::vector<std::wstring> ScriptedCalls::Names() const {
  std::vector<std::wstring> names;
  for (const Call& call : calls_) names.push_back(call.name);
  return names;
}

const ScriptedCalls::Call* ScriptedCalls::Find(const std::wstring& name) const {
  const auto found = std::find_if(calls_.begin(), calls_.end(), [&](const Call& call) { return call.name == name; });
  return found == calls_.end() ? nullptr : &*found;
}

void ScriptedCalls::Script(const std::wstring& name, const std::vector<std::wstring>& answers) const {
  const Call* const call = Find(name);
  if (!call) throw exceptions::fatal(exceptions::kInvalidParameter, "no such call: %ls", name.c_str());
  for (const std::wstring& answer : answers) {
    const std::optional<ScriptEntry> entry = Parse(answer);
    if (!entry || (entry->answer.null_pointer && !call->hands_out_interface)) {
      throw exceptions::fatal(exceptions::kInvalidParameter, "%ls cannot answer '%ls'", name.c_str(), answer.c_str());
    }
  }
  const NamedLock lock(lock_name_);
  if (answers.empty()) {
    registry::DeleteValue(script_key_, name.c_str());
  } else {
    registry::WriteList(script_key_, name.c_str(), answers);
  }
}

Answer ScriptedCalls::Take(const std::wstring& name) const {
  std::vector<std::wstring> answers = registry::ReadList(script_key_, name.c_str());
  if (answers.empty()) {
    const std::wstring general = name.substr(0, name.find(L'.'));
    return general != name && Find(general) ? Take(general) : Answer{};
  }
  const std::optional<ScriptEntry> entry = Parse(answers.front());
  if (entry && entry->forever && !entry->crash) return entry->answer;
  if (entry && entry->repeat > 1) {
    answers.front() = WithRepeat(entry->text, entry->repeat - 1);
  } else {
    answers.erase(answers.begin());
  }
  Script(name, answers);
  if (entry && entry->crash) CrashAsTold();
  return entry ? entry->answer : Answer{};
}

std::vector<std::wstring> ScriptedCalls::Journal() const { return registry::ReadList(journal_key_, kCalls); }

void ScriptedCalls::ClearJournal() const {
  const NamedLock lock(lock_name_);
  registry::DeleteKey(journal_key_);
}

void ScriptedCalls::Append(const std::wstring& line) const {
  std::vector<std::wstring> lines = Journal();
  std::wstring last = lines.empty() ? std::wstring() : lines.back();
  const unsigned long repeat = TakeRepeat(last);
  if (!lines.empty() && last == line) {
    lines.back() = WithRepeat(line, repeat + 1);
  } else {
    lines.push_back(line);
  }
  if (lines.size() > kJournalLines) lines.erase(lines.begin(), lines.end() - kJournalLines);
  registry::WriteList(journal_key_, kCalls, lines);
}

}  // namespace crv::standins
