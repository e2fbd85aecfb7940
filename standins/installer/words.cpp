// The suite's installer: its runs, and how each operation goes.
#include "installer/control.h"

#include "shared/area.h"
#include "shared/console.h"
#include "shared/words.h"

namespace crv::standins {
namespace {

Table Rows() {
  Table rows = {{L"Runs of the installer"}};
  for (const std::wstring& run : InstallerRuns()) rows.push_back({run});
  return rows;
}

void TellInstaller(const Words& words) {
  bool known = false;
  for (const wchar_t* const operation : kInstallerOperations) known = known || words[0] == operation;
  if (!known) throw UsageError{L"the installer knows update_setup, update_vps_and_program and repair, not '" + words[0] + L"'"};
  const std::wstring& behaviour = words[1];
  const bool takes_word = behaviour == L"exit" || behaviour == L"takes" || behaviour == L"moves-to";
  if (words.size() != (takes_word ? 3u : 2u))
    throw UsageError{L"'" + behaviour + (takes_word ? L"' takes one word" : L"' takes nothing")};
  InstallerBehaviour told = ReadInstallerBehaviour(words[0]);
  if (behaviour == L"exit") {
    told.exit_code = NumberFrom(words[2]);
  } else if (behaviour == L"takes") {
    told.duration = NumberFrom(words[2]);
  } else if (behaviour == L"moves-to") {
    told.new_directory = words[2];
  } else if (behaviour == L"leaves-reboot") {
    told.leave_reboot = true;
  } else if (behaviour == L"removes-settings") {
    told.remove_settings = true;
  } else {
    throw UsageError{L"the installer cannot be told '" + behaviour + L"'"};
  }
  ScriptInstaller(words[0], told);
}

}  // namespace

const Area& InstallerArea() {
  static const Area area = {
      .commands = {{L"installer", L"OPERATION exit CODE | takes MS | moves-to FOLDER | leaves-reboot | removes-settings",
                    L"how a run of instup.exe goes; OPERATION is update_setup, update_vps_and_program or repair", 2, 3,
                    &TellInstaller}},
      .table = &Rows,
      .clear = &ClearInstaller,
  };
  return area;
}

}  // namespace crv::standins
