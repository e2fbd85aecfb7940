// Reading the installer's settings file beside Boost's INI reader and the system's, at three sizes; then how the module's time grows
// with the size, and the most memory that each reader takes.
#include <windows.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "bench.h"
#include "settings_readers.h"

namespace crv::bench {
namespace {

using Clock = std::chrono::steady_clock;

struct Size {
  const char* name;
  std::size_t bytes;
  int rounds;
};
constexpr Size kSizes[] = {{"1 KB", 1 << 10, 200}, {"1 MB", 1 << 20, 15}, {"64 MB", 64 << 20, 1}};

// A file of about that size: sections of a thousand keys, the wanted one last.
std::wstring WriteFile(std::size_t bytes) {
  wchar_t folder[MAX_PATH] = {};
  GetTempPathW(MAX_PATH, folder);
  const std::wstring path = folder + (L"bench " + std::to_wstring(GetCurrentProcessId()) + L".ini");
  std::string text;
  text.reserve(bytes + 64);
  for (int i = 0; text.size() + 64 < bytes; ++i) {
    if (i % 1000 == 0) text += "[Section" + std::to_string(i / 1000) + "]\r\n";
    text += "Key" + std::to_string(i) + "=C:\\Program Files\\" + std::to_string(i) + "\r\n";
  }
  text += "[Common]\r\nNewDirectoryName=last\r\n";
  std::ofstream(path.c_str(), std::ios::binary) << text;
  return path;
}

void Require(const std::wstring& name) {
  if (name == L"last") return;
  std::fprintf(stderr, "a settings reader found '%ls'\n", name.c_str());
  std::exit(1);
}

double MillisecondsOfModule(const std::wstring& path, int rounds) {
  double least = 1e9;
  for (int i = 0; i < rounds; ++i) {
    const auto start = Clock::now();
    Require(ReadWithModule(path));
    least = std::min(least, std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  }
  return least;
}

// In MB, from a process of its own; -1 when it could not be told.
int MostMemory(const wchar_t* reader, const std::wstring& path) {
  wchar_t program[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  std::wstring command_line = std::wstring(program);
  command_line =
      L"\"" + command_line.substr(0, command_line.rfind(L'\\')) + L"\\settings_memory.exe\" " + reader + L" \"" + path + L"\"";
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(nullptr, command_line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started)) return -1;
  WaitForSingleObject(started.hProcess, INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(started.hProcess, &code);
  CloseHandle(started.hThread);
  CloseHandle(started.hProcess);
  return static_cast<int>(code);
}

}  // namespace

void SettingsRows() {
  double megabyte = 0;
  for (const Size& size : kSizes) {
    const std::wstring path = WriteFile(size.bytes);
    char name[80];
    std::snprintf(name, sizeof(name), "settings file of %s / Boost's property tree", size.name);
    PrintRow(
        name, size.rounds, [&] { Require(ReadWithModule(path)); }, [&] { Require(ReadWithBoost(path)); });
    std::snprintf(name, sizeof(name), "settings file of %s / GetPrivateProfileStringW", size.name);
    PrintRow(
        name, size.rounds, [&] { Require(ReadWithModule(path)); }, [&] { Require(ReadWithSystem(path)); });
    if (size.bytes == 1 << 20) megabyte = MillisecondsOfModule(path, 10);
    if (size.bytes == 64 << 20) {
      std::printf(
          "  64 MB take the module %.1f times as long as 1 MB; most memory at 64 MB: module %d MB, Boost %d MB, system %d MB\n",
          MillisecondsOfModule(path, 2) / megabyte, MostMemory(L"module", path), MostMemory(L"boost", path),
          MostMemory(L"system", path));
      std::fflush(stdout);
    }
    DeleteFileW(path.c_str());
  }
}

}  // namespace crv::bench
