#include "support/fd_lock.hpp"

#include <map>
#include <stdexcept>

#include "kestro_jrpc.h"

namespace kestro::test {

namespace {

pthread_mutex_t* new_checking_mutex() {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  auto* const mutex = new pthread_mutex_t;
  pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return mutex;
}

}  // namespace

FdLock::FdLock(int32_t handle) {
  static auto& registered = *new std::map<int32_t, pthread_mutex_t*>;
  auto& mutex = registered[handle];
  if (mutex == nullptr) {
    mutex = new_checking_mutex();
    if (kestro_jrpc_add_fd_lock(handle, mutex) != 0) throw std::runtime_error("cannot register a lock");
  }
  mutex_ = mutex;
}

FdLock::~FdLock() {
  pthread_mutex_lock(mutex_);  // taken now, or refused because it is held already
  pthread_mutex_unlock(mutex_);
}

bool FdLock::is_free() const {
  if (!take()) return false;
  pthread_mutex_unlock(mutex_);
  return true;
}

}  // namespace kestro::test
