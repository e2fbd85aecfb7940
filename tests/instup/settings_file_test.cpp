#include "instup/settings_file.h"

#include <chrono>
#include <fstream>
#include <future>
#include <map>

#include "instup/stage.h"
#include "root/scoped_handle.h"
#include "support/import_fake.h"

namespace crv::instup {
namespace {

using std::string_literals::operator""s;

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
      {"a\0b"s, L"a\0b"s},
      {"", L""},
      {"\xEF\xBB\xBF", L""},
      {"\xEF\xBB\xBF\xEF\xBB\xBF", L"\xFEFF"},  // one signature, once
      {"\xFF\xFE", L"\xFFFD\xFFFD"},            // too short for a signature: invalid UTF-8
      {"a\xFFx", L"a\xFFFDx"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.expected, DecodeSettings({c.bytes.begin(), c.bytes.end()})) << "row " << (&c - cases);
  }
}

// Notes the steps of a load and lets one of them fail.
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
  Loaded Load(const std::wstring& path) {
    steps_ = "";
    SettingsTree tree = SettingsTree::Parse(L"[Common]\nNewDirectoryName=old");
    SetLastError(0xBAD);
    const bool loaded = LoadSettingsFile(path, tree);
    const DWORD error = GetLastError();
    EXPECT_EQ(error == 0, loaded);
    return {error, tree.Text(L"Common", L"NewDirectoryName", L"New")};
  }

  const std::wstring path_ = Path(L"setup.ini");
  std::string failing_;
  DWORD code_ = 0;
  LONGLONG pretended_size_ = 0;  // bytes; 0: the true one
  std::string steps_;

 private:
  bool Step(const std::string& name) {
    steps_ += name + " ";
    SetLastError(code_);
    return name != failing_;
  }

  crv::test::ImportFake<decltype(LockFileEx)> lock_{
      "kernel32.dll", "LockFileEx", [this](auto real, auto... arguments) { return Step("lock") && real(arguments...); }};
  crv::test::ImportFake<decltype(GetFileSizeEx)> size_{
      "kernel32.dll", "GetFileSizeEx", [this](auto real, HANDLE file, LARGE_INTEGER* size) {
        const BOOL success = Step("size") && real(file, size);
        if (pretended_size_ != 0) size->QuadPart = pretended_size_;
        return success;
      }};
  crv::test::ImportFake<decltype(ReadFile)> read_{
      "kernel32.dll", "ReadFile", [this](auto real, auto... arguments) { return Step("read") && real(arguments...); }};
  crv::test::ImportFake<decltype(UnlockFileEx)> unlock_{
      "kernel32.dll", "UnlockFileEx", [this](auto real, auto... arguments) {
        const BOOL success = Step("unlock") && real(arguments...);
        return SetLastError(0xBAD), success;
      }};
};

TEST_F(SettingsFile, ReplacesTheTreeByTheFile) {
  EXPECT_EQ(Loaded(0, L"New_1"), Load(path_));
  EXPECT_EQ("lock size read unlock ", steps_);
  root::ScopedFile another(CreateFileW(path_.c_str(), GENERIC_WRITE | DELETE, 7, nullptr, OPEN_EXISTING, 0, nullptr));
  OVERLAPPED start = {};
  EXPECT_TRUE(LockFileEx(another.get(), 0, 0, 1, 0, &start));
  EXPECT_EQ(Loaded(0, L"New_1"), Load(path_)) << "beside one who may write and delete it and has a shared lock";
  another.reset();
  Write("");
  EXPECT_EQ(Loaded(0, L"New"), Load(path_));
  Write("\xFF\xFE" + Utf16(L"[Common]\r\nx=" + std::wstring(1 << 20, L'x') + L"\r\nNewDirectoryName=last\r\n"));
  EXPECT_EQ(Loaded(0, L"last"), Load(path_));
}

TEST_F(SettingsFile, EachFailingStepGivesItsErrorAndLeavesTheTreeAndNoLock) {
  EXPECT_EQ(Loaded(ERROR_FILE_NOT_FOUND, L"old"), Load(Path(L"missing.ini")));
  EXPECT_EQ(Loaded(ERROR_ACCESS_DENIED, L"old"), Load(AddFolder(L"folder.ini")));
  const struct {
    std::string failing;
    DWORD code;
    LONGLONG size;
    std::string steps;
  } cases[] = {
      {"lock", 33, 0, "lock "},
      {"size", 6, 0, "lock size unlock "},
      {"read", 1117, 0, "lock size read unlock "},
      {"", 223, 0x1'0000'0000, "lock size unlock "},
      {"", 223, 0x9'0000'0010, "lock size unlock "},
      {"", ERROR_NOT_ENOUGH_MEMORY, 0xFFFF'FFFF, "lock size unlock "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    failing_ = c.failing;
    code_ = c.code;
    pretended_size_ = c.size;
    EXPECT_EQ(Loaded(c.code, L"old"), Load(path_));
    EXPECT_EQ(c.steps, steps_);
  }
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
