// wsc_proxy.exe: loads wsc.dll from its own folder, hands it the command line and ends with its result.
#include <windows.h>

#include <cstdio>
#include <string>

namespace {

// Results that the library itself cannot give: failures of the customer facility.
constexpr UINT kNoLibrary = 0xE0570001;
constexpr UINT kNoExport = 0xE0570002;

using Run = DWORD(__stdcall*)(const wchar_t* command_line);

std::wstring LibraryPath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length < path.size()) {
      path.resize(length);
      return path.substr(0, path.rfind(L'\\') + 1) + L"wsc.dll";
    }
    path.resize(path.size() * 2);
  }
}

}  // namespace

int main() {
  const std::wstring path = LibraryPath();
  // The altered search finds the library's own imports beside it, wherever the host was started.
  const HMODULE library = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  if (!library) {
    std::fprintf(stderr, "wsc_proxy: cannot load %ls (error %lu)\n", path.c_str(), GetLastError());
    return static_cast<int>(kNoLibrary);
  }
  const auto run = reinterpret_cast<Run>(reinterpret_cast<void*>(GetProcAddress(library, "_run@4")));
  if (!run) {
    std::fprintf(stderr, "wsc_proxy: %ls has no export _run@4 (error %lu)\n", path.c_str(), GetLastError());
    return static_cast<int>(kNoExport);
  }
  ExitProcess(run(GetCommandLineW()));
}
