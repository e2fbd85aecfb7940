#include "instup/settings_file.h"

#include <chrono>
#include <fstream>
#include <future>
#include <set>

#include "instup/stage.h"
#include "root/scoped_handle.h"
#include "support/import_fake.h"

namespace crv::instup {
namespace {

using crv::test::ImportFake;

// Every character in two bytes, the low one first unless `big`.
std::string Utf16(const std::wstring& text, bool big = false) {
  std::string bytes;
  for (const wchar_t c : text) {
    const char low = static_cast<char>(c & 0xFF), high = static_cast<char>(c >> 8);
    bytes += big ? high : low;
    bytes += big ? low : high;
  }
  return bytes;
}

TEST(DecodeSettings, FollowsTheFirstBytes) {
  const std::wstring text = L"[Common]\r\na=\u017e\xD83D\xDE00";
  const std::string utf8 = "[Common]\r\na=\xC5\xBE\xF0\x9F\x98\x80";
  const struct {
    std::string bytes;
    std::wstring expected;
  } cases[] = {
      {utf8, text},
      {"\xEF\xBB\xBF" + utf8, text},
      {"\xFF\xFE" + Utf16(text), text},
      {"\xFE\xFF" + Utf16(text, true) + "y", text},  // half a character at the end
      {"\xEF\xBB\xBF\xEF\xBB\xBF", L"\xFEFF"},       // one signature, once
      {"\xFF\xFE", L"\xFFFD\xFFFD"},                 // too short for a signature: invalid UTF-8
      {"a\xFFx", L"a\xFFFDx"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.expected, DecodeSettings({c.bytes.begin(), c.bytes.end()})) << "row " << (&c - cases);
  }
}

class SettingsFile : public test::StageTest {
 protected:
  SettingsFile() { Write("[Common]\nNewDirectoryName=New_1\n"); }
  ~SettingsFile() override {
    const root::ScopedFile nobody_has_it_open(
        CreateFileW(path_.c_str(), GENERIC_READ | DELETE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_TRUE(nobody_has_it_open) << GetLastError();
  }

  void Write(const std::string& bytes) const { std::ofstream(path_.c_str(), std::ios::binary) << bytes; }

  // What a load leaves: its last error and the name in the tree, which held "old" before.
  using Loaded = std::pair<DWORD, std::wstring>;
  static Loaded Load(const std::wstring& path) {
    SettingsTree tree = SettingsTree::Parse(L"[Common]\nNewDirectoryName=old");
    SetLastError(0xBAD);
    const bool loaded = LoadSettingsFile(path, tree);
    const DWORD error = GetLastError();
    EXPECT_EQ(error == 0, loaded);
    return {error, tree.Text(L"Common", L"NewDirectoryName", L"New")};
  }

  const std::wstring path_ = Path(L"setup.ini");
};

TEST_F(SettingsFile, ReplacesTheTreeByTheFileAndHoldsItsTextInTwoPlacesAtMost) {
  EXPECT_EQ(Loaded(0, L"New_1"), Load(path_));
  Write("[Common]\nNewDirectoryName=cut");
  {
    const ImportFake<decltype(GetFileSizeEx)> longer("kernel32.dll", "GetFileSizeEx", [](auto real, HANDLE file, auto size) {
      return real(file, size) && (size->QuadPart += 4, TRUE);
    });
    EXPECT_EQ(Loaded(0, L"cut"), Load(path_)) << "the file was longer when it was asked for its size";
  }
  const std::wstring name(1 << 20, L'x');
  Write("\xFF\xFE" + Utf16(L"[Common]\r\nNewDirectoryName=" + name + L"\r\n"));
  std::set<void*> large;
  std::size_t most = 0;
  const ImportFake<void*(std::size_t)> allocate("msvcrt.dll", "malloc", [&](auto real, std::size_t size) {
    void* const block = real(size);
    if (size > 500'000) large.insert(block), most = std::max(most, large.size());
    return block;
  });
  const ImportFake<void(void*)> release("msvcrt.dll", "free", [&](auto real, void* block) { large.erase(block), real(block); });
  EXPECT_TRUE(Load(path_).second == name);
  EXPECT_EQ(2u, most);
}

TEST_F(SettingsFile, EachFailingStepGivesItsErrorAndLeavesTheTree) {
  EXPECT_EQ(Loaded(ERROR_FILE_NOT_FOUND, L"old"), Load(Path(L"missing.ini")));
  for (const auto& [size, code] : {std::pair(0x9'0000'0010, 223), {0xFFFF'FFFF, ERROR_NOT_ENOUGH_MEMORY}}) {
    const ImportFake<decltype(GetFileSizeEx)> huge(
        "kernel32.dll", "GetFileSizeEx", [&](auto, HANDLE, LARGE_INTEGER* place) { return place->QuadPart = size, TRUE; });
    EXPECT_EQ(Loaded(code, L"old"), Load(path_));
  }
  const ImportFake<decltype(ReadFile)> read("kernel32.dll", "ReadFile", [](auto...) { return SetLastError(1117), FALSE; });
  EXPECT_EQ(Loaded(1117, L"old"), Load(path_));
  const ImportFake<decltype(LockFileEx)> lock("kernel32.dll", "LockFileEx", [](auto...) { return SetLastError(33), FALSE; });
  EXPECT_EQ(Loaded(33, L"old"), Load(path_));
}

TEST_F(SettingsFile, WaitsForSomebodysExclusiveLockOfAnyByte) {
  const root::ScopedFile file(CreateFileW(path_.c_str(), GENERIC_READ | GENERIC_WRITE, 7, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(LockFile(file.get(), 100'000, 0, 1, 0));
  std::future<Loaded> reader = std::async(std::launch::async, [this] { return Load(path_); });
  EXPECT_EQ(std::future_status::timeout, reader.wait_for(std::chrono::milliseconds(200))) << "it did not wait for the lock";
  Write("[Common]\nNewDirectoryName=rewritten\n");
  EXPECT_TRUE(UnlockFile(file.get(), 100'000, 0, 1, 0));
  EXPECT_EQ(Loaded(0, L"rewritten"), reader.get());
}

}  // namespace
}  // namespace crv::instup
