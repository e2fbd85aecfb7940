// The thread library's pthread_once, which the C++ library calls for its first std::locale, takes memory without looking whether it
// got any, and makes the calling thread known to the thread library: a thread-local slot and two handles that a freed DLL does not
// give back. The linker leads every call of the image to the function here (--wrap), which needs nothing.
#include <windows.h>

#include <pthread.h>

namespace {

constexpr LONG kNotBegun = PTHREAD_ONCE_INIT;
constexpr LONG kDone = 1;
constexpr LONG kRunning = 2;

// Puts the final state in; what threw has not been done.
struct Run {
  ~Run() { InterlockedExchange(state, end); }

  volatile LONG* state;
  LONG end;
};

}  // namespace

extern "C" int __wrap_pthread_once(pthread_once_t* once, void (*initialize)()) {
  static_assert(sizeof(pthread_once_t) == sizeof(LONG));
  volatile LONG* const state = once;
  for (;;) {
    const LONG before = InterlockedCompareExchange(state, kRunning, kNotBegun);
    if (before == kDone) return 0;
    if (before == kNotBegun) break;
    Sleep(1);
  }
  Run run = {state, kNotBegun};
  initialize();
  run.end = kDone;
  return 0;
}
