// The subscription to an event of a module. It knows the connection only weakly: an event that ended before it does no harm. The
// handler may be connected, called and disconnected on different threads; a call that has begun is not waited for.
#pragma once

#include <boost/signals2/connection.hpp>

#include "mi/module_base.h"

namespace crv::mi {

class EventConnection : public Exportable<IEventConnection> {
 public:
  explicit EventConnection(boost::signals2::connection connection) : connection_(connection) {}
  ~EventConnection() override;

  void Disconnect() noexcept override;

 private:
  boost::signals2::connection connection_;
};

}  // namespace crv::mi
