#include "shared/program.h"

#include "base/exceptions.h"
#include "shared/places.h"

namespace crv::standins {
namespace {

constexpr DWORD kKillTakes = 10'000;  // ms at most

}  // namespace

std::wstring Program::CommandLine(const wchar_t* file, const std::wstring& arguments) {
  return L"\"" + Beside(file) + L"\" " + arguments;
}

Program::Program(const wchar_t* file, const std::wstring& arguments, Output output) {
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);  // the program inherits it
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  root::ScopedFile nowhere;
  if (output == Output::nowhere) {
    SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
    nowhere.reset(CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, OPEN_EXISTING,
                              0, nullptr));
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = startup.hStdOutput = startup.hStdError = nowhere.get();
  }
  std::wstring command_line = CommandLine(file, arguments);
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(Beside(file).c_str(), command_line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                      &started)) {
    throw exceptions::error(GetLastError(), L"cannot start %s", Beside(file).c_str());
  }
  process_.reset(started.hProcess);
  CloseHandle(started.hThread);
}

Program::~Program() {
  if (runs()) Kill();
}

std::optional<DWORD> Program::Result(DWORD limit) {
  DWORD result = 0;
  if (WaitForSingleObject(process_.get(), limit) == WAIT_OBJECT_0 && GetExitCodeProcess(process_.get(), &result)) return result;
  Kill();
  return std::nullopt;
}

void Program::Kill() {
  TerminateProcess(process_.get(), ERROR_TIMEOUT);
  WaitForSingleObject(process_.get(), kKillTakes);
}

}  // namespace crv::standins
