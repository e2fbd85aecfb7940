// What only a 64-bit Windows shows: its two views of the registry, with different values planted in them, 64-bit parents of the host,
// and the start without administrator rights. Rows that begin with 32 or 64 are what the system's own 64-bit reg.exe sees.
#include "tour/chapters/lines.h"

namespace crv::standins::tour {
namespace {

constexpr char kStarter[] = "starter64.exe";
const Lines kDefenderOff = {"info wsc: disabling windows defender", "info wsc: windows defender operation succeeded"};
const Lines kDefenderOn = {"info wsc: enabling windows defender", "info wsc: windows defender operation succeeded"};
constexpr char kPolicySet[] = "64 | Policies\\Microsoft\\Windows Defender\\DisableAntiSpyware | 0x1";

std::string Plant(const std::string& view, const std::string& key, const std::string& name, const std::string& data) {
  return "plant " + view + " \"" + key + "\" " + name + " " + data;
}

std::string InCorvid(const std::string& view, const std::string& name, const std::string& text) {
  return Plant(view, "CORVID Software\\Corvid", name, "text \"" + text + "\"");
}

std::string InWsc(const std::string& view, const std::string& name, const std::string& data) {
  return Plant(view, "CORVID Software\\Corvid\\Wsc", name, data);
}

constexpr char kVeto[] = "IReallyWantDefenderOnAndDecreasedPerformanceOnLegacySystems";

std::string InstallerRun(const std::string& folder, const std::string& operation) {
  return "\"{suite}\\setup" + folder + "\\instup.exe\" /instop:" + operation + " /wait = 0x00000000";
}

Lines Started(const std::string& request) {
  return {"info crashguard: CrashGuard global exception handler installed",
          "info crashguard: CrashGuard initialized successfully, external dumping enabled",
          "info wsc: wsc started: '\"{host}\" " + request + "'"};
}

}  // namespace

std::vector<Chapter> Wow64Chapters() {
  const Lines updated = {InstallerRun("", "update_setup"), InstallerRun("\\New_1", "update_vps_and_program")};
  return {
      {"view-names",
       "The recorded names, in two registry views",
       "They are written and read where a 32-bit program does so; what a 64-bit one recorded does not count.",
       "win10",
       {{.says = "only the other view has the name: the product is registered anew",
         .before = {"watch-views", InWsc("64", kAv, "text \"Corvid Antivirus\"")},
         .request = "/svc /update /antivirus /state:on /signatures:up_to_date",
         .log = logs::UpdateAnew(kAv, "0x80070002"),
         .calls = Joined(asks::Unregister(kAv, " = 0x80070002"), asks::Register(kAv), asks::Update(kAv, "0, 1")),
         .leaves = {"32 | CORVID Software\\Corvid\\Wsc\\IWscAVStatus | Corvid Antivirus",
                    "anti-virus | Corvid Antivirus | on | up to date | {host}", "IWscAVStatus | Corvid Antivirus"}},
        {.says = "a wrong one there does not matter",
         .before = {InWsc("64", kAv, "text Somebody"), InWsc("64", kFw, "text Somebody")},
         .request = "/svc /update /antivirus /state:off /signatures:up_to_date",
         .log = logs::Update(kAv),
         .calls = asks::Update(kAv, "1, 1"),
         .leaves = {"anti-virus | Corvid Antivirus | off | up to date | {host}"}},
        {.says = "and stays as it is",
         .request = "/svc /register /firewall",
         .log = logs::Register(kFw),
         .calls = asks::Register(kFw),
         .leaves = {"32 | CORVID Software\\Corvid\\Wsc\\IWscFWStatus | Corvid Antivirus",
                    "firewall | Corvid Antivirus | - | - | {host}", "IWscFWStatus | Corvid Antivirus"}}},
       Machine::only_64_bit},

      {"view-defender",
       "The veto, in two registry views, and the policy, which they share",
       "A veto counts where a 32-bit program reads it.",
       "win7",
       {{.says = "a veto in the other view is none",
         .before = {"watch-views", InWsc("64", kVeto, "number 42")},
         .request = "/svc /update /antispyware /state:on /signatures:up_to_date",
         .log = Joined(logs::UpdateAnew(kAs, "0x80070002"), kDefenderOff),
         .calls = Joined(asks::Unregister(kAs, " = 0x80070002"), asks::Register(kAs), asks::Update(kAs, "0, 1")),
         .leaves = {"32 | CORVID Software\\Corvid\\Wsc\\IWscASStatus | Corvid Antivirus", kPolicySet,
                    "anti-spyware | Corvid Antivirus | on | up to date | {host}", "WinDefend | stopped | automatic | normal",
                    "DisableAntiSpyware | 1", "IWscASStatus | Corvid Antivirus"}},
        {.says = "the policy goes, with what a 64-bit program put below it",
         .before = {"plant 64 \"Policies\\Microsoft\\Windows Defender\\Scan\\Deep\" Level number 3"},
         .request = "/svc /unregister /antispyware",
         .log = Joined(logs::Unregister(kAs), kDefenderOn),
         .calls = asks::Unregister(kAs),
         .leaves = {"64 | Policies\\Microsoft\\Windows Defender\\DisableAntiSpyware | gone",
                    "64 | Policies\\Microsoft\\Windows Defender\\Scan\\Deep\\Level | gone", "anti-spyware | (not registered)",
                    "WinDefend | running | automatic | normal", "DisableAntiSpyware | (no key)"}},
        {.says = "a veto in this view is one, whatever the other one says",
         .before = {"defender-veto 42", InWsc("64", kVeto, "number 41")},
         .request = "/svc /update /antivirus /state:on /signatures:up_to_date",
         .log = logs::UpdateAnew(kAv, "0x80070002"),
         .calls = Joined(asks::Unregister(kAv, " = 0x80070002"), asks::Register(kAv), asks::Update(kAv, "0, 1")),
         .leaves = {"32 | CORVID Software\\Corvid\\Wsc\\IWscAVStatus | Corvid Antivirus",
                    "anti-virus | Corvid Antivirus | on | up to date | {host}", "IWscAVStatus | Corvid Antivirus"}}},
       Machine::only_64_bit},

      {"view-folders",
       "The suite's folders, in two registry views",
       "The module takes them from its own view; only an update asks the other one, when its own has no installation.",
       "win10",
       {{.says = "the AV manager is loaded from the folder of this view",
         .before = {"watch-views", InCorvid("64", "ProgramFolder", "C:\\corvid-views\\nowhere"),
                    InCorvid("64", "DataFolder", "C:\\corvid-views\\nowhere"),
                    InCorvid("64", "SetupFolder", "C:\\corvid-views\\nowhere")},
         .request = "/av /enable",
         .log = {"info wsc: wsc starting providers"},
         .calls = {"CavmStart(localhost, 0, 0)", "CavmGetProviderInfoList(null, 0)", "CavmStop()"}},
        {.says = "the folders of this view are made, those of the other one are not",
         .before = {InCorvid("32", "TempFolder", "C:\\corvid-views\\temp-32"),
                    InCorvid("64", "TempFolder", "C:\\corvid-views\\temp-64"),
                    InCorvid("32", "JournalFolder", "C:\\corvid-views\\journal-32"),
                    InCorvid("64", "JournalFolder", "C:\\corvid-views\\journal-64")},
         .request = "/av",
         .leaves = {"C:\\corvid-views | journal-32", "C:\\corvid-views | temp-32"}},
        {.says = "the installer of this view updates",
         .request = "/av /update",
         .log = {"info wsc: Updating AV."},
         .leaves = updated},
        {.says = "without an installation here that of the other view is updated",
         .before = {"installation none", InCorvid("64", "SetupFolder", "{suite}\\setup")},
         .request = "/av /update",
         .log = {"info wsc: Updating AV."},
         .leaves = updated}},
       Machine::only_64_bit},

      {"parent-64",
       "A 64-bit parent",
       "The driver is asked about the process that started the host, and that one gets the host's whole result.",
       "win11",
       {{.before = {"driver start", "driver distrust"},
         .request = "/svc /register /antivirus",
         .through = kStarter,
         .result = 5,
         .log = logs::Failed("not trusted start, parent pid: {parent}", "0x00000005"),
         .leaves = {"loaded | 0 (not trusted) | 1 | {parent} | 0"}},
        {.before = {"driver trust"},
         .request = "/svc /register /antivirus",
         .through = kStarter,
         .log = logs::Register(kAv),
         .calls = asks::Register(kAv),
         .leaves = {"anti-virus | Corvid Antivirus | - | - | {host}", "loaded | 1 (trusted) | 2 | {parent} | 0",
                    "IWscAVStatus | Corvid Antivirus"}},
        {.says = "a crash",
         .through = kStarter,
         .crash = "during-run",
         .result = 0xc0000005,
         .frame = Frame::none,
         .log = {"info crashguard: CrashGuard global exception handler installed",
                 "info crashguard: CrashGuard initialized successfully, external dumping enabled",
                 "info wsc: wsc started: 'crasher.exe /av /update'", "info wsc: Updating AV.",
                 "warning crashguard: User-initiated crash commencing", "debug crashguard: Entering TopLevelExceptionFilter...",
                 "debug crashguard: Minidump created successfully. Exception code is: c0000005"},
         .leaves = Joined(Lines{"loaded | 1 (trusted) | 2 | * | 1"}, DumpedOutside("")),
         .dumps = {{0xc0000005, "", "crv::crashguard::CrashNow at user_crash.cpp:[0-9]+", "22000"}}}},
       Machine::only_64_bit},

      {"elevated",
       "A host without administrator rights",
       "It is restarted as an administrator: the same program with the same switches. Where that gives no rights, there is no "
       "third one.",
       "win10",
       {{.request = "/av /disable \"/comment:a b\"",
         .through = "starter64.exe /limited",
         .result = 740,
         .frame = Frame::none,
         .log = Joined(Started("/av /disable \"/comment:a b\""), Lines{"info wsc: Restarting wsc_proxy.exe elevated."},
                       Started("/av \"/comment:a b\" /disable"),
                       logs::Failed("restarted wsc_proxy has no administrator rights", "0x000002e4"),
                       Lines{"info crashguard: CrashGuard global exception handler uninstalled"},
                       logs::Failed("elevated wsc_proxy ended with error", "0x000002e4"),
                       Lines{"info crashguard: CrashGuard global exception handler uninstalled"})}},
       Machine::only_64_bit},
  };
}

}  // namespace crv::standins::tour
