// A wsc.dll that appends the received command line to wsc.log and answers the number behind "/result:". With "/roll" the log is
// first renamed, as the log library does with a full one.
#include <windows.h>
#include <shlobj.h>

#include <cwchar>
#include <string>

extern "C" DWORD __stdcall run(const wchar_t* command_line) {
  wchar_t common[MAX_PATH] = {};
  SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, common);
  const std::wstring path = std::wstring(common) + L"\\CORVID Software\\Corvid\\log\\wsc.log";
  const auto append = [&](const char* text, int size) {
    const HANDLE file = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_ALWAYS, 0, nullptr);
    DWORD written = 0;
    WriteFile(file, text, static_cast<DWORD>(size), &written, nullptr);
    CloseHandle(file);
  };
  if (std::wcsstr(command_line, L"/roll")) {
    append("last of the full log\r\n", 22);
    MoveFileExW(path.c_str(), (path + L".old").c_str(), MOVEFILE_REPLACE_EXISTING);
  }
  char line[1024];
  const int size = WideCharToMultiByte(CP_UTF8, 0, command_line, -1, line, sizeof(line) - 2, nullptr, nullptr) - 1;
  append(line, size);
  append("\r\n", 2);
  const wchar_t* const result = std::wcsstr(command_line, L"/result:");
  return result ? std::wcstoul(result + 8, nullptr, 0) : 0;
}
