#include "root/optional_functions.h"

#include <clocale>

#include "root/os_class.h"
#include "root/proc_address.h"

namespace crv::root {
namespace {

struct State {
  OptionalFunctionTable table;
  CRITICAL_SECTION lock = {};  // made with the first reference on the first stage and never destroyed
};

State& TheState() {
  static State state;
  return state;
}

class TableLock {
 public:
  explicit TableLock(CRITICAL_SECTION& section) : section_(section) { EnterCriticalSection(&section_); }
  ~TableLock() { LeaveCriticalSection(&section_); }
  TableLock(const TableLock&) = delete;
  TableLock& operator=(const TableLock&) = delete;

 private:
  CRITICAL_SECTION& section_;
};

template <typename Function>
void LookUp(HMODULE module, const char* name, Function*& entry) {
  entry = FindFunction<Function>(module, name);
}

void ReadSizes(OptionalFunctionTable& table) {
  SYSTEM_INFO system;
  GetSystemInfo(&system);
  table.page_size = system.dwPageSize;
  table.allocation_granularity = system.dwAllocationGranularity;
  table.highest_application_address = system.lpMaximumApplicationAddress;
  table.processor_count = system.dwNumberOfProcessors;
}

// A compatibility setting can make GetVersionExW report an older system, but not RtlGetVersion.
void ReadVersion(OptionalFunctionTable& table) {
  OSVERSIONINFOEXW reported = {};
  auto* const plain = reinterpret_cast<OSVERSIONINFOW*>(&reported);
  reported.dwOSVersionInfoSize = sizeof(OSVERSIONINFOEXW);
  if (!GetVersionExW(plain)) {
    reported.dwOSVersionInfoSize = sizeof(OSVERSIONINFOW);
    GetVersionExW(plain);
  }
  table.version = reported;

  if (!table.rtl_get_version) {
    LookUp(GetModuleHandleW(L"NTDLL.DLL"), "RtlGetVersion", table.rtl_get_version);
  }
  OSVERSIONINFOEXW true_version = {};
  true_version.dwOSVersionInfoSize = sizeof(true_version);
  if (table.rtl_get_version && table.rtl_get_version(reinterpret_cast<OSVERSIONINFOW*>(&true_version)) == 0) {
    table.version = true_version;
  }
  table.os_class = ComputeOsClass(table.version.dwPlatformId, table.version.dwMajorVersion, table.version.dwMinorVersion,
                                  table.version.dwBuildNumber);
}

void LookUpKernel32(OptionalFunctionTable& table) {
  const HMODULE kernel32 = GetModuleHandleW(L"KERNEL32.DLL");
  if (!kernel32) return;
  LookUp(kernel32, "IsWow64Process", table.is_wow64_process);
  BOOL wow64 = FALSE;
  table.is_wow64 = table.is_wow64_process && table.is_wow64_process(GetCurrentProcess(), &wow64) && wow64;
  table.redirection_switch = nullptr;
  if (table.is_wow64) LookUp(kernel32, "Wow64EnableWow64FsRedirection", table.redirection_switch);
  LookUp(kernel32, "GetLogicalProcessorInformation", table.get_logical_processor_information);
  LookUp(kernel32, "GetTickCount64", table.get_tick_count_64);
  if (table.os_class >= kOsClass8) LookUp(kernel32, "PrefetchVirtualMemory", table.prefetch_virtual_memory);
}

void LookUpNtdll(OptionalFunctionTable& table) {
  table.ntdll = GetModuleHandleW(L"NTDLL.DLL");
  if (!table.ntdll) return;
  LookUp(table.ntdll, "RtlNtStatusToDosError", table.rtl_nt_status_to_dos_error);
  LookUp(table.ntdll, "NtOpenFile", table.nt_open_file);
  LookUp(table.ntdll, "NtReadFile", table.nt_read_file);
  LookUp(table.ntdll, "NtWriteFile", table.nt_write_file);
  LookUp(table.ntdll, "NtQueryInformationFile", table.nt_query_information_file);
  LookUp(table.ntdll, "NtSetInformationFile", table.nt_set_information_file);
  LookUp(table.ntdll, "NtQueryVirtualMemory", table.nt_query_virtual_memory);
  LookUp(table.ntdll, "NtQueryObject", table.nt_query_object);
  LookUp(table.ntdll, "NtQueryVolumeInformationFile", table.nt_query_volume_information_file);
  LookUp(table.ntdll, "NtQueryInformationProcess", table.nt_query_information_process);
  LookUp(table.ntdll, "NtQuerySystemInformation", table.nt_query_system_information);
  LookUp(table.ntdll, "RtlSetThreadErrorMode", table.rtl_set_thread_error_mode);
  if (!table.rtl_get_version) LookUp(table.ntdll, "RtlGetVersion", table.rtl_get_version);
  LookUp(table.ntdll, "NtWow64QueryInformationProcess64", table.nt_wow64_query_information_process_64);
  LookUp(table.ntdll, "NtWow64GetNativeSystemInformation", table.nt_wow64_get_native_system_information);
  LookUp(table.ntdll, "NtWow64QueryVirtualMemory64", table.nt_wow64_query_virtual_memory_64);
  LookUp(table.ntdll, "NtWow64ReadVirtualMemory64", table.nt_wow64_read_virtual_memory_64);
}

}  // namespace

const OptionalFunctionTable& OptionalFunctions() { return TheState().table; }

DWORD OsInfoAcquire() {
  State& state = TheState();
  if (state.table.first_stage_count == 0) {
    // With the spin count this reports a shortage of memory on every system; without it Windows XP raises an exception.
    if (!InitializeCriticalSectionAndSpinCount(&state.lock, 0)) return GetLastError();
    ReadSizes(state.table);
    ReadVersion(state.table);
  }
  ++state.table.first_stage_count;
  return ERROR_SUCCESS;
}

DWORD OptionalTableInit(std::uint32_t flags) {
  State& state = TheState();
  if (state.table.first_stage_count == 0) {
    if (const DWORD result = OsInfoAcquire(); result != ERROR_SUCCESS) return result;
  }
  OptionalFunctionTable& table = state.table;
  const TableLock lock(state.lock);
  if (table.table_count++ > 0) return ERROR_SUCCESS;

  const bool with_side_effects = (flags & kTableWithoutSideEffects) == 0;
  LookUpKernel32(table);
  LookUpNtdll(table);
  if (with_side_effects) {
    table.self_protection_device.reset(CreateFileW(L"\\\\.\\crvSP", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  }
  if (!table.open_security.Build()) {
    OptionalTableRelease();
    return ERROR_NOT_ENOUGH_MEMORY;
  }
  if (with_side_effects) std::setlocale(LC_ALL, "");
  return ERROR_SUCCESS;
}

DWORD OptionalTableRelease() {
  State& state = TheState();
  const TableLock lock(state.lock);
  if (--state.table.table_count == 0) state.table.self_protection_device.reset();
  return ERROR_SUCCESS;
}

SECURITY_ATTRIBUTES* OpenSecurityAttributes() { return TheState().table.open_security.get(); }

FsRedirectionOff::FsRedirectionOff() : switch_(TheState().table.redirection_switch) {
  if (switch_) worked_ = switch_(FALSE);
}

FsRedirectionOff::~FsRedirectionOff() {
  if (!switch_) return;
  const DWORD last_error = GetLastError();
  switch_(worked_);
  SetLastError(last_error);
}

}  // namespace crv::root
