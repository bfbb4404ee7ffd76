// Explanations of a failure for whoever sent the request: objects {"message": text} of at most 99 characters in the
// error-data place of the answer.
#ifndef KESTRO_JRPC_UTILS_ERROR_DATA_HPP
#define KESTRO_JRPC_UTILS_ERROR_DATA_HPP

#include <jansson.h>

#include <cstdint>

#include "kestro_general.h"

namespace kestro {

// "Missing expected parameter: '%s'", unless an explanation stands already. Logged at DEBUG in either case.
//
// Returns 0; -20 when `err_data` is null; -30 when no object can be made.
int32_t kestro_jrpc_utils_generate_error_debug_message_missing_param(json_t** err_data,
                                                                     const char* param_name) noexcept;

// "Parameter '%s' is not of type '%s'.", otherwise the same.
int32_t kestro_jrpc_utils_generate_error_debug_message_incorrect_type(json_t** err_data, const char* param_name,
                                                                      const char* expected_type) noexcept;

// Sets the explanation unless one stands already; not logged. Returns as above.
int32_t offer_error_data(json_t** err_data, const char* message) noexcept;

// Sets the explanation and releases the one that stands; not logged. That one stays when no object can be made. Does
// nothing when `err_data` is null.
void replace_error_data(json_t** err_data, const char* format, ...) noexcept KESTRO_PRINTF(2, 3);

}  // namespace kestro

#endif
