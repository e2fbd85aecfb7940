#include "instup/settings_file.h"

#include <chrono>
#include <future>

#include "instup/stage.h"
#include "support/import_fake.h"

namespace crv::instup {
namespace {

using std::string_literals::operator""s;

std::wstring Decode(const std::string& bytes) { return DecodeSettings({bytes.begin(), bytes.end()}); }

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
  EXPECT_EQ(text, Decode(utf8));
  EXPECT_EQ(text, Decode("\xEF\xBB\xBF" + utf8));
  EXPECT_EQ(text, Decode("\xFF\xFE" + Utf16(text)));
  EXPECT_EQ(text, Decode("\xFE\xFF" + Utf16(text, true)));
  EXPECT_EQ(text + L"x", Decode("\xFF\xFE" + Utf16(text + L"x") + "y")) << "half a character at the end";
  EXPECT_EQ(std::wstring(L"a\0b", 3), Decode("a\0b"s));
  EXPECT_EQ(L"", Decode(""));
  EXPECT_EQ(L"ab", Decode("ab"));
  EXPECT_EQ(L"", Decode("\xEF\xBB\xBF"));
  EXPECT_EQ(L"\xFEFF", Decode("\xEF\xBB\xBF\xEF\xBB\xBF")) << "one signature, once";
  for (const char* const bytes : {"\xFF\xFE", "\xFE\xFF", "\xEF\xBB", "\xFF"}) {
    const std::wstring text = Decode(bytes);
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(std::wstring::npos, text.find_first_not_of(L'\xFFFD')) << "too short for a signature: invalid UTF-8";
  }
  EXPECT_EQ(std::wstring(L"a") + L'\xFFFD' + L"b", Decode("a\xFF" "b"));
}

class SettingsFile : public test::StageTest {
 protected:
  SettingsFile() { Write("[Common]\nNewDirectoryName=New_1\n"); }

