// A mutex registered for a bus socket, as threads that share the socket need it.
#ifndef KESTRO_TESTS_FD_LOCK_HPP
#define KESTRO_TESTS_FD_LOCK_HPP

#include <pthread.h>

#include <cstdint>

namespace kestro::test {

// Registrations last as long as the process, and handles are used again: so does the mutex of a handle. In a program that
// registers locks, a wait must hold the one of its socket. The mutex checks errors, so an unlock by a thread that does not
// hold it changes nothing.
class FdLock {
 public:
  explicit FdLock(int32_t handle);
  FdLock(const FdLock&) = delete;
  FdLock& operator=(const FdLock&) = delete;
  // Released, should this thread still hold it.
  ~FdLock();

  [[nodiscard]] pthread_mutex_t* mutex() const { return mutex_; }
  // Taken now, by this thread.
  [[nodiscard]] bool take() const { return pthread_mutex_trylock(mutex_) == 0; }
  // Whether nobody holds it.
  [[nodiscard]] bool is_free() const;

 private:
  pthread_mutex_t* mutex_;
};

}  // namespace kestro::test

#endif
