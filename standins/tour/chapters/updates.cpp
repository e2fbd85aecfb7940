// The update that Security Center asks for: two runs of the suite's installer.
#include "tour/chapters/lines.h"

namespace crv::standins::tour {
namespace {

const Lines kUpdating = {"info wsc: Updating AV."};

std::string Run(const std::string& folder, const std::string& arguments, const std::string& result = "0x00000000") {
  return "\"{suite}\\setup" + folder + "\\instup.exe\"" + arguments + " = " + result;
}

constexpr char kSetup[] = " /instop:update_setup /wait";
constexpr char kProgram[] = " /instop:update_vps_and_program /wait";

}  // namespace

std::vector<Chapter> UpdateChapters() {
  return {
      {"update",
       "Update in two runs of the installer",
       "The first run brings a new installer, the second one is made by it.",
       "win10",
       {{.request = "/av /update", .log = kUpdating, .leaves = {Run("", kSetup), Run("\\New_1", kProgram)}},
        {.says =
             "the first one moves the new installer to New_2 and the second one leaves a restart due; /upgrade is only logged",
         .before = {"installer update_setup moves-to New_2", "installer update_vps_and_program leaves-reboot"},
         .request = "/av /update /upgrade",
         .log = Joined(kUpdating, Lines{"info wsc: Upgrading AV."}),
         .leaves = {"current | New_2 | yes", Run("", kSetup), Run("\\New_2", kProgram)}},
        {.request = "/av /upgrade", .log = {"info wsc: Upgrading AV."}},
        {.says = "the protection is enabled first",
         .before = {"providers stopped"},
         .request = "/av /update /enable",
         .log = Joined(Lines{"info wsc: wsc starting providers"}, kUpdating),
         .calls = {"CavmStart(localhost, 0, 0)", "CavmGetProviderInfoList(null, 0)", "CavmProviderStart(Shield 1)", "CavmStop()"},
         .leaves = {"Shield 1 | running", Run("", kSetup), Run("\\New_2", kProgram)}}}},

      {"update-fails",
       "An update that fails",
       "The code of the run that failed is the result; there is none behind it.",
       "win10",
       {{.before = {"installer update_vps_and_program exit 0x80070643"},
         .request = "/av /update",
         .result = 0x80070643,
         .log = Joined(kUpdating, logs::Failed("setup run failed", "0x80070643")),
         .leaves = {Run("", kSetup), Run("\\New_1", kProgram, "0x80070643")}},
        {.before = {"installer update_setup exit 3"},
         .request = "/av /update /upgrade",
         .result = 3,
         .log = Joined(kUpdating, logs::Failed("setup run failed", "0x00000003")),
         .leaves = {Run("", kSetup, "0x00000003")}},
        {.says = "no installation is registered: there is nothing to run",
         .before = {"installation none"},
         .request = "/av /update",
         .result = 0xffffffff,
         .log = Joined(kUpdating, logs::Failed("update program failed", "0xffffffff"))}}},

      {"repair",
       "The installer's settings are gone",
       "A run without arguments repairs them first.",
       "win10",
       {{.before = {"settings-away"},
         .request = "/av /update",
         .log = kUpdating,
         .leaves = {"current | New | no", Run("", ""), Run("", kSetup), Run("\\New", kProgram)}}}},
  };
}

}  // namespace crv::standins::tour
