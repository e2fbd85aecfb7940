#include "root/registry.h"

#include <gtest/gtest.h>
#include <shlwapi.h>

#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "root/scoped_handle.h"
#include "support/import_fake.h"
#include "support/redirected_hive.h"

namespace crv::root {
namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr const wchar_t* kKey = L"Software\\Corvid Tests\\Values";

Bytes Wide(const std::wstring& text) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  return Bytes(bytes, bytes + text.size() * sizeof(wchar_t));
}

// `bytes` as they are: nothing follows them from which the system could complete a string.
void Store(const wchar_t* name, DWORD type, Bytes bytes) {
  const DWORD size = bytes.size();
  bytes.insert(bytes.end(), 4, 0xEE);
  EXPECT_EQ(0, SHSetValueW(HKEY_LOCAL_MACHINE, kKey, name, type, bytes.data(), size));
}

// Counts the keys that the product holds open; closing one spoils the last error.
class Registry : public testing::Test {
 protected:
  ~Registry() override { EXPECT_EQ(0, open_keys_); }

  REGSAM access_ = 0;        // asked for last
  LSTATUS open_result_ = 0;  // the answer to opening a key, unless 0

 private:
  test::RedirectedHive hive_;
  int open_keys_ = 0;
  test::ImportFake<decltype(RegOpenKeyExW)> open_{
      "advapi32.dll", "RegOpenKeyExW", [this](auto real, HKEY root, auto subkey, DWORD zero, REGSAM access, HKEY* key) {
        access_ = access;
        const LSTATUS result = open_result_ != 0 ? open_result_ : real(root, subkey, zero, access, key);
        open_keys_ += result == 0;
        return result;
      }};
  test::ImportFake<decltype(RegCreateKeyExW)> create_{
      "advapi32.dll", "RegCreateKeyExW",
      [this](auto real, HKEY root, auto subkey, DWORD, auto, DWORD options, REGSAM access, auto... rest) {
        access_ = access;
        EXPECT_EQ(DWORD{REG_OPTION_NON_VOLATILE}, options);
        const LSTATUS result = open_result_ != 0 ? open_result_ : real(root, subkey, 0, nullptr, options, access, rest...);
        open_keys_ += result == 0;
        return result;
      }};
  test::ImportFake<decltype(RegCloseKey)> close_{
      "advapi32.dll", "RegCloseKey", [this](auto real, HKEY key) { return --open_keys_, SetLastError(0xBAD), real(key); }};
};

