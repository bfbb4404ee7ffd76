/*
 * kestro_jrpc_utils.h - what method handlers read from a request and write into its answer.
 *
 *   int32_t ports_set_vlan(json_t* params, json_t** result, json_t** err_data) {
 *     char port[16];
 *     int32_t vlan = 0;
 *     int32_t status = kestro_jrpc_utils_retrieve_input_port_id(params, err_data, "port", port, sizeof(port), 0, 0, 1, 1);
 *     if (status == 0) status = kestro_jrpc_utils_retrieve_input_vlan_id(params, err_data, "vlan", &vlan);
 *     if (status != 0) return status;
 *     ...
 *
 * Functions that read a member of the request have these arguments in common:
 *
 *   - `params`, the object, borrowed and not changed. Null has no members.
 *   - `err_data`, the error-data object of the answer, {"message": "..."}, which explains a failure to whoever sent the
 *     request in at most 99 characters. `*err_data` is null until a function leaves a new object there, which belongs to
 *     the holder. The first explanation stays, unless a function says that its own replaces it; what is replaced is
 *     released. Null where no explanation is wanted. When memory runs out the explanation is missing, and an earlier one
 *     stays; the status is the same.
 *   - `param_name`, the name of the member, compared exactly.
 *   - Texts are written to a buffer of `length` bytes: they may have `length` - 1 characters.
 *
 * Their common statuses:
 *
 *     0  done
 *    -4  a pointer that is needed is null; the outputs are untouched
 *   -31  the member has another type than is wanted; or a text is too long, which replaces the explanation
 *   -34  the value is not acceptable for its field
 *   -35  there is no such member
 *
 * After any other failure than -4 outputs are empty ("", 0, false, null), unless the function says otherwise; after a
 * text that is too long the buffer holds the part that fits.
 *
 * Failures and their reasons are logged; values are shown at DEBUG and VERBOSE, passwords too. A request must not be
 * changed by another thread while it is read.
 */
#ifndef KESTRO_JRPC_UTILS_H
#define KESTRO_JRPC_UTILS_H

#include <jansson.h>
#include <stdbool.h>
#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/* ---- Typed parameters ---- */

/* A true or false. `*param_output` is the member, borrowed; of another type, too. 0, -4, -31, -35. */
int32_t kestro_jrpc_utils_parse_input_bool(const json_t* params, json_t** err_data, const char* param_name,
                                           json_t** param_output) KESTRO_NOEXCEPT;

/* A true or false, by value. 0, -4, -31, -35. */
int32_t kestro_jrpc_utils_parse_input_bool_val(const json_t* params, json_t** err_data, const char* param_name,
                                               bool* param_output) KESTRO_NOEXCEPT;

/* A string. The whole buffer is zero-filled first. 0, -4, -31, -35. */
int32_t kestro_jrpc_utils_parse_input_string(const json_t* params, json_t** err_data, const char* param_name,
                                             char* param_output, const int32_t length) KESTRO_NOEXCEPT;

/* An integer, of which the lower 32 bits are taken: 4294967297 gives 1. A real such as 7.0 is none. 0, -4, -31, -35. */
int32_t kestro_jrpc_utils_parse_input_integer(const json_t* params, json_t** err_data, const char* param_name,
                                              int32_t* param_output) KESTRO_NOEXCEPT;

/*
 * An array. `*param_output`, which must not be null, is the member, borrowed; of another type, too. 0, -4, -31, -35.
 */
int32_t kestro_jrpc_utils_parse_input_array(const json_t* params, json_t** err_data, const char* param_name,
                                            json_t** param_output) KESTRO_NOEXCEPT;

/*
 * An unsigned number that travels as a string of at most 99 characters, read as strtoull() does with base 0: "16",
 * "0x10", "020". A text that is no number gives what it begins with, or 0. 0, -4, -31, -35.
 */
int32_t kestro_jrpc_utils_parse_input_uint64_t(const json_t* params, json_t** err_data, const char* param_name,
                                               uint64_t* param_output) KESTRO_NOEXCEPT;

/* The same for a real number, read as strtod() does and rounded to a float. 0, -4, -31, -35. */
int32_t kestro_jrpc_utils_parse_input_float(const json_t* params, json_t** err_data, const char* param_name,
                                            float* param_output) KESTRO_NOEXCEPT;

/*
 * A new {"message": errmsg}, for handlers with an explanation of their own. Null when `errmsg` is null or no UTF-8, or
 * when memory runs out.
 */
json_t* kestro_jrpc_utils_simple_error_obj(const char* errmsg) KESTRO_NOEXCEPT;

/*
 * The text of an object or an array, without blanks and in ASCII. Takes the caller's reference to `json`. The caller
 * releases the text with free().
 *
 * Null, after an ERROR line, when `json` is null. A value that cannot be encoded ends the process by kestro_panic; null
 * when the process survives that.
 */
char* kestro_jrpc_utils_dumps_validate(json_t* json) KESTRO_NOEXCEPT;

/* ---- Domain fields ---- */

/* ---- Composite inputs ---- */

/* ---- Encoding results ---- */

/* ---- DHCP services and router values ---- */

KESTRO_END_DECLS

#endif
