#ifndef KESTRO_JRPC_EVALUATE_HPP
#define KESTRO_JRPC_EVALUATE_HPP

#include <jansson.h>

#include <cstdint>

#include "kestro_jrpc.h"

namespace kestro {

// Evaluates one request text against a method table.
//
// Returns 0 with the text of the response or error object in `*response`, to be released with free(); 0 with null for a
// notification that succeeded; -1 when there is nothing to send. `*response` is to be null before the call: for a request
// without "id" that fails it is not written.
int32_t kestro_jrpc_eval_request(char* request, kestro_jrpc_mapping_t* table, char** response) noexcept;

// The same for a request that is parsed already, an object.
int32_t evaluate(const json_t* request, kestro_jrpc_mapping_t* table, char** response) noexcept;

}  // namespace kestro

#endif
