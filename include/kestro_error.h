/*
 * kestro_error.h - the status codes and their texts.
 *
 * A status is a signed 32-bit number. 0 is success; a failure is the negative of an index of the table below. The codes
 * have no symbolic names: they are spoken of by number and text.
 */
#ifndef KESTRO_ERROR_H
#define KESTRO_ERROR_H

#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/*
 * The text of each status, by the magnitude of its code. Slots 78 and 81 are null: no status has these numbers.
 * Read-only.
 */
extern const char* const kestro_error_strings[82];

/*
 * The text of a status. The sign does not matter: 20 and -20 give the same text.
 *
 * Returns a pointer into the constant table, which the caller neither changes nor frees. A magnitude of 83 or more
 * gives "No Error or invalid error code". Magnitudes 78, 81 and 82 give null: a caller that prints the text must expect
 * it. Thread-safe.
 */
char* kestro_error_decode(int32_t error_code) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
