#include "root/path_root.h"

namespace crv::root {
namespace {

bool IsSeparator(wchar_t character) { return character == L'\\' || character == L'/'; }

// ASCII only: the comparison depends on no locale.
wchar_t Lower(wchar_t character) {
  return character >= L'A' && character <= L'Z' ? static_cast<wchar_t>(character - L'A' + L'a') : character;
}

// Steps over a path. None of them looks past the terminating NUL.
class Scanner {
 public:
  explicit Scanner(const wchar_t* path) : path_(path) {}

  wchar_t operator[](std::uint32_t at) const { return path_[at]; }

  std::uint32_t SkipSeparators(std::uint32_t at) const {
    while (IsSeparator(path_[at])) ++at;
    return at;
  }

  // The next separator, or the end of the path.
  std::uint32_t FindSeparator(std::uint32_t at) const {
    while (path_[at] && !IsSeparator(path_[at])) ++at;
    return at;
  }

  bool HasDrive(std::uint32_t at) const { return Lower(path_[at]) >= L'a' && Lower(path_[at]) <= L'z' && path_[at + 1] == L':'; }

  // The index behind the text if it stands there, otherwise 0 (no text that is looked for stands at the very start).
  std::uint32_t MatchText(std::uint32_t at, const wchar_t* lower_case_text) const {
    for (; *lower_case_text; ++at, ++lower_case_text) {
      if (Lower(path_[at]) != *lower_case_text) return 0;
    }
    return at;
  }

  // The same for the text and one separator behind it.
  std::uint32_t MatchPart(std::uint32_t at, const wchar_t* lower_case_text) const {
    const std::uint32_t behind = MatchText(at, lower_case_text);
    return behind != 0 && IsSeparator(path_[behind]) ? behind + 1 : 0;
  }

  // "Volume{GUID}": 44 characters, of which only the first seven and the last are looked at.
  bool HasVolumeGuid(std::uint32_t at) const {
    constexpr std::uint32_t kBrace = 43;
    if (MatchText(at, L"volume{") == 0) return false;
    for (std::uint32_t offset = 0; offset < kBrace; ++offset) {
      if (!path_[at + offset]) return false;
    }
    return path_[at + kBrace] == L'}';
  }

 private:
  const wchar_t* path_;
};

constexpr std::uint32_t kVolumeWord = 6;   // characters of "Volume"
constexpr std::uint32_t kVolumeGuid = 44;  // characters of "Volume{GUID}"

// Each of these returns the end of the root.

std::uint32_t PlainUncRoot(const Scanner& path, PathRootInfo& info) {
  info.flags |= kPathUncRoot;
  info.prefix_length = 2;
  const std::uint32_t server_end = path.FindSeparator(2);
  if (!path[server_end]) return server_end;
  info.flags |= kPathShare;  // even if only separators follow the server
  return path.FindSeparator(path.SkipSeparators(server_end));
}

std::uint32_t PrefixedUncRoot(const Scanner& path, std::uint32_t server, PathRootInfo& info) {
  info.flags |= kPathPrefixedUnc | kPathUncRoot;
  info.prefix_length = server;
  const std::uint32_t server_end = path.FindSeparator(server);
  const std::uint32_t share = path.SkipSeparators(server_end);
  if (!path[share]) return server_end;
  info.flags |= kPathShare;
  return path.FindSeparator(share);
}

std::uint32_t DeviceRoot(const Scanner& path, std::uint32_t at, PathRootInfo& info) {
  info.prefix_length = at;
  if (const std::uint32_t behind = path.MatchPart(at, L"globalroot")) at = path.SkipSeparators(behind);
  const std::uint32_t device = path.MatchPart(at, L"device");
  if (device == 0) return at;
  at = path.SkipSeparators(device);
  if (const std::uint32_t behind = path.MatchPart(at, L"filedisk")) at = path.SkipSeparators(behind);
  info.flags |= kPathDevice;
  return path.FindSeparator(at);
}

std::uint32_t PrefixedRoot(const Scanner& path, PathRootInfo& info) {
  info.flags |= path[2] == L'?' ? kPathQuestionPrefix : kPathDotPrefix;
  const std::uint32_t start = path.SkipSeparators(4);
  if (const std::uint32_t server = path.MatchPart(start, L"unc")) return PrefixedUncRoot(path, server, info);
  if (path.HasVolumeGuid(start)) {
    info.flags |= kPathVolumeGuid;
    info.prefix_length = start + kVolumeWord;
    return start + kVolumeGuid;
  }
  if (path.HasDrive(start)) {
    info.flags |= kPathDriveRoot;
    info.root_start = start;
    return start + 2;
  }
  return DeviceRoot(path, start, info);
}

std::uint32_t Root(const Scanner& path, PathRootInfo& info) {
  if (IsSeparator(path[0]) && IsSeparator(path[1])) {
    info.flags |= kPathAbsolute;
    const bool prefixed = (path[2] == L'?' || path[2] == L'.') && IsSeparator(path[3]);
    return prefixed ? PrefixedRoot(path, info) : PlainUncRoot(path, info);
  }
  if (path.HasDrive(0)) {
    info.flags |= kPathDriveRoot;
    if (!path[2] || IsSeparator(path[2])) info.flags |= kPathAbsolute;
    return 2;
  }
  return path.FindSeparator(0);
}

}  // namespace

std::uint32_t GetPathRootInfo(const wchar_t* path, PathRootInfo* info) noexcept {
  PathRootInfo unwanted;
  PathRootInfo& result = info ? *info : unwanted;
  result = {};
  if (!path) return kPathNull;
  if (!*path) return kPathEmpty;

  const Scanner scanner(path);
  result.root_end = Root(scanner, result);
  const std::uint32_t behind = scanner.SkipSeparators(result.root_end);
  if (behind != result.root_end) result.flags |= kPathSeparatorFollows;
  if (scanner[behind]) result.flags |= kPathMoreFollows;
  return 0;
}

}  // namespace crv::root
