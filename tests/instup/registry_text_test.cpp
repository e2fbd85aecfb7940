#include "instup/registry_text.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "instup/stage.h"
#include "root/scoped_handle.h"

namespace crv::instup {
namespace {

constexpr const wchar_t* kKey = L"Software\\Texts";
constexpr const wchar_t* kName = L"Value";

class RegistryText : public test::StageTest {
 protected:
  RegistryText() {
    test::SetText(kKey, L"Other", L"x");
    EXPECT_EQ(0u, OpenRegistryKey(L"HKEY_LOCAL_MACHINE", kKey, KEY_READ, nullptr, key_.put()));
  }

  // The code, and the text that ReadRegistryString puts in the place of an older one.
  std::pair<DWORD, std::wstring> Read(const wchar_t* name = kName) {
    std::wstring out = L"older";
    const DWORD result = ReadRegistryString(key_.get(), name, out);
    EXPECT_EQ(result, GetLastError());
    return {result, out};
  }

  root::ScopedRegistryKey key_;
};

using Answer = std::pair<DWORD, std::wstring>;

TEST_F(RegistryText, OpensOnlyWhatIsNamedExactly) {
  const HKEY untouched = reinterpret_cast<HKEY>(0x1234);
  struct {
    const wchar_t* root_name;
    const wchar_t* subkey;  // the first four exist in no other root
    HKEY parent;
    DWORD result;
  } const rows[] = {
      {L"HKEY_LOCAL_MACHINE", kKey, nullptr, 0},
      {L"HKEY_CURRENT_USER", L"Software\\Corvid Tests", nullptr, 0},  // where the redirected hive lies
      {L"HKEY_CLASSES_ROOT", L"CLSID", nullptr, 0},
      {L"HKEY_USERS", L".Default", nullptr, 0},
      {L"hkey_local_machine", kKey, nullptr, 87},
      {L"HKEY_LOCAL_MACHINE ", kKey, nullptr, 87},
      {L"", kKey, nullptr, 87},
      {nullptr, kKey, nullptr, 87},
      {L"HKEY_LOCAL_MACHINE", nullptr, nullptr, 87},
      {L"HKEY_LOCAL_MACHINE", kKey + 4, nullptr, 2},
      {L"no root", L"", key_.get(), 0},
      {nullptr, nullptr, key_.get(), 87},
      {L"HKEY_LOCAL_MACHINE", kKey, key_.get(), 2},  // below the parent, whatever the name says
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "row " << (&row - rows));
    HKEY key = untouched;
    EXPECT_EQ(row.result, OpenRegistryKey(row.root_name, row.subkey, KEY_READ, row.parent, &key));
    EXPECT_EQ(row.result, GetLastError());
    EXPECT_EQ(row.result != 0, key == untouched);
    if (row.result == 0) {
      EXPECT_EQ(0, RegCloseKey(key));
    }
  }
  EXPECT_EQ(87u, OpenRegistryKey(L"HKEY_LOCAL_MACHINE", kKey, KEY_READ, nullptr, nullptr));
}

TEST_F(RegistryText, ReadsAnyTypeAndSizeAsText) {
  const std::wstring longest_in_first_buffer(260, L'a');
  const std::wstring beyond(2500, L'b');
  struct {
    std::wstring data;
    std::size_t bytes;
    DWORD type;
    std::wstring expected;
  } const rows[] = {
      {L"C:\\x", 10, REG_SZ, L"C:\\x"},
      {L"C:\\x", 8, REG_SZ, L"C:\\x"},  // without its terminator
      {std::wstring(L"x\0\0\0", 4), 8, REG_SZ, L"x"},
      {std::wstring(L"a\0b\0\0", 5), 10, REG_MULTI_SZ, std::wstring(L"a\0b", 3)},  // only trailing ones are cut off
      {L"%SystemRoot%\\x", 30, REG_EXPAND_SZ, L"%SystemRoot%\\x"},
      {L"ABC", 5, REG_BINARY, L"AB"},  // half a character
      {L"", 0, REG_SZ, L""},
      {longest_in_first_buffer, 520, REG_SZ, longest_in_first_buffer},
      {longest_in_first_buffer, 522, REG_SZ, longest_in_first_buffer},  // the terminator is beyond the buffer
      {beyond, 5002, REG_SZ, beyond},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "row " << (&row - rows));
    test::SetBytes(kKey, kName, row.type, row.data.c_str(), static_cast<DWORD>(row.bytes));
    EXPECT_EQ(Answer(0, row.expected), Read());
  }
  EXPECT_EQ(Answer(2, L""), Read(L"Missing"));
}

// Answers in place of RegQueryValueExW: each query finds the value at the next size of the list.
std::vector<DWORD> next_sizes;
std::vector<DWORD> offered;  // buffers, in bytes
LONG WINAPI GrowingValue(HKEY, const wchar_t*, DWORD*, DWORD*, BYTE* data, DWORD* bytes) {
  offered.push_back(*bytes);
  const DWORD size = next_sizes.front();
  if (next_sizes.size() > 1) next_sizes.erase(next_sizes.begin());
  const bool fits = size <= *bytes;
  *bytes = size;
  if (!fits) return ERROR_MORE_DATA;
  std::fill_n(reinterpret_cast<wchar_t*>(data), size / sizeof(wchar_t), L'g');
  return ERROR_SUCCESS;
}

TEST_F(RegistryText, FollowsAValueThatGrowsAndStopsAtMemory) {
  const crv::test::ImportPatch patch("advapi32.dll", "RegQueryValueExW", reinterpret_cast<void*>(&GrowingValue));
  next_sizes = {600, 602};  // within the two bytes that the second buffer has to spare
  EXPECT_EQ(Answer(0, std::wstring(301, L'g')), Read());
  EXPECT_EQ((std::vector<DWORD>{520, 602}), offered);
  offered.clear();
  next_sizes = {600, 700, 1400, 1400};
  EXPECT_EQ(Answer(0, std::wstring(700, L'g')), Read());
  EXPECT_EQ((std::vector<DWORD>{520, 602, 702, 1402}), offered);
  for (const DWORD size : {0x7FFFFFFEu, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
    next_sizes = {size};
    EXPECT_EQ(Answer(8, L""), Read());
  }
}

int patience = 0;  // a reader that never stops is stopped by another error
LONG WINAPI AlwaysMoreData(HKEY, const wchar_t*, DWORD*, DWORD*, BYTE*, DWORD*) {
  return patience-- > 0 ? ERROR_MORE_DATA : ERROR_CANTREAD;
}
LONG WINAPI AccessDenied(HKEY, const wchar_t*, DWORD*, DWORD*, BYTE*, DWORD*) { return ERROR_ACCESS_DENIED; }

TEST_F(RegistryText, ReturnsOtherErrorsAsTheyCome) {
  {
    const crv::test::ImportPatch patch("advapi32.dll", "RegQueryValueExW", reinterpret_cast<void*>(&AccessDenied));
    EXPECT_EQ(Answer(5, L""), Read());
  }
  const crv::test::ImportPatch patch("advapi32.dll", "RegQueryValueExW", reinterpret_cast<void*>(&AlwaysMoreData));
  patience = 5;
  EXPECT_EQ(Answer(234, L""), Read()) << "a size that fits already is not asked for for ever";
}

}  // namespace
}  // namespace crv::instup
