#include <array>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_jrpc.h"
#include "kestro_jrpc/evaluate.hpp"
#include "kestro_socket.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_jrpc");

constexpr int32_t max_request = 1024;

using Accept = int32_t (*)(int32_t* server, int32_t* accepted);

// Serves one connection that has been accepted; the caller closes it. `name` is how the endpoint calls itself in lines.
int32_t answer_one(int32_t connection, kestro_jrpc_mapping_t* table, const char* name) noexcept {
  std::array<char, max_request + 1> request{};
  if (kestro_socket_recv(&connection, request.data(), max_request) <= 0) return status::general_error;

  char* raw_response = nullptr;
  const auto evaluated = kestro_jrpc_eval_request(request.data(), table, &raw_response);
  const Text response(raw_response);
  if (evaluated != status::ok || !response) return evaluated;

  const auto sent = kestro_socket_send(&connection, response.get());
  if (sent != status::ok) here().log(Debug, "[%s]: Error response!\n", name);
  return sent;
}

int32_t serve_one(Accept accept, int32_t* server, kestro_jrpc_mapping_t* table, const char* name) noexcept {
  int32_t connection = -1;
  if (const auto accepted = accept(server, &connection); accepted != status::ok) return accepted;

  const auto answered = answer_one(connection, table, name);
  const auto closed = kestro_socket_close(&connection);
  return answered != status::ok ? answered : closed;
}

}  // namespace

int32_t kestro_jrpc_unix_socket_init(const char* socket_path, int32_t* server_sock_fd,
                                     int32_t nonblock_enable) noexcept {
  if (server_sock_fd == nullptr) {
    return here().fail(Debug, status::null_argument, "[kestro_jrpc_unix_socket_init]: NULL pointer!\n");
  }
  // A failed init is not the caller's to see: it gets the handle 0.
  *server_sock_fd = 0;
  if (kestro_unix_socket_init(socket_path, server_sock_fd, nonblock_enable) != status::ok) {
    return here().fail(Debug, status::ok, "[kestro_jrpc_unix_socket_init]: cannot init unix socket!\n");
  }
  here().log(Debug, "[kestro_jrpc_unix_socket_init]: unix socket initialized!\n");
  return status::ok;
}

int32_t kestro_jrpc_unix_socket_run(int32_t* server_sock_fd, kestro_jrpc_mapping_t* method_handler_table) noexcept {
  if (server_sock_fd == nullptr || method_handler_table == nullptr) {
    return here().fail(Debug, status::null_argument, "[kestro_jrpc_unix_socket_run]: NULL pointer!\n");
  }
  return serve_one(kestro_socket_accept, server_sock_fd, method_handler_table, "kestro_jrpc_unix_socket_run");
}

int32_t kestro_jrpc_tcp_socket_run(int32_t* server_sock_fd, kestro_jrpc_mapping_t* method_handler_table) noexcept {
  if (server_sock_fd == nullptr || method_handler_table == nullptr) {
    return here().fail(Debug, status::null_argument, "[kestro_jrpc_tcp_socket_run]: NULL pointer!\n");
  }
  return serve_one(kestro_tcp_socket_accept, server_sock_fd, method_handler_table, "kestro_jrpc_socket_run");
}
