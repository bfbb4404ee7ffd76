/*
 * kestro_utils.h - identifiers, MAC addresses, shell commands, processes, time and text.
 */
#ifndef KESTRO_UTILS_H
#define KESTRO_UTILS_H

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/* ---- Device identifiers ---- */

/* Called where a failure deserves a stack trace. Empty and weak: a program may define its own. */
void print_stacktrace(void) KESTRO_NOEXCEPT;

/* ---- MAC addresses ---- */

/* ---- Shell commands ---- */

/* ---- Processes, signals, threads ---- */

/* ---- Time and text ---- */

KESTRO_END_DECLS

#endif
