// settings_memory READER FILE: reads the file with one reader and ends with the most memory that the process ever had, in MB.
#include <windows.h>

#include <psapi.h>
#include <shellapi.h>

#include "settings_readers.h"

int main() {
  using namespace crv::bench;
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  if (count != 3) return -1;
  const std::wstring reader = words[1];
  const std::wstring name = reader == L"module"  ? ReadWithModule(words[2])
                            : reader == L"boost" ? ReadWithBoost(words[2])
                                                 : ReadWithSystem(words[2]);
  if (name != L"last") return -2;
  PROCESS_MEMORY_COUNTERS memory = {};
  GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory));
  return static_cast<int>(memory.PeakWorkingSetSize >> 20);
}
