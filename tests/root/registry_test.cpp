#include "root/registry.h"

#include <gtest/gtest.h>

#include <shlwapi.h>

#include <cstdlib>
#include <functional>
#include <set>
#include <vector>

#include "base/format_message.h"
#include "support/import_patch.h"
#include "support/redirected_hive.h"

namespace crv::root {
namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr const wchar_t* kKey = L"Software\\Corvid Tests\\Values";
constexpr DWORD kUntouched = 0xBAD;

// What the registry's functions are told to do, and what the product did with them.
struct Script {
  std::string failing;             // the function that answers `result`
  LSTATUS result = 0;
  std::function<void()> meanwhile;  // runs once, between the size query and the read
  std::set<HKEY> open_keys;         // opened by the product and not closed
  REGSAM access = 0;                // asked for last
} script;

template <typename Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"advapi32"), name)));
}

LSTATUS Opened(LSTATUS result, HKEY* key, REGSAM access) {
  if (result == 0) script.open_keys.insert(*key);
  script.access = access;
  return result;
}

LSTATUS WINAPI OpenKey(HKEY root, const wchar_t* subkey, DWORD options, REGSAM access, HKEY* key) {
  if (script.failing == "open") return script.result;
  return Opened(Real<decltype(RegOpenKeyExW)>("RegOpenKeyExW")(root, subkey, options, access, key), key, access);
}

LSTATUS WINAPI CreateKey(HKEY root, const wchar_t* subkey, DWORD reserved, wchar_t* key_class, DWORD options, REGSAM access,
                         SECURITY_ATTRIBUTES* security, HKEY* key, DWORD* disposition) {
  if (script.failing == "create") return script.result;
  EXPECT_EQ(0u, options);  // kept when the system ends
  return Opened(Real<decltype(RegCreateKeyExW)>("RegCreateKeyExW")(root, subkey, reserved, key_class, REG_OPTION_VOLATILE, access,
                                                                   security, key, disposition),
                key, access);
}

LSTATUS WINAPI CloseKey(HKEY key) {
  script.open_keys.erase(key);
  SetLastError(kUntouched);
  return Real<decltype(RegCloseKey)>("RegCloseKey")(key);
}

LSTATUS WINAPI QueryKey(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size) {
  if (data && script.meanwhile) std::exchange(script.meanwhile, nullptr)();
  return Real<decltype(RegQueryValueExW)>("RegQueryValueExW")(key, name, reserved, type, data, size);
}

LSTATUS WINAPI SetKey(HKEY key, const wchar_t* name, DWORD reserved, DWORD type, const BYTE* data, DWORD size) {
  return script.failing == "set" ? script.result : Real<decltype(RegSetValueExW)>("RegSetValueExW")(key, name, reserved, type, data, size);
}

LSTATUS WINAPI EnumKey(HKEY key, DWORD index, wchar_t* name, DWORD size) {
  return script.failing == "enumerate" ? script.result : Real<decltype(RegEnumKeyW)>("RegEnumKeyW")(key, index, name, size);
}

DWORD WINAPI NoExpansion(const wchar_t*, wchar_t*, DWORD) {
  SetLastError(ERROR_INVALID_LEVEL);
  return 0;
}

class Registry : public testing::Test {
 protected:
  Registry() { script = {}; }
  ~Registry() override { EXPECT_TRUE(script.open_keys.empty()); }

  // `bytes` as they are: nothing follows them from which the system could complete a string.
  void Store(const wchar_t* name, DWORD type, Bytes bytes) {
    const DWORD size = bytes.size();
    bytes.insert(bytes.end(), 4, 0xEE);
    EXPECT_EQ(0, SHSetValueW(HKEY_LOCAL_MACHINE, kKey, name, type, bytes.data(), size));
  }
  static void Make(const wchar_t* key_path) {
    HKEY key = nullptr;
    EXPECT_EQ(0, RegCreateKeyW(HKEY_LOCAL_MACHINE, key_path, &key));
    RegCloseKey(key);
  }
  static Bytes Wide(const std::wstring& text) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    return Bytes(bytes, bytes + text.size() * sizeof(wchar_t));
  }

 private:
  test::RedirectedHive hive_;
  const test::ImportPatch patches_[6] = {{"advapi32.dll", "RegOpenKeyExW", reinterpret_cast<void*>(&OpenKey)},
                                         {"advapi32.dll", "RegCreateKeyExW", reinterpret_cast<void*>(&CreateKey)},
                                         {"advapi32.dll", "RegCloseKey", reinterpret_cast<void*>(&CloseKey)},
                                         {"advapi32.dll", "RegQueryValueExW", reinterpret_cast<void*>(&QueryKey)},
                                         {"advapi32.dll", "RegSetValueExW", reinterpret_cast<void*>(&SetKey)},
                                         {"advapi32.dll", "RegEnumKeyW", reinterpret_cast<void*>(&EnumKey)}};
};

