#include "av_manager/control.h"

#include <cwchar>

#include "shared/registry.h"

namespace crv::standins {
namespace {

constexpr wchar_t kLock[] = L"Global\\Corvid Stand-ins AV Manager";
constexpr wchar_t kProviders[] = L"Providers";

}  // namespace

std::vector<Provider> ReadProviders() {
  std::vector<Provider> providers;
  for (const std::wstring& line : registry::ReadList(kAvManagerKey, kProviders)) {
    const std::size_t blank = line.find(L' ');
    if (blank == std::wstring::npos) continue;
    providers.push_back({line.substr(blank + 1), static_cast<DWORD>(std::wcstoul(line.c_str(), nullptr, 10))});
  }
  return providers;
}

void WriteProviders(const std::vector<Provider>& providers) {
  std::vector<std::wstring> lines;
  for (const Provider& provider : providers) lines.push_back(std::to_wstring(provider.state) + L" " + provider.name);
  registry::WriteList(kAvManagerKey, kProviders, lines);
}

const ScriptedCalls& AvManagerCalls() {
  static const ScriptedCalls calls(kAvManagerKey, kLock,
                                   {{L"CavmStart"},
                                    {L"CavmStop"},
                                    {L"CavmGetProviderInfoList", true},
                                    {L"CavmProviderResume"},
                                    {L"CavmProviderStart"},
                                    {L"CavmProviderStop"}});
  return calls;
}

void ClearAvManager() {
  const NamedLock lock(kLock);
  registry::DeleteKey(kAvManagerKey);
  WriteProviders({{L"File Shield", 1}, {L"Mail Shield", 1}, {L"Web Shield", 1}});
}

}  // namespace crv::standins
