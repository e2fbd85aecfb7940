// One whole request through the installed host beside a bare program that makes the same registry and COM calls and nothing else.
#include <windows.h>

#include <shlobj.h>

#include <cstdio>
#include <string>

#include "bench.h"

namespace crv::bench {
namespace {

std::wstring FolderOf(std::wstring path) { return path.substr(0, path.rfind(L'\\')); }

std::wstring ThisProgram() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

std::wstring InstalledHost() {
  wchar_t path[MAX_PATH] = {};
  SHGetFolderPathW(nullptr, CSIDL_PROGRAM_FILES, nullptr, SHGFP_TYPE_CURRENT, path);
  return std::wstring(path) + L"\\CORVID Software\\Corvid\\wsc_proxy.exe";
}

// The program's exit code; a program that cannot be started ends the benchmark.
DWORD Run(const std::wstring& program, const wchar_t* arguments) {
  std::wstring command_line = L"\"" + program + L"\" " + arguments;
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(program.c_str(), command_line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started)) {
    std::fprintf(stderr, "cannot start %ls: error %lu\n", program.c_str(), GetLastError());
    std::exit(1);
  }
  WaitForSingleObject(started.hProcess, INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(started.hProcess, &code);
  CloseHandle(started.hThread);
  CloseHandle(started.hProcess);
  return code;
}

void RequireSuccess(const char* what, DWORD code) {
  if (code == 0) return;
  std::fprintf(stderr, "%s ended with 0x%08lx\n", what, code);
  std::exit(1);
}

}  // namespace

void RequestRows() {
  const std::wstring host = InstalledHost();
  const std::wstring bare = FolderOf(ThisProgram()) + L"\\bare_request.exe";
  constexpr const wchar_t* kRequest = L"/svc /update /firewall /state:on";
  RequireSuccess("wsc_proxy.exe", Run(host, kRequest));  // registers, so that all measured runs only update
  PrintRow(
      "wsc_proxy.exe /svc /update /firewall /state:on / bare program", 15, [&] { RequireSuccess("wsc_proxy.exe", Run(host, kRequest)); },
      [&] { RequireSuccess("bare_request.exe", Run(bare, L"")); });

  const std::wstring bare_enable = FolderOf(ThisProgram()) + L"\\bare_enable.exe";
  constexpr const wchar_t* kEnable = L"/av /enable";
  RequireSuccess("wsc_proxy.exe", Run(host, kEnable));  // afterwards all providers run
  PrintRow(
      "wsc_proxy.exe /av /enable / bare program", 15, [&] { RequireSuccess("wsc_proxy.exe", Run(host, kEnable)); },
      [&] { RequireSuccess("bare_enable.exe", Run(bare_enable, L"")); });
}

}  // namespace crv::bench
