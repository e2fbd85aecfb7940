// Throws generated texts at the code that takes texts from outside: command lines and folder texts. The sanitizers watch the
// memory; the assertions hold for every text, so each failure names the text that broke them. The seed is fixed.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "base/command_line.h"
#include "instup/path_text.h"
#include "root/path_root.h"

namespace crv {
namespace {

constexpr int kTexts = 30000;

// Texts of pieces that the code knows, with single characters of all kinds between them.
class Texts {
 public:
  template <std::size_t count>
  explicit Texts(const wchar_t* const (&pieces)[count]) : pieces_(pieces, pieces + count) {}

  std::wstring Next() {
    std::wstring text;
    for (unsigned i = random_() % 12; i > 0; --i) {
      if (random_() % 4 == 0) {
        text += static_cast<wchar_t>(1 + random_() % 0xFFFF);
      } else {
        text += pieces_[random_() % pieces_.size()];
      }
    }
    return text;
  }

 private:
  std::vector<std::wstring> pieces_;
  std::mt19937 random_{20240211};
};

const wchar_t* const kCommandLinePieces[] = {L" ", L"\t", L"\r\n", L"\"", L"\"\"", L"/", L":", L"/state:on", L"/av", L"/AV:",
                                             L"word", L"\\", L"x", L"/name:\"two words\""};
const wchar_t* const kPathPieces[] = {L"\\", L"/", L"\\\\", L"\\\\?\\", L"\\\\.\\", L"UNC", L"unc\\", L"C:", L"z", L":", L"}",
                                      L"Volume{", L"01234567-89ab-cdef-0123-456789abcdef", L"GlobalRoot\\", L"Device\\",
                                      L"FileDisk", L"\"", L" ", L"\t", L"dir", L"Volume{01234567-89ab-cdef-0123-456789abcdef}"};

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

bool Holds(const std::wstring& text, const wchar_t* characters) { return text.find_first_of(characters) != std::wstring::npos; }

std::vector<std::pair<std::wstring, std::wstring>> Pairs(const CommandLine& line) {
  return {line.switches().begin(), line.switches().end()};
}

// Only a blank or a double quote makes `arguments` quote a switch, so other white space in it splits it in two. A word of nothing
// but double quotes gains one: between the quotes around it, all of them read as doubled ones.
bool ComesBack(const CommandLine& line) {
  for (const auto& [name, value] : line.switches()) {
    if (Holds(name + value, L"\t\r\n")) return false;
  }
  for (const std::wstring& word : line.words()) {
    if (word.find_first_not_of(L'"') == std::wstring::npos) return false;
  }
  return true;
}

TEST(GeneratedTexts, CommandLinesKeepTheirInvariantsAndComeBackFromTheirText) {
  Texts texts(kCommandLinePieces);
  int round_trips = 0;
  for (int i = 0; i < kTexts; ++i) {
    const std::wstring text = texts.Next();
    SCOPED_TRACE(testing::PrintToString(text));
    CommandLine line;
    line.parse(text.c_str());
    for (const auto& [name, value] : line.switches()) {
      ASSERT_EQ(std::wstring::npos, name.find(L':'));
      ASSERT_EQ(value, line.value(name.c_str()));
    }
    for (const std::wstring& word : line.words()) ASSERT_TRUE(!word.empty() && word.front() != L'/');

    if (!ComesBack(line)) continue;
    ++round_trips;
    CommandLine again;
    again.parse((L"program " + line.arguments()).c_str());
    ASSERT_EQ(Pairs(line), Pairs(again));
    ASSERT_EQ(line.words(), again.words());
    if (line.program().empty() || Holds(line.program(), L"\"")) continue;  // its own quotes are not doubled
    again.parse(line.text().c_str());
    ASSERT_EQ(line.program(), again.program());
    ASSERT_EQ(Pairs(line), Pairs(again));
    ASSERT_EQ(line.words(), again.words());
  }
  EXPECT_GT(round_trips, kTexts / 2);
}

TEST(GeneratedTexts, PathRootsLieWithinTheirPath) {
  Texts texts(kPathPieces);
  for (int i = 0; i < kTexts; ++i) {
    const std::wstring path = texts.Next();
    SCOPED_TRACE(testing::PrintToString(path));
    root::PathRootInfo info;
    ASSERT_EQ(path.empty() ? root::kPathEmpty : 0u, root::GetPathRootInfo(path.c_str(), &info));
    ASSERT_LE(info.root_start, info.root_end);
    ASSERT_LE(info.prefix_length, info.root_end);
    ASSERT_LE(info.root_end, path.size());
    std::size_t rest = info.root_end;
    while (rest < path.size() && IsSeparator(path[rest])) ++rest;
    ASSERT_EQ(rest > info.root_end, (info.flags & root::kPathSeparatorFollows) != 0);
    ASSERT_EQ(rest < path.size(), (info.flags & root::kPathMoreFollows) != 0);
  }
}

TEST(GeneratedTexts, JoinedPathsHoldBothParts) {
  Texts texts(kPathPieces);
  for (int i = 0; i < kTexts; ++i) {
    const std::wstring folder = texts.Next();
    const std::wstring component = texts.Next();
    SCOPED_TRACE(testing::PrintToString(folder) + " and " + testing::PrintToString(component));

    const std::wstring appended = instup::AppendPath(folder, component);
    ASSERT_TRUE(appended.starts_with(folder) && appended.ends_with(component));
    ASSERT_LE(appended.size(), folder.size() + component.size() + 1);
    ASSERT_TRUE(folder.empty() || component.starts_with(L'\\') || appended[appended.size() - component.size() - 1] == L'\\');

    const std::wstring joined = instup::JoinPath(folder, component);
    ASSERT_LE(joined.size(), folder.size() + component.size() + 1);
    ASSERT_TRUE(joined.ends_with(component) || joined.ends_with(component + L'"'));
    ASSERT_EQ(joined, instup::JoinPath(L" \t" + folder + L"\t ", component));
  }
}

TEST(GeneratedTexts, NormalizedFolderPathsAreNormal) {
  Texts texts(kPathPieces);
  for (int i = 0; i < kTexts; ++i) {
    const std::wstring text = texts.Next();
    SCOPED_TRACE(testing::PrintToString(text));
    const std::wstring folder = instup::NormalizeFolderPath(text);
    ASSERT_EQ(folder, instup::NormalizeFolderPath(folder));
    ASSERT_EQ(text.empty() ? L"\\" : folder, instup::NormalizeFolderPath(text + L"\\/"));
    if (folder.size() < 2 || !IsSeparator(folder.back())) continue;
    root::PathRootInfo info;
    ASSERT_EQ(0u, root::GetPathRootInfo(folder.substr(0, folder.size() - 1).c_str(), &info));
    ASSERT_EQ(folder.size() - 1, info.root_end) << "only a root keeps its separator";
  }
}

}  // namespace
}  // namespace crv
