// The router's roads: the two ready-made forwarding operations, and the same in four steps.

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_jrpc.h"
#include "kestro_jrpc/envelope.hpp"
#include "kestro_jrpc/json.hpp"
#include "kestro_jrpc/router_request.hpp"
#include "kestro_malloc.h"
#include "kestro_mq.h"
#include "kestro_socket.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_jrpc");

Text new_request_buffer() noexcept {
  return Text(static_cast<char*>(omalloc(router_buffer_size)));
}

// The connection of a client whose request is being taken in: closed unless it is handed over.
class Client {
 public:
  explicit Client(int32_t* out) noexcept : out_(out) { *out_ = -1; }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() {
    if (fd_ >= 0) kestro_socket_close(&fd_);
  }

  int32_t* fd() noexcept { return &fd_; }
  void hand_over() noexcept { *out_ = std::exchange(fd_, -1); }

 private:
  int32_t* out_;
  int32_t fd_ = -1;
};

// A request that fills the buffer is refused; its connection stays open, in the caller's hands.
int32_t refuse_full_buffer(Client& client, int32_t count) noexcept {
  client.hand_over();
  return here().fail(Error, status::buffer_too_small, "Too many bytes for buffer %d\n", count);
}

int32_t forward(int32_t* mq_socket_out, const char* message) noexcept {
  char* raw_request = nullptr;
  char* raw_channel = nullptr;
  const auto rewritten = kestro_jrpc_router_process_msg(message, &raw_request, &raw_channel);
  const Text request(raw_request);
  const Text channel(raw_channel);
  if (rewritten != status::ok) {
    return here().fail(Debug, rewritten, "[kestro_jrpc_router_socket_to_mq]: router_process_msg: failed\n");
  }
  here().log(Debug, "[kestro_jrpc_router_socket_to_mq]: Sending response over mq_pub ...\n");
  const auto published = kestro_jrpc_mq_pub(mq_socket_out, channel.get(), request.get());
  if (published != status::ok) {
    here().log(Debug, "[kestro_jrpc_router_socket_to_mq]: Error mq_pub, rc = %d\n", published);
  }
  return published;
}

// Waits for one response frame and sends its JSON text to the client.
int32_t relay_response(int32_t mq_socket_in, int32_t* client) noexcept {
  here().log(Verbose, "[kestro_jrpc_router_mq_to_socket]: waiting to receive... \n");
  char* raw_frame = nullptr;
  int32_t length = 0;
  const auto received = kestro_mq_socket_recv(mq_socket_in, &raw_frame, &length, 0);
  const Text frame(raw_frame);
  if (received != status::ok) return received;
  if (length == 0) return status::general_error;
  here().log(Verbose, "[kestro_jrpc_router_mq_to_socket]: mq_recv msg[%d]: %s\n", length, frame.get());

  char* raw_text = nullptr;
  const auto parsed = kestro_jrpc_parse_msg(frame.get(), length, &raw_text);
  const Text text(raw_text);
  if (parsed != status::ok) {
    return here().fail(Debug, parsed, "[kestro_jrpc_router_mq_to_socket]: Error parse_msg, rc = %d\n", parsed);
  }
  here().log(Verbose, "[kestro_jrpc_router_mq_to_socket]: parse_msg json_msg[%d]: %s\n", length_of(text.get()),
             text.get());
  const auto sent = kestro_socket_send(client, text.get());
  if (sent != status::ok) here().log(Debug, "[kestro_jrpc_router_mq_to_socket]: Error send, rc = %d\n", sent);
  return sent;
}

int32_t null_pointer(Site site, const char* function) noexcept {
  return site.fail(Debug, status::general_error, "[%s]: NULL pointer!\n", function);
}

}  // namespace

int32_t kestro_jrpc_router_socket_to_mq(int32_t* server_sock_fd, int32_t* mq_socket_out,
                                        int32_t* server_accept_sock_fd) noexcept {
  if (server_sock_fd == nullptr || mq_socket_out == nullptr || server_accept_sock_fd == nullptr) {
    return here().fail(Debug, status::null_argument, "[kestro_jrpc_router_socket_to_mq]: NULL pointer!\n");
  }
  Client client(server_accept_sock_fd);
  if (const auto accepted = kestro_socket_accept(server_sock_fd, client.fd()); accepted != status::ok) {
    return accepted;
  }
  const Text message = new_request_buffer();
  const int32_t count = kestro_socket_recv(client.fd(), message.get(), router_buffer_size);
  if (count <= 0) return status::general_error;
  if (count == router_buffer_size) return refuse_full_buffer(client, count);
  message.get()[count] = '\0';

  const auto forwarded = forward(mq_socket_out, message.get());
  if (forwarded == status::ok) client.hand_over();
  return forwarded;
}

