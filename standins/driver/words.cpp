// The suite's self-protection driver. A healthy machine of these stand-ins has none; then every process counts as trusted.
#include <windows.h>

#include <cstdio>
#include <iterator>

#include "base/exceptions.h"
#include "shared/area.h"
#include "shared/console.h"
#include "shared/places.h"
#include "shared/words.h"
#include "driver/control.h"

namespace crv::standins {
namespace {

std::wstring Describe(const DriverBehaviour& behaviour) {
  wchar_t text[64];
  if (behaviour.status) {
    _snwprintf(text, std::size(text), L"fails with 0x%08x", static_cast<unsigned>(behaviour.status));
  } else if (behaviour.short_answer) {
    return L"2 bytes of 4 (not trusted)";
  } else {
    _snwprintf(text, std::size(text), L"%u (%s)", static_cast<unsigned>(behaviour.answer),
               behaviour.answer ? L"trusted" : L"not trusted");
  }
  return text;
}

Table Rows() {
  const std::optional<ServiceStatus> driver = FindService(kDriverService);
  Table rows = {{L"Self-protection driver", L"Answer", L"Queries", L"Last process", L"Fatal dumps"}};
  if (!driver) {
    rows.push_back({L"(none)", kNothing, kNothing, kNothing, kNothing});
  } else {
    const DriverCounts counts = ReadDriverCounts();
    rows.push_back({driver->state == SERVICE_RUNNING ? L"loaded" : L"not loaded", Describe(ReadDriverBehaviour()),
                    std::to_wstring(counts.queries), counts.last_process ? std::to_wstring(*counts.last_process) : kNothing,
                    std::to_wstring(counts.fatal_dumps)});
  }
  return rows;
}

void WorkDriver(const Words& words) {
  const std::wstring& action = words[0];
  const bool takes_number = action == L"answer" || action == L"fail";
  if (words.size() != (takes_number ? 2u : 1u)) {
    throw UsageError{L"'" + action + (takes_number ? L"' takes one number" : L"' takes nothing")};
  }
  if (action == L"start") return LoadDriver(Beside(kDriverFile));
  if (action == L"stop") return RequestStop(kDriverService);
  if (action == L"remove") return RemoveDriver();
  if (action == L"status") return PrintTable(Rows());
  if (action == L"trust") return Behave(DriverBehaviour{});
  if (action == L"distrust") return Behave(DriverBehaviour{.answer = 0});
  if (action == L"answer") return Behave(DriverBehaviour{.answer = NumberFrom(words[1])});
  if (action == L"short") return Behave(DriverBehaviour{.answer = 0, .short_answer = true});
  if (action == L"fail") return Behave(DriverBehaviour{.status = NumberFrom(words[1])});
  throw UsageError{L"the driver cannot be told '" + action + L"'"};
}

}  // namespace

const Area& DriverArea() {
  static const Area area = {
      .commands = {{L"driver", L"start | stop | remove | status | trust | distrust | answer N | short | fail STATUS",
                    L"loads the self-protection driver or takes it away, and what it answers about a process", 1, 2,
                    &WorkDriver}},
      .uninstall = &RemoveDriver,
      .table = &Rows,
      .clear = &RemoveDriver,
  };
  return area;
}

}  // namespace crv::standins
