#include "root/path_root.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <random>
#include <string>
#include <vector>

namespace crv::root {
namespace {

using Fields = std::array<std::uint32_t, 6>;  // of a PathRootInfo

TEST(PathRoot, FollowsItsTable) {
  const struct {
    const wchar_t* path;
    std::uint32_t root_start, prefix_length, root_end, flags;
  } cases[] = {
      // No root, and drives.
      {L"dir\\file", 0, 0, 3, 0x14}, {L"file", 0, 0, 4, 0}, {L"/", 0, 0, 0, 0x10}, {L"c:", 0, 0, 2, 0x102},
      {L"Z:/\\dir", 0, 0, 2, 0x116}, {L"a:dir", 0, 0, 2, 0x104}, {L"\x00E4:\\", 0, 0, 2, 0x10}, {L"[:", 0, 0, 2, 0},
      {L"@:", 0, 0, 2, 0},
      // Server and share.
      {L"\\\\", 0, 2, 2, 0x3}, {L"//server", 0, 2, 8, 0x3}, {L"\\\\server\\", 0, 2, 9, 0xB},
      {L"\\\\server\\\\share/x", 0, 2, 15, 0x1F}, {L"\\\\s\\t\\", 0, 2, 5, 0x1B}, {L"\\\\?", 0, 2, 3, 0x3},
      {L"\\\\?x\\y", 0, 2, 6, 0xB}, {L"\\\\*\\C:", 0, 2, 6, 0xB},
      // The two prefixes before drives and servers.
      {L"\\\\?\\", 0, 4, 4, 0x202}, {L"\\\\.\\C:", 4, 0, 6, 0x502}, {L"//?/\\c:\\x", 5, 0, 7, 0x316},
      {L"\\\\?\\unc", 0, 4, 4, 0x206}, {L"\\\\?\\UNC\\", 0, 8, 8, 0xA03}, {L"\\\\.\\Unc\\server", 0, 8, 14, 0xC03},
      {L"\\\\?\\UNC\\server\\\\", 0, 8, 14, 0xA13}, {L"\\\\?\\UNC\\server\\share\\x", 0, 8, 20, 0xA1F},
      {L"\\\\?\\\\UNC\\s\\t", 0, 9, 12, 0xA0B}, {L"\\\\?\\UNCs\\t", 0, 4, 4, 0x206},
      // Volumes: 44 characters from the word on, the last one a brace.
      {L"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}", 0, 10, 48, 0x1202},
      {L"\\\\.\\\\vOLUME{01234567-89ab-cdef-0123-456789abcdef}\\x", 0, 11, 49, 0x1416},
      {L"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}x", 0, 10, 48, 0x1206},
      {L"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcde}", 0, 4, 4, 0x206},
      {L"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef0}", 0, 4, 4, 0x206},
      // Devices.
      {L"\\\\.\\crvSP", 0, 4, 4, 0x406}, {L"\\\\?\\Device\\", 0, 4, 11, 0x4202}, {L"\\\\?\\GLOBALROOT\\x", 0, 4, 15, 0x206},
      {L"\\\\?\\device\\\\Harddisk0\\Partition1", 0, 4, 21, 0x4216}, {L"\\\\?\\Devices\\x", 0, 4, 4, 0x206},
      {L"\\\\?\\GlobalRoot\\\\Device/Harddisk0", 0, 4, 32, 0x4202}, {L"\\\\?\\Device\\FileDisk\\\\One\\x", 0, 4, 24, 0x4216},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    PathRootInfo info = {1, 2, 3, {4, 5}, 6};
    EXPECT_EQ(0u, GetPathRootInfo(c.path, &info));
    EXPECT_EQ((Fields{c.root_start, c.prefix_length, c.root_end, 0, 0, c.flags}), std::bit_cast<Fields>(info));
  }
  for (const wchar_t* const path : {static_cast<const wchar_t*>(nullptr), L""}) {
    PathRootInfo info = {1, 2, 3, {4, 5}, 6};
    EXPECT_EQ(path ? 123u : 160u, GetPathRootInfo(path, &info));
    EXPECT_EQ(Fields{}, std::bit_cast<Fields>(info));
  }
  EXPECT_EQ(0u, GetPathRootInfo(L"C:\\", nullptr));
}

// Paths of exactly their own length on the heap: the root lies in the path, and the flags are true of the text behind it.
TEST(PathRoot, StaysInsideGeneratedPaths) {
  std::mt19937 random(7);
  const std::wstring pieces[] = {L"\\", L"/", L"?", L".", L"\\\\?\\", L"UNC", L"GlobalRoot", L"Device", L"FileDisk", L"c:", L"x",
                                 L"Volume{", L"01234567-89ab-cdef-0123-456789abcdef", L"}"};
  for (int i = 0; i < 20000; ++i) {
    std::wstring text;
    for (unsigned count = 1 + random() % 9; count > 0; --count) text += pieces[random() % std::size(pieces)];
    text.resize(1 + random() % text.size());
    const std::vector<wchar_t> path(text.c_str(), text.c_str() + text.size() + 1);
    PathRootInfo info;
    ASSERT_EQ(0u, GetPathRootInfo(path.data(), &info));
    ASSERT_LE(info.root_end, text.size());
    const std::size_t rest = text.find_first_not_of(L"\\/", info.root_end);
    ASSERT_EQ(rest != std::wstring::npos, (info.flags & kPathMoreFollows) != 0);
    ASSERT_EQ(std::min(rest, text.size()) != info.root_end, (info.flags & kPathSeparatorFollows) != 0);
  }
}

}  // namespace
}  // namespace crv::root