TEST_F(Registry, ReadsStringsByTheirTable) {
  SetEnvironmentVariableW(L"CRV_SHORT", L"C:\\x");
  SetEnvironmentVariableW(L"CRV_LONG", std::wstring(9000, L'y').c_str());
  struct Case {
    DWORD type;
    Bytes bytes;
    std::wstring expected;
    DWORD error = 0;
  };
  const Case cases[] = {
      {REG_SZ, Wide(L"abc"), L"abc"},
      {REG_SZ, Wide({L"ab\0cd\0", 6}), L"ab"},
      {REG_SZ, {}, L""},
      {REG_SZ, {0, 0}, L""},
      {REG_SZ, Wide(L"%CRV_SHORT%\\y"), L"%CRV_SHORT%\\y"},
      {REG_EXPAND_SZ, Wide(L"%CRV_SHORT%\\y"), L"C:\\x\\y"},
      {REG_EXPAND_SZ, Wide(L"%CRV_LONG%%CRV_MISSING%"), std::wstring(9000, L'y') + L"%CRV_MISSING%"},
      {REG_EXPAND_SZ, Wide({L"a\0%CRV_SHORT%", 13}), L"a"},
      {REG_EXPAND_SZ, {}, L""},
      {REG_SZ, {'a', 0, 'b'}, L"", ERROR_INVALID_DATA},
      {REG_EXPAND_SZ, {'a'}, L"", ERROR_INVALID_DATA},
      {REG_MULTI_SZ, Wide(L"a"), L"", ERROR_INVALID_DATA},
      {REG_BINARY, Wide(L"a"), L"", ERROR_INVALID_DATA},
      {REG_NONE, {}, L"", ERROR_INVALID_DATA},
      {REG_DWORD, {1, 0, 0, 0}, L"", ERROR_INVALID_DATA},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    Store(L"text", c.type, c.bytes);
    std::wstring value = L"untouched";
    SetLastError(kUntouched);
    EXPECT_EQ(c.error == 0, QueryString(HKEY_LOCAL_MACHINE, kKey, L"text", value, 0));
    EXPECT_EQ(c.error, GetLastError());
    EXPECT_EQ(c.error == 0 ? c.expected : L"untouched", value);
  }
  Store(nullptr, REG_EXPAND_SZ, Wide(L"default"));
  std::wstring value;
  EXPECT_TRUE(QueryString(HKEY_LOCAL_MACHINE, kKey, nullptr, value, 0));
  EXPECT_EQ(L"default", value);
  const test::ImportPatch patch("kernel32.dll", "ExpandEnvironmentStringsW", reinterpret_cast<void*>(&NoExpansion));
  EXPECT_FALSE(QueryString(HKEY_LOCAL_MACHINE, kKey, L"", value, 0));
  EXPECT_EQ(DWORD{ERROR_INVALID_LEVEL}, GetLastError());
  EXPECT_EQ(L"default", value);
}

TEST_F(Registry, ReadsOnlyFourByteDwords) {
  struct Case {
    DWORD type;
    Bytes bytes;
    DWORD error;
  };
  const Case cases[] = {
      {REG_DWORD, {0x78, 0x56, 0x34, 0x12}, 0}, {REG_DWORD, {1, 0}, 13}, {REG_DWORD, {}, 13}, {REG_DWORD, {1, 0, 0, 0, 0}, 13},
      {REG_QWORD, {1, 0, 0, 0, 0, 0, 0, 0}, 13}, {REG_BINARY, {1, 0}, 13}, {REG_BINARY, {1, 0, 0, 0}, 13}, {REG_SZ, {'1', 0, 0, 0}, 13},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    Store(L"number", c.type, c.bytes);
    std::uint32_t value = 7;
    EXPECT_EQ(c.error == 0, QueryDword(kKey, L"number", value, 0));
    EXPECT_EQ(c.error, GetLastError());
    EXPECT_EQ(c.error == 0 ? 0x12345678u : 7u, value);
  }
}

