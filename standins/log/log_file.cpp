#include "log/log_file.h"

#include <cwctype>

#include "shared/named_lock.h"
#include "root/scoped_handle.h"

namespace crv::standins::log {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kLockWait = 5000;  // ms; after that a line is appended without the lock, and the file is not rolled over

std::wstring FullPath(const wchar_t* path) {
  wchar_t none[1];
  const DWORD size = GetFullPathNameW(path, 0, none, nullptr);
  std::wstring full(size, L'\0');
  full.resize(GetFullPathNameW(path, size, full.data(), nullptr));
  return full.empty() ? std::wstring(path) : full;
}

// The same path in another letter case is the same file. FNV-1a keeps the name short and free of backslashes.
std::wstring LockName(const std::wstring& path) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const wchar_t character : path) hash = (hash ^ std::towlower(character)) * 0x100000001B3;
  return L"Global\\Corvid Stand-ins Log " + std::to_wstring(hash);
}

root::ScopedFile OpenToAppend(const std::wstring& path) {
  return root::ScopedFile(CreateFileW(path.c_str(), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE, kShareAll, nullptr,
                                      OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

}  // namespace

LogFile::LogFile(const wchar_t* path, std::uint64_t roll_size)
    : path_(FullPath(path)), lock_name_(LockName(path_)), roll_size_(roll_size) {}

DWORD LogFile::Open(bool append) const {
  const NamedLock lock(lock_name_.c_str(), kLockWait);
  const root::ScopedFile file(CreateFileW(path_.c_str(), GENERIC_WRITE, kShareAll, nullptr, append ? OPEN_ALWAYS : CREATE_ALWAYS,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
  return file ? 0 : GetLastError();
}

DWORD LogFile::Append(const std::string& line) const {
  const NamedLock lock(lock_name_.c_str(), kLockWait);
  root::ScopedFile file = OpenToAppend(path_);
  if (!file) return GetLastError();
  LARGE_INTEGER size = {};
  if (roll_size_ && lock.held() && GetFileSizeEx(file.get(), &size) && size.QuadPart > 0 &&
      static_cast<std::uint64_t>(size.QuadPart) + line.size() > roll_size_) {
    file.reset();
    // When somebody holds one of the files so that it cannot be renamed, the line goes into the file that is there.
    MoveFileExW(path_.c_str(), (path_ + L".old").c_str(), MOVEFILE_REPLACE_EXISTING);
    file = OpenToAppend(path_);
    if (!file) return GetLastError();
  }
  SetFilePointer(file.get(), 0, nullptr, FILE_END);  // some file systems do not append by themselves
  DWORD written = 0;
  return WriteFile(file.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr) ? 0 : GetLastError();
}

}  // namespace crv::standins::log
