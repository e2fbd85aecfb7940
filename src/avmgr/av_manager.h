// The suite's AV manager, the library cavm4h.dll, loaded and started for the length of one action. Used on one thread.
#pragma once

#include <cstdint>

#include "root/scoped_handle.h"

namespace crv::wsc {

// One record of the provider list as the library lays it out. The module reads the state and hands the rest back untouched.
struct ProviderInfo {
  std::uint8_t reserved1[792];
  std::uint32_t state;
  std::uint8_t reserved2[1064];
};
static_assert(sizeof(ProviderInfo) == 1860);

inline constexpr std::uint32_t kProviderStopped = 0;
inline constexpr std::uint32_t kProviderSuspended = 2;  // any value but these two: running

class AvManager {
 public:
  // Loads the library from the suite's program folder and starts the AV manager. Throws `crv::exceptions::error`; the library is
  // then free again and was not asked to stop.
  AvManager();

  // Stops the AV manager, logging a failure at error level, and frees the library. Never throws.
  ~AvManager();

  AvManager(const AvManager&) = delete;
  AvManager& operator=(const AvManager&) = delete;

  // true: resumes every suspended provider and starts every stopped one. false: stops every provider that is not stopped. In list
  // order; the first failure throws `crv::exceptions::error` with the library's status, and what was changed before it stays.
  void set_providers_running(bool running);

 private:
  using Start = std::uint32_t __cdecl(const wchar_t* host, std::uint32_t, std::uint32_t);
  using Stop = std::uint32_t __cdecl();
  using GetProviderInfoList = std::uint32_t __cdecl(ProviderInfo** list, std::uint32_t* count);
  using ProviderCall = std::uint32_t __cdecl(ProviderInfo* provider);

  void Adjust(ProviderInfo& provider, bool running) const;

  root::ScopedModule library_;
  Start* start_ = nullptr;
  Stop* stop_ = nullptr;
  GetProviderInfoList* get_provider_info_list_ = nullptr;
  ProviderCall* provider_resume_ = nullptr;
  ProviderCall* provider_start_ = nullptr;
  ProviderCall* provider_stop_ = nullptr;
};

}  // namespace crv::wsc
