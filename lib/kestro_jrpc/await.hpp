// How long the library waits for the answer to a method.
#ifndef KESTRO_JRPC_AWAIT_HPP
#define KESTRO_JRPC_AWAIT_HPP

#include <cstdint>

namespace kestro {

// Receive attempts for the response of a method; with the usual receive time-out of a second each, seconds.
int32_t attempts_for_method(const char* method) noexcept;

}  // namespace kestro

#endif
