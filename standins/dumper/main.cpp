// cvDump32.exe, the suite's external dumper: writes a minidump of another process, which waits for it.
//
//   cvDump32 --pid N --exception_ptr HEX --thread_id N --dump_level N --dump_file "PATH" --comment "TEXT"
//
// The exception pointers are an address in the other process, zero for none; level 1 adds the full memory. Ends with 0 when the
// dump was written, 87 when a word is missing, else with the system's code.
#include <windows.h>
#include <dbghelp.h>
#include <shellapi.h>

#include <cwchar>
#include <map>
#include <string>

#include "base/exceptions.h"
#include "dumper/control.h"
#include "root/scoped_handle.h"

using namespace crv;
using namespace crv::standins;

namespace {

constexpr DWORD kHang = 60'000;  // ms
constexpr unsigned kSmall = MiniDumpWithHandleData | MiniDumpWithUnloadedModules | MiniDumpWithIndirectlyReferencedMemory |
                            MiniDumpWithProcessThreadData | MiniDumpWithThreadInfo;
constexpr unsigned kFull = kSmall | MiniDumpWithFullMemory | MiniDumpWithFullMemoryInfo;

class Words {
 public:
  Words() {
    int count = 0;
    wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int i = 1; i + 1 < count; i += 2) values_[words[i]] = words[i + 1];
    LocalFree(words);
  }

  const std::wstring& Text(const wchar_t* name) const {
    const auto found = values_.find(name);
    if (found == values_.end()) throw exceptions::error(ERROR_INVALID_PARAMETER, L"%s is missing", name);
    return found->second;
  }
  DWORD Number(const wchar_t* name, int base) const { return std::wcstoul(Text(name).c_str(), nullptr, base); }

 private:
  std::map<std::wstring, std::wstring> values_;
};

void WriteDump(const Words& words) {
  const DWORD process_id = words.Number(L"--pid", 10);
  const root::ScopedKernelHandle process(OpenProcess(PROCESS_ALL_ACCESS, FALSE, process_id));
  if (!process) throw exceptions::error(GetLastError(), "OpenProcess");
  const std::wstring& path = words.Text(L"--dump_file");
  root::ScopedFile file(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  if (!file) throw exceptions::error(GetLastError(), "CreateFileW");

  auto* const pointers = reinterpret_cast<EXCEPTION_POINTERS*>(static_cast<UINT_PTR>(words.Number(L"--exception_ptr", 16)));
  MINIDUMP_EXCEPTION_INFORMATION exception = {words.Number(L"--thread_id", 10), pointers, TRUE};
  std::wstring comment = words.Text(L"--comment");
  MINIDUMP_USER_STREAM stream = {CommentStreamW, static_cast<ULONG>((comment.size() + 1) * sizeof(wchar_t)), comment.data()};
  MINIDUMP_USER_STREAM_INFORMATION streams = {1, &stream};
  const unsigned type = words.Number(L"--dump_level", 10) == 1 ? kFull : kSmall;
  if (!MiniDumpWriteDump(process.get(), process_id, file.get(), static_cast<MINIDUMP_TYPE>(type), pointers ? &exception : nullptr,
                         &streams, nullptr)) {
    const DWORD error = GetLastError();
    file.reset();
    DeleteFileW(path.c_str());
    throw exceptions::error(error, "MiniDumpWriteDump");
  }
}

}  // namespace

int main() {
  try {
    AddDumperRun(GetCommandLineW());
    const DumperBehaviour behaviour = ReadDumperBehaviour();
    if (behaviour.what == kDumperHangs) Sleep(kHang);
    if (behaviour.what == kDumperCrashes) {
      SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
      RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    }
    if (behaviour.what == kDumperWrites) WriteDump(Words());
    return static_cast<int>(behaviour.exit_code);
  } catch (const exceptions::detail::base& failure) {
    return static_cast<int>(failure.code());
  }
}