TEST_F(Registry, ReadsTextsAndNumbersOfTheirTypesAndSizesOnly) {
  SetEnvironmentVariableW(L"CRV_SHORT", L"C:\\x");
  SetEnvironmentVariableW(L"CRV_LONG", std::wstring(9000, L'y').c_str());
  const struct {
    DWORD type;
    Bytes bytes;
    std::optional<std::wstring> text = {};
    bool is_number = false;
  } cases[] = {
      {REG_SZ, Wide({L"ab\0cd\0", 6}), L"ab"},
      {REG_SZ, {}, L""},
      {REG_SZ, Wide(L"%CRV_SHORT%\\y"), L"%CRV_SHORT%\\y"},
      {REG_EXPAND_SZ, Wide(L"%CRV_SHORT%\\y"), L"C:\\x\\y"},
      {REG_EXPAND_SZ, Wide(L"%CRV_LONG%%CRV_MISSING%"), std::wstring(9000, L'y') + L"%CRV_MISSING%"},
      {REG_EXPAND_SZ, {}, L""},
      {REG_SZ, {'a', 0, 'b'}},
      {REG_MULTI_SZ, Wide(L"a")},
      {REG_DWORD, {0x78, 0x56, 0x34, 0x12}, {}, true},
      {REG_DWORD, {1, 0}},
      {REG_DWORD, {1, 0, 0, 0, 0, 0, 0, 0}},
      {REG_BINARY, {1, 0, 0, 0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    Store(nullptr, c.type, c.bytes);
    std::wstring text = L"before";
    EXPECT_EQ(c.text.has_value(), QueryString(HKEY_LOCAL_MACHINE, kKey, nullptr, text, 0));
    EXPECT_EQ(c.text ? 0u : 13u, GetLastError());
    EXPECT_EQ(c.text.value_or(L"before"), text);
    std::uint32_t number = 7;
    EXPECT_EQ(c.is_number, QueryDword(kKey, nullptr, number, 0));
    EXPECT_EQ(c.is_number ? 0u : 13u, GetLastError());
    EXPECT_EQ(c.is_number ? 0x12345678u : 7u, number);
  }
}

TEST_F(Registry, ReadsValuesThatChangeMeanwhile) {
  for (const Bytes& later : {Bytes(5000, 1), Bytes(3, 2), Bytes()}) {
    Store(L"value", REG_BINARY, Bytes(100, 3));
    bool changed = false;
    const test::ImportFake<decltype(RegQueryValueExW)> fake(
        "advapi32.dll", "RegQueryValueExW", [&](auto real, HKEY key, auto name, auto zero, DWORD* type, BYTE* data, DWORD* size) {
          if (data && !std::exchange(changed, true)) Store(L"value", REG_NONE, later);
          return real(key, name, zero, type, data, size);
        });
    Bytes data;
    DWORD type = REG_SZ;
    EXPECT_TRUE(QueryValue(HKEY_LOCAL_MACHINE, kKey, L"value", data, type, 0));
    EXPECT_EQ(later, data);
    EXPECT_EQ(DWORD{REG_NONE}, type);
  }
}

TEST_F(Registry, WritesDwordsIntoKeysThatItMakes) {
  {
    ScopedRegistryKey key;
    EXPECT_EQ(0, RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"", 0, KEY_READ, key.put()));
    SetLastError(7);
  }
  EXPECT_EQ(7u, GetLastError()) << "owners keep the last error when they close";

  EXPECT_TRUE(SetDword(kKey, L"number", 0xFFFFFFFE, KEY_WOW64_64KEY));
  EXPECT_EQ(0u, GetLastError());
  EXPECT_EQ(REGSAM{KEY_SET_VALUE | KEY_WOW64_64KEY}, access_);
  std::uint32_t value = 0;
  EXPECT_TRUE(QueryDword(kKey, L"number", value, 0));
  EXPECT_EQ(0xFFFFFFFEu, value);
  const test::ImportFake<decltype(RegSetValueExW)> fake(
      "advapi32.dll", "RegSetValueExW", [](auto...) { return ERROR_DISK_FULL; });
  EXPECT_FALSE(SetDword(kKey, L"number", 1, 0));
  EXPECT_EQ(DWORD{ERROR_DISK_FULL}, GetLastError());
}

TEST_F(Registry, EveryHelperReportsBadArgumentsAndKeysAndValuesThatItCannotRead) {
  Bytes data = {1};
  DWORD type = 2;
  std::wstring text = L"before";
  std::uint32_t number = 3;
  struct {
    std::function<bool(HKEY, const wchar_t*, REGSAM)> helper;
    REGSAM access;
    DWORD null_root, missing, too_big;
  } const cases[] = {
      {[&](HKEY, auto key, REGSAM view) { return KeyExists(key, view); }, KEY_QUERY_VALUE, 0, 0, 0},
      {[&](HKEY root, auto key, REGSAM view) { return QueryValue(root, key, L"big", data, type, view); }, KEY_QUERY_VALUE, 87, 2,
       8},
      {[&](HKEY root, auto key, REGSAM view) { return QueryString(root, key, L"big", text, view); }, KEY_QUERY_VALUE, 87, 2, 8},
      {[&](HKEY, auto key, REGSAM view) { return QueryDword(key, L"big", number, view); }, KEY_QUERY_VALUE, 8, 2, 8},
      {[&](HKEY root, auto key, REGSAM view) { return DeleteKeyTree(root, key, view); }, KEY_ENUMERATE_SUB_KEYS, 87, 2, 0},
      {[&](HKEY, auto key, REGSAM view) { return SetDword(key, L"small", 1, view); }, KEY_SET_VALUE, 0, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    Store(L"big", REG_SZ, Bytes(300000, 'a'));
    const test::ImportFake<void*(std::size_t)> fake(
        "msvcrt.dll", "malloc", [](auto real, std::size_t size) { return size < 100000 ? real(size) : nullptr; });
    const auto code = [&](HKEY root, const wchar_t* key, REGSAM view = 0) {
      const bool done = c.helper(root, key, view);
      const DWORD error = GetLastError();
      return done && error != 0 ? 0xBAD : error;
    };
    EXPECT_EQ(87u, code(HKEY_LOCAL_MACHINE, nullptr));
    EXPECT_EQ(87u, code(HKEY_LOCAL_MACHINE, L""));
    EXPECT_EQ(c.null_root, code(nullptr, kKey));
    EXPECT_EQ(c.missing, code(HKEY_LOCAL_MACHINE, L"Software\\Missing"));
    open_result_ = ERROR_ACCESS_DENIED;
    EXPECT_EQ(5u, code(HKEY_LOCAL_MACHINE, kKey));
    open_result_ = 0;
    EXPECT_EQ(c.too_big, code(HKEY_LOCAL_MACHINE, kKey, KEY_WOW64_32KEY));
    EXPECT_EQ(c.access | KEY_WOW64_32KEY, access_);
  }
  EXPECT_TRUE(data == Bytes{1} && type == 2 && text == L"before" && number == 3) << "only written on success";
}

std::wstring deletions;  // "name view;"

LSTATUS WINAPI DeleteInView(HKEY root, const wchar_t* subkey, REGSAM view, DWORD) {
  if (std::wstring(subkey) == L"stubborn") return ERROR_SHARING_VIOLATION;
  deletions += subkey + (L" " + std::to_wstring(view)) + L";";
  return SHDeleteEmptyKeyW(root, subkey);
}

TEST_F(Registry, DeletesTreesDepthFirstInTheirViewAndStopsAtAStubbornKey) {
  const test::ImportFake<decltype(GetProcAddress)> look_up("kernel32.dll", "GetProcAddress", [](auto, HMODULE, std::string name) {
    return name == "RegDeleteKeyExW" ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&DeleteInView)) : nullptr;
  });
  for (const bool stubborn : {false, true}) {
    for (const wchar_t* const key : {L"t\\a\\a1\\a11", L"t\\a\\a2", stubborn ? L"t\\b\\stubborn" : L"t\\b", L"t2"}) {
      SHSetValueW(HKEY_LOCAL_MACHINE, (std::wstring(L"Software\\") + key).c_str(), L"v", REG_SZ, L"", 2);
    }
    deletions.clear();
    EXPECT_EQ(!stubborn, DeleteKeyTree(HKEY_LOCAL_MACHINE, L"Software\\t", KEY_WOW64_64KEY));
    EXPECT_EQ(stubborn ? DWORD{ERROR_SHARING_VIOLATION} : 0u, GetLastError());
    EXPECT_EQ(stubborn ? L"a11 256;a1 256;a2 256;a 256;" : L"a11 256;a1 256;a2 256;a 256;b 256;Software\\t 256;", deletions);
    EXPECT_EQ(stubborn, KeyExists(L"Software\\t", 0));
    EXPECT_TRUE(KeyExists(L"Software\\t2", 0));
  }
}

}  // namespace
}  // namespace crv::root
