// What living with the system costs: the readiness check, the trusted start, one WMI update, and the change watcher.
#include <windows.h>

#include <comdef.h>
#include <psapi.h>
#include <tlhelp32.h>
#include <winsvc.h>
#include <winternl.h>

#include <atomic>
#include <cstdio>

#include "bench.h"
#include "root/process.h"
#include "root/self_protection.h"
#include "support/captured_log.h"
#include "wsc/legacy_wmi.h"
#include "wsc/security_center_service.h"
#include "wsc/watcher.h"
#include "wsc/wscapi_patch.h"

namespace crv::bench {
namespace {

// One QueryServiceStatus of wscsvc with the handles that it needs.
void QueryBare() {
  const SC_HANDLE manager = OpenSCManagerW(nullptr, SERVICES_ACTIVE_DATABASEW, SC_MANAGER_CONNECT);
  const SC_HANDLE service = OpenServiceW(manager, L"wscsvc", SERVICE_QUERY_STATUS);
  SERVICE_STATUS status = {};
  if (!QueryServiceStatus(service, &status) || status.dwCurrentState != SERVICE_RUNNING) {
    std::fprintf(stderr, "wscsvc does not run: error %lu, state %lu\n", GetLastError(), status.dwCurrentState);
    std::exit(1);
  }
  CloseServiceHandle(service);
  CloseServiceHandle(manager);
}

void Require(HRESULT result) {
  if (SUCCEEDED(result)) return;
  std::fprintf(stderr, "a bare WMI call failed: 0x%08lx\n", result);
  std::exit(1);
}

void Put(IWbemClassObject* instance, const wchar_t* name, _variant_t value) { Require(instance->Put(name, 0, &value, 0)); }

// The COM calls of one firewall update through WMI.
void UpdateFirewallBare() {
  IWbemLocator* locator = nullptr;
  Require(
      CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator, reinterpret_cast<void**>(&locator)));
  IWbemServices* services = nullptr;
  Require(locator->ConnectServer(_bstr_t(L"root\\SecurityCenter2").GetBSTR(), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                 &services));
  locator->Release();
  IWbemClassObject* wmi_class = nullptr;
  Require(services->GetObject(_bstr_t(L"FirewallProduct").GetBSTR(), 0, nullptr, &wmi_class, nullptr));
  IWbemClassObject* instance = nullptr;
  Require(wmi_class->SpawnInstance(0, &instance));
  Put(instance, L"instanceGuid", L"{5e2b8c14-a7d3-4f09-9c61-3b8e0f4d7a25}");
  Put(instance, L"displayName", L"Corvid Antivirus");
  Put(instance, L"companyName", L"CORVID Software");
  Put(instance, L"versionNumber", L"1.0.0.0");
  Put(instance, L"enabled", true);
  Require(services->PutInstance(instance, 0, nullptr, nullptr));
  instance->Release();
  wmi_class->Release();
  services->Release();
}

class CountingWatcher : public wsc::watcher {
 public:
  CountingWatcher() : watcher(0) {}
  ~CountingWatcher() override { stop(); }
  std::atomic<unsigned> calls{0};

 private:
  void changed() override { ++calls; }
};

unsigned ThreadCount() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof(entry);
  unsigned count = 0;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    count += entry.th32OwnerProcessID == GetCurrentProcessId();
  }
  CloseHandle(snapshot);
  return count;
}

unsigned long PrivateKilobytes() {
  PROCESS_MEMORY_COUNTERS counters = {};
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
  return static_cast<unsigned long>(counters.PagefileUsage / 1024);
}

DWORD WINAPI SetFlag(void* flag) {
  *static_cast<std::atomic<bool>*>(flag) = true;
  return 0;
}

void Notifications(test::WscapiPatch& library, CountingWatcher& watcher) {
  PrintRow(
      "notification to the end of `changed`, delay 0 / starting a thread", 200,
      [&] {
        const unsigned before = watcher.calls;
        library.Notify();
        while (watcher.calls == before) SwitchToThread();
      },
      [] {
        std::atomic<bool> ran{false};
        const HANDLE thread = CreateThread(nullptr, 0, &SetFlag, &ran, 0, nullptr);
        while (!ran) SwitchToThread();
        WaitForSingleObject(thread, INFINITE);
        CloseHandle(thread);
      });
  constexpr int kNotifications = 1'000'000;
  const unsigned threads = ThreadCount();
  const unsigned long memory = PrivateKilobytes();
  for (int i = 0; i < kNotifications; ++i) library.Notify();
  std::printf("%d notifications: %u calls of `changed`; threads %u before, %u after; memory %lu KB before, %lu KB after\n",
              kNotifications, watcher.calls.load(), threads, ThreadCount(), memory, PrivateKilobytes());
}

}  // namespace

void SystemRows() {
  test::CapturedLog log;
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  PrintRow("readiness check of a running wscsvc / one QueryServiceStatus", 100, &wsc::sc::ensure_running, &QueryBare);
  PrintRow(
      "trusted-start check without a driver / NtQueryInformationProcess", 1000,
      [] { static_cast<void>(root::IsTrustedProcess(root::GetParentProcessId())); },
      [] {
        PROCESS_BASIC_INFORMATION information;
        NtQueryInformationProcess(GetCurrentProcess(), ProcessBasicInformation, &information, sizeof(information), nullptr);
      });
  PrintRow(
      "one firewall update through WMI / the bare calls", 50,
      [] { wsc::update_xp(wsc::kFirewallClass, wsc::ProductState::on, wsc::SignatureStatus::up_to_date); }, &UpdateFirewallBare);
  {
    test::WscapiPatch library;
    CountingWatcher watcher;
    Notifications(library, watcher);
  }
  CoUninitialize();
}

}  // namespace crv::bench