TEST_F(Registry, ReadsValuesThatChangeMeanwhile) {
  const Bytes sizes[] = {Bytes(5000, 1), Bytes(3, 2), {}};
  for (const Bytes& later : sizes) {
    Store(L"value", REG_BINARY, Bytes(100, 3));
    script.meanwhile = [&] { Store(L"value", REG_NONE, later); };
    Bytes data;
    DWORD type = REG_SZ;
    EXPECT_TRUE(QueryValue(HKEY_LOCAL_MACHINE, kKey, L"value", data, type, 0));
    EXPECT_EQ(later, data);
    EXPECT_EQ(DWORD{REG_NONE}, type);
  }
}

TEST_F(Registry, WritesDwordsIntoKeysThatItMakes) {
  EXPECT_TRUE(SetDword(kKey, L"number", 0xFFFFFFFE, KEY_WOW64_64KEY));
  EXPECT_EQ(REGSAM{KEY_SET_VALUE | KEY_WOW64_64KEY}, script.access);
  EXPECT_EQ(0u, GetLastError());
  DWORD value = 0, size = sizeof(value), type = 0;
  EXPECT_EQ(0, SHGetValueW(HKEY_LOCAL_MACHINE, kKey, L"number", &type, &value, &size));
  EXPECT_EQ(0xFFFFFFFEu, value);
  EXPECT_EQ(DWORD{REG_DWORD}, type);
  for (const char* step : {"create", "set"}) {
    script.failing = step;
    script.result = ERROR_NO_SYSTEM_RESOURCES;
    EXPECT_FALSE(SetDword(kKey, L"number", 1, 0));
    EXPECT_EQ(DWORD{ERROR_NO_SYSTEM_RESOURCES}, GetLastError());
  }
}

// Every helper with a root, a subkey, a value "number" and a view.
using Helper = bool (*)(HKEY, const wchar_t*, REGSAM);
Bytes helper_data;
DWORD helper_type;
std::wstring helper_text;
std::uint32_t helper_number;
const Helper kKeyExists = [](HKEY, const wchar_t* subkey, REGSAM view) { return KeyExists(subkey, view); };
const Helper kQueryValue = [](HKEY root, const wchar_t* subkey, REGSAM view) {
  return QueryValue(root, subkey, L"number", helper_data, helper_type, view);
};
const Helper kQueryString = [](HKEY root, const wchar_t* subkey, REGSAM view) {
  return QueryString(root, subkey, L"number", helper_text, view);
};
const Helper kQueryDword = [](HKEY, const wchar_t* subkey, REGSAM view) { return QueryDword(subkey, L"number", helper_number, view); };
const Helper kSetDword = [](HKEY, const wchar_t* subkey, REGSAM view) { return SetDword(subkey, L"number", 1, view); };
const Helper kDeleteKeyTree = [](HKEY root, const wchar_t* subkey, REGSAM view) { return DeleteKeyTree(root, subkey, view); };

TEST_F(Registry, RefusesANullRootAndAnEmptySubkey) {
  Store(L"number", REG_DWORD, {1, 0, 0, 0});
  for (const Helper helper : {kKeyExists, kQueryValue, kQueryString, kQueryDword, kSetDword, kDeleteKeyTree}) {
    for (const wchar_t* subkey : {static_cast<const wchar_t*>(nullptr), L""}) {
      SetLastError(kUntouched);
      EXPECT_FALSE(helper(HKEY_LOCAL_MACHINE, subkey, 0));
      EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
    }
  }
  for (const Helper helper : {kQueryValue, kQueryString, kDeleteKeyTree}) {
    EXPECT_FALSE(helper(nullptr, kKey, 0));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
  }
  EXPECT_TRUE(KeyExists(kKey, 0));
}

TEST_F(Registry, AsksForItsAccessInTheViewAndReportsAKeyThatDoesNotOpen) {
  struct {
    Helper helper;
    REGSAM access;
    DWORD missing;
  } const cases[] = {{kKeyExists, KEY_QUERY_VALUE, 0},   {kQueryValue, KEY_QUERY_VALUE, 2}, {kQueryString, KEY_QUERY_VALUE, 2},
                     {kQueryDword, KEY_QUERY_VALUE, 2}, {kDeleteKeyTree, KEY_ENUMERATE_SUB_KEYS, 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    Store(L"number", REG_DWORD, {1, 0, 0, 0});
    c.helper(HKEY_LOCAL_MACHINE, kKey, KEY_WOW64_32KEY);
    EXPECT_EQ(c.access | KEY_WOW64_32KEY, script.access);
    EXPECT_FALSE(c.helper(HKEY_LOCAL_MACHINE, L"Software\\Missing", 0));
    EXPECT_EQ(c.missing, GetLastError());
    script.failing = "open";
    script.result = ERROR_ACCESS_DENIED;
    EXPECT_FALSE(c.helper(HKEY_LOCAL_MACHINE, kKey, 0));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, GetLastError());
    script.failing.clear();
  }
}

