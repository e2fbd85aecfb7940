// One whole request through the installed host beside a bare program that makes the same registry and COM calls and nothing else.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench.h"
#include "programs.h"

namespace crv::bench {
namespace {

void RequireSuccess(const char* what, DWORD code) {
  if (code == 0) return;
  std::fprintf(stderr, "%s ended with 0x%08lx\n", what, code);
  std::exit(1);
}

}  // namespace

void RequestRows() {
  const std::wstring host = SuiteFolder() + L"wsc_proxy.exe";
  const std::wstring bare = OwnFolder() + L"bare_request.exe";
  constexpr const wchar_t* kRequest = L"/svc /update /firewall /state:on";
  RequireSuccess("wsc_proxy.exe", Run(host, kRequest));  // registers, so that all measured runs only update
  PrintRow(
      "wsc_proxy.exe /svc /update /firewall /state:on / bare program", 15,
      [&] { RequireSuccess("wsc_proxy.exe", Run(host, kRequest)); }, [&] { RequireSuccess("bare_request.exe", Run(bare, L"")); });

  const std::wstring bare_enable = OwnFolder() + L"bare_enable.exe";
  constexpr const wchar_t* kEnable = L"/av /enable";
  RequireSuccess("wsc_proxy.exe", Run(host, kEnable));  // afterwards all providers run
  PrintRow(
      "wsc_proxy.exe /av /enable / bare program", 15, [&] { RequireSuccess("wsc_proxy.exe", Run(host, kEnable)); },
      [&] { RequireSuccess("bare_enable.exe", Run(bare_enable, L"")); });
}

}  // namespace crv::bench
