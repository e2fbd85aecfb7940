// Stands for the suite's installer in tests. It notes each run and does what the test wrote down for it, in the folder that the
// environment variable CRV_TEST_INSTALLER names:
//   runs.txt   one line per run, its command line in UTF-8
//   N.txt      what the N-th run does, one step per line, its words between tabs: "write PATH TEXT", "delete PATH", "exit CODE"
#include <windows.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "base/format_message.h"

int main() {
  wchar_t folder[MAX_PATH] = {};
  if (!GetEnvironmentVariableW(L"CRV_TEST_INSTALLER", folder, MAX_PATH)) return 0xBAD;
  const std::wstring runs = std::wstring(folder) + L"\\runs.txt";
  std::ofstream(runs.c_str(), std::ios::app | std::ios::binary) << crv::ToUtf8(GetCommandLineW()) << '\n';
  int number = 0;
  std::ifstream noted(runs.c_str(), std::ios::binary);
  for (std::string line; std::getline(noted, line);) ++number;
  std::ifstream steps((std::wstring(folder) + L"\\" + std::to_wstring(number) + L".txt").c_str(), std::ios::binary);
  for (std::string line; std::getline(steps, line);) {
    std::istringstream words(line);
    std::string step, first, rest;
    std::getline(words, step, '\t');
    std::getline(words, first, '\t');
    std::getline(words, rest, '\t');
    if (step == "write")
      std::ofstream(crv::FromUtf8(first).c_str(), std::ios::binary) << "[Common]\nNewDirectoryName=" << rest << '\n';
    if (step == "delete") DeleteFileW(crv::FromUtf8(first).c_str());
    if (step == "exit") return static_cast<int>(std::strtoul(first.c_str(), nullptr, 0));
  }
  return 0;
}
