/*
 * kestro_jrpc.h - JSON-RPC 2.0 services on the message bus and on stream sockets.
 *
 * A daemon that offers a service builds a method table, opens a publish and a subscribe socket on the bus, and serves:
 *
 *   static kestro_jrpc_mapping_t table[] = {{"ports.Get", ports_get}, {NULL, NULL}};
 *   kestro_jrpc_mq_pub_init("tcp://127.0.0.1:5001", &out);
 *   kestro_jrpc_mq_sub_init(&in, 1);
 *   kestro_jrpc_mq_sub_set_channel("tcp://127.0.0.1:5000", KESTRO_JRPC_CHANNEL_3A6F8F51, &in);
 *   for (;;) kestro_jrpc_mq_run(&in, &out, table, 0);
 *
 * What a request gets:
 *
 *   - It must be one JSON object with "jsonrpc" "2.0", a "method", and, where they are there, a "params" object, an "id"
 *     that is a string or a number, and a "transaction_id" that is a number. Anything else is logged and gets no answer.
 *   - With an "id" it gets one answer, without it none. The "id" of the answer is the name of the method, not the "id" of
 *     the request; "transaction_id" comes back as it was sent. On the bus the "id" of a request names the channel on
 *     which the answer is published.
 *   - An unknown method and a failed handler give an error object: "code", "message" and "data" (what the handler left as
 *     error data, or null). Codes and messages follow from the handler's status.
 *
 * A message on the bus is one frame: the name of a channel, "|", and the JSON text. Subscribers receive the channels
 * that they subscribed to.
 *
 * A failing request never stops an endpoint: a run operation returns its status and is called again.
 *
 * Thread-safety: an endpoint belongs to one thread. Threads that share a subscribe socket to call other services
 * register a mutex for it (kestro_jrpc_add_fd_lock) and use kestro_jrpc_mq_pub_lock and kestro_jrpc_mq_sub_for_method
 * in pairs.
 */
#ifndef KESTRO_JRPC_H
#define KESTRO_JRPC_H

#include <jansson.h>
#include <pthread.h>
#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/* The channel on which the router awaits the answers to what it forwards. */
#define KESTRO_JRPC_CHANNEL_ROUTER_REPLY "2524546b-ca99-4868-a062-359cefacff7c"

/* The channels of the services. The router chooses by the first letters of the method. */
#define KESTRO_JRPC_CHANNEL_B4469F46 "b4469f46-e963-42ef-9fd2-f978e73adc76" /* ca..., i... */
#define KESTRO_JRPC_CHANNEL_3A6F8F51 "3a6f8f51-502f-4238-9638-29764ff1a8a4" /* cl, d, en, l, n, oe, ol, p, ro... */
#define KESTRO_JRPC_CHANNEL_505A5451 "505a5451-3ef2-4618-8087-9a22b800a510" /* ev... */
#define KESTRO_JRPC_CHANNEL_DEFAULT "30e493d7-9e02-41b6-97f5-21f2cc9cbbb3"  /* anything else */

/*
 * One row of a method table. The table belongs to the daemon, usually as a constant array, and ends with a row whose
 * handler is null. Names are compared exactly; the first match counts. Up to 15 bytes behind the end of a name may be
 * read, never of another page; valgrind may tell of that where a name stands on the heap.
 *
 * A handler gets the request's "params" object, borrowed, or null when there is none. It returns a status: 0 or more
 * for success, negative for failure (kestro_error.h). It may leave a new reference in `*result` (without one the result
 * is the number 0) and, for a failure, one in `*err_data`; both are released by the library. Both are null on entry. It
 * runs on the thread that serves.
 */
typedef struct {
  const char* method;
  int32_t (*methodHandler)(json_t* params, json_t** result, json_t** err_data);
} kestro_jrpc_mapping_t;

/* ---- Error codes ---- */

/*
 * The status for a JSON-RPC error code that a response carried: the first status that converts to this code, so -32602
 * gives -35. A code to which no status converts gives -32001, which is no status: compare against it. Logs what it
 * converts at DEBUG. Thread-safe.
 */
int32_t kestro_jrpc_error_convert_jrpc_to_kestro(int32_t jrpc_error_code) KESTRO_NOEXCEPT;

/* ---- Frames ---- */

