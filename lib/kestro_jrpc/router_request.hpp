// What the router does to a request before it goes onto the bus.
#ifndef KESTRO_JRPC_ROUTER_REQUEST_HPP
#define KESTRO_JRPC_ROUTER_REQUEST_HPP

#include <cstddef>
#include <cstdint>

#include "core/owned.hpp"
#include "core/site.hpp"

namespace kestro {

// A client's request must be shorter than this.
inline constexpr int32_t router_buffer_size = 10'000'000;

// Reads a client's request text: `*request` becomes what is to be published, `*channel` where. Returns 0, or -1, where
// `*channel` may already be set. Both are new texts, to be released with free().
int32_t kestro_jrpc_router_process_msg(const char* message, char** request, char** channel) noexcept;

// The steps of rewriting. Each failure is logged at DEBUG under the name of the calling function.

// Parses a text that must be an object; null otherwise.
Json router_parse(const char* function, const char* text) noexcept;
// The method's name, borrowed; null when there is none.
const char* router_method(const char* function, const json_t* request) noexcept;
// Whether "id" is there and a string or a number.
bool router_check_id(const char* function, const json_t* request) noexcept;
// Replaces "id" by the channel on which the router awaits the answer, and encodes the request.
bool router_replace_id(const char* function, json_t* request) noexcept;
Text router_encode(const char* function, const json_t* request) noexcept;
// Shows a request at VERBOSE; false, at that level, for one that cannot be encoded.
bool router_show(const char* function, const json_t* request) noexcept;

}  // namespace kestro

#endif
