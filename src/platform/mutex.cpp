// The thread library takes a mutex's memory at its first lock. The C++ library locks one to throw where there is no memory, answers that
// the lock failed with a throw, and so never ends. The linker leads every call of the image to the function here (--wrap), which has the
// memory taken while the mutex is made: that one as the image is loaded.
#include <pthread.h>

extern "C" {

int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
  if (const int result = __real_pthread_mutex_init(mutex, attributes)) return result;
  const int result = pthread_mutex_lock(mutex);
  return result ? result : pthread_mutex_unlock(mutex);
}

}  // extern "C"
