// How a member of a request becomes the checked value of a field.
#ifndef KESTRO_JRPC_UTILS_FIELDS_HPP
#define KESTRO_JRPC_UTILS_FIELDS_HPP

#include <jansson.h>

#include <cstdint>

namespace kestro::jrpc_utils {

// The common arguments of the functions that retrieve a field.
struct Source {
  const json_t* params;
  json_t** err_data;
  const char* name;
};

// The caller's buffer.
struct TextOutput {
  char* text;
  int32_t length;
};

// Reads the member into the buffer. `retrieving` is told before.
int32_t extract(const char* retrieving, const Source& source, TextOutput out) noexcept;

// The end of every text field: a value that was accepted is told with `retrieved`, a refused one is taken out of the
// buffer. Returns the result.
int32_t conclude(int32_t result, const char* retrieved, TextOutput out) noexcept;

// What callers are told of a validator's result; the log knows more.
int32_t as_status(int32_t validator_result) noexcept;

}  // namespace kestro::jrpc_utils

#endif