/*
 * Takes the JSON text out of a frame of `length` bytes, which need not end in a zero byte: everything behind the first
 * "|". The caller releases `*json_msg` with free().
 *
 * Returns 0; -20 for a null argument; -1 without a "|" or when memory runs out. `*json_msg` is null then.
 */
int32_t kestro_jrpc_parse_msg(const char* msg, int32_t length, char** json_msg) KESTRO_NOEXCEPT;

/*
 * The channel on which the sender of a request awaits its answer: the request's "id". The caller releases `*channel`
 * with free().
 *
 * Returns 0; -44 when the request has no "id" (it is a notification); -20 for a null argument; -1 for a text that is no
 * JSON object or an "id" that is no string. `*channel` is null then.
 */
int32_t kestro_jrpc_parse_channel(const char* json, char** channel) KESTRO_NOEXCEPT;

/* ---- Endpoints on stream sockets: one request of at most 1024 bytes per connection, one answer ---- */

/*
 * Opens a Unix-domain socket as kestro_unix_socket_init does. Returns 0 also when that failed: the handle is then 0.
 * -20 when `server_sock_fd` is null.
 */
int32_t kestro_jrpc_unix_socket_init(const char* socket_path, int32_t* server_sock_fd,
                                     int32_t nonblock_enable) KESTRO_NOEXCEPT;

/*
 * Serve one connection: accept it, receive once, evaluate the request, send the answer if there is one, close. A longer
 * request is cut to 1024 bytes. The accept waits unless the socket was opened non-blocking; the receive waits until the
 * client sends or goes.
 *
 * Return 0; -20 for a null argument; the status of a failed accept (-1), send or close; -1 when nothing was received or
 * the request got no answer that it asked for.
 */
int32_t kestro_jrpc_unix_socket_run(int32_t* server_sock_fd,
                                    kestro_jrpc_mapping_t* method_handler_table) KESTRO_NOEXCEPT;
int32_t kestro_jrpc_tcp_socket_run(int32_t* server_sock_fd,
                                   kestro_jrpc_mapping_t* method_handler_table) KESTRO_NOEXCEPT;

/* ---- Endpoints on pull sockets: bare JSON requests, never an answer ---- */

/*
 * Opens a pull socket bound to a TCP address ("tcp://127.0.0.1:5000"). Returns 0 and the handle; -20 for a null
 * argument; the status of a failed bind (-1, -34).
 */
int32_t kestro_jrpc_pull_socket_init(const char* addr, int32_t* mq_socket_out) KESTRO_NOEXCEPT;

/*
 * Serve one request: wait for a message, evaluate it, drop the answer. The second expects an enciphered text, which the
 * helper library deciphers (forge_utils.h); in a program without that library, and for a text that it refuses, it logs
 * an ERROR.
 *
 * Return 0 also where the answer would have been an error object; -20 for a null table; -1 when nothing was received,
 * the text was refused, or the request was one that gets no answer.
 */
int32_t kestro_jrpc_pull_socket_run(int32_t pull_fd, kestro_jrpc_mapping_t* method_handler_table) KESTRO_NOEXCEPT;
int32_t kestro_jrpc_pull_socket_run_encrypted(int32_t pull_fd,
                                              kestro_jrpc_mapping_t* method_handler_table) KESTRO_NOEXCEPT;

/* ---- Endpoints on the bus; every address is a TCP address ---- */

/*
 * Opens a publish socket bound to `sp_addr`. Returns 0 and the handle; -20 for a null argument; -1 when the socket
 * cannot be made; the status of a failed bind (-1, -34), which leaves the socket open.
 */
int32_t kestro_jrpc_mq_pub_init(const char* sp_addr, int32_t* mq_socket_out) KESTRO_NOEXCEPT;

/*
 * Opens a subscribe socket. With `nonblock_enable` other than 0 a receive waits for at most 1000 ms, else for ever.
 * Returns 0 and the handle; -20 for null; -1, with no handle.
 */
int32_t kestro_jrpc_mq_sub_init(int32_t* mq_socket_in, int32_t nonblock_enable) KESTRO_NOEXCEPT;

/*
 * Connects a subscribe socket to a publisher and subscribes it to what begins with `channel`. May be called again to
 * add addresses and channels. Returns 0; -20 for a null argument; -1, after which the socket is closed.
 */
