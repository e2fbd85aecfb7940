#include "programs.h"

#include <shlobj.h>

#include <cstdio>
#include <cstdlib>

namespace crv::bench {

std::wstring OwnFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring program(path);
  return program.substr(0, program.rfind(L'\\') + 1);
}

std::wstring SuiteFolder() {
  wchar_t path[MAX_PATH] = {};
  SHGetFolderPathW(nullptr, CSIDL_PROGRAM_FILES, nullptr, SHGFP_TYPE_CURRENT, path);
  return std::wstring(path) + L"\\CORVID Software\\Corvid\\";
}

DWORD Run(const std::wstring& program, const std::wstring& arguments) {
  std::wstring command_line = L"\"" + program + L"\" " + arguments;
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(program.c_str(), command_line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                      &started)) {
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

void Require(bool fine, const char* what) {
  if (fine) return;
  std::fprintf(stderr, "%s failed, last error %lu\n", what, GetLastError());
  std::exit(1);
}

}  // namespace crv::bench
