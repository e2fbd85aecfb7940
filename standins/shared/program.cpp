#include "shared/program.h"

#include "base/exceptions.h"
#include "shared/places.h"

namespace crv::standins {
namespace {

constexpr DWORD kKillTakes = 10'000;  // ms at most

root::ScopedFile OpenInherited(const wchar_t* path, DWORD access, DWORD creation) {
  SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
  return root::ScopedFile(CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, creation, 0, nullptr));
}

}  // namespace

std::wstring Program::CommandLine(const wchar_t* file, const std::wstring& arguments) {
  return L"\"" + Beside(file) + L"\" " + arguments;
}

Program::Program(const wchar_t* file, const std::wstring& arguments, Output output) {
  root::ScopedFile nowhere;
  if (output == Output::nowhere) nowhere = OpenInherited(L"NUL", GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING);
  Start(file, arguments, nowhere.get(), nowhere.get());
}

Program::Program(const wchar_t* file, const std::wstring& arguments, const std::wstring& output_file) {
  const root::ScopedFile nowhere = OpenInherited(L"NUL", GENERIC_READ, OPEN_EXISTING);
  const root::ScopedFile output = OpenInherited(output_file.c_str(), GENERIC_WRITE, CREATE_ALWAYS);
  if (!output) throw exceptions::error(GetLastError(), L"cannot write %s", output_file.c_str());
  Start(file, arguments, nowhere.get(), output.get());
}

// Without handles the program has those of this one.
void Program::Start(const wchar_t* file, const std::wstring& arguments, HANDLE input, HANDLE output) {
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);  // the program inherits it
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  if (output) {
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input;
    startup.hStdOutput = startup.hStdError = output;
  }
  std::wstring command_line = CommandLine(file, arguments);
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(Beside(file).c_str(), command_line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                      &started)) {
    throw exceptions::error(GetLastError(), L"cannot start %s", Beside(file).c_str());
  }
  process_.reset(started.hProcess);
  id_ = started.dwProcessId;
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
