// One run of the module's "av" mode without an action: "guarded" through the export, "bare" the same steps without the crash guard.
#include <cstring>

#include "base/command_line.h"
#include "base/log.h"
#include "entry/com_apartment.h"
#include "entry/log_folder.h"
#include "entry/modes.h"
#include "entry/run.h"

namespace {

using namespace crv;

std::uint32_t RunBare(const wchar_t* text) {
  static const log::Tag tag("wsc");
  const wsc::ComApartment com;
  log::OpenLogFile(wsc::LogFile());
  log::Info(tag, "wsc started: '%ls'", text);
  CommandLine command_line;
  command_line.parse(text);
  wsc::RunAvMode(command_line);
  return 0;
}

}  // namespace

int main(int count, char** words) {
  constexpr const wchar_t* kRequest = L"host /av";
  return static_cast<int>(count > 1 && std::strcmp(words[1], "bare") == 0 ? RunBare(kRequest) : run(kRequest));
}
