#include "instup/settings_file.h"

#include <windows.h>

#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "root/scoped_handle.h"

namespace crv::instup {
namespace {

constexpr std::string_view kUtf16LittleEndian = "\xFF\xFE";
constexpr std::string_view kUtf16BigEndian = "\xFE\xFF";
constexpr std::string_view kUtf8 = "\xEF\xBB\xBF";
constexpr DWORD kWholeFile = 0xFFFFFFFF;  // low half of the locked length
constexpr DWORD kFileTooLarge = 223;      // ERROR_FILE_TOO_LARGE

std::wstring DecodeUtf16(std::string_view bytes, bool big_endian) {
  std::wstring text(bytes.size() / 2, L'\0');
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto first = static_cast<unsigned char>(bytes[2 * i]);
    const auto second = static_cast<unsigned char>(bytes[2 * i + 1]);
    text[i] = static_cast<wchar_t>(big_endian ? first << 8 | second : second << 8 | first);
  }
  return text;
}

std::wstring DecodeUtf8(std::string_view bytes) {
  const int length = MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0);
  if (length < 1) return {};
  std::wstring text(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()), text.data(), length);
  return text;
}

// A shared lock on the whole file, waited for, for the length of a scope.
class SharedLock {
 public:
  explicit SharedLock(HANDLE file) : file_(file), locked_(LockFileEx(file, 0, 0, kWholeFile, 0, &overlapped_) != FALSE) {}
  ~SharedLock() {
    if (!locked_) return;
    const DWORD last_error = GetLastError();
    UnlockFileEx(file_, 0, kWholeFile, 0, &overlapped_);
    SetLastError(last_error);
  }
  SharedLock(const SharedLock&) = delete;
  SharedLock& operator=(const SharedLock&) = delete;

  bool locked() const { return locked_; }

 private:
  HANDLE file_;
  OVERLAPPED overlapped_ = {};  // the lock starts at offset 0
  bool locked_;
};

// The error of the failed step, or 0 with the whole file in `bytes`, which are read in one call.
DWORD ReadWhole(HANDLE file, std::vector<char>& bytes) {
  LARGE_INTEGER size;
  if (!GetFileSizeEx(file, &size)) return GetLastError();
  if (size.HighPart != 0) return kFileTooLarge;
  bytes.resize(size.LowPart);
  DWORD read = 0;
  if (!ReadFile(file, bytes.data(), size.LowPart, &read, nullptr)) return GetLastError();
  bytes.resize(read);
  return ERROR_SUCCESS;
}

// The same with the file's text; its bytes are given back by then.
DWORD ReadText(HANDLE file, std::wstring& text) {
  std::vector<char> bytes;
  if (const DWORD error = ReadWhole(file, bytes)) return error;
  text = DecodeSettings(bytes);
  return ERROR_SUCCESS;
}

// The same with the parse. The file stays locked until it is parsed.
DWORD Load(const std::wstring& path, SettingsTree& tree) {
  const root::ScopedFile file(CreateFileW(path.c_str(), FILE_READ_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                          nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  if (!file) return GetLastError();
  const SharedLock lock(file.get());
  if (!lock.locked()) return GetLastError();
  std::wstring text;
  if (const DWORD error = ReadText(file.get(), text)) return error;
  tree = SettingsTree::Parse(std::move(text));
  return ERROR_SUCCESS;
}

}  // namespace

std::wstring DecodeSettings(const std::vector<char>& bytes) {
  std::string_view view(bytes.data(), bytes.size());
  if (view.size() < kUtf8.size()) return DecodeUtf8(view);  // too short for a signature to count
  if (view.starts_with(kUtf16LittleEndian)) return DecodeUtf16(view.substr(kUtf16LittleEndian.size()), false);
  if (view.starts_with(kUtf16BigEndian)) return DecodeUtf16(view.substr(kUtf16BigEndian.size()), true);
  if (view.starts_with(kUtf8)) view.remove_prefix(kUtf8.size());
  return DecodeUtf8(view);
}

bool LoadSettingsFile(const std::wstring& path, SettingsTree& tree) {
  DWORD result = ERROR_SUCCESS;
  try {
    result = Load(path, tree);
  } catch (const std::bad_alloc&) {
    result = ERROR_NOT_ENOUGH_MEMORY;
  } catch (const std::length_error&) {  // a text that no string can hold
    result = ERROR_NOT_ENOUGH_MEMORY;
  }
  SetLastError(result);
  return result == ERROR_SUCCESS;
}

}  // namespace crv::instup
