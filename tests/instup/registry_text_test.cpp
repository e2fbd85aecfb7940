#include "instup/registry_text.h"

#include "instup/stage.h"
#include "support/import_fake.h"

namespace crv::instup {
namespace {

constexpr const wchar_t* kKey = L"Software\\Texts";

using RegistryText = test::StageTest;
using Answer = std::pair<DWORD, std::wstring>;

Answer Read() {
  HKEY key = nullptr;
  EXPECT_EQ(0u, OpenRegistryKey(L"HKEY_LOCAL_MACHINE", kKey, KEY_READ, nullptr, &key));
  std::wstring out = L"older";
  const DWORD result = ReadRegistryString(key, L"Value", out);
  EXPECT_EQ(result, GetLastError());
  RegCloseKey(key);
  return {result, out};
}

TEST_F(RegistryText, ReadsAnyTypeAndSizeAsText) {
  const std::wstring longest_in_first_buffer(260, L'a');
  const struct {
    std::wstring data;
    DWORD bytes, type;
    std::wstring expected;
  } rows[] = {
      {L"C:\\x", 8, REG_SZ, L"C:\\x"},                         // without its terminator
      {std::wstring(L"a\0b\0\0", 5), 10, REG_MULTI_SZ, L"a"},  // what stands behind its end is none of it
      {L"ABC", 5, REG_BINARY, L"AB"},                          // half a character
      {longest_in_first_buffer, 520, REG_SZ, longest_in_first_buffer},
      {longest_in_first_buffer, 522, REG_SZ, longest_in_first_buffer},  // the terminator is beyond the buffer
  };
  for (const auto& row : rows) {
    test::SetBytes(kKey, L"Value", row.type, row.data.c_str(), row.bytes);
    EXPECT_EQ(Answer(0, row.expected), Read()) << "row " << (&row - rows);
  }
  for (const auto& [size, code] : {std::pair(0x7FFFFFFEu, 8), {0xFFFFFFFEu, 8}, {520u, 234}}) {  // no memory; fits already
    const crv::test::ImportFake<decltype(RegQueryValueExW)> never_enough(
        "advapi32.dll", "RegQueryValueExW",
        [&](auto, auto, auto, auto, auto, auto, DWORD* bytes) { return *bytes = size, ERROR_MORE_DATA; });
    EXPECT_EQ(Answer(code, L""), Read());
  }
}

}  // namespace
}  // namespace crv::instup
