// How this module reads, shows and writes JSON-RPC texts.
#ifndef KESTRO_JRPC_JSON_HPP
#define KESTRO_JRPC_JSON_HPP

#include <jansson.h>

#include <cstring>

#include "core/owned.hpp"
#include "core/site.hpp"

namespace kestro {

inline Json parse_json(const char* text, json_error_t* error) noexcept {
  return Json(json_loads(text, JSON_REJECT_DUPLICATES | JSON_DISABLE_EOF_CHECK | JSON_DECODE_ANY, error));
}

// The text of a value; null when memory runs out or the value is none that a text can hold.
Text encode_json(const json_t* value, size_t flags = JSON_COMPACT | JSON_ENSURE_ASCII) noexcept;

inline int length_of(const char* text) noexcept {
  return static_cast<int>(strlen(text));
}

// A text that may be null, as log lines show it.
inline const char* printable(const char* text) noexcept {
  return text != nullptr ? text : "(null)";
}

inline bool is_valid_id(const json_t* id) noexcept {
  return json_is_string(id) || json_is_number(id);
}

inline bool is_version_2(const json_t* jsonrpc) noexcept {
  return json_is_string(jsonrpc) && strcmp(json_string_value(jsonrpc), "2.0") == 0;
}

// Parses a response or notification; a text that is no JSON is told at ERROR.
Json parse_received(const char* text) noexcept;

// Shows a received value at VERBOSE, indented. False when it cannot be encoded; costs nothing at other levels.
bool show_received(Site site, const json_t* value) noexcept;

// The "error" member of a response. `data` is borrowed; without it the member "data" is null.
Json make_error(int32_t code, json_t* data) noexcept;

// Adds the sender's "transaction_id", where there is one, to a response. A failure is told at ERROR.
bool add_transaction_id(json_t* response, json_t* transaction_id) noexcept;

}  // namespace kestro

#endif