  void Write(const std::string& bytes) const {
    const HANDLE file = CreateFileW(path_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
    EXPECT_TRUE(CloseHandle(file));
  }

  // What a load leaves: its last error and the name in the tree, which held "old" before.
  std::pair<DWORD, std::wstring> Load(const std::wstring& path) const {
    SettingsTree tree = SettingsTree::Parse(L"[Common]\nNewDirectoryName=old");
    SetLastError(0xBAD);
    const bool loaded = LoadSettingsFile(path, tree);
    const DWORD error = GetLastError();
    EXPECT_EQ(error == 0, loaded);
    return {error, tree.Text(L"Common", L"NewDirectoryName", L"New")};
  }
  using Loaded = std::pair<DWORD, std::wstring>;

  // Nobody holds the file or a lock on it.
  void ExpectFree() const {
    const HANDLE file = CreateFileW(path_.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(INVALID_HANDLE_VALUE, file) << GetLastError();
    CloseHandle(file);
  }

  const std::wstring path_ = Path(L"setup.ini");
};

TEST_F(SettingsFile, ReplacesTheTreeByTheFile) {
  EXPECT_EQ(Loaded(0, L"New_1"), Load(path_));
  Write("");
  EXPECT_EQ(Loaded(0, L"New"), Load(path_));
  std::string large = "\xFF\xFE" + Utf16(L"[Common]\r\n");
  for (int i = 0; large.size() < (1 << 20); ++i) large += Utf16(L"Key" + std::to_wstring(i) + L"=value\r\n");
  Write(large + Utf16(L"NewDirectoryName=last\r\n"));
  EXPECT_EQ(Loaded(0, L"last"), Load(path_));
  ExpectFree();
}

TEST_F(SettingsFile, OpensForReadingBesideEverybodyAndLocksAllOfIt) {
  const crv::test::ImportFake<decltype(CreateFileW)> open(
      "kernel32.dll", "CreateFileW", [](auto* real, const wchar_t* path, DWORD access, DWORD share, auto* security, DWORD how, DWORD flags, HANDLE model) {
        EXPECT_EQ(1u, access);
        EXPECT_EQ(7u, share);
        EXPECT_EQ(static_cast<DWORD>(OPEN_EXISTING), how);
        EXPECT_EQ(0x08000000u, flags);
        return real(path, access, share, security, how, flags, model);
      });
  std::string calls;
  const crv::test::ImportFake<decltype(LockFileEx)> lock(
      "kernel32.dll", "LockFileEx", [&](auto* real, HANDLE file, DWORD flags, DWORD reserved, DWORD low, DWORD high, OVERLAPPED* at) {
        calls += "lock ";
        EXPECT_EQ(0u, flags | reserved | high | at->Offset | at->OffsetHigh);
        EXPECT_EQ(0xFFFFFFFFu, low);
        return real(file, flags, reserved, low, high, at);
      });
  const crv::test::ImportFake<decltype(ReadFile)> read("kernel32.dll", "ReadFile", [&](auto* real, auto... arguments) {
    calls += "read ";
    return real(arguments...);
  });
  const crv::test::ImportFake<decltype(UnlockFileEx)> unlock(
      "kernel32.dll", "UnlockFileEx", [&](auto* real, HANDLE file, DWORD reserved, DWORD low, DWORD high, OVERLAPPED* at) {
        calls += "unlock ";
        EXPECT_EQ(0u, reserved | high | at->Offset | at->OffsetHigh);
        EXPECT_EQ(0xFFFFFFFFu, low);
        return real(file, reserved, low, high, at);
      });
  EXPECT_EQ(Loaded(0, L"New_1"), Load(path_));
  EXPECT_EQ("lock read unlock ", calls);
}

TEST_F(SettingsFile, EachFailingStepGivesItsErrorAndLeavesNothingBehind) {
  EXPECT_EQ(Loaded(ERROR_FILE_NOT_FOUND, L"old"), Load(Path(L"missing.ini")));
  EXPECT_EQ(Loaded(ERROR_PATH_NOT_FOUND, L"old"), Load(Path(L"no\\folder.ini")));
  EXPECT_EQ(Loaded(ERROR_ACCESS_DENIED, L"old"), Load(AddFolder(L"folder.ini")));
  const auto fail = [](DWORD code) { return SetLastError(code), FALSE; };
  int unlocked = 0;
  const crv::test::ImportFake<decltype(UnlockFileEx)> unlock("kernel32.dll", "UnlockFileEx", [&](auto* real, auto... arguments) {
    ++unlocked;
    const BOOL success = real(arguments...);
    SetLastError(0xBAD);
    return success;
  });
  {
    const crv::test::ImportFake<decltype(LockFileEx)> lock("kernel32.dll", "LockFileEx", [&](auto*, auto...) { return fail(33); });
    EXPECT_EQ(Loaded(33, L"old"), Load(path_));
    EXPECT_EQ(0, unlocked);
  }
  {
    const crv::test::ImportFake<decltype(GetFileSizeEx)> size("kernel32.dll", "GetFileSizeEx", [&](auto*, auto...) { return fail(6); });
    EXPECT_EQ(Loaded(6, L"old"), Load(path_));
    EXPECT_EQ(1, std::exchange(unlocked, 0));
  }
  int reads = 0;
  const crv::test::ImportFake<decltype(ReadFile)> read("kernel32.dll", "ReadFile", [&](auto*, auto...) { return ++reads, fail(1117); });
  EXPECT_EQ(Loaded(1117, L"old"), Load(path_));
  EXPECT_EQ(1, std::exchange(unlocked, 0));
  reads = 0;
  LONGLONG pretended = 0;
  const crv::test::ImportFake<decltype(GetFileSizeEx)> size(
      "kernel32.dll", "GetFileSizeEx", [&](auto*, HANDLE, LARGE_INTEGER* size) { return size->QuadPart = pretended, TRUE; });
  pretended = 0x1'0000'0000;
  EXPECT_EQ(Loaded(223, L"old"), Load(path_));
  pretended = 0x9'0000'0010;
  EXPECT_EQ(Loaded(223, L"old"), Load(path_));
  pretended = 0xFFFF'FFFF;
  EXPECT_EQ(Loaded(ERROR_NOT_ENOUGH_MEMORY, L"old"), Load(path_));
  EXPECT_EQ(0, reads) << "none of them is read";
  EXPECT_EQ(3, unlocked);
  ExpectFree();
}

// Another process holds an exclusive lock on one byte far behind the file's end for a while.
TEST_F(SettingsFile, WaitsForTheExclusiveLockOfAnotherProcess) {
  const std::wstring ready = Path(L"ready");
  wchar_t program[MAX_PATH];
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  std::wstring folder(program);
  folder.resize(folder.rfind(L'\\') + 1);
  std::wstring command_line = L"\"" + folder + L"lock_holder.exe\" \"" + path_ + L"\" \"" + ready + L"\"";
  STARTUPINFOW startup = {sizeof(startup)};
  PROCESS_INFORMATION holder = {};
  ASSERT_TRUE(CreateProcessW(nullptr, command_line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &holder)) << GetLastError();
  for (int i = 0; i < 1000 && GetFileAttributesW(ready.c_str()) == INVALID_FILE_ATTRIBUTES; ++i) Sleep(10);
  ASSERT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(ready.c_str())) << "the lock is not held";

  std::future<Loaded> reader = std::async(std::launch::async, [this] { return Load(path_); });
  EXPECT_EQ(std::future_status::timeout, reader.wait_for(std::chrono::milliseconds(200))) << "it did not wait for the lock";
  DeleteFileW(ready.c_str());  // the holder writes another name, then lets go
  EXPECT_EQ(Loaded(0, L"rewritten"), reader.get());
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(holder.hProcess, 20'000));
  CloseHandle(holder.hThread);
  CloseHandle(holder.hProcess);
}

}  // namespace
}  // namespace crv::instup
