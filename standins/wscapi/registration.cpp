#include "wscapi/registration.h"

#include "base/exceptions.h"
#include "security_center/control.h"
#include "service/control.h"

namespace crv::standins {
namespace {

constexpr DWORD kLook = 50;  // ms

// Everything whose change is notified, as one text.
std::wstring CurrentState() {
  const std::optional<ServiceStatus> service = FindService(kCenterService);
  std::wstring state = service ? std::to_wstring(service->state) : L"none";
  const auto append = [&](const std::optional<DWORD>& number) { state += L'\n' + (number ? std::to_wstring(*number) : L"-"); };
  for (const wchar_t* const interface_name : kProductInterfaces) {
    state += L'\n';
    const std::optional<Product> product = ReadProduct(interface_name);
    if (!product) continue;
    state += product->path + L'\n' + product->name;
    append(product->state);
    append(product->signatures_up_to_date);
  }
  return state;
}

DWORD CurrentRequest() {
  const std::optional<NotificationRequest> request = LastNotificationRequest();
  return request ? request->number : 0;
}

}  // namespace

ChangeRegistration::ChangeRegistration(LPTHREAD_START_ROUTINE callback, void* context)
    : callback_(callback),
      context_(context),
      state_(CurrentState()),
      request_(CurrentRequest()),
      listener_(CreateEventW(nullptr, TRUE, FALSE, kListenerEvent)),
      stop_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
  if (!listener_ || !stop_) throw exceptions::error(GetLastError(), "cannot create an event");
  // Suspended, so that its id is known before it calls back.
  thread_.reset(CreateThread(nullptr, 0, &Run, this, CREATE_SUSPENDED, &thread_id_));
  if (!thread_) throw exceptions::error(GetLastError(), "cannot create a thread");
  ResumeThread(thread_.get());
}

ChangeRegistration::~ChangeRegistration() {
  SetEvent(stop_.get());
  WaitForSingleObject(thread_.get(), INFINITE);
}

DWORD WINAPI ChangeRegistration::Run(void* self) {
  static_cast<ChangeRegistration*>(self)->Watch();
  return 0;
}

void ChangeRegistration::Watch() {
  while (!StopsWithin(kLook)) {
    try {
      const std::optional<NotificationRequest> request = LastNotificationRequest();
      if (request && request->number != request_) {
        request_ = request->number;
        CallBack(*request);
      }
      std::wstring state = CurrentState();
      if (state == state_) continue;
      state_ = std::move(state);
      CallBack({0, 1, 0});
    } catch (const exceptions::error&) {
      // A service or key that vanished while it was read: the next look sees what is left.
    }
  }
}

bool ChangeRegistration::StopsWithin(DWORD ms) const { return WaitForSingleObject(stop_.get(), ms) == WAIT_OBJECT_0; }

void ChangeRegistration::CallBack(const NotificationRequest& request) const {
  const DWORD pause = request.count > 1 ? request.duration / (request.count - 1) : 0;
  for (DWORD i = 0; i < request.count && !StopsWithin(i == 0 ? 0 : pause); ++i) callback_(context_);
}

}  // namespace crv::standins
