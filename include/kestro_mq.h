/*
 * kestro_mq.h - sockets of the message bus: a checked layer over nanomsg.
 *
 * A socket is created, bound or connected to one or more addresses, subscribed (SUB sockets), used and closed. Each
 * handle is nanomsg's own socket number; the library keeps no table. Only the receive time-out is ever set here: send
 * time-out, buffer sizes, the limit of received messages (1 MiB) and reconnect intervals are nanomsg's defaults, which
 * a daemon may change on the handles that it owns.
 *
 * Failures are logged at DEBUG with nanomsg's text of the error, so a daemon at level INFO hears nothing from here. A
 * failed operation leaves the socket open and its outputs untouched.
 *
 * What to know of publish sockets: a message without a subscriber, or for one whose buffer is full, is dropped without
 * a word, and so is one that is sent before the connection stands.
 *
 * Thread-safety: any thread may call; threads that share one socket take turns.
 */
#ifndef KESTRO_MQ_H
#define KESTRO_MQ_H

#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/* Kinds of sockets, in the library's own numbering. */
enum {
  KESTRO_MQ_SP_PAIR = 1,
  KESTRO_MQ_SP_REP = 2,
  KESTRO_MQ_SP_REQ = 3,
  KESTRO_MQ_SP_PUB = 4,
  KESTRO_MQ_SP_SUB = 5,
  KESTRO_MQ_SP_PULL = 6,
  KESTRO_MQ_SP_PUSH = 7,
  KESTRO_MQ_SP_SURVEYOR = 8,
  KESTRO_MQ_SP_RESPONDENT = 9,
  KESTRO_MQ_SP_BUS = 10
};

/* Transports, and what an address of each must contain. */
enum {
  KESTRO_MQ_TRANSPORT_INPROC = 1, /* "inproc://" */
  KESTRO_MQ_TRANSPORT_IPC = 2,    /* "ipc://" */
  KESTRO_MQ_TRANSPORT_TCP = 3     /* "tcp://" */
};

/* Longest address in characters. */
#define KESTRO_MQ_SP_ADDR_MAX_LEN 128

/*
 * Opens a socket of kind `sp_type` (KESTRO_MQ_SP_*).
 *
 * Returns 0 and the handle, to be closed with kestro_mq_socket_close; -20 for a null output, -34 for a kind outside 1
 * to 10, -1 when nanomsg refuses.
 */
int32_t kestro_mq_socket_init(int32_t sp_type, int32_t* mq_socket) KESTRO_NOEXCEPT;

/*
 * Binds a socket to an address, or connects it. The address must be of at most KESTRO_MQ_SP_ADDR_MAX_LEN characters and
 * contain the text of the transport (KESTRO_MQ_TRANSPORT_*); nanomsg gets it as it stands, and itself refuses the last
 * character of that length. A connect succeeds before its peer is there; nanomsg goes on trying.
 *
 * Return 0 and an endpoint identifier for kestro_mq_socket_shutdown; -20 for a null address or output, -34 for an
 * address or transport that is refused, -1 when nanomsg refuses. The line of a failed connect speaks of nn_bind too.
 */
int32_t kestro_mq_socket_bind(int32_t mq_socket, int32_t transport_type, const char* sp_addr,
                              int32_t* mq_eid) KESTRO_NOEXCEPT;
int32_t kestro_mq_socket_connect(int32_t mq_socket, int32_t transport_type, const char* sp_addr,
                                 int32_t* mq_eid) KESTRO_NOEXCEPT;

/*
 * Receives one message. With `nonblock_enable` greater than 0 it does not wait; otherwise it waits as long as the
 * socket's receive time-out allows.
 *
 * Returns 0 with the message and its length in bytes: a block of length + 1 bytes that ends in an added zero byte,
 * which the caller releases with free(). A message may hold zero bytes of its own. -20 for a null output; -46 when
 * nothing was there without waiting; -1 for any other failure, an expired time-out (ETIMEDOUT) included.
 */
int32_t kestro_mq_socket_recv(int32_t mq_socket, char** message, int32_t* length,
                              int32_t nonblock_enable) KESTRO_NOEXCEPT;

/*
 * Sends a text without its zero byte; an empty text is a message of no bytes. The first waits while the socket cannot
 * take the message, the second does not.
 *
 * Return 0, -20 for a null message, -1 when nanomsg refuses.
 */
int32_t kestro_mq_socket_send(int32_t mq_socket, const char* message) KESTRO_NOEXCEPT;
int32_t kestro_mq_socket_send_nonblock(int32_t mq_socket, const char* message) KESTRO_NOEXCEPT;

/* Removes one endpoint of a socket. Returns 0 or -1. */
int32_t kestro_mq_socket_shutdown(int32_t mq_socket, int32_t mq_eid) KESTRO_NOEXCEPT;

/* Closes a socket. Returns 0, or -1 with a WARNING. Not to be called in a forked child: it would hang. */
int32_t kestro_mq_socket_close(int32_t mq_socket) KESTRO_NOEXCEPT;

/* Does nothing; sockets of other threads stay usable. */
void kestro_mq_socket_terminate(void) KESTRO_NOEXCEPT;

/*
 * Releases a buffer that nanomsg itself allocated; not for what kestro_mq_socket_recv hands out. Returns 0, -20 for
 * null, -1 when nanomsg refuses.
 */
int32_t kestro_mq_socket_freemsg(void* message) KESTRO_NOEXCEPT;

/*
 * A descriptor that polls readable while a message can be received (recvfd) or sent (sendfd). It belongs to the socket:
 * do not read from it and do not close it. Return 0, -20 for a null output, -1.
 */
int32_t kestro_mq_socket_recvfd(int32_t mq_socket, int32_t* recvfd) KESTRO_NOEXCEPT;
int32_t kestro_mq_socket_sendfd(int32_t mq_socket, int32_t* sendfd) KESTRO_NOEXCEPT;

/*
 * Adds or removes a subscription of a SUB socket: it receives the messages that begin with `channel`. An empty channel
 * is the beginning of every message. Return 0, -20 for null, -1.
 *
 * Remove only what was added: nanomsg 1.1 crashes when a subscription is removed from a socket that has none.
 */
int32_t kestro_mq_socket_subscribe(int32_t mq_socket, const char* channel) KESTRO_NOEXCEPT;
int32_t kestro_mq_socket_unsubscribe(int32_t mq_socket, const char* channel) KESTRO_NOEXCEPT;

/* The receive time-out in milliseconds; -1 waits for ever. Return 0, -20 for a null output, -1. */
int32_t kestro_mq_socket_set_timeout(int32_t mq_socket, int32_t timeout) KESTRO_NOEXCEPT;
int32_t kestro_mq_socket_get_timeout(int32_t mq_socket, int32_t* timeout) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
