// The mutexes that daemons registered for the subscribe sockets that their threads share.
#ifndef KESTRO_JRPC_FD_LOCKS_HPP
#define KESTRO_JRPC_FD_LOCKS_HPP

#include <pthread.h>

#include <cstdint>

namespace kestro {

// The mutex of a socket, or null when none is registered.
pthread_mutex_t* find_fd_lock(int32_t fd) noexcept;

// Releases the mutex of a socket, if one is registered.
void unlock_fd(int32_t fd) noexcept;

}  // namespace kestro

#endif
