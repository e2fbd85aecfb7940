// The system's services wscsvc and WinDefend, and any other that a person wants corvid_service.exe to run.
#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <map>

#include "base/exceptions.h"
#include "shared/area.h"
#include "shared/console.h"
#include "shared/places.h"
#include "shared/words.h"
#include "service/control.h"

namespace crv::standins {
namespace {

constexpr DWORD kSettled = 2'000;  // ms that a service on its way to another state is waited for

std::wstring ServiceProgram() { return Beside(kServiceProgram); }

// Ours as they stand stay so: installing again must not start what a person stopped. One of the system's own makes room.
void Install() {
  for (const wchar_t* const name : kSystemServices) {
    const std::optional<ServiceStatus> service = FindService(name);
    const bool ours = service && service->program.find(ServiceProgram()) != std::wstring::npos;
    InstallService(name, ServiceProgram(), ours ? service->start_type : SERVICE_AUTO_START);
    if (service && !ours) StopForSure(name);
    if (!ours) MakeServiceHealthy(name);
    PrintLine(std::wstring(L"the service ") + name + L" is there");
  }
}

void Uninstall() {
  for (const wchar_t* const name : kSystemServices) {
    RemoveService(name);
    PrintLine(std::wstring(L"the service ") + name + L" is taken back");
  }
}

void Clear() {
  for (const wchar_t* const name : kSystemServices) {
    if (!FindService(name)) InstallService(name, ServiceProgram(), SERVICE_AUTO_START);
    MakeServiceHealthy(name);
  }
}

std::wstring WordFor(DWORD number, const std::map<DWORD, const wchar_t*>& words) {
  const auto found = words.find(number);
  return found == words.end() ? std::to_wstring(number) : found->second;
}

std::wstring Describe(const ServiceBehaviour& behaviour) {
  std::wstring text;
  if (behaviour.start == kStartSlow) text = L"starts in " + std::to_wstring(behaviour.start_delay) + L" ms";
  if (behaviour.start == kStartHang) text = L"hangs at start";
  if (behaviour.start == kStartRefuse) text = L"ends at start with " + std::to_wstring(behaviour.start_error);
  if (behaviour.start == kStartDie) text = L"dies at start";
  if (behaviour.refuse_stop) text += (text.empty() ? L"" : L", ") + std::wstring(L"refuses to stop");
  if (behaviour.stop_delay)
    text += (text.empty() ? L"" : L", ") + (L"stops in " + std::to_wstring(behaviour.stop_delay) + L" ms");
  return text.empty() ? L"normal" : text;
}

// What a service that is told to do nothing special is on its way to, it reaches in a moment: shown is where it arrives.
std::optional<ServiceStatus> Settled(const std::wstring& name) {
  const ServiceBehaviour behaviour = ReadServiceBehaviour(name);
  for (DWORD waited = 0;; waited += 20) {
    const std::optional<ServiceStatus> status = FindService(name);
    const bool moves = status && ((status->state == SERVICE_START_PENDING && behaviour.start == kStartNormal) ||
                                  (status->state == SERVICE_STOP_PENDING && behaviour.stop_delay == 0));
    if (!moves || waited >= kSettled) return status;
    Sleep(20);
  }
}

std::vector<std::wstring> Row(const std::wstring& name) {
  const std::optional<ServiceStatus> status = Settled(name);
  if (!status) return {name, L"(no such service)", kNothing, Describe(ReadServiceBehaviour(name))};
  return {name,
          WordFor(status->state, {{SERVICE_STOPPED, L"stopped"},
                                  {SERVICE_START_PENDING, L"starting"},
                                  {SERVICE_STOP_PENDING, L"stopping"},
                                  {SERVICE_RUNNING, L"running"}}),
          WordFor(status->start_type,
                  {{SERVICE_AUTO_START, L"automatic"}, {SERVICE_DEMAND_START, L"on demand"}, {SERVICE_DISABLED, L"disabled"}}),
          Describe(ReadServiceBehaviour(name))};
}

Table RowsOf(const Words& names) {
  Table rows = {{L"Service", L"State", L"Start type", L"Behaviour"}};
  for (const std::wstring& name : names) rows.push_back(Row(name));
  return rows;
}

Table Rows() { return RowsOf({std::begin(kSystemServices), std::end(kSystemServices)}); }

// These return when the service has arrived, unless it is told to take its time.
void Start(const std::wstring& name) {
  RequestStart(name);
  Settled(name);
}

void Stop(const std::wstring& name) {
  RequestStop(name);
  Settled(name);
}

void EnableAndStart(const std::wstring& name) {
  SetStartType(name, SERVICE_AUTO_START);
  Start(name);
}

// What `service NAME` can be told; `number` is the word behind it, 0 when it takes none.
struct Action {
  const wchar_t* word;
  bool takes_number;
  void (*run)(const std::wstring& name, DWORD number);
};

template <DWORD type>
void SetType(const std::wstring& name, DWORD) {
  SetStartType(name, type);
}

// One trait of the behaviour; the others stay.
template <typename T, T ServiceBehaviour::*Member>
void Change(const std::wstring& name, T value) {
  ServiceBehaviour behaviour = ReadServiceBehaviour(name);
  behaviour.*Member = value;
  Behave(name, behaviour);
}

void ChangeStart(const std::wstring& name, const wchar_t* start, DWORD delay, DWORD error) {
  ServiceBehaviour behaviour = ReadServiceBehaviour(name);
  behaviour.start = start;
  behaviour.start_delay = delay;
  behaviour.start_error = error;
  Behave(name, behaviour);
}

const Action kActions[] = {
    {L"status", false, [](const std::wstring& name, DWORD) { PrintTable(RowsOf({name})); }},
    {L"start", false, [](const std::wstring& name, DWORD) { Start(name); }},
    {L"stop", false, [](const std::wstring& name, DWORD) { Stop(name); }},
    {L"disable", false, &SetType<SERVICE_DISABLED>},
    {L"enable", false, &SetType<SERVICE_AUTO_START>},
    {L"demand", false, &SetType<SERVICE_DEMAND_START>},
    {L"enable-and-start", false, [](const std::wstring& name, DWORD) { EnableAndStart(name); }},
    {L"enable-and-start-after", true,
     [](const std::wstring& name, DWORD delay) {
       RunLater(delay, {L"service", name, L"enable-and-start"});
     }},
    {L"slow", true, [](const std::wstring& name, DWORD delay) { ChangeStart(name, kStartSlow, delay, 0); }},
    {L"hang", false, [](const std::wstring& name, DWORD) { ChangeStart(name, kStartHang, 0, 0); }},
    {L"refuse", true, [](const std::wstring& name, DWORD error) { ChangeStart(name, kStartRefuse, 0, error); }},
    {L"die", false, [](const std::wstring& name, DWORD) { ChangeStart(name, kStartDie, 0, 0); }},
    {L"refuse-stop", false, [](const std::wstring& name, DWORD) { Change<bool, &ServiceBehaviour::refuse_stop>(name, true); }},
    {L"slow-stop", true, &Change<DWORD, &ServiceBehaviour::stop_delay>},
    {L"normal", false, [](const std::wstring& name, DWORD) { Behave(name, {}); }},
    {L"create", false, [](const std::wstring& name, DWORD) { InstallService(name, ServiceProgram(), SERVICE_DEMAND_START); }},
    {L"delete", false, [](const std::wstring& name, DWORD) { RemoveService(name); }},
};

void WorkService(const Words& words) {
  const auto action = std::find_if(std::begin(kActions), std::end(kActions), [&](const Action& a) { return words[1] == a.word; });
  if (action == std::end(kActions)) {
    std::wstring known;
    for (const Action& a : kActions) known += std::wstring(L" ") + a.word + (a.takes_number ? L" N" : L"");
    throw UsageError{L"a service cannot be told '" + words[1] + L"'; it can:" + known};
  }
  if (words.size() != (action->takes_number ? 3u : 2u)) {
    throw UsageError{L"'" + words[1] + (action->takes_number ? L"' takes one number" : L"' takes nothing")};
  }
  action->run(words[0], action->takes_number ? NumberFrom(words[2]) : 0);
}

}  // namespace

const Area& ServiceArea() {
  static const Area area = {
      .commands = {{L"service",
                    L"NAME status | start | stop | disable | enable | demand | slow MS | hang | refuse CODE | die |\r\n"
                    L"      refuse-stop | slow-stop MS | normal | enable-and-start | enable-and-start-after MS | create | delete",
                    L"what a service does and how it behaves; its start-up is automatic after \"enable\"", 2, 3, &WorkService}},
      .install = &Install,
      .uninstall = &Uninstall,
      .table = &Rows,
      .clear = &Clear,
  };
  return area;
}

}  // namespace crv::standins
