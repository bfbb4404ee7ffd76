/*
 * kestro_utils.h - identifiers, MAC addresses, shell commands, processes, time and text.
 */
#ifndef KESTRO_UTILS_H
#define KESTRO_UTILS_H

#include <stdbool.h>
#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/* ---- Device identifiers ---- */

/*
 * The common first step of functions that want their pointers valid. The first `num_of_args` variadic
 * arguments must be pointers.
 *
 * Returns 0 when none of them is null. Otherwise logs the index of the first null one, counted from 0, at
 * WARNING and returns -1.
 */
int32_t kestro_check_for_null(int32_t num_of_args, ...) KESTRO_NOEXCEPT;

/*
 * Whether snprintf(), which gave `wbytes`, did not fit its text into `sz` bytes. Both are compared as unsigned
 * numbers, so an output error counts as an overflow. If so, logs both at ERROR and calls print_stacktrace.
 */
bool s_overflow_check(int32_t wbytes, int32_t sz) KESTRO_NOEXCEPT;

/* Called where a failure deserves a stack trace. Empty and weak: a program may define its own. */
void print_stacktrace(void) KESTRO_NOEXCEPT;

/*
 * The text of an enumeration value. `enum_str` of `str_length` bytes is zero-filled and receives the text, cut to
 * fit. `enum_int` is not checked: it must be an index of a text in the table.
 *
 * Returns 0, or -4 for a null argument.
 */
int32_t kestro_enum_to_str(char* enum_str, int32_t str_length, int32_t enum_int,
                           const char* const* enum_mapping) KESTRO_NOEXCEPT;

/*
 * The enumeration value of a text, compared exactly. The table must end with a null pointer, so the model table
 * is no argument for this function.
 *
 * Returns 0; or with `enum_int` untouched, -4 for a null argument and -1 for a text that is not in the table.
 */
int32_t kestro_str_to_enum(int32_t* enum_int, const char* enum_str, const char* const* enum_mapping) KESTRO_NOEXCEPT;

/* ---- MAC addresses ---- */

/* ---- Shell commands ---- */

/* ---- Processes, signals, threads ---- */

/* ---- Time and text ---- */

KESTRO_END_DECLS

#endif
