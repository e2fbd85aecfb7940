#include "sweep/scenarios.h"

namespace crv::sweep {
namespace {

#define ALL_PRODUCTS L" /antivirus /antispyware /firewall"
#define UPDATE L" /state:on /signatures:up_to_date"

constexpr wchar_t kRegisterAll[] = L"run host /svc /register" ALL_PRODUCTS;
constexpr wchar_t kUpdateAll[] = L"run host /svc /update" ALL_PRODUCTS UPDATE;

constexpr DWORD kNoCode = 0xFFFFFFFF;
constexpr DWORD kAccessViolation = 0xC0000005;

}  // namespace

const std::vector<Scenario>& Scenarios() {
  static const std::vector<Scenario> scenarios = {
      {.name = "register", .windows = L"win10", .request = {L"host /svc /register" ALL_PRODUCTS}},
      {.name = "unregister", .windows = L"win10", .stage = {kRegisterAll}, .request = {L"host /svc /unregister" ALL_PRODUCTS}},
      {.name = "update", .windows = L"win10", .stage = {kUpdateAll}, .request = {L"host /svc /update" ALL_PRODUCTS UPDATE}},
      {.name = "update, new", .windows = L"win10", .request = {L"host /svc /update /antivirus /firewall" UPDATE}},
      {.name = "update, forgotten",
       .windows = L"win10",
       .stage = {kUpdateAll, L"script IWscAVStatus.UpdateStatus 0x80070002"},
       .request = {L"host /svc /update /antivirus" UPDATE}},
      {.name = "update, service stopped",
       .windows = L"win10",
       .stage = {kUpdateAll, L"service wscsvc demand", L"service wscsvc stop"},
       .request = {L"host /svc /update /firewall /state:on"}},
      {.name = "update, service disabled",
       .windows = L"win10",
       .stage = {kUpdateAll, L"service wscsvc disable", L"service wscsvc stop"},
       .each = {L"service wscsvc enable-and-start-after 300"},
       .request = {L"host /svc /update /firewall /state:on"}},
      {.name = "enable",
       .windows = L"win10",
       .stage = {L"providers stopped suspended running"},
       .request = {L"host /av /enable"}},
      {.name = "disable", .windows = L"win10", .request = {L"host /av /disable"}, .result = kNoCode},
      {.name = "disable, elevated",
       .windows = L"win10",
       .request = {.command_line = L"host /as /disable", .pretend_ordinary = true},
       .result = kNoCode},
      {.name = "run the installer", .windows = L"win10", .request = {L"host /av /update"}},
      {.name = "repair and run the installer",
       .windows = L"win10",
       .stage = {L"settings-away"},
       .request = {L"host /av /update /upgrade"}},
      {.name = "start the firewall", .windows = L"win10", .request = {L"host /fw /enable"}},
      {.name = "nothing asked for", .windows = L"win10", .request = {L"host /as"}, .result = kNoCode, .first = Phase::load},
      {.name = "XP, nothing asked for", .windows = L"winxp", .request = {L"host /as"}, .result = kNoCode, .first = Phase::load},
      {.name = "no command, dumped", .windows = L"win10", .request = {L"host"}, .result = 87, .dumps = 1},
      {.name = "crash, dumper",
       .windows = L"win10",
       .request = {.command_line = L"host /av /upgrade", .after = After::crash},
       .result = kAccessViolation,
       .dumps = 1,
       .first = Phase::after},
      {.name = "crash, in the process",
       .windows = L"win10",
       .stage = {L"dumper exit 3"},
       .request = {.command_line = L"host /av /upgrade", .after = After::crash},
       .result = kAccessViolation,
       .dumps = 1,
       .first = Phase::after},
      {.name = "crash, guarded in part",
       .windows = L"win10",
       .stage = {L"dumper exit 3"},
       .request = {.command_line = L"host /av /upgrade", .after = After::crash},
       .result = kAccessViolation,
       .dumps = 1,
       .first = Phase::guard,
       .last = Phase::guard},
      {.name = "7, register", .windows = L"win7", .request = {L"host /svc /register" ALL_PRODUCTS}},
      {.name = "7, update", .windows = L"win7", .stage = {kRegisterAll}, .request = {L"host /svc /update /antivirus" UPDATE}},
      {.name = "7, unregister", .windows = L"win7", .stage = {kUpdateAll}, .request = {L"host /svc /unregister /antivirus"}},
      {.name = "XP, register", .windows = L"winxp", .request = {L"host /svc /register" ALL_PRODUCTS}},
      {.name = "XP, update", .windows = L"winxp", .stage = {kRegisterAll}, .request = {L"host /svc /update /antivirus" UPDATE}},
      {.name = "XP, unregister", .windows = L"winxp", .stage = {kRegisterAll}, .request = {L"host /svc /unregister /antivirus"}},
      {.name = "with a driver",
       .windows = L"win10",
       .stage = {L"driver start", kRegisterAll},
       .request = {L"host /svc /unregister /firewall"},
       .first = Phase::load},
  };
  return scenarios;
}

}  // namespace crv::sweep
