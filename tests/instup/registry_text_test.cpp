#include "instup/registry_text.h"

#include <algorithm>
#include <vector>

#include "instup/stage.h"
#include "root/scoped_handle.h"
#include "support/import_fake.h"

namespace crv::instup {
namespace {

constexpr const wchar_t* kKey = L"Software\\Texts";

class RegistryText : public test::StageTest {
 protected:
  RegistryText() {
    test::SetText(kKey, L"Other", L"x");
    EXPECT_EQ(0u, OpenRegistryKey(L"HKEY_LOCAL_MACHINE", kKey, KEY_READ, nullptr, key_.put()));
  }

  // The code, and the text that ReadRegistryString puts in the place of an older one.
  using Answer = std::pair<DWORD, std::wstring>;
  Answer Read() {
    std::wstring out = L"older";
    const DWORD result = ReadRegistryString(key_.get(), L"Value", out);
    EXPECT_EQ(result, GetLastError());
    return {result, out};
  }

  root::ScopedRegistryKey key_;
};

TEST_F(RegistryText, OpensOnlyWhatIsNamedExactly) {
  const struct {
    const wchar_t *root_name, *subkey;  // the first four exist in no other root
    HKEY parent;
    DWORD result;
  } rows[] = {
      {L"HKEY_LOCAL_MACHINE", kKey, nullptr, 0},
      {L"HKEY_CURRENT_USER", L"Software\\Corvid Tests", nullptr, 0},  // where the redirected hive lies
      {L"HKEY_CLASSES_ROOT", L"CLSID", nullptr, 0},
      {L"HKEY_USERS", L".Default", nullptr, 0},
      {L"hkey_local_machine", kKey, nullptr, 87},
      {nullptr, kKey, nullptr, 87},
      {L"HKEY_LOCAL_MACHINE", nullptr, nullptr, 87},
      {L"HKEY_LOCAL_MACHINE", kKey + 4, nullptr, 2},
      {L"no root", L"", key_.get(), 0},
      {L"HKEY_LOCAL_MACHINE", kKey, key_.get(), 2},  // below the parent, whatever the name says
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "row " << (&row - rows));
    const HKEY untouched = reinterpret_cast<HKEY>(0x1234);
    HKEY key = untouched;
    EXPECT_EQ(row.result, OpenRegistryKey(row.root_name, row.subkey, KEY_READ, row.parent, &key));
    EXPECT_EQ(row.result, GetLastError());
    EXPECT_EQ(row.result == 0 ? 0 : ERROR_INVALID_HANDLE, key == untouched ? ERROR_INVALID_HANDLE : RegCloseKey(key));
  }
  EXPECT_EQ(87u, OpenRegistryKey(L"HKEY_LOCAL_MACHINE", kKey, KEY_READ, nullptr, nullptr));
}

TEST_F(RegistryText, ReadsAnyTypeAndSizeAsText) {
  EXPECT_EQ(Answer(2, L""), Read());
  const std::wstring longest_in_first_buffer(260, L'a');
  const struct {
    std::wstring data;
    std::size_t bytes;
    DWORD type;
    std::wstring expected;
  } rows[] = {
      {L"C:\\x", 8, REG_SZ, L"C:\\x"},                                             // without its terminator
      {std::wstring(L"a\0b\0\0", 5), 10, REG_MULTI_SZ, std::wstring(L"a\0b", 3)},  // only trailing ones are cut off
      {L"%SystemRoot%\\x", 30, REG_EXPAND_SZ, L"%SystemRoot%\\x"},
      {L"ABC", 5, REG_BINARY, L"AB"},  // half a character
      {L"", 0, REG_SZ, L""},
      {longest_in_first_buffer, 520, REG_SZ, longest_in_first_buffer},
      {longest_in_first_buffer, 522, REG_SZ, longest_in_first_buffer},  // the terminator is beyond the buffer
  };
  for (const auto& row : rows) {
    test::SetBytes(kKey, L"Value", row.type, row.data.c_str(), static_cast<DWORD>(row.bytes));
    EXPECT_EQ(Answer(0, row.expected), Read()) << "row " << (&row - rows);
  }
}

TEST_F(RegistryText, FollowsAValueThatGrowsAndStopsAtMemory) {
  const struct {
    std::vector<DWORD> sizes;    // at which the queries find the value, in bytes; the last one stays
    std::vector<DWORD> offered;  // buffers
    Answer answer;
  } rows[] = {
      {{600, 602}, {520, 602}, {0, std::wstring(301, L'g')}},  // within the two bytes that the second buffer has to spare
      {{600, 700, 1400}, {520, 602, 702, 1402}, {0, std::wstring(700, L'g')}},
      {{0x7FFFFFFE}, {520}, {8, L""}},
      {{0xFFFFFFFE}, {520}, {8, L""}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "row " << (&row - rows));
    std::vector<DWORD> offered;
    const crv::test::ImportFake<decltype(RegQueryValueExW)> fake(
        "advapi32.dll", "RegQueryValueExW", [&](auto, HKEY, auto, auto, auto, BYTE* data, DWORD* bytes) -> LONG {
          offered.push_back(*bytes);
          const DWORD size = row.sizes[std::min(offered.size(), row.sizes.size()) - 1];
          if (size > std::exchange(*bytes, size)) return ERROR_MORE_DATA;
          std::fill_n(reinterpret_cast<wchar_t*>(data), size / sizeof(wchar_t), L'g');
          return ERROR_SUCCESS;
        });
    EXPECT_EQ(row.answer, Read());
    EXPECT_EQ(row.offered, offered);
  }
  const crv::test::ImportFake<decltype(RegQueryValueExW)> never_enough(
      "advapi32.dll", "RegQueryValueExW", [](auto...) { return ERROR_MORE_DATA; });
  EXPECT_EQ(Answer(234, L""), Read()) << "a size that fits already is not asked for for ever";
}

}  // namespace
}  // namespace crv::instup
