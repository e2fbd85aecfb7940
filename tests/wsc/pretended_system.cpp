#include "wsc/pretended_system.h"

#include "root/os_version.h"

namespace crv {
namespace {

OSVERSIONINFOEXW record = {};

}  // namespace

// The linker takes this definition and leaves the product's own in its library.
const OSVERSIONINFOEXW& root::OsVersionRecord() { return record; }

test::PretendedWindows::PretendedWindows(DWORD major, DWORD minor, WORD service_pack) : before_(record) {
  record.dwMajorVersion = major;
  record.dwMinorVersion = minor;
  record.wServicePackMajor = service_pack;
}
test::PretendedWindows::~PretendedWindows() { record = before_; }

}  // namespace crv
