#include "mi/event_connection.h"

namespace crv::mi {

EventConnection::~EventConnection() { EventConnection::Disconnect(); }

void EventConnection::Disconnect() noexcept {
  try {
    connection_.disconnect();
  } catch (...) {
    // Only a mutex that the system refuses can fail here; the handler then stays connected until its event ends.
  }
}

}  // namespace crv::mi
