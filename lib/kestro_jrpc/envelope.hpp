// The frame of a message on the bus: channel, "|", JSON text.
#ifndef KESTRO_JRPC_ENVELOPE_HPP
#define KESTRO_JRPC_ENVELOPE_HPP

#include <jansson.h>

#include <cstdint>

#include "core/owned.hpp"

namespace kestro {

// Both return new texts, to be released with free(), or null for a null argument or when memory runs out.

// The frame that carries a JSON text on a channel.
char* kestro_jrpc_add_channel(const char* channel, const char* json) noexcept;

// The channel of the service that a method belongs to.
char* kestro_jrpc_router_extract_channel(const char* method) noexcept;

// The same channel, not to be released.
const char* service_channel(const char* method) noexcept;

// The two halves of kestro_jrpc_parse_channel(), for who needs the object as well: the object of a text, or null, and the
// channel in it, with the statuses of the whole. Both tell of failures as the whole does.
Json parse_addressed(const char* json) noexcept;
int32_t channel_of(const json_t* root, char** channel) noexcept;

}  // namespace kestro

#endif
