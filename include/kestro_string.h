/*
 * kestro_string.h - a growable text, and an iterator over the parts of a text.
 *
 * Unless said otherwise the functions want valid pointers and do not check them. When memory runs out the process ends,
 * as in kestro_malloc.h. One text or iterator belongs to one thread at a time.
 */
#ifndef KESTRO_STRING_H
#define KESTRO_STRING_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

typedef struct str {
  char* s;      /* the text, always terminated by a zero byte */
  size_t len;   /* characters in use, without the zero byte */
  size_t bufsz; /* bytes allocated */
} str_t;

typedef struct str_iter {
  const char* str_iter_ptr; /* start of the next token in the text that is split; null when done */
  const char* str_iter_sep;
  size_t str_iter_sep_len;
  char str_iter_buf[256]; /* the current token */
} str_iter_t;

/* A new empty text with room for `bufsz` bytes (0 is taken as 1). Release it with str_free. */
str_t* str_init(size_t bufsz) KESTRO_NOEXCEPT;

/* Releases the text and the structure. Null is ignored. */
void str_free(str_t* s) KESTRO_NOEXCEPT;

/* Empties the text and keeps its buffer. */
void str_clear(str_t* s) KESTRO_NOEXCEPT;

/*
 * Appends formatted text, doubling the buffer as often as needed. Always returns 0.
 *
 * When the buffer has to grow and the new length equals the doubled size exactly, the last character gives way to the
 * zero byte while `len` still counts it.
 */
int32_t str_printf(str_t* s, const char* fmt, ...) KESTRO_NOEXCEPT KESTRO_PRINTF(2, 3);

/* The text; it still belongs to `s` and is valid until `s` changes. */
char* str_s(str_t* s) KESTRO_NOEXCEPT;

/* Characters in use. */
size_t str_slen(str_t* s) KESTRO_NOEXCEPT;

/*
 * Appends one line of the stream, its line feed included.
 *
 * Returns 1 when a line was appended; 0 at the end of input or on a read error; -1, with an ERROR line, when the buffer
 * could not grow. After 0 and -1 the part of a line that was read so far is in the text; a read error takes with it what
 * came since the buffer last grew.
 */
int32_t str_fgets(str_t* s, FILE* f) KESTRO_NOEXCEPT;

/* An iterator at the start of `str`. Both texts must outlive it. An empty separator yields the whole text
 * once. */
str_iter_t str_iter_new(const char* str, const char* sep) KESTRO_NOEXCEPT;

/*
 * The next token: the text up to the next occurrence of the whole separator, cut to 255 characters. The text lives in
 * the iterator and is overwritten by the next call.
 *
 * "a,,b" by "," yields "a", "", "b"; "a," yields "a", ""; "" yields "". Returns null when done or when `iter` is null.
 */
const char* str_iter_next(str_iter_t* iter) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
