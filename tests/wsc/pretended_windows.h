// Makes the client believe in another version of Windows for the length of a scope: what was found out while the program was
// loaded is plain data.
#pragma once

#include <cstdint>

#include "root/os_version.h"
#include "wsc/back_end.h"

namespace crv::test {

class PretendedWindows {
 public:
  PretendedWindows(DWORD major, DWORD minor, WORD service_pack) {
    record_.dwMajorVersion = major;
    record_.dwMinorVersion = minor;
    record_.wServicePackMajor = service_pack;
    isv_available_ = wsc::supports_isv(major, minor, service_pack);
  }
  ~PretendedWindows() {
    record_ = true_record_;
    isv_available_ = truly_available_;
  }
  PretendedWindows(const PretendedWindows&) = delete;
  PretendedWindows& operator=(const PretendedWindows&) = delete;

 private:
  OSVERSIONINFOEXW& record_ = const_cast<OSVERSIONINFOEXW&>(root::OsVersionRecord());
  bool& isv_available_ = const_cast<bool&>(wsc::isv_available);
  const OSVERSIONINFOEXW true_record_ = record_;
  const bool truly_available_ = isv_available_;
};

}  // namespace crv::test
