#include "kestro_socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_socket");

constexpr int backlog = 10;
constexpr mode_t everybody = 0666;

// Room for the address of either family. Servers bind with the length of the larger one, which the kernel accepts for
// both.
union Address {
  sockaddr any;
  sockaddr_un local;
  sockaddr_in inet;
};
constexpr socklen_t bound_length = 110;
static_assert(sizeof(sockaddr_un) == bound_length);

int32_t null_pointer(Site site, const char* function, int32_t result = status::general_error) noexcept {
  return site.fail(Debug, result, "[%s]: Null Pointer!\n", function);
}

int32_t system_error(const char* word) noexcept {
  perror(word);
  return status::general_error;
}

int open_stream(int family) noexcept {
  return socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

void make_nonblocking(int fd) noexcept {
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL, 0) | O_NONBLOCK);
}

int32_t accept_one(const char* function, int32_t* server, int32_t* accepted) noexcept {
  Address peer{};
  socklen_t length = sizeof peer;
  *accepted = accept4(*server, &peer.any, &length, SOCK_CLOEXEC);
  if (*accepted >= 0) return status::ok;
  if (errno == EAGAIN) return status::general_error;
  return system_error(function);
}

// One receive; a failure and a closed peer are told.
ssize_t receive(int fd, char* to, size_t space) noexcept {
  const ssize_t count = recv(fd, to, space, 0);
  if (count < 0) perror("kestro_socket_recv");
  if (count == 0) here().log(Debug, "[kestro_socket_recv]: zero bytes received!\n");
  return count;
}

size_t as_size(int32_t length) noexcept {
  return static_cast<size_t>(std::max(length, 0));
}

}  // namespace

int32_t kestro_unix_socket_init(const char* socket_path, int32_t* server_sock_fd, int32_t nonblock_enable) noexcept {
  if (socket_path == nullptr || server_sock_fd == nullptr) return null_pointer(here(), "kestro_unix_socket_init");

  const int fd = open_stream(AF_UNIX);
  if (fd < 0) return system_error("kestro_unix_socket_init");
  if (nonblock_enable != 0) make_nonblocking(fd);

  Address address{};
  address.local.sun_family = AF_UNIX;
  const size_t length = std::min(strlen(socket_path), sizeof address.local.sun_path - 1);
  memcpy(address.local.sun_path, socket_path, length);
  unlink(address.local.sun_path);

  if (bind(fd, &address.any, bound_length) < 0) return system_error("bind");
  if (listen(fd, backlog) < 0) return system_error("listen");
  if (chmod(socket_path, everybody) < 0) return system_error("chmod");
  *server_sock_fd = fd;
  return status::ok;
}

int32_t kestro_tcp_socket_init(int32_t socket_port, int32_t* server_sock_fd, int32_t nonblock_enable) noexcept {
  if (server_sock_fd == nullptr) return null_pointer(here(), "kestro_tcp_socket_init");

  const int fd = open_stream(AF_INET);
  if (fd < 0) return system_error("kestro_tcp_socket_init");
  if (nonblock_enable != 0) make_nonblocking(fd);

  Address address{};
  address.inet.sin_family = AF_INET;
  address.inet.sin_port = htons(static_cast<uint16_t>(socket_port));
  address.inet.sin_addr.s_addr = htonl(INADDR_LOOPBACK);

  const int enable = 1;
  if (setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &enable, sizeof enable) < 0) {
    here().log_unchecked(Error, "[kestro_tcp_socket_init]: Unable to set socket options!\n");
    return status::general_error;
  }
  if (bind(fd, &address.any, bound_length) < 0) return system_error("bind");
  if (listen(fd, backlog) < 0) return system_error("listen");
  *server_sock_fd = fd;
  return status::ok;
}

int32_t kestro_socket_accept(int32_t* server_sock_fd, int32_t* accepted_sock_fd) noexcept {
  if (server_sock_fd == nullptr || accepted_sock_fd == nullptr) return null_pointer(here(), "kestro_socket_accept");
  return accept_one("kestro_socket_accept", server_sock_fd, accepted_sock_fd);
}

int32_t kestro_tcp_socket_accept(int32_t* server_sock_fd, int32_t* accepted_sock_fd) noexcept {
  if (server_sock_fd == nullptr || accepted_sock_fd == nullptr) {
    return null_pointer(here(), "kestro_tcp_socket_accept");
  }
  return accept_one("kestro_tcp_socket_accept", server_sock_fd, accepted_sock_fd);
}

int32_t kestro_tcp_socket_connect(const char* host_addr, int32_t socket_port, int32_t* client_sock_fd) noexcept {
  if (host_addr == nullptr) return null_pointer(here(), "kestro_tcp_socket_connect");

  Descriptor connection(open_stream(AF_INET));
  if (connection.get() < 0) return system_error("kestro_tcp_socket_connect");

  Address address{};
  address.inet.sin_family = AF_INET;
  address.inet.sin_port = htons(static_cast<uint16_t>(socket_port));
  errno = EINVAL;  // a text that is no address leaves errno alone
  if (inet_pton(AF_INET, host_addr, &address.inet.sin_addr) != 1) return system_error("inet_pton");
  if (connect(connection.get(), &address.any, sizeof address.inet) < 0) {
    return errno == ETIMEDOUT ? status::connect_timed_out : status::general_error;
  }
  *client_sock_fd = connection.release();
  return status::ok;
}

int32_t kestro_socket_recv(int32_t* accepted_sock_fd, char* message, int32_t length) noexcept {
  if (accepted_sock_fd == nullptr || message == nullptr) return null_pointer(here(), "kestro_socket_recv", 0);
  return static_cast<int32_t>(receive(*accepted_sock_fd, message, as_size(length)));
}

int32_t kestro_socket_recv_read_to_newline(int32_t* accepted_sock_fd, char* message, int32_t length) noexcept {
  if (accepted_sock_fd == nullptr || message == nullptr) return null_pointer(here(), "kestro_socket_recv", 0);

  int32_t total = 0;
  for (;;) {
    char* const piece = message + total;
    const ssize_t count = receive(*accepted_sock_fd, piece, as_size(length - total));
    if (count <= 0) return total;

    total += static_cast<int32_t>(count);
    if (total >= length) {
      here().log_unchecked(Error, "overflowed socket read buffer\n");
      message[length - 1] = '\0';
      return total;
    }
    message[total] = '\0';
    if (memchr(piece, '\n', static_cast<size_t>(count)) != nullptr) return total;
  }
}

int32_t kestro_socket_send(int32_t* accepted_sock_fd, const char* message) noexcept {
  if (accepted_sock_fd == nullptr || message == nullptr) return null_pointer(here(), "kestro_socket_send");
  return send(*accepted_sock_fd, message, strlen(message), MSG_NOSIGNAL) < 0 ? status::general_error : status::ok;
}

int32_t kestro_socket_close(int32_t* accepted_sock_fd) noexcept {
  if (accepted_sock_fd == nullptr) return null_pointer(here(), "kestro_socket_close");
  if (close(*accepted_sock_fd) < 0) return system_error("kestro_socket_close");
  *accepted_sock_fd = -1;
  return status::ok;
}

void kestro_socket_shutdown(int32_t* server_sock_fd) noexcept {
  close(*server_sock_fd);
  *server_sock_fd = -1;
}
