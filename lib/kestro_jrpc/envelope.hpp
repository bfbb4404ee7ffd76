// The frame of a message on the bus: channel, "|", JSON text.
#ifndef KESTRO_JRPC_ENVELOPE_HPP
#define KESTRO_JRPC_ENVELOPE_HPP

namespace kestro {

// Both return new texts, to be released with free(), or null for a null argument or when memory runs out.

// The frame that carries a JSON text on a channel.
char* kestro_jrpc_add_channel(const char* channel, const char* json) noexcept;

// The channel of the service that a method belongs to.
char* kestro_jrpc_router_extract_channel(const char* method) noexcept;

}  // namespace kestro

#endif
