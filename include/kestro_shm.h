/*
 * kestro_shm.h - named variables that daemons share: POSIX shared-memory objects that hold a text or an integer.
 *
 * A name is what shm_open() takes: a slash and a word. A text variable is a region of `size` bytes with a text that
 * ends in a zero byte within them; the bytes behind it are zero. `size` is not stored: every caller passes the size
 * that the variable was created with. An integer variable is the int32_t in the first four bytes.
 *
 * Each call opens, maps, does its one thing, unmaps and closes. Variables are meant for occasional state. They stay
 * until shm_unlink() or a restart. New objects get the permissions 0x666 (octal 3146, not 0666), less the umask: the
 * daemons that share variables are meant to run as one privileged user, whom the bits do not bind.
 *
 * Every function returns 0, or -1 with an ERROR line for a null pointer, for size 0, and for an object that cannot be
 * opened or mapped: there is none, the size is negative or reaches past the object's memory pages, or memory is short.
 *
 * There is no lock: a reader may see a text that another process has written by half, though never one that does not
 * end. Nobody may shrink an object, be it by kestro_shm_create, while another call is at work on it: that call's
 * process would be ended by SIGBUS. Create the variables before the daemons that use them start.
 */
#ifndef KESTRO_SHM_H
#define KESTRO_SHM_H

#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/*
 * Creates the variable, or resizes one that is there; either way all its `size` bytes become zero. When the length
 * cannot be set, that is logged at ERROR and told on standard error, and the call goes on: it succeeds if the object
 * has the bytes all the same.
 */
int32_t kestro_shm_create(const char* name, int32_t size) KESTRO_NOEXCEPT;

/*
 * Copies the text to `output`, which has room for `size` bytes, and fills the rest with zero bytes. A text without an
 * end within `size` bytes is cut to `size` - 1 characters. After a failure `output` is all zero (if not null).
 */
int32_t kestro_shm_get_string(const char* name, int32_t size, char* output) KESTRO_NOEXCEPT;

/* Stores `input`, cut to `size` - 1 characters, and fills the rest of the region with zero bytes. */
int32_t kestro_shm_set_string(const char* name, int32_t size, const char* input) KESTRO_NOEXCEPT;

/* Reads the integer in one access. After a failure `*output` is as before. */
int32_t kestro_shm_get_int(const char* name, int32_t* output) KESTRO_NOEXCEPT;

/* Writes the integer in one access: a reader sees the old or the new value. */
int32_t kestro_shm_set_int(const char* name, const int32_t* input) KESTRO_NOEXCEPT;

/* Makes all `size` bytes zero. */
int32_t kestro_shm_clear(const char* name, int32_t size) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
