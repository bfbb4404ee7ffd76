/*
 * kestro_malloc.h - allocation that never returns null.
 *
 * When memory runs out, each of these writes one line to standard error and aborts the process; callers do not test the
 * result. What they return is released with free(). Thread-safe.
 */
#ifndef KESTRO_MALLOC_H
#define KESTRO_MALLOC_H

#include <stddef.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/* As malloc(); a size of 0 is taken as 1. */
void* omalloc(size_t size) KESTRO_NOEXCEPT;

/* As realloc(); a size of 0 is taken as 1, so the block always stays. */
void* orealloc(void* ptr, size_t size) KESTRO_NOEXCEPT;

/* As calloc(): zero-filled; a factor of 0 is taken as 1. */
void* ocalloc(size_t nmemb, size_t size) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
