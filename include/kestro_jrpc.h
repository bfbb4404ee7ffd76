#ifndef KESTRO_JRPC_H
#define KESTRO_JRPC_H

#include <jansson.h>
#include <pthread.h>
#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/*
 * The status for a JSON-RPC error code that a response carried: the first status that converts to this code,
 * so -32602 gives -35. A code to which no status converts gives -32001, which is no status: compare against
 * it. Logs what it converts at DEBUG. Thread-safe.
 */
int32_t kestro_jrpc_error_convert_jrpc_to_kestro(int32_t jrpc_error_code) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