int32_t kestro_jrpc_mq_sub_set_channel(const char* sp_addr, const char* channel, int32_t* mq_socket_in) KESTRO_NOEXCEPT;

/*
 * Publishes `message` on a channel, whose name must not hold a "|". Returns 0, also when nobody listens; -20 for a null
 * argument; -1.
 */
int32_t kestro_jrpc_mq_pub(int32_t* mq_socket_out, const char* channel, const char* message) KESTRO_NOEXCEPT;

/*
 * The first half of a call to another service on a subscribe socket that threads share: takes the mutex registered for
 * `mq_socket_in`, if any, and publishes as kestro_jrpc_mq_pub. On success the mutex stays held until the awaiting
 * operation below, called with the same handle by the same thread, releases it; after a failure it is free. Returns as
 * kestro_jrpc_mq_pub.
 */
int32_t kestro_jrpc_mq_pub_lock(int32_t* mq_socket_out, const char* channel, const char* message,
                                int32_t mq_socket_in) KESTRO_NOEXCEPT;

/*
 * Serves one request from the bus: receives a frame, evaluates the request, publishes the answer, if it asks for one,
 * on the channel that its "id" names. With `nonblock_enable` greater than 0 it does not wait for a frame, else the
 * time-out of the socket counts.
 *
 * Returns 0; -20 for a null argument; the status of the receive when nothing came (-46 without waiting, -1 after the
 * time-out); -1 for an empty frame, one that is no envelope, or a request that gets no answer; the status of a failed
 * publish.
 */
int32_t kestro_jrpc_mq_run(int32_t* mq_socket_in, int32_t* mq_socket_out, kestro_jrpc_mapping_t* method_handler_table,
                           int32_t nonblock_enable) KESTRO_NOEXCEPT;

/*
 * Throws away late responses before a new call: up to 10 frames that wait on a shared subscribe socket. Does nothing
 * when no mutex is registered for the socket or another thread holds it.
 */
void kestro_jrpc_clear_logic_sub_sock(int32_t mq_socket_in) KESTRO_NOEXCEPT;

/*
 * Registers the caller's mutex for a subscribe socket; it must live as long as the process. There is room for 16, and
 * none is ever removed. Returns 0; -20 for a null mutex; -1, with an ERROR line, when the room is used up or the socket
 * has one already. Thread-safe.
 */
int32_t kestro_jrpc_add_fd_lock(int32_t fd, pthread_mutex_t* lk) KESTRO_NOEXCEPT;

/* ---- Awaiting responses and notifications ---- */

/*
 * The second half of a call: waits on a subscribe socket for the response whose "id" is the method's name. Each frame
 * that is something else, and each receive that fails or times out, uses up one of a number of attempts: with the usual
 * time-out of 1000 ms, seconds. The first takes the number from a table: 10, and for methods known to be slow 30 to
 * 200; the second is told.
 *
 * Return 0 with the whole response object, a new reference in which the caller looks for "result" or "error"; -50 when
 * the attempts ran out; -20 for a null argument. `*result_json_out` is null then. In every case the mutex registered
 * for the socket is released, so only a thread that took it by kestro_jrpc_mq_pub_lock may wait.
 */
int32_t kestro_jrpc_mq_sub_for_method(int32_t mq_socket_in, const char* method_name,
                                      json_t** result_json_out) KESTRO_NOEXCEPT;
int32_t kestro_jrpc_mq_sub_for_method_with_limit(int32_t mq_socket_in, const char* method_name,
                                                 json_t** result_json_out, int32_t recv_msg_limit) KESTRO_NOEXCEPT;

/*
 * Whether a response text answers a call of `method`. Returns 0 with the parsed object, a new reference; -1 when it
 * does not, or is no response; -20 for a null argument. `*response_json` is null then.
 */
int32_t kestro_jrpc_eval_method(const char* method, const char* response, json_t** response_json) KESTRO_NOEXCEPT;

/*
 * Waits for a notification by the name of its method, without a time limit but for at most five frames. The time-out of
 * the socket is as before afterwards. Touches no mutex.
 *
 * Returns 0 with the notification object, a new reference; -1 when the attempts ran out or the time-out could not be
 * changed; -20 for a null argument. `*result_json_out` is null then.
 */
