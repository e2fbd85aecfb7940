// The suite's AV manager: its protection providers.
#include "shared/area.h"
#include "shared/console.h"
#include "shared/words.h"
#include "av_manager/control.h"
#include "shared/registry.h"

namespace crv::standins {
namespace {

constexpr struct {
  DWORD state;
  const wchar_t* word;
} kStates[] = {{0, L"stopped"}, {1, L"running"}, {2, L"suspended"}};

std::wstring WordFor(DWORD state) {
  for (const auto& known : kStates) {
    if (state == known.state) return known.word;
  }
  return L"running (" + std::to_wstring(state) + L")";
}

DWORD StateFrom(const std::wstring& word) {
  for (const auto& known : kStates) {
    if (word == known.word) return known.state;
  }
  return NumberFrom(word);
}

Table Rows() {
  Table rows = {{L"Provider", L"State"}};
  for (const Provider& provider : ReadProviders()) rows.push_back({provider.name, WordFor(provider.state)});
  return rows;
}

// What was told before stays.
void Install() {
  if (!registry::KeyExists(kAvManagerKey)) ClearAvManager();
}

void SetProviders(const Words& words) {
  std::vector<Provider> providers;
  for (const std::wstring& word : words) {
    providers.push_back({L"Shield " + std::to_wstring(providers.size() + 1), StateFrom(word)});
  }
  WriteProviders(providers);
}

}  // namespace

const Area& AvManagerArea() {
  static const Area area = {
      .commands = {{L"providers", L"[running | stopped | suspended | N]...",
                    L"the protection providers of the AV manager, one word or state number for each", 0, kAnyNumber,
                    &SetProviders}},
      .calls = &AvManagerCalls(),
      .install = &Install,
      .table = &Rows,
      .clear = &ClearAvManager,
  };
  return area;
}

}  // namespace crv::standins
