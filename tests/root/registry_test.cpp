#include "root/registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <shlwapi.h>

#include <functional>
#include <optional>
#include <utility>
#include <vector>

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
void Store(DWORD type, Bytes bytes) {
  const DWORD size = bytes.size();
  bytes.insert(bytes.end(), 4, 0xEE);
  EXPECT_EQ(0, SHSetValueW(HKEY_LOCAL_MACHINE, kKey, L"value", type, bytes.data(), size));
}

// Counts the keys that the product holds open, and notes the access asked for; closing one spoils the last error. A key named
// "denied" cannot be opened.
class Registry : public testing::Test {
 protected:
  ~Registry() override { EXPECT_EQ(0, open_keys_); }

  std::vector<REGSAM> access_;
  int open_keys_ = 0;

 private:
  test::RedirectedHive hive_;
  test::ImportFake<decltype(RegOpenKeyExW)> open_{
      "advapi32.dll", "RegOpenKeyExW",
      [this](auto real, HKEY root, std::wstring subkey, DWORD options, REGSAM access, HKEY* key) {
        access_.push_back(access);
        if (subkey.ends_with(L"denied")) return LSTATUS{ERROR_ACCESS_DENIED};
        const LSTATUS result = real(root, subkey.c_str(), options, access & ~DWORD{KEY_WOW64_RES}, key);
        open_keys_ += result == 0;
        return result;
      }};
  test::ImportFake<decltype(RegCloseKey)> close_{
      "advapi32.dll", "RegCloseKey", [this](auto real, HKEY key) { return --open_keys_, SetLastError(0xBAD), real(key); }};
};

