// The suite's external dumper: its runs, and how it goes wrong.
#include <windows.h>

#include <algorithm>

#include "centre/area.h"
#include "centre/console.h"
#include "centre/places.h"
#include "control/dumper_control.h"

namespace crv::standins::centre {
namespace {

void Show() {
  const DumperBehaviour behaviour = ReadDumperBehaviour();
  const std::vector<std::wstring> runs = DumperRuns();
  if (runs.empty() && behaviour.what == kDumperWrites && behaviour.exit_code == 0) return;
  PrintTable({{L"Dumper", L"Ends with", L"Runs"},
              {behaviour.what, std::to_wstring(behaviour.exit_code), std::to_wstring(runs.size())}});
  for (const std::wstring& run : runs) PrintLine(run);
}

void TellDumper(const Words& words) {
  const auto* const known = std::find(std::begin(kDumperBehaviours), std::end(kDumperBehaviours), words[0]);
  if (known == std::end(kDumperBehaviours)) throw UsageError{L"the dumper cannot be told '" + words[0] + L"'"};
  ScriptDumper({words[0], words.size() > 1 ? NumberFrom(words[1]) : 0});
}

}  // namespace

const Area& DumperArea() {
  static const Area area = {
      .commands = {{L"dumper", L"write | exit | hang | crash [CODE]", L"what cvDump32.exe does when a dump is asked for, and its exit code",
                    1, 2, &TellDumper}},
      .show = &Show,
      .clear = &ClearDumper,
  };
  return area;
}

}  // namespace crv::standins::centre
