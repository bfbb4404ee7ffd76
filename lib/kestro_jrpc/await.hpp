// How long the library waits for the answer to a method, and how it knows a notification.
#ifndef KESTRO_JRPC_AWAIT_HPP
#define KESTRO_JRPC_AWAIT_HPP

#include <jansson.h>

#include <cstdint>

namespace kestro {

// Receive attempts for the response of a method; with the usual receive time-out of a second each, seconds.
int32_t attempts_for_method(const char* method) noexcept;

// Whether a text is a notification by the name of its method. Returns 0 with the parsed object, a new reference; or,
// with `*out` untouched, -1 when it is not, -20 for a null argument.
int32_t kestro_jrpc_eval_notification(const char* method, const char* notification, json_t** out) noexcept;

}  // namespace kestro

#endif
