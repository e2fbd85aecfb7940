#include "driver/control.h"

#include "base/exceptions.h"
#include "shared/registry.h"
#include "driver/protocol.h"
#include "root/scoped_handle.h"

namespace crv::standins {
namespace {

constexpr wchar_t kKey[] = CORVID_DRIVER_KEY;
constexpr wchar_t kAnswer[] = CORVID_DRIVER_ANSWER;
constexpr wchar_t kShort[] = CORVID_DRIVER_SHORT;
constexpr wchar_t kStatus[] = CORVID_DRIVER_STATUS;
constexpr wchar_t kQueries[] = CORVID_DRIVER_QUERIES;
constexpr wchar_t kLastProcess[] = CORVID_DRIVER_LAST_PROCESS;
constexpr wchar_t kDumps[] = CORVID_DRIVER_DUMPS;

}  // namespace

DriverBehaviour ReadDriverBehaviour() {
  return {registry::ReadNumber(kKey, kAnswer).value_or(1), registry::ReadNumber(kKey, kShort) == 1u,
          registry::ReadNumber(kKey, kStatus).value_or(0)};
}

void Behave(const DriverBehaviour& behaviour) {
  registry::WriteNumber(kKey, kAnswer, behaviour.answer);
  registry::WriteNumber(kKey, kShort, behaviour.short_answer);
  registry::WriteNumber(kKey, kStatus, behaviour.status);
}

DriverCounts ReadDriverCounts() {
  return {registry::ReadNumber(kKey, kQueries).value_or(0), registry::ReadNumber(kKey, kLastProcess),
          registry::ReadNumber(kKey, kDumps).value_or(0)};
}

void LoadDriver(const std::wstring& file) {
  Behave(ReadDriverBehaviour());  // the key is there, so that the driver can note what it is asked
  InstallDriver(kDriverService, file);
  RequestStart(kDriverService);
  if (!WaitForState(kDriverService, SERVICE_RUNNING)) {
    throw exceptions::error(ERROR_TIMEOUT, L"the driver %s does not load", file.c_str());
  }
}

void RemoveDriver() {
  RemoveService(kDriverService);
  registry::DeleteKey(kKey);
}

}  // namespace crv::standins
