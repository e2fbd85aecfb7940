#include "root/optional_functions.h"

#include <gtest/gtest.h>
#include <sddl.h>

#include "support/import_fake.h"

namespace crv::root {
namespace {

const HANDLE kDevice = reinterpret_cast<HANDLE>(0x5A5A);

TEST(OptionalTable, FirstReferenceFillsItAndTheLastOneClosesTheDevice) {
  const OptionalFunctionTable& table = OptionalFunctions();
  bool memory = true;
  std::string asked;
  const test::ImportFake<decltype(CreateFileW)> open("kernel32.dll", "CreateFileW", [&](auto, std::wstring name, auto...) {
    EXPECT_EQ(L"\\\\.\\crvSP", name);
    return asked += "open;", kDevice;
  });
  const test::ImportFake<decltype(CloseHandle)> close("kernel32.dll", "CloseHandle", [&](auto real, HANDLE handle) {
    return handle == kDevice ? asked += "close;", TRUE : real(handle);
  });
  const test::ImportFake<decltype(AllocateAndInitializeSid)> make_sid(
      "advapi32.dll", "AllocateAndInitializeSid",
      [&](auto real, auto... arguments) { return memory ? real(arguments...) : FALSE; });

  EXPECT_EQ(0u, OptionalTableInit(0));
  EXPECT_EQ(0u, OptionalTableInit(0));
  EXPECT_EQ(0u, OptionalTableRelease());
  EXPECT_EQ("open;", std::exchange(asked, ""));
  EXPECT_EQ(0u, OptionalTableRelease());
  EXPECT_EQ("close;", std::exchange(asked, ""));
  EXPECT_NE(nullptr, table.nt_open_file) << "what was looked up stays";

  SECURITY_ATTRIBUTES* const open_to_everyone = OpenSecurityAttributes();
  ASSERT_TRUE(open_to_everyone && open_to_everyone->nLength == 12 && !open_to_everyone->bInheritHandle);
  wchar_t* text = nullptr;
  ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(open_to_everyone->lpSecurityDescriptor, SDDL_REVISION_1,
                                                                   DACL_SECURITY_INFORMATION, &text, nullptr));
  EXPECT_STREQ(L"D:(A;OIIO;GA;;;WD)(A;CI;FA;;;WD)", text);
  LocalFree(text);

  memory = false;
  EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, OptionalTableInit(0));
  EXPECT_EQ("open;close;", asked);
  EXPECT_EQ(nullptr, OpenSecurityAttributes());
  EXPECT_EQ(0, table.table_count);
}

}  // namespace
}  // namespace crv::root
