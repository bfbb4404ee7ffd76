/*
 * kestro_timer.h - periodic timers as descriptors, to be polled beside sockets.
 *
 * A timer runs on the monotonic clock; times are relative to the call. An interval of 0 makes it fire once, a period of
 * 0 disarms it. Failures of the system are told on standard error, as perror() does. No shared state: one timer, one
 * caller.
 */
#ifndef KESTRO_TIMER_H
#define KESTRO_TIMER_H

#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/*
 * Creates a timer. Only a `nonblock` of exactly 1 makes reads of it return at once.
 *
 * Returns 0 and the descriptor, to be closed with kestro_timer_free; -20 for null; -1, with -1 in `*tfd`, when the
 * system refuses.
 */
int32_t kestro_timer_init(int32_t* tfd, int32_t nonblock) KESTRO_NOEXCEPT;

/*
 * Arms a timer, in whole seconds or in seconds with a fraction: first expiry after `period`, then every `interval`. May
 * be called again at any time; the new setting replaces the old one. Return 0 or -1.
 */
int32_t kestro_timer_set(int32_t tfd, int32_t period, int32_t interval) KESTRO_NOEXCEPT;
int32_t kestro_timer_nsec_set(int32_t tfd, float period, float interval) KESTRO_NOEXCEPT;

/*
 * Takes the expirations since the last read, however many; a blocking timer waits for one. Returns 0; -25 when a
 * non-blocking timer has not expired; -1 for any other failure, with an ERROR line unless the read was short.
 */
int32_t kestro_timer_read(int32_t tfd) KESTRO_NOEXCEPT;

/*
 * Closes a timer and sets `*tfd` to 0, which is not a mark of "closed" where descriptor 0 may be real. Returns 0, or
 * -20 for null.
 */
int32_t kestro_timer_free(int32_t* tfd) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