TEST_F(Registry, ReadsTextsAndNumbersOfTheirTypesAndSizesOnly) {
  SetEnvironmentVariableW(L"CRV_LONG", std::wstring(9000, L'y').c_str());
  const struct {
    DWORD type;
    Bytes bytes;
    std::optional<std::wstring> text = {};
    bool is_number = false;
  } cases[] = {
      {REG_SZ, Wide({L"ab\0cd\0", 6}), L"ab"},
      {REG_SZ, {}, L""},
      {REG_SZ, Wide(L"%CRV_LONG%\\y"), L"%CRV_LONG%\\y"},
      {REG_EXPAND_SZ, Wide(L"%CRV_LONG%%CRV_MISSING%"), std::wstring(9000, L'y') + L"%CRV_MISSING%"},
      {REG_EXPAND_SZ, Wide(L"%CRV_LONG%%CRV_LONG%%CRV_LONG%" + std::wstring(5766, L'z')),
       std::wstring(27000, L'y') + std::wstring(5766, L'z')},
      {REG_EXPAND_SZ, Wide(L"%CRV_LONG%%CRV_LONG%%CRV_LONG%%CRV_LONG%")},  // more than the system expands
      {REG_SZ, {'a', 0, 'b'}},
      {REG_MULTI_SZ, Wide(L"a")},
      {REG_DWORD, {0x78, 0x56, 0x34, 0x12}, {}, true},
      {REG_DWORD, {1, 0}},
      {REG_DWORD, {1, 0, 0, 0, 0, 0, 0, 0}},
      {REG_BINARY, {1, 0, 0, 0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    Store(c.type, c.bytes);
    std::wstring text = L"before";
    EXPECT_EQ(c.text.has_value(), QueryString(HKEY_LOCAL_MACHINE, kKey, L"value", text, 0));
    EXPECT_EQ(c.text ? 0u : 13u, GetLastError());
    EXPECT_EQ(c.text.value_or(L"before"), text);
    std::uint32_t number = 7;
    EXPECT_EQ(c.is_number, QueryDword(kKey, L"value", number, 0));
    EXPECT_EQ(c.is_number ? 0u : 13u, GetLastError());
    EXPECT_EQ(c.is_number ? 0x12345678u : 7u, number);
  }
}

TEST_F(Registry, ReadsValuesThatChangeMeanwhile) {
  for (const Bytes& later : {Bytes(5000, 1), Bytes(3, 2), Bytes()}) {
    Store(REG_BINARY, Bytes(100, 3));
    bool changed = false;
    const test::ImportFake<decltype(RegQueryValueExW)> fake(
        "advapi32.dll", "RegQueryValueExW", [&](auto real, HKEY key, auto name, auto zero, DWORD* type, BYTE* data, DWORD* size) {
          if (data && !std::exchange(changed, true)) Store(REG_NONE, later);
          return real(key, name, zero, type, data, size);
        });
    Bytes data;
    DWORD type = REG_SZ;
    EXPECT_TRUE(QueryValue(HKEY_LOCAL_MACHINE, kKey, L"value", data, type, 0));
    EXPECT_EQ(later, data);
    EXPECT_EQ(DWORD{REG_NONE}, type);
  }
}

TEST_F(Registry, BadArgumentsKeysAndMemoryAreReportedAndChangeNothing) {
  std::wstring text = L"before";
  std::uint32_t number = 3;
  const struct {
    std::function<bool(const wchar_t*)> helper;
    DWORD missing, too_big;
  } cases[] = {
      {[&](auto key) { return KeyExists(key, 0); }, 0, 0},
      {[&](auto key) { return QueryString(HKEY_LOCAL_MACHINE, key, L"value", text, 0); }, 2, 8},
      {[&](auto key) { return QueryDword(key, L"value", number, 0); }, 2, 8},
      {[&](auto key) { return DeleteKeyTree(HKEY_LOCAL_MACHINE, key, 0); }, 2, 0},
  };
  Store(REG_SZ, Bytes(300000, 'a'));
  const test::ImportFake<void*(std::size_t)> scarce(
      "msvcrt.dll", "malloc", [](auto real, std::size_t size) { return size < 100000 ? real(size) : nullptr; });
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const std::pair<const wchar_t*, DWORD> codes[] = {
        {nullptr, 87}, {L"", 87}, {L"Software\\Missing", c.missing}, {L"Software\\denied", 5}, {kKey, c.too_big}};
    for (const auto& [key, code] : codes) {
      EXPECT_EQ(code == 0 && key == kKey, c.helper(key));
      EXPECT_EQ(code, GetLastError());
    }
  }
  EXPECT_TRUE(text == L"before" && number == 3);
}

// What the system has for deleting a key in a view, and the view that it was told.
constexpr REGSAM kNotAsked = 0xBAD;
REGSAM deleted_in = kNotAsked;
LSTATUS WINAPI DeleteInView(HKEY root, const wchar_t* key, REGSAM view, DWORD) {
  return deleted_in = view, RegDeleteKeyW(root, key);
}

TEST_F(Registry, EveryHelperAsksForItsAccessInTheView) {
  FARPROC delete_in_view = reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&DeleteInView));
  const test::ImportFake<decltype(GetProcAddress)> find(
      "kernel32.dll", "GetProcAddress", [&](auto real, HMODULE module, std::string name) {
        return name == "RegDeleteKeyExW" ? delete_in_view : real(module, name.c_str());
      });
  const test::ImportFake<decltype(RegCreateKeyExW)> create(
      "advapi32.dll", "RegCreateKeyExW",
      [this](auto real, HKEY root, auto path, auto zero, auto name, DWORD options, REGSAM access, auto... rest) {
        EXPECT_TRUE(root == HKEY_LOCAL_MACHINE && options == REG_OPTION_NON_VOLATILE);
        access_.push_back(access);
        ++open_keys_;
        return real(root, path, zero, name, options, access & ~DWORD{KEY_WOW64_RES}, rest...);
      });
  const auto use_all = [this](REGSAM view) {
    Store(REG_SZ, Wide(L"a"));
    Bytes data;
    DWORD type = 0;
    std::wstring text;
    std::uint32_t number = 0;
    SHSetValueW(HKEY_LOCAL_MACHINE, (std::wstring(kKey) + L"\\child").c_str(), L"", REG_SZ, L"", 2);
    access_.clear(), deleted_in = kNotAsked;
    EXPECT_TRUE(SetDword(kKey, L"number", 5, view) && KeyExists(kKey, view));
    EXPECT_TRUE(QueryValue(HKEY_LOCAL_MACHINE, kKey, L"value", data, type, view));
    EXPECT_TRUE(QueryString(HKEY_LOCAL_MACHINE, kKey, L"value", text, view));
    EXPECT_TRUE(QueryDword(kKey, L"number", number, view) && number == 5);
    EXPECT_TRUE(DeleteKeyTree(HKEY_LOCAL_MACHINE, kKey, view) && !KeyExists(kKey, 0));
  };
  for (const REGSAM view : {0, KEY_WOW64_32KEY, KEY_WOW64_64KEY}) {
    use_all(view);
    const REGSAM query = KEY_QUERY_VALUE | view;
    EXPECT_THAT(access_, testing::ElementsAre(KEY_SET_VALUE | view, query, query, query, query, KEY_ENUMERATE_SUB_KEYS | view,
                                              KEY_ENUMERATE_SUB_KEYS | view, KEY_QUERY_VALUE));
    EXPECT_EQ(view, deleted_in);
  }
  delete_in_view = nullptr;  // as on a Windows XP with one view only
  use_all(0);
  EXPECT_EQ(kNotAsked, deleted_in);
}

TEST_F(Registry, DeletesWholeTreesAndStopsAtAStubbornKey) {
  for (const bool stubborn : {false, true}) {
    for (const wchar_t* const key : {L"t\\a\\a1\\a11", L"t\\a\\a2", stubborn ? L"t\\b\\denied" : L"t\\b", L"t\\c", L"t2"}) {
      SHSetValueW(HKEY_LOCAL_MACHINE, (std::wstring(L"Software\\") + key).c_str(), L"v", REG_SZ, L"", 2);
    }
    EXPECT_EQ(!stubborn, DeleteKeyTree(HKEY_LOCAL_MACHINE, L"Software\\t", 0));
    EXPECT_EQ(stubborn ? 5u : 0u, GetLastError());
    EXPECT_FALSE(KeyExists(L"Software\\t\\a", 0));
    EXPECT_EQ(stubborn, KeyExists(L"Software\\t\\c", 0));
    EXPECT_TRUE(KeyExists(L"Software\\t2", 0));
  }
}

}  // namespace
}  // namespace crv::root
