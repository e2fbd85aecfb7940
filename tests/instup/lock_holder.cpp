// lock_holder FILE READY: locks a byte behind the file's end exclusively, creates READY, waits at most 20 seconds until somebody
// deletes READY, writes the file anew and unlocks it.
#include <windows.h>
#include <shellapi.h>

int main() {
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  if (count != 3) return 87;
  const HANDLE file = CreateFileW(words[1], GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  OVERLAPPED at = {};
  at.Offset = 100'000;
  if (!LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &at)) return 1;
  CloseHandle(CreateFileW(words[2], GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  for (int i = 0; i < 2000 && GetFileAttributesW(words[2]) != INVALID_FILE_ATTRIBUTES; ++i) Sleep(10);
  constexpr char kText[] = "[Common]\nNewDirectoryName=rewritten\n";
  DWORD written = 0;
  WriteFile(file, kText, sizeof(kText) - 1, &written, nullptr);
  SetEndOfFile(file);
  UnlockFileEx(file, 0, 1, 0, &at);
  CloseHandle(file);
  return 0;
}
