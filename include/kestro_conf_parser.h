/*
 * kestro_conf_parser.h - reads one value of an INI-like configuration file.
 */
#ifndef KESTRO_CONF_PARSER_H
#define KESTRO_CONF_PARSER_H

#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/*
 * Looks up `field_name` in the first section named `section_name` of the file.
 *
 *   # a comment: "#" in the first column, and only there
 *   [section]
 *   key=value
 *
 * Names are compared exactly, and nothing is trimmed: blanks around "=" belong to the key and to the value. Section
 * names have at most 49 characters, keys at most 50. The value is everything behind the first "=" up to the end of the
 * line; a last line without a line feed is not seen. The first match counts. Lines may have any length.
 *
 * The value is copied to `output_field_value`, whose capacity in bytes is `output_field_value_length`; the rest is
 * filled with zero bytes. A value of exactly that length fills the buffer and has no terminating zero byte.
 *
 * Returns 0, or with the output untouched: -20 for a null argument, -4 for a length below 1, -40 when the file cannot
 * be opened, -35 when it does not hold the value, -41 when the value is longer than the buffer. Thread-safe.
 */
int32_t kestro_conf_parser_parse(const char* file_name, const char* section_name, const char* field_name,
                                 char* output_field_value, int32_t output_field_value_length) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
