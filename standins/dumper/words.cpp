// The suite's external dumper: its runs, how it goes wrong, and the minidumps in the log folder.
#include <windows.h>

#include <algorithm>

#include "shared/area.h"
#include "shared/console.h"
#include "shared/places.h"
#include "shared/words.h"
#include "dumper/control.h"

namespace crv::standins {
namespace {

std::vector<std::wstring> Dumps() {
  std::vector<std::wstring> dumps;
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW((LogFolder() + L"\\*.mdmp").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return dumps;
  do {
    dumps.push_back(LogFolder() + L"\\" + found.cFileName);
  } while (FindNextFileW(search, &found));
  FindClose(search);
  return dumps;
}

Table Rows() {
  const DumperBehaviour behaviour = ReadDumperBehaviour();
  Table rows = {{L"Dumper", L""}, {L"told to", behaviour.what + L", and to end with " + std::to_wstring(behaviour.exit_code)}};
  for (const std::wstring& run : DumperRuns()) rows.push_back({L"run", run});
  for (const std::wstring& dump : Dumps()) rows.push_back({L"dump", dump});
  return rows;
}

void Clear() {
  ClearDumper();
  for (const std::wstring& dump : Dumps()) DeleteFileW(dump.c_str());
}

void TellDumper(const Words& words) {
  const auto* const known = std::find(std::begin(kDumperBehaviours), std::end(kDumperBehaviours), words[0]);
  if (known == std::end(kDumperBehaviours)) throw UsageError{L"the dumper cannot be told '" + words[0] + L"'"};
  ScriptDumper({words[0], words.size() > 1 ? NumberFrom(words[1]) : 0});
}

}  // namespace

const Area& DumperArea() {
  static const Area area = {
      .commands = {{L"dumper", L"write | exit | hang | crash [CODE]",
                    L"what cvDump32.exe does when a dump is asked for, and its exit code", 1, 2, &TellDumper}},
      .table = &Rows,
      .clear = &Clear,
  };
  return area;
}

}  // namespace crv::standins
