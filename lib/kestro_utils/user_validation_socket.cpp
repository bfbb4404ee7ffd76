#include <cstdlib>
#include <cstring>

#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_socket.h"
#include "kestro_utils.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_utils");

constexpr int32_t max_request = 1024;

// The server's descriptor where its owner keeps it, so that one that the owner has shut down is not closed again.
int32_t* user_validate_server_sock = nullptr;

}  // namespace

void kestro_user_validate_init_socket(int32_t* server_sock_fd, int32_t port) noexcept {
  if (kestro_check_for_null(1, server_sock_fd) != status::ok) return;
  while (kestro_tcp_socket_init(port, server_sock_fd, 0) != status::ok) {
  }
  user_validate_server_sock = server_sock_fd;
}

void kestro_user_validate_listen_socket(int32_t* server_sock_fd, int32_t* accepted_sock_fd, char* msg) noexcept {
  if (kestro_check_for_null(3, server_sock_fd, accepted_sock_fd, msg) != status::ok) return;
  while (kestro_tcp_socket_accept(server_sock_fd, accepted_sock_fd) != status::ok) {
  }
  if (kestro_socket_recv(accepted_sock_fd, msg, max_request) < 0) {
    here().log(Error, "User Validate socket: read error\n");
  }
}

void kestro_user_validate_write_socket(int32_t* accepted_sock_fd, char* msg) noexcept {
  if (kestro_check_for_null(2, accepted_sock_fd, msg) != status::ok) return;
  memcpy(msg + strlen(msg), "\r\n", sizeof "\r\n");
  if (kestro_socket_send(accepted_sock_fd, msg) != status::ok) {
    here().log(Error, "User Validate socket: write error\n");
  }
  if (kestro_socket_close(accepted_sock_fd) != status::ok) {
    here().log(Error, "User Validate socket: unable to close socket\n");
  }
}

void kestro_cleanup_process(void) noexcept {
  if (user_validate_server_sock != nullptr) kestro_socket_shutdown(user_validate_server_sock);
  exit(EXIT_SUCCESS);
}
