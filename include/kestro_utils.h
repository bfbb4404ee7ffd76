/*
 * kestro_utils.h - identifiers, MAC addresses, shell commands, processes, time and text.
 */
#ifndef KESTRO_UTILS_H
#define KESTRO_UTILS_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "cli_mw_port_struct.h"
#include "kestro_data.h"
#include "kestro_general.h"
#include "kestro_string.h"

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

/*
 * The identifier of a port: "d5" for an edge-switch number of 10001 (the head-end unit) or more, "c12-4"
 * otherwise. The port number is not checked. `string_id` of `string_length` bytes is zero-filled and receives
 * the text, cut to fit.
 *
 * Returns 0, -4 for a null argument, or -1, with the text empty, for an edge-switch number below 1.
 */
int32_t kestro_create_port_id_str(char* string_id, int32_t string_length, int32_t oec_number,
                                  int32_t port_number) KESTRO_NOEXCEPT;

/* The identifier of an edge switch, "c12", written as above. Returns 0, or -4 for a null argument. */
int32_t kestro_create_oec_id_str(char* string_id, int32_t string_length, int32_t oec_number) KESTRO_NOEXCEPT;

/*
 * Reads the identifier of an edge switch or a port, of at most 8 characters. The first letter may be of
 * either case; the numbers are not checked against any range.
 *
 *   "c12"     edge switch 12, port 0
 *   "c12-4"   edge switch 12, port 4
 *   "d5"      port 5 of the head-end unit, whose edge-switch number is 10001
 *   "x2"      port 2 behind the first eight of the head-end unit: 10
 *   "dports"  all ports of the head-end unit: port 0; spelled exactly so
 *
 * Returns 0, -20 for a null argument, or -4 for a text that is no identifier; a text that is too long is
 * refused without a log line. On failure both numbers are 0, except that the edge switch of "c12-0" and the
 * like is kept.
 */
int32_t kestro_parse_oec_port_id(int32_t* oec_number, int32_t* port_number, const char* string_id) KESTRO_NOEXCEPT;

/*
 * One line of a port list: "c1-1, c1-2, d5" from the port at index `*idx` on, padded with blanks to
 * `usable_char` characters, which must be below 128. `string` has room for one byte more.
 *
 * A comma follows every port but the last of the list. `*idx` advances by the ports that were looked at: the
 * one that no longer fits is passed over and is not printed by the next call either.
 *
 * Returns 0; or with the outputs untouched, -20 for a null argument and -4 for an index below 0 or a line of
 * 128 characters or more.
 */
int32_t kestro_port_str_create(const struct cli_mw_vlan_struct* vlan_info, int32_t* idx, char* string,
                               int32_t usable_char) KESTRO_NOEXCEPT;

/*
 * What users call an edge switch: its alias, or its identifier while it has none. Writes at most `sz` bytes, cut
 * to fit. Returns 0, or -20 for a null argument.
 */
int32_t kestro_form_oec_name(const kestro_data_oec* oec, char* name, size_t sz) KESTRO_NOEXCEPT;

/* Logs the edge switch at INFO under the heading `msg`. Returns 0, or -20 for a null argument. */
int32_t kestro_print_oec(const kestro_data_oec* oec, const char* msg) KESTRO_NOEXCEPT;

/* The functions of edge switches from here on do not check their argument: it must not be null. */

bool kestro_oec_is_online(const kestro_data_oec* oec) KESTRO_NOEXCEPT;

/*
 * Descriptions of an edge switch for log lines: everything that identifies it, cut to 255 characters with an
 * ERROR line; its identifier; its alias or else its identifier, both cut to 8 characters.
 *
 * The text belongs to the calling thread and is overwritten by its next call of the same function. Copy the
 * first when two are needed at once.
 */
char* kestro_esw_str(const kestro_data_oec* esw) KESTRO_NOEXCEPT;
char* kestro_esw_id_str(const kestro_data_oec* esw) KESTRO_NOEXCEPT;
char* kestro_esw_id_or_alias(const kestro_data_oec* esw) KESTRO_NOEXCEPT;

/* Whether the edge switch is online and came online 1 to 119 seconds before `now`. */
bool kestro_esw_is_recently_online(const kestro_data_oec* esw, int64_t now) KESTRO_NOEXCEPT;

/* Whether the edge switch is of the generic model and recently online by the wall clock. */
bool kestro_esw_show_recently_online_warning(const kestro_data_oec* esw) KESTRO_NOEXCEPT;

/*
 * Reads "10,20,,30" into `vids`, which has room for 130 numbers; further ones are ignored, as are empty
 * fields. A field that is no number gives 0. `s` is cut into pieces.
 *
 * Returns 0 and the count in `n_vids`, or -20 when `n_vids` is null. A null `s` or `vids` aborts the process.
 */
int32_t vlan_csv_to_array(char* s, int32_t* vids, int16_t* n_vids) KESTRO_NOEXCEPT;

/*
 * The numbers joined by commas, as a new text that the caller releases with str_free; null when a number
 * could not be appended. When memory runs out the process ends, as in kestro_malloc.h.
 */
str_t* vlan_array_to_csv(const int32_t* vids, int32_t n_vids) KESTRO_NOEXCEPT;

/* Whether `val` is among the first `a_sz` numbers. */
bool int32_in_array(int32_t val, const int32_t* a, size_t a_sz) KESTRO_NOEXCEPT;

/*
 * Change the case in place, up to `length` characters or the end of the text. Return 0, or -4 with a VERBOSE
 * line for null.
 */
int32_t kestro_to_lower(char* str, int32_t length) KESTRO_NOEXCEPT;
int32_t kestro_to_upper(char* str, int32_t length) KESTRO_NOEXCEPT;

/* As kestro_to_upper, for a whole text, which must not be null. */
void kestro_str_to_upper(char* s) KESTRO_NOEXCEPT;

/*
 * Compares software versions such as "1.4.12" number by number. It counts what the old version has: "3.1.7" is
 * taken as equal to an old "3.1". Where the new version has fewer numbers, the missing ones count as 0.
 *
 * Returns -1 when the new version is lower, 1 when it is higher and 0 when neither is; -20 for a null
 * argument.
 */
int32_t kestro_utils_sw_version_strcmp(const char* version_new, const char* version_old) KESTRO_NOEXCEPT;

/* ---- MAC addresses ---- */

/* ---- Shell commands ---- */

/* ---- Processes, signals, threads ---- */

/* ---- Time and text ---- */

KESTRO_END_DECLS

#endif
