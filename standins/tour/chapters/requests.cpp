// Requests that cannot be served, and a log library that fails.
#include "tour/chapters/lines.h"

namespace crv::standins::tour {
namespace {

// A request that is refused as a fatal error, which is dumped where it is thrown.
Step Refused(const std::string& request, DWORD code, const std::string& text, const std::string& stopped = "") {
  return {.request = request,
          .result = code,
          .log = Joined(logs::Dumped("e06d7363"), logs::Failed(text, code == 87 ? "0x00000057" : "0x000000a0")),
          .leaves = DumpedOutside(kThrown),
          .dumps = {{kThrow, kThrown, stopped}}};
}

}  // namespace

std::vector<Chapter> RequestChapters() {
  return {
      {"wrong",
       "Wrong requests",
       "Each is refused with its code, 87 or 160, and one line that names what is wrong; a minidump shows the moment of the "
       "throw.",
       "win10",
       {Refused("", 87, "run: \"{host}\" ", "crv::wsc::Dispatch at run.cpp:[0-9]+"),
        Refused("/update /antivirus /state:on /signatures:up_to_date", 87,
                "run: \"{host}\" /update /antivirus /state:on /signatures:up_to_date"),
        Refused("svc update antivirus", 87, "run: \"{host}\" svc update antivirus"),
        Refused("/svc", 160, "bad action", "crv::wsc::SelectAction at svc_mode.cpp:[0-9]+"),
        Refused("/svc /restart /antivirus", 160, "bad action"),
        Refused("/svc /update", 160, "no product specified", "crv::wsc::SelectProducts at svc_mode.cpp:[0-9]+"),
        Refused("/svc /update /state:on /signatures:up_to_date", 160, "no product specified"),
        Refused("/svc /update /antivirus /state:ON /signatures:up_to_date", 160, "to_prod_state ON",
                "to_prod_state at product_state.cpp:[0-9]+"),
        Refused("/svc /update /antivirus /state:on /signatures:yesterday", 160, "to_signature_status yesterday",
                "to_signature_status at product_state.cpp:[0-9]+"),
        {.says = "what a mode does not know is no fatal error: there is no dump",
         .request = "/fw /disable",
         .result = 0xffffffff,
         .log = logs::Failed("unsupported cmdline options: \"{host}\" /disable /fw", "0xffffffff")},
        {.request = "/as",
         .result = 0xffffffff,
         .log = logs::Failed("unsupported cmdline options: \"{host}\" /as", "0xffffffff")},
        {.says = "the anti-virus mode without an action does nothing", .request = "/av"}}},

      {"log-library",
       "A log library that fails",
       "It may refuse or throw: the request is served or ends with 31, and nothing is left half done.",
       "win10",
       {{.says = "it hands out no logger",
         .before = {"log no-logger"},
         .request = "/svc /register /firewall",
         .frame = Frame::none,
         .calls = asks::Register(kFw),
         .leaves = {"firewall | Corvid Antivirus | - | - | {host}", "IWscFWStatus | Corvid Antivirus"}},
        {.says = "its exception meets the barrier of the module, before Security Center is asked",
         .before = {"log throw open"},
         .request = "/svc /unregister /firewall",
         .result = 31,
         .frame = Frame::none},
        {.before = {"log throw all"}, .request = "/svc /unregister /firewall", .result = 31, .frame = Frame::none},
        {.before = {"log normal"},
         .request = "/svc /unregister /firewall",
         .log = logs::Unregister(kFw),
         .calls = asks::Unregister(kFw),
         .leaves = {"firewall | (not registered)"}}}},
  };
}

}  // namespace crv::standins::tour
