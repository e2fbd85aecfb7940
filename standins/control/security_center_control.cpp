#include "control/security_center_control.h"

#include <algorithm>
#include <cwchar>

#include "base/exceptions.h"
#include "control/named_lock.h"
#include "control/registry.h"

namespace crv::standins {
namespace {

const std::wstring kProducts = std::wstring(kSecurityCenterKey) + L"\\Products\\";
const std::wstring kScript = std::wstring(kSecurityCenterKey) + L"\\Script";
const std::wstring kJournal = std::wstring(kSecurityCenterKey) + L"\\Journal";
constexpr wchar_t kCalls[] = L"Calls";
constexpr wchar_t kPath[] = L"Path";
constexpr wchar_t kName[] = L"Name";
constexpr wchar_t kState[] = L"State";
constexpr wchar_t kSignatures[] = L"SignaturesUpToDate";

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

struct ScriptEntry {
  std::wstring text;
  bool forever = false;
  unsigned long repeat = 1;
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
  } else if (text != L"ok") {
    wchar_t* end = nullptr;
    entry.answer.code = static_cast<HRESULT>(std::wcstoul(text.c_str(), &end, 0));
    if (!text.starts_with(L"0x") || end == text.c_str() + 2 || *end) return std::nullopt;
  }
  if (entry.repeat == 0) return std::nullopt;
  return entry;
}

}  // namespace

std::optional<Product> ReadProduct(const std::wstring& interface_name) {
  const NamedLock lock(kSecurityCenterLock);
  const std::wstring key = kProducts + interface_name;
  if (!registry::KeyExists(key)) return std::nullopt;
  return Product{registry::ReadText(key, kPath).value_or(L""), registry::ReadText(key, kName).value_or(L""),
                 registry::ReadNumber(key, kState), registry::ReadNumber(key, kSignatures)};
}

void WriteProduct(const std::wstring& interface_name, const Product& product) {
  const NamedLock lock(kSecurityCenterLock);
  const std::wstring key = kProducts + interface_name;
  registry::DeleteKey(key);
  registry::WriteText(key, kPath, product.path);
  registry::WriteText(key, kName, product.name);
  if (product.state) registry::WriteNumber(key, kState, *product.state);
  if (product.signatures_up_to_date) registry::WriteNumber(key, kSignatures, *product.signatures_up_to_date);
}

void RemoveProduct(const std::wstring& interface_name) { registry::DeleteKey(kProducts + interface_name); }

std::vector<std::wstring> ScriptNames() {
  std::vector<std::wstring> names;
  for (const wchar_t* const interface_name : kProductInterfaces) {
    for (const wchar_t* const call : kProductCalls) names.push_back(std::wstring(interface_name) + L"." + call);
  }
  return names;
}

void Script(const std::wstring& name, const std::vector<std::wstring>& answers) {
  const std::vector<std::wstring> names = ScriptNames();
  if (std::find(names.begin(), names.end(), name) == names.end()) {
    throw exceptions::fatal(exceptions::kInvalidParameter, "no such call: %ls", name.c_str());
  }
  for (const std::wstring& answer : answers) {
    const std::optional<ScriptEntry> entry = Parse(answer);
    if (!entry || (entry->answer.null_pointer && !name.ends_with(L".Create"))) {
      throw exceptions::fatal(exceptions::kInvalidParameter, "%ls cannot answer '%ls'", name.c_str(), answer.c_str());
    }
  }
  const NamedLock lock(kSecurityCenterLock);
  if (answers.empty()) {
    registry::DeleteValue(kScript, name.c_str());
  } else {
    registry::WriteList(kScript, name.c_str(), answers);
  }
}

std::vector<std::wstring> ScriptedAnswers(const std::wstring& name) { return registry::ReadList(kScript, name.c_str()); }

Answer TakeAnswer(const std::wstring& name) {
  const NamedLock lock(kSecurityCenterLock);
  std::vector<std::wstring> answers = ScriptedAnswers(name);
  if (answers.empty()) return {};
  const std::optional<ScriptEntry> entry = Parse(answers.front());
  if (entry && entry->forever) return entry->answer;
  if (entry && entry->repeat > 1) {
    answers.front() = WithRepeat(entry->text, entry->repeat - 1);
  } else {
    answers.erase(answers.begin());
  }
  Script(name, answers);
  return entry ? entry->answer : Answer{};
}

std::vector<std::wstring> Calls() { return registry::ReadList(kJournal, kCalls); }

void AppendCall(const std::wstring& line) {
  const NamedLock lock(kSecurityCenterLock);
  std::vector<std::wstring> lines = Calls();
  std::wstring last = lines.empty() ? std::wstring() : lines.back();
  const unsigned long repeat = TakeRepeat(last);
  if (!lines.empty() && last == line) {
    lines.back() = WithRepeat(line, repeat + 1);
  } else {
    lines.push_back(line);
  }
  if (lines.size() > kJournalLines) lines.erase(lines.begin(), lines.end() - kJournalLines);
  registry::WriteList(kJournal, kCalls, lines);
}

void ClearSecurityCenter() {
  const NamedLock lock(kSecurityCenterLock);
  registry::DeleteKey(kSecurityCenterKey);
}

}  // namespace crv::standins
