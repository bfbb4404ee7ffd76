// How a status becomes a JSON-RPC error, and back.
#ifndef KESTRO_JRPC_ERROR_CODES_HPP
#define KESTRO_JRPC_ERROR_CODES_HPP

#include <cstddef>
#include <cstdint>

namespace kestro {

namespace jrpc_code {
inline constexpr int32_t unknown_error = -32001;
inline constexpr int32_t timed_out = -32005;
inline constexpr int32_t busy = -32014;
inline constexpr int32_t invalid_request = -32600;
inline constexpr int32_t method_not_found = -32601;
inline constexpr int32_t internal_error = -32603;
}  // namespace jrpc_code

struct kestro_jrpc_error_t {
  int32_t error_code;
  const char* message;
};

struct kestro_jrpc_error_tuple_t {
  int32_t kestro_error_code;
  int32_t jrpc_error_code;
};

inline constexpr size_t err_to_jrpc_err_rows = 60;
inline constexpr size_t jrpc_err_rows = 58 + 1;  // and the row that ends it, code 0

extern const kestro_jrpc_error_tuple_t kestro_err_to_jrpc_err_mapping_tbl[err_to_jrpc_err_rows];
extern const kestro_jrpc_error_t kestro_jrpc_err_mapping_tbl[jrpc_err_rows];

// The message of a JSON-RPC code; "Unknown Error" for a code that is in no row.
char* kestro_jrpc_error_decode(int32_t error_code) noexcept;

// The JSON-RPC code of a failed handler's status; -32001 for a status that is in no row. Logs what it
// converts.
int32_t convert_status_to_jrpc_error(int32_t status) noexcept;

}  // namespace kestro

#endif
