#include "avmgr/av_manager.h"

#include <cstddef>
#include <string>

#include "base/exceptions.h"
#include "base/log.h"
#include "instup/folders.h"
#include "root/proc_address.h"

namespace crv::wsc {
namespace {

const log::Tag tag("wsc");

constexpr wchar_t kLocalHost[] = L"localhost";

static_assert(offsetof(ProviderInfo, state) == 792);

// A non-zero status of the library becomes an error of that code.
void Check(std::uint32_t status, const char* step) {
  if (status != 0) throw exceptions::error(status, "%s", step);
}

}  // namespace

AvManager::AvManager() {
  const std::wstring path = instup::GetProgramFolder() + L"\\cavm4h.dll";
  library_.reset(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
  if (!library_) throw exceptions::error("cannot load %ls", path.c_str());
  start_ = root::GetProcAddressOrThrow<Start>(library_.get(), "CavmStart");
  stop_ = root::GetProcAddressOrThrow<Stop>(library_.get(), "CavmStop");
  get_provider_info_list_ = root::GetProcAddressOrThrow<GetProviderInfoList>(library_.get(), "CavmGetProviderInfoList");
  provider_resume_ = root::GetProcAddressOrThrow<ProviderCall>(library_.get(), "CavmProviderResume");
  provider_start_ = root::GetProcAddressOrThrow<ProviderCall>(library_.get(), "CavmProviderStart");
  provider_stop_ = root::GetProcAddressOrThrow<ProviderCall>(library_.get(), "CavmProviderStop");
  Check(start_(kLocalHost, 0, 0), "CavmStart failed");
}

AvManager::~AvManager() {
  const std::uint32_t status = stop_();
  if (status == 0) return;
  try {
    log::Error(tag, L"cavmstop failed %d", status);
  } catch (...) {  // a log library that fails must not end the process here
  }
}

void AvManager::set_providers_running(bool running) {
  ProviderInfo* list = nullptr;
  std::uint32_t count = 0;
  Check(get_provider_info_list_(&list, &count), "provider info failes");
  if (!list) throw exceptions::error("no providers returned");
  const root::ScopedProcessHeapBlock list_owner(list);
  for (std::uint32_t i = 0; i < count; ++i) Adjust(list[i], running);
}

void AvManager::Adjust(ProviderInfo& provider, bool running) const {
  if (!running) {
    if (provider.state != kProviderStopped) Check(provider_stop_(&provider), "provider stop");
  } else if (provider.state == kProviderSuspended) {
    Check(provider_resume_(&provider), "provider resume");
  } else if (provider.state == kProviderStopped) {
    Check(provider_start_(&provider), "provider start");
  }
}

}  // namespace crv::wsc
