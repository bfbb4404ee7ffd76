/*
 * kestro_socket.h - stream sockets: Unix-domain and loopback TCP servers, TCP clients, and what to do on a connection.
 *
 * Every operation takes a pointer to the caller's descriptor. Unlike the rest of the library these operations report
 * failures as -1 or as a byte count, and null pointers too. Failures of the system are told on standard error, as
 * perror() does; null pointers in a DEBUG line. Nothing is retried, interrupted calls included. A vanished peer yields
 * an error and no SIGPIPE.
 *
 * A server is opened once, accepts again and again, and is shut down. Descriptors are closed on exec. No shared state:
 * threads may serve different descriptors.
 */
#ifndef KESTRO_SOCKET_H
#define KESTRO_SOCKET_H

#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/*
 * Opens a listening Unix-domain socket that everybody may connect to (mode 0666). A file that is in the way, a stale
 * socket for instance, is removed first. `nonblock_enable` other than 0 makes accepting return at once.
 *
 * A path has at most 107 characters. A longer one is cut there for the socket, while the mode is still set on the whole
 * path: unless a file is there, that fails.
 *
 * Returns 0 and the descriptor, or -1. A failure after the socket was created leaves it open: the caller exits.
 */
int32_t kestro_unix_socket_init(const char* socket_path, int32_t* server_sock_fd,
                                int32_t nonblock_enable) KESTRO_NOEXCEPT;

/*
 * Opens a listening TCP socket on 127.0.0.1. Port 0 lets the system choose. Several processes may listen on one port.
 *
 * Returns 0 and the descriptor, or -1. A failure after the socket was created leaves it open: the caller exits.
 */
int32_t kestro_tcp_socket_init(int32_t socket_port, int32_t* server_sock_fd, int32_t nonblock_enable) KESTRO_NOEXCEPT;

/*
 * Accept one connection of a Unix-domain or TCP server. The connection blocks, whatever the server does.
 *
 * Return 0 and the descriptor, or -1 with -1 in `*accepted_sock_fd`; silently when a non-blocking server has no
 * connection waiting.
 */
int32_t kestro_socket_accept(int32_t* server_sock_fd, int32_t* accepted_sock_fd) KESTRO_NOEXCEPT;
int32_t kestro_tcp_socket_accept(int32_t* server_sock_fd, int32_t* accepted_sock_fd) KESTRO_NOEXCEPT;

/*
 * Connects to a dotted IPv4 address; names are not looked up. Waits as long as the system does. `client_sock_fd` must
 * be valid. Returns 0 and the descriptor, -51 when the connect timed out, -1 for any other failure.
 */
int32_t kestro_tcp_socket_connect(const char* host_addr, int32_t socket_port, int32_t* client_sock_fd) KESTRO_NOEXCEPT;

/*
 * Receives once, at most `length` bytes. No zero byte is added. Returns the count; 0 when the peer closed or an
 * argument is null; -1.
 */
int32_t kestro_socket_recv(int32_t* accepted_sock_fd, char* message, int32_t length) KESTRO_NOEXCEPT;

/*
 * Receives until a line feed has come, the peer closes, or the buffer of `length` bytes is full; the text ends in a
 * zero byte. What came with the line feed in one piece stays behind it.
 *
 * Returns the count of all bytes received. A count not less than `length` means that the request does not fit: its last
 * byte has given way to the zero byte, and an ERROR line was written. A failed receive ends the reading; the count
 * tells what came before it. With nothing received `message` is untouched.
 */
int32_t kestro_socket_recv_read_to_newline(int32_t* accepted_sock_fd, char* message, int32_t length) KESTRO_NOEXCEPT;

/*
 * Sends a text without its zero byte, in one call. Returns 0, also when the system took only a part of it (on a
 * non-blocking descriptor), or -1.
 */
int32_t kestro_socket_send(int32_t* accepted_sock_fd, const char* message) KESTRO_NOEXCEPT;

/* Closes a descriptor and sets it to -1. Returns 0, or -1 with the descriptor unchanged. */
int32_t kestro_socket_close(int32_t* accepted_sock_fd) KESTRO_NOEXCEPT;

/* Closes a server without a report and sets the descriptor to -1. The file of a Unix-domain socket stays. */
void kestro_socket_shutdown(int32_t* server_sock_fd) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
