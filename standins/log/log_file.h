// The log file as all processes of the machine share it: each line is appended in one write under a lock that is known by the
// file's path. When a line would take the file over its size limit, the file is renamed to "<name>.old", replacing an older one,
// and a new one begins. The file is only open during a call. Any thread.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

namespace crv::standins::log {

class LogFile {
 public:
  LogFile() = default;                                    // names no file
  LogFile(const wchar_t* path, std::uint64_t roll_size);  // roll_size in bytes; 0: without limit

  bool has_path() const { return !path_.empty(); }
  const std::wstring& path() const { return path_; }

  // Creates the file when it is missing, empties it when `append` is false. The folder must exist. These two give the system's
  // error code, 0 for success.
  DWORD Open(bool append) const;
  DWORD Append(const std::string& line) const;

 private:
  std::wstring path_;
  std::wstring lock_name_;
  std::uint64_t roll_size_ = 0;
};

}  // namespace crv::standins::log
