// Older versions of Windows, where the products are instances of WMI classes.
#include "tour/chapters/lines.h"

namespace crv::standins::tour {
namespace {

constexpr char kOld[] = "root\\SecurityCenter";
constexpr char kNew[] = "root\\SecurityCenter2";
constexpr char kGuid[] = "{5e2b8c14-a7d3-4f09-9c61-3b8e0f4d7a25}";

// One class: how its product is switched on, and whether it knows signatures.
struct Class {
  std::string name;
  std::string on;
  bool has_signatures;
};
const Class kVirus = {"AntiVirusProduct", "onAccessScanningEnabled", true};
const Class kSpyware = {"AntiSpywareProduct", "productEnabled", true};
const Class kWall = {"FirewallProduct", "enabled", false};

// What WMI is asked for one product that is written.
Lines Put(const std::string& name_space, const Class& product, const std::string& on, const std::string& up_to_date,
          const std::string& answer = "") {
  Lines calls = {"Create()",
                 "ConnectServer(\"" + name_space + "\")",
                 "GetObject(\"" + product.name + "\")",
                 "SpawnInstance(" + product.name + ")",
                 std::string("Put.instanceGuid(\"") + kGuid + "\")",
                 "Put.displayName(\"Corvid Antivirus\")",
                 "Put.companyName(\"CORVID Software\")",
                 "Put.versionNumber(\"{version}\")"};
  if (product.has_signatures) calls.push_back("Put.productUptoDate(" + up_to_date + ")");
  return Joined(calls, Lines{"Put." + product.on + "(" + on + ")", "PutInstance(" + product.name + ")" + answer});
}

Lines Delete(const std::string& name_space, const Class& product, const std::string& answer = "") {
  return {"Create()", "ConnectServer(\"" + name_space + "\")",
          "DeleteInstance(\"" + product.name + ".instanceGuid=\"" + kGuid + "\"\")" + answer};
}

// The properties of an instance, in the order of their names.
Lines Instance(const std::string& name_space, const Class& product, const std::string& on, const std::string& up_to_date) {
  const std::string head = name_space + " | " + product.name + " | ";
  Lines rows = {head + "companyName | \"CORVID Software\"", head + "displayName | \"Corvid Antivirus\""};
  if (product.on == "enabled") rows.push_back(head + "enabled | " + on);
  rows.push_back(head + "instanceGuid | \"" + kGuid + "\"");
  if (product.on == "onAccessScanningEnabled") rows.push_back(head + product.on + " | " + on);
  if (product.on == "productEnabled") rows.push_back(head + product.on + " | " + on);
  if (product.has_signatures) rows.push_back(head + "productUptoDate | " + up_to_date);
  rows.push_back(head + "versionNumber | \"{version}\"");
  return rows;
}

Lines Gone(const std::string& name_space, const Class& product) {
  const std::string head = name_space + " | " + product.name + " | ";
  Lines rows;
  for (const std::string& row : Instance(name_space, product, "", "")) {
    rows.push_back(row.substr(0, row.find(" | ", head.size())) + " | gone");
  }
  return rows;
}

Lines Updating(const Class& product) { return {"info wsc: update_xp " + product.name}; }
Lines Unregistering(const Class& product) { return {"info wsc: unregistration_xp " + product.name}; }

}  // namespace

std::vector<Chapter> LegacyChapters() {
  return {
      {"xp",
       "Windows XP",
       "The products are instances of WMI classes; anti-spyware does not exist there yet.",
       "winxp",
       {{.says = "a service that is stopped and disabled does not matter to it",
         .before = {"service wscsvc stop", "service wscsvc disable"},
         .request = "/svc /update /antivirus /antispyware /firewall /state:on /signatures:up_to_date",
         .log = Joined(Updating(kVirus), Updating(kWall)),
         .calls = Joined(Put(kOld, kVirus, "true", "true"), Put(kOld, kWall, "true", "")),
         .leaves = Joined(Instance(kOld, kVirus, "true", "true"), Instance(kOld, kWall, "true", ""))},
        {.says = "anti-spyware: nothing is done, and that is success", .request = "/svc /register /antispyware"},
        {.request = "/svc /update /antispyware /state:on /signatures:up_to_date"},
        {.request = "/svc /unregister /antispyware"},
        {.says = "off and snoozed are both not on",
         .request = "/svc /update /antivirus /firewall /state:off /signatures:out_of_date",
         .log = Joined(Updating(kVirus), Updating(kWall)),
         .calls = Joined(Put(kOld, kVirus, "false", "false"), Put(kOld, kWall, "false", "")),
         .leaves = {"root\\SecurityCenter | AntiVirusProduct | onAccessScanningEnabled | false",
                    "root\\SecurityCenter | AntiVirusProduct | productUptoDate | false",
                    "root\\SecurityCenter | FirewallProduct | enabled | false"}},
        {.says = "registered is on and up to date",
         .request = "/svc /register /firewall /antivirus",
         .log = Joined(Updating(kVirus), Updating(kWall)),
         .calls = Joined(Put(kOld, kVirus, "true", "true"), Put(kOld, kWall, "true", "")),
         .leaves = {"root\\SecurityCenter | AntiVirusProduct | onAccessScanningEnabled | true",
                    "root\\SecurityCenter | AntiVirusProduct | productUptoDate | true",
                    "root\\SecurityCenter | FirewallProduct | enabled | true"}},
        {.request = "/svc /unregister /antivirus /antispyware /firewall",
         .log = Joined(Unregistering(kVirus), Unregistering(kWall)),
         .calls = Joined(Delete(kOld, kVirus), Delete(kOld, kWall)),
         .leaves = Joined(Gone(kOld, kVirus), Gone(kOld, kWall))},
        {.says = "an instance that is not there",
         .request = "/svc /unregister /antivirus /firewall",
         .result = 0x80041002,
         .log = Joined(Unregistering(kVirus), logs::Failed("wmi DeleteInstance", "0x80041002")),
         .calls = Delete(kOld, kVirus, " = 0x80041002")}},
       Machine::only_32_bit},

      {"vista",
       "Windows Vista without a service pack",
       "WMI as well, in a namespace of its own, and with anti-spyware.",
       "vista",
       {{.request = "/svc /update /antivirus /antispyware /state:snoozed /signatures:out_of_date",
         .log = Joined(Updating(kVirus), Updating(kSpyware)),
         .calls = Joined(Put(kNew, kVirus, "false", "false"), Put(kNew, kSpyware, "false", "false")),
         .leaves = Joined(Instance(kNew, kSpyware, "false", "false"), Instance(kNew, kVirus, "false", "false"))},
        {.request = "/svc /unregister /antivirus",
         .log = Unregistering(kVirus),
         .calls = Delete(kNew, kVirus),
         .leaves = Gone(kNew, kVirus)},
        {.request = "/svc /unregister /antivirus",
         .result = 0x80041002,
         .log = Joined(Unregistering(kVirus), logs::Failed("wmi DeleteInstance", "0x80041002")),
         .calls = Delete(kNew, kVirus, " = 0x80041002")},
        {.says = "WMI refuses the second product: the first one stays, the third one is not asked for",
         .before = {"script PutInstance ok 0x80041003"},
         .request = "/svc /register /antivirus /antispyware /firewall",
         .result = 0x80041003,
         .log = Joined(Updating(kVirus), Updating(kSpyware), logs::Failed("update status PutInstance", "0x80041003")),
         .calls = Joined(Put(kNew, kVirus, "true", "true"), Put(kNew, kSpyware, "true", "true", " = 0x80041003")),
         .leaves = Instance(kNew, kVirus, "true", "true")}}},

      {"vista-sp2",
       "Windows Vista with a service pack",
       "From Service Pack 1 on Security Center takes the products itself.",
       "vistasp2",
       {{.request = "/svc /register /firewall",
         .log = logs::Register(kFw),
         .calls = asks::Register(kFw),
         .leaves = {"firewall | Corvid Antivirus | - | - | {host}", "IWscFWStatus | Corvid Antivirus"}}}},
  };
}

}  // namespace crv::standins::tour