int32_t kestro_jrpc_mq_sub_for_notifcation(int32_t mq_socket_in, const char* method_name,
                                           json_t** result_json_out) KESTRO_NOEXCEPT;

/* ---- Router: clients on a stream socket, services on the bus ----
 *
 * The router's subscribe socket is subscribed to KESTRO_JRPC_CHANNEL_ROUTER_REPLY. A request is forwarded on the
 * channel of its service with its "id" replaced by the name of that channel; what comes back goes to the client
 * unchanged. The operations keep no record of clients: with one request in flight its answer is the next one.
 *
 * A request of 10,000,000 bytes or more is refused with -21 and an ERROR line; its connection is left open, in
 * `*server_accept_sock_fd`, for the caller to close. After any other failure the connection is closed and
 * `*server_accept_sock_fd` is -1.
 */

/*
 * Accepts a client, receives its request at once and forwards it. Returns 0 with the open connection, to be given to
 * kestro_jrpc_router_mq_to_socket; -20 for a null argument; -21; the status of a failed accept, rewrite or publish
 * (-1).
 */
int32_t kestro_jrpc_router_socket_to_mq(int32_t* server_sock_fd, int32_t* mq_socket_out,
                                        int32_t* server_accept_sock_fd) KESTRO_NOEXCEPT;

/*
 * Waits for one response frame, sends its JSON text to the client and closes the connection, which it does in every
 * case but a null argument. Returns 0; -20 for a null argument; the status of a failed receive, parse or send.
 */
int32_t kestro_jrpc_router_mq_to_socket(int32_t* mq_socket_in, int32_t* server_accept_sock_fd) KESTRO_NOEXCEPT;

/*
 * The same road in four steps, for a router that looks at what passes.
 *
 * extract_request: accepts a client and reads its request up to a line feed. Returns 0 with the request object, a new
 * reference, and the open connection; -21; -1, with `*request` null.
 */
int32_t kestro_jrpc_router_socket_extract_request(int32_t* server_sock_fd, int32_t* server_accept_sock_fd,
                                                  json_t** request) KESTRO_NOEXCEPT;

/*
 * dispatch_request: publishes a request on the channel of its service. The object is borrowed; its "id" is replaced.
 * Returns 0; -1 when the request cannot be forwarded; the status of a failed publish.
 */
int32_t kestro_jrpc_router_mq_dispatch_request(int32_t* mq_socket_out, json_t* request) KESTRO_NOEXCEPT;

/*
 * extract_response: waits for a frame, as long as the socket's time-out allows. Returns 0 with the response object, a
 * new reference; -1, with `*response` null.
 */
int32_t kestro_jrpc_router_mq_extract_response(int32_t* mq_socket_in, json_t** response) KESTRO_NOEXCEPT;

/*
 * dispatch_response: sends a response, borrowed, to the client. The connection stays open: the caller closes it.
 * Returns 0 or -1.
 */
int32_t kestro_jrpc_router_socket_dispatch_response(int32_t* server_accept_sock_fd, json_t* response) KESTRO_NOEXCEPT;

/*
 * Runs a request that the router handles itself: a notification, that is one without "id". Nothing is answered; what
 * the handler leaves is released. Returns 0; -1 for a request that is no proper notification or has no handler; any
 * status but 0 that the handler returns, positive ones included.
 */
int32_t kestro_jrpc_router_eval_notification(json_t* request, kestro_jrpc_mapping_t* table) KESTRO_NOEXCEPT;

/*
 * Makes the error object for a client whose request is not forwarded because the system is busy (-32014). It carries
 * the client's own "id", which must be a string, and "transaction_id" as sent. The request is borrowed. Returns 0 with
 * a new reference; -1, with `*response` null.
 */
int32_t kestro_jrpc_router_create_system_lock_response(json_t* request, json_t** response) KESTRO_NOEXCEPT;

/*
 * Makes the error object for a client whose request was not answered in time (-32005). Returns 0 with a new reference;
 * -1 for a null argument or when memory runs out, with `*response` null.
 */
int32_t kestro_jrpc_router_create_system_timeout_response(const char* id, const int32_t transaction_id,
                                                          json_t** response) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