int32_t kestro_jrpc_router_mq_to_socket(int32_t* mq_socket_in, int32_t* server_accept_sock_fd) noexcept {
  if (mq_socket_in == nullptr || server_accept_sock_fd == nullptr) {
    return here().fail(Debug, status::null_argument, "[kestro_jrpc_router_mq_to_socket]: Null Pointer!\n");
  }
  const auto relayed = relay_response(*mq_socket_in, server_accept_sock_fd);
  kestro_socket_close(server_accept_sock_fd);
  return relayed;
}

int32_t kestro_jrpc_router_socket_extract_request(int32_t* server_sock_fd, int32_t* server_accept_sock_fd,
                                                  json_t** request) noexcept {
  if (request != nullptr) *request = nullptr;
  if (server_sock_fd == nullptr || server_accept_sock_fd == nullptr || request == nullptr) {
    return null_pointer(here(), __func__);
  }
  Client client(server_accept_sock_fd);
  if (const auto accepted = kestro_socket_accept(server_sock_fd, client.fd()); accepted != status::ok) {
    return here().fail(Debug, accepted, "[%s]: Failed socket_accept, rc = %d\n", __func__, accepted);
  }
  const Text message = new_request_buffer();
  const int32_t count = kestro_socket_recv_read_to_newline(client.fd(), message.get(), router_buffer_size);
  if (count <= 0) {
    return here().fail(Debug, status::general_error, "[%s]: Failed socket_recv, readsize = %d\n", __func__, count);
  }
  if (count >= router_buffer_size) return refuse_full_buffer(client, count);

  Json root = router_parse(__func__, message.get());
  if (!root) return status::general_error;
  client.hand_over();
  *request = root.release();
  return status::ok;
}

int32_t kestro_jrpc_router_mq_dispatch_request(int32_t* mq_socket_out, json_t* request) noexcept {
  if (mq_socket_out == nullptr || request == nullptr) return null_pointer(here(), __func__);
  if (!router_show(__func__, request)) return status::general_error;

  const char* const method = router_method(__func__, request);
  if (method == nullptr) return status::general_error;
  here().log(Verbose, "[%s]: JSON Method: %s\n", __func__, method);
  const Text channel(kestro_jrpc_router_extract_channel(method));
  if (!channel) return here().fail(Debug, status::general_error, "[%s]: No JSON uuid\n", __func__);

  if (!router_check_id(__func__, request) || !router_replace_id(__func__, request)) return status::general_error;
  const Text text = router_encode(__func__, request);
  if (!text) return status::general_error;

  here().log(Debug, "[%s]: Sending response over mq_pub ...\n", __func__);
  const auto published = kestro_jrpc_mq_pub(mq_socket_out, channel.get(), text.get());
  if (published != status::ok) here().log(Debug, "[%s]: Error mq_pub, rc = %d\n", __func__, published);
  return published;
}

int32_t kestro_jrpc_router_mq_extract_response(int32_t* mq_socket_in, json_t** response) noexcept {
  if (response != nullptr) *response = nullptr;
  if (mq_socket_in == nullptr || response == nullptr) return null_pointer(here(), __func__);

  here().log(Debug, "[%s]: waiting to receive...\n", __func__);
  char* raw_frame = nullptr;
  int32_t length = 0;
  const auto received = kestro_mq_socket_recv(*mq_socket_in, &raw_frame, &length, 0);
  const Text frame(raw_frame);
  if (received != status::ok) {
    return here().fail(Debug, status::general_error, "[%s]: Failed mq_socket_recv, rc = %d\n", __func__, received);
  }
  char* raw_text = nullptr;
  const auto parsed = kestro_jrpc_parse_msg(frame.get(), length, &raw_text);
  const Text text(raw_text);
  if (parsed != status::ok) {
    return here().fail(Debug, status::general_error, "[%s]: Error parse_msg, rc = %d\n", __func__, parsed);
  }
  here().log(Debug, "[%s]: Recv: %s\n", __func__, text.get());
  Json root = router_parse(__func__, text.get());
  if (!root) return status::general_error;
  *response = root.release();
  return status::ok;
}

int32_t kestro_jrpc_router_socket_dispatch_response(int32_t* server_accept_sock_fd, json_t* response) noexcept {
  if (server_accept_sock_fd == nullptr || response == nullptr) return null_pointer(here(), __func__);

  const Text text = encode_json(response);
  if (!text) return here().fail(Debug, status::general_error, "[%s]: Cannot decode JSON message\n", __func__);
  here().log(Debug, "JSON response sent, of string length %d\n", length_of(text.get()));
  here().log(Verbose, "The JSON Request was:\n%s\n", text.get());
  here().log(Debug, "[%s]: Sending response over socket ...\n", __func__);
  const auto sent = kestro_socket_send(server_accept_sock_fd, text.get());
  // Log filters know both ways of a failed answer by the text of the first.
  if (sent != status::ok) here().log(Debug, "[kestro_jrpc_router_mq_to_socket]: Error send, rc = %d\n", sent);
  return sent;
}
