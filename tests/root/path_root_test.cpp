#include "root/path_root.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <string>
#include <vector>

namespace crv::root {
namespace {

using Fields = std::array<std::uint32_t, 6>;  // of a PathRootInfo

TEST(PathRoot, FollowsItsTable) {
  const std::wstring volume = L"Volume{01234567-89ab-cdef-0123-456789abcdef}";
  const struct {
    std::wstring path;
    std::uint32_t root_start, prefix_length, root_end, flags;
  } cases[] = {
      {L"dir\\file", 0, 0, 3, 0x14},
      {L"\\dir", 0, 0, 0, 0x14},  // one separator is no server's
      {L"a:dir", 0, 0, 2, 0x104},
      {L"[:", 0, 0, 2, 0},
      {L"//server", 0, 2, 8, 0x3},
      {L"\\\\server\\", 0, 2, 9, 0xB},
      {L"\\\\server\\\\share/x", 0, 2, 15, 0x1F},
      {L"\\\\?x\\y", 0, 2, 6, 0xB},
      {L"//?/\\c:\\x", 5, 0, 7, 0x316},
      {L"\\\\.\\Unc\\server", 0, 8, 14, 0xC03},
      {L"\\\\?\\UNC\\server\\share\\x", 0, 8, 20, 0xA1F},
      {L"\\\\?\\UNCs\\t", 0, 4, 4, 0x206},
      {L"\\\\.\\\\" + volume + L"\\x", 0, 11, 49, 0x1416},
      {L"\\\\?\\" + volume.substr(0, 20), 0, 4, 4, 0x206},  // ends before the place of the brace
      {L"\\\\?\\GLOBALROOT\\x", 0, 4, 15, 0x206},
      {L"\\\\?\\GlobalRoot\\\\Device/Harddisk0", 0, 4, 32, 0x4202},
      {L"\\\\?\\Device\\FileDisk\\\\One\\x", 0, 4, 24, 0x4216},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const std::vector<wchar_t> exact(c.path.c_str(), c.path.c_str() + c.path.size() + 1);  // a look behind its end would show
    PathRootInfo info = {1, 2, 3, {4, 5}, 6};
    EXPECT_EQ(0u, GetPathRootInfo(exact.data(), &info));
    EXPECT_EQ((Fields{c.root_start, c.prefix_length, c.root_end, 0, 0, c.flags}), std::bit_cast<Fields>(info));
  }
  EXPECT_EQ(160u, GetPathRootInfo(nullptr, nullptr));
  EXPECT_EQ(123u, GetPathRootInfo(L"", nullptr));
}

}  // namespace
}  // namespace crv::root
