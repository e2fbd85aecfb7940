// Listens for Windows Security Center's change notifications and turns each burst of them into one call of the virtual `changed`,
// made on a thread of its own once the notifications have stopped for a settle delay. A base class: it does nothing with a
// change.
//
// Three kinds of thread meet here: the owner's, which constructs, stops and destroys; those of Security Center's client library,
// which notify; and the worker, of which there is at most one. A subclass that owns what its `changed` uses has to call `stop`
// first in its destructor, else `changed` may meet what is released already.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "root/scoped_handle.h"

namespace crv::wsc {

class watcher {
 public:
  // Registers for changes; `delay` is in seconds. Throws `crv::exceptions::error` with the last error and "cannot load
  // wscapi.dll" or "GetProcAddress (%s)", or with the library's HRESULT and "WscRegisterForChanges"; nothing is left behind then.
  explicit watcher(std::int64_t delay);

  // Stops, then frees the library.
  virtual ~watcher();

  watcher(const watcher&) = delete;
  watcher& operator=(const watcher&) = delete;

  // Ends the notifications and waits for a worker that is on its way, without a time limit: it still reaches its deadline and
  // calls `changed`. Once this has returned `changed` is not called again. A second call does nothing. Owner's thread only.
  void stop();

 protected:
  // Called on the worker thread once per settled burst, with the mutex held: has to return quickly, must neither start nor stop
  // the watcher and must not throw (an exception that leaves a thread ends the process).
  virtual void changed();

 private:
  using RegisterFunction = HRESULT WINAPI(void* reserved, HANDLE* registration, LPTHREAD_START_ROUTINE callback, void* context);
  using UnregisterFunction = HRESULT WINAPI(HANDLE registration);

  // The library's callback; the context is the watcher. Returns 0.
  static DWORD WINAPI on_security_center_change(void* context);
  void notify();

  // What the worker thread runs.
  void worker();

  HANDLE registration_ = nullptr;
  std::int64_t delay_;         // seconds
  std::int64_t deadline_ = 0;  // when the worker may call `changed`: system time in 100-ns ticks, 0 until the first notification
  std::mutex mutex_;           // guards deadline_ and worker_; held while `changed` runs, never while sleeping or in the library
  std::unique_ptr<std::thread> worker_;  // there from a notification to the end of the call of `changed` that answers it
  root::ScopedModule library_;
  RegisterFunction* register_ = nullptr;
  UnregisterFunction* unregister_ = nullptr;  // null once stopped
};

}  // namespace crv::wsc
