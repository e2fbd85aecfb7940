// A process that logs. log_writer COUNT [FILE [ROLL_SIZE]]: opens the file, when one is named, in the middle of COUNT records.
#include <windows.h>
#include <shellapi.h>

#include <string>

#include "base/log_library.h"

int main() {
  int words = 0;
  wchar_t** const word = CommandLineToArgvW(GetCommandLineW(), &words);
  const auto module = crv::log::detail::AcquireLogModule();
  const auto logger = module->Logger();
  const int count = words > 1 ? _wtoi(word[1]) : 0;
  for (int i = 0; i < count; ++i) {
    if (i == count / 2 && words > 2) logger->OpenLogFile(word[2], words > 3 ? _wtoi(word[3]) : 0x400000, true);
    logger->LogWideVariadic(crv::log::LogLevel::info, "writer", L"record %d of %lu", i, GetCurrentProcessId());
  }
}
