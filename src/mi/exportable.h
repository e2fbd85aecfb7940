// The interfaces of the suite's module framework. A module is an object that is reached only through an abstract interface, as a
// shared pointer; the subscriptions to its events are exported objects of their own. Everything exported keeps count of itself in
// module_counts.h, so that a host can learn whether the library is still in use.
//
// The order of the virtual operations and the virtual bases are part of the binary interface. Counts may be changed from any
// thread; what else an interface allows is said there.
#pragma once

#include <cstdint>

namespace crv::mi {

class IExportable {
 public:
  virtual ~IExportable() = default;

  virtual std::uint32_t InterfaceVersion() const noexcept = 0;  // 1

  // One more and one less in the process-wide count of the object's kind: modules count as modules, all else as exported objects.
  virtual void LockModule() noexcept = 0;
  virtual void UnlockModule() noexcept = 0;
};

class IModule : public virtual IExportable {};

// One subscription to an event. It ends with the object, or before that with Disconnect.
class IEventConnection : public virtual IExportable {
 public:
  virtual void Disconnect() noexcept = 0;  // the handler is not called any more; repeating it does nothing
};

}  // namespace crv::mi
