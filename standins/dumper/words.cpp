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

void Show() {
  const DumperBehaviour behaviour = ReadDumperBehaviour();
  PrintTable({{L"Dumper", L"Ends with", L"Runs", L"Dumps in the log folder"},
              {behaviour.what, std::to_wstring(behaviour.exit_code), std::to_wstring(DumperRuns().size()),
               std::to_wstring(Dumps().size())}});
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
      .show = &Show,
      .clear = &Clear,
  };
  return area;
}

}  // namespace crv::standins