// Only what the value itself takes is refused.
void* NoBigBlocks(std::size_t size) { return size < 100000 ? std::calloc(1, size) : nullptr; }

TEST_F(Registry, ReportsAShortageOfMemory) {
  Store(L"number", REG_SZ, Bytes(300000, 'a'));
  helper_text = L"untouched";
  const test::ImportPatch patch("msvcrt.dll", "malloc", reinterpret_cast<void*>(&NoBigBlocks));
  for (const Helper helper : {kQueryValue, kQueryString, kQueryDword}) {
    EXPECT_FALSE(helper(HKEY_LOCAL_MACHINE, kKey, 0));
    EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, GetLastError());
  }
  EXPECT_EQ(L"untouched", helper_text);
}

// Deleting a key: in a view through the function that the product looks up, or without one.
std::string deletions;  // of the running test: "name view;" or "name;"
decltype(&GetProcAddress) look_up;

LSTATUS Deleted(HKEY root, const wchar_t* subkey, const std::string& view) {
  if (std::wstring(subkey) == L"stubborn") return ERROR_SHARING_VIOLATION;
  deletions += ToUtf8(subkey) + view + ";";
  return static_cast<LSTATUS>(SHDeleteEmptyKeyW(root, subkey));
}
LSTATUS WINAPI DeleteInView(HKEY root, const wchar_t* subkey, REGSAM view, DWORD) { return Deleted(root, subkey, " " + std::to_string(view)); }
LSTATUS WINAPI DeleteWithoutView(HKEY root, const wchar_t* subkey) { return Deleted(root, subkey, ""); }
FARPROC WINAPI FindDeleteInView(HMODULE module, const char* name) {
  return std::string(name) == "RegDeleteKeyExW" ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&DeleteInView)) : look_up(module, name);
}
FARPROC WINAPI FindNoDeleteInView(HMODULE module, const char* name) {
  return std::string(name) == "RegDeleteKeyExW" ? nullptr : look_up(module, name);
}

TEST_F(Registry, DeletesTreesDepthFirst) {
  const test::ImportPatch without_view("advapi32.dll", "RegDeleteKeyW", reinterpret_cast<void*>(&DeleteWithoutView));
  struct Case {
    std::vector<std::wstring> keys;
    std::string deletions;
    DWORD error = 0;
    bool view_function = true;
    LSTATUS enumeration = 0;
  };
  const Case cases[] = {
      {{L"t\\a\\a1\\a11", L"t\\a\\a2", L"t\\b"}, "a11 256;a1 256;a2 256;a 256;b 256;Software\\t 256;"},
      {{L"t\\a"}, "a;Software\\t;", 0, false},
      {{L"t\\a", L"t\\b\\c", L"t\\b\\stubborn", L"t\\d"}, "a 256;c 256;", ERROR_SHARING_VIOLATION},
      {{L"t"}, "Software\\t 256;", 0, true, ERROR_GEN_FAILURE},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const test::ImportPatch lookup("kernel32.dll", "GetProcAddress",
                                   reinterpret_cast<void*>(c.view_function ? &FindDeleteInView : &FindNoDeleteInView));
    look_up = lookup.original<decltype(look_up)>();
    SHDeleteKeyW(HKEY_LOCAL_MACHINE, L"Software\\t");
    for (const std::wstring& key : c.keys) Make((L"Software\\" + key).c_str());
    Make(L"Software\\t2");
    deletions.clear();
    script.failing = c.enumeration != 0 ? "enumerate" : "";
    script.result = c.enumeration;
    EXPECT_EQ(c.error == 0, DeleteKeyTree(HKEY_LOCAL_MACHINE, L"Software\\t", KEY_WOW64_64KEY));
    EXPECT_EQ(c.error, GetLastError());
    EXPECT_EQ(c.deletions, deletions);
    EXPECT_EQ(c.error != 0, KeyExists(L"Software\\t", 0));
    EXPECT_TRUE(KeyExists(L"Software\\t2", 0));
    EXPECT_TRUE(script.open_keys.empty());
  }
}

TEST_F(Registry, DeletesATreeOfTheSystem) {
  for (const wchar_t* key : {L"Software\\t\\a\\b", L"Software\\t\\c"}) Make(key);
  EXPECT_TRUE(DeleteKeyTree(HKEY_LOCAL_MACHINE, L"Software\\t", 0));
  EXPECT_FALSE(KeyExists(L"Software\\t", 0));
}

}  // namespace
}  // namespace crv::root
