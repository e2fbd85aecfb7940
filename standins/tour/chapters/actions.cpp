// What Security Center asks of the suite: enable, disable, start the firewall. The restart with an administrator's rights is not
// shown: under Wine every program has them.
#include "tour/chapters/lines.h"

namespace crv::standins::tour {
namespace {

const Lines kStarting = {"info wsc: wsc starting providers"};
const Lines kManagerStarts = {"CavmStart(localhost, 0, 0)", "CavmGetProviderInfoList(null, 0)"};
const Lines kManagerStops = {"CavmStop()"};

Lines Manager(const Lines& between) { return Joined(kManagerStarts, between, kManagerStops); }

}  // namespace

std::vector<Chapter> ActionChapters() {
  return {
      {"enable",
       "Enable",
       "A stopped provider is started, a suspended one resumed, a running one left alone; the AV manager is stopped again.",
       "win10",
       {{.before = {"providers stopped suspended running"},
         .request = "/av /enable",
         .log = kStarting,
         .calls = Manager({"CavmProviderStart(Shield 1)", "CavmProviderResume(Shield 2)"}),
         .leaves = {"Shield 1 | running", "Shield 2 | running"}},
        {.says = "once more: all run already", .request = "/av /enable", .log = kStarting, .calls = Manager({})},
        {.says = "enabling counts before disabling", .request = "/av /disable /enable", .log = kStarting, .calls = Manager({})},
        {.request = "/as /disable /enable", .log = kStarting, .calls = Manager({})},
        {.before = {"providers running suspended stopped"},
         .request = "/as /enable",
         .log = kStarting,
         .calls = Manager({"CavmProviderResume(Shield 2)", "CavmProviderStart(Shield 3)"}),
         .leaves = {"Shield 2 | running", "Shield 3 | running"}},
        {.says = "any other state counts as running",
         .before = {"providers 7"},
         .request = "/as /enable",
         .log = kStarting,
         .calls = Manager({})},
        {.says = "there are none", .before = {"providers"}, .request = "/av /enable", .log = kStarting, .calls = Manager({})}}},

      {"manager-fails",
       "The AV manager fails",
       "Its status is the result; it is stopped again, and what already runs goes on running.",
       "win10",
       {{.before = {"providers stopped stopped stopped", "script CavmProviderStart ok 0x0000001f"},
         .request = "/av /enable",
         .result = 31,
         .log = Joined(kStarting, logs::Failed("provider start", "0x0000001f")),
         .calls = Manager({"CavmProviderStart(Shield 1)", "CavmProviderStart(Shield 2) = 0x0000001f"}),
         .leaves = {"Shield 1 | running"}},
        {.before = {"script CavmStart 0x80070422"},
         .request = "/av /enable",
         .result = 0x80070422,
         .log = logs::Failed("CavmStart failed", "0x80070422"),
         .calls = {"CavmStart(localhost, 0, 0) = 0x80070422"}},
        {.before = {"script CavmGetProviderInfoList null"},
         .request = "/as /enable",
         .result = 0xffffffff,
         .log = Joined(kStarting, logs::Failed("no providers returned", "0xffffffff")),
         .calls = Manager({})},
        {.says = "it refuses to stop: that is logged, and the request succeeded",
         .before = {"providers suspended", "script CavmStop 0x00000005"},
         .request = "/as /enable",
         .log = Joined(kStarting, Lines{"error wsc: cavmstop failed 5"}),
         .calls = Joined(kManagerStarts, Lines{"CavmProviderResume(Shield 1)", "CavmStop() = 0x00000005"}),
         .leaves = {"Shield 1 | running"}}}},

      {"disable",
       "Disable",
       "The suite refuses to be switched off; an update asked for in the same breath never begins.",
       "win10",
       {{.request = "/av /disable", .result = 0xffffffff, .log = logs::Failed("wsc disable refused", "0xffffffff")},
        {.request = "/as /disable", .result = 0xffffffff, .log = logs::Failed("wsc disable refused", "0xffffffff")},
        {.request = "/av /disable /update", .result = 0xffffffff, .log = logs::Failed("wsc disable refused", "0xffffffff")}}},

      {"firewall",
       "The firewall is started",
       "When it cannot start, its status is the result.",
       "win10",
       {{.request = "/fw /enable",
         .log = {"info wsc: Starting FW."},
         .calls = {"crvGetFirewall(0)", "Firewall.Start(0)", "crvFreeFirewall(0)"},
         .leaves = {"the suite's | on"}},
        {.before = {"script Firewall.Start 0x80070005"},
         .request = "/fw /enable",
         .result = 0x80070005,
         .log = Joined(Lines{"info wsc: Starting FW."}, logs::Failed("start firewall error", "0x80070005")),
         .calls = {"crvGetFirewall(0)", "Firewall.Start(0) = 0x80070005", "crvFreeFirewall(0)"}},
        {.before = {"script crvGetFirewall 0x80070422"},
         .request = "/fw /enable",
         .result = 0x80070422,
         .log = Joined(Lines{"info wsc: Starting FW."}, logs::Failed("cannot get firewall", "0x80070422")),
         .calls = {"crvGetFirewall(0) = 0x80070422"}}}},

      {"libraries",
       "A suite without its libraries",
       "The log names the one that is missing.",
       "win10",
       {{.before = {"library cavm4h.dll away"},
         .request = "/av /enable",
         .result = 0xffffffff,
         .log = logs::Failed("cannot load {suite}\\cavm4h.dll", "0xffffffff")},
        {.request = "/as /enable", .result = 0xffffffff, .log = logs::Failed("cannot load {suite}\\cavm4h.dll", "0xffffffff")},
        {.before = {"library crvData.dll away"},
         .request = "/fw /enable",
         .result = 0xffffffff,
         .log = Joined(Lines{"info wsc: Starting FW."}, logs::Failed("cannot load crvData.dll", "0xffffffff"))}}},
  };
}

}  // namespace crv::standins::tour
