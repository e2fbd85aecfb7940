// What the common OS library knows about the system that it runs on: the class of Windows, functions that only some versions
// have, whether WOW64 is below, and the security attributes for folders that everybody uses.
//
// The table comes in two stages, each with a count of its own; the first is never given back. Calls of OptionalTableInit and
// OptionalTableRelease may race with each other, but OsInfoAcquire, and the first OptionalTableInit if it comes before, are for
// one thread at a time: they make the table's lock. Entries are written only while the table is being initialised and are read
// without the lock afterwards; they outlive the release, except for the device handle. A missing function leaves its entry null,
// which is never an error.
#pragma once

#include <windows.h>

#include <cstdint>
#include <utility>

#include "root/everyone_security.h"
#include "root/scoped_handle.h"

namespace crv::root {

// The flag of OptionalTableInit: neither opens the self-protection device nor sets the C runtime's locale.
inline constexpr std::uint32_t kTableWithoutSideEffects = 0x1;

using IsWow64ProcessFunction = BOOL WINAPI(HANDLE process, BOOL* wow64);
using FsRedirectionSwitch = BOOLEAN WINAPI(BOOLEAN enable);
using RtlGetVersionFunction = LONG WINAPI(OSVERSIONINFOW* version);

struct OptionalFunctionTable {
  std::int32_t first_stage_count = 0;  // references taken by OsInfoAcquire
  std::int32_t table_count = 0;        // references taken by OptionalTableInit

  // The first stage.
  DWORD page_size = 0;               // bytes
  DWORD allocation_granularity = 0;  // bytes
  void* highest_application_address = nullptr;
  DWORD processor_count = 0;
  OSVERSIONINFOEXW version = {};
  int os_class = 0;  // see os_class.h
  RtlGetVersionFunction* rtl_get_version = nullptr;

  // The table.
  bool is_wow64 = false;                              // a 32-bit process on 64-bit Windows
  FsRedirectionSwitch* redirection_switch = nullptr;  // Wow64EnableWow64FsRedirection; null when not under WOW64
  IsWow64ProcessFunction* is_wow64_process = nullptr;
  HMODULE ntdll = nullptr;
  ScopedFile self_protection_device;  // closed by the release
  EveryoneSecurity open_security;

  // Kept for the library's other users; whoever calls one casts it to its documented type.
  FARPROC get_logical_processor_information = nullptr;
  FARPROC get_tick_count_64 = nullptr;
  FARPROC prefetch_virtual_memory = nullptr;  // looked up from Windows 8 on
  FARPROC rtl_nt_status_to_dos_error = nullptr;
  FARPROC nt_open_file = nullptr;
  FARPROC nt_read_file = nullptr;
  FARPROC nt_write_file = nullptr;
  FARPROC nt_query_information_file = nullptr;
  FARPROC nt_set_information_file = nullptr;
  FARPROC nt_query_virtual_memory = nullptr;
  FARPROC nt_query_object = nullptr;
  FARPROC nt_query_volume_information_file = nullptr;
  FARPROC nt_query_information_process = nullptr;
  FARPROC nt_query_system_information = nullptr;
  FARPROC rtl_set_thread_error_mode = nullptr;
  FARPROC nt_wow64_query_information_process_64 = nullptr;
  FARPROC nt_wow64_get_native_system_information = nullptr;
  FARPROC nt_wow64_query_virtual_memory_64 = nullptr;
  FARPROC nt_wow64_read_virtual_memory_64 = nullptr;
};

// The process-wide table.
const OptionalFunctionTable& OptionalFunctions();

// Takes a reference on the first stage: the first one reads the system's version and sizes. Returns 0, or the code with which
// the table's lock could not be made; then no reference is taken.
[[nodiscard]] DWORD OsInfoAcquire();

// Takes a reference on the table: the first one fills it, and takes a reference on the first stage if there is none. `flags` is
// 0 or kTableWithoutSideEffects. Returns 0, the code of OsInfoAcquire, or ERROR_NOT_ENOUGH_MEMORY (8); after a failure no
// reference on the table is held.
[[nodiscard]] DWORD OptionalTableInit(std::uint32_t flags);

// Gives a reference on the table back; the last one closes the self-protection device. Needs an OptionalTableInit that
// succeeded. Returns 0.
DWORD OptionalTableRelease();

// For CreateDirectoryW: everyone may do anything with the folder. Null until the table has been initialised once, which gives a
// folder the default security. The table keeps ownership.
SECURITY_ATTRIBUTES* OpenSecurityAttributes();

// Switches the WOW64 file-system redirection of the calling thread off for the length of a scope, if the table has the switch. The
// switch does not tell the state before, only whether it worked: the scope ends with the redirection on, as every thread starts.
// Do not nest: the inner scope's end switches it on for the rest of the outer one. The end keeps the thread's last error.
class FsRedirectionOff {
 public:
  FsRedirectionOff();
  ~FsRedirectionOff();
  FsRedirectionOff(const FsRedirectionOff&) = delete;
  FsRedirectionOff& operator=(const FsRedirectionOff&) = delete;

 private:
  FsRedirectionSwitch* const switch_;
  BOOLEAN worked_ = FALSE;
};

// Runs the call with the redirection switched off and returns what it returns. Keep the call short: loading a library inside it
// looks in the wrong system folder.
template <typename Call>
decltype(auto) WithoutFsRedirection(Call&& call) {
  const FsRedirectionOff off;
  return std::forward<Call>(call)();
}

}  // namespace crv::root
