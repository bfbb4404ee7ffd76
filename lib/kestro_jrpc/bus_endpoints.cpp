#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_jrpc.h"
#include "kestro_jrpc/envelope.hpp"
#include "kestro_jrpc/evaluate.hpp"
#include "kestro_jrpc/fd_locks.hpp"
#include "kestro_jrpc/json.hpp"
#include "kestro_mq.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_jrpc");

constexpr int32_t receive_timeout_ms = 1000;
constexpr int32_t frames_cleared = 10;

// Frames and sends. A lock, if given, is taken for the send and kept when that succeeds.
int32_t publish(const int32_t* mq_socket_out, const char* channel, const char* message, pthread_mutex_t* lock,
                Severity send_failure) noexcept {
  here().log(Verbose, "[kestro_jrpc_mq_pub]: Prefixing channel with response...\n");
  const Text frame(kestro_jrpc_add_channel(channel, message));
  if (!frame) return here().fail(Debug, status::general_error, "[kestro_jrpc_mq_pub]: add_channel failed\n");

  here().log(Verbose, "[kestro_jrpc_mq_pub]: Sending message over mq_pub...\n");
  if (lock != nullptr) pthread_mutex_lock(lock);
  if (const auto sent = kestro_mq_socket_send(*mq_socket_out, frame.get()); sent != status::ok) {
    if (lock != nullptr) pthread_mutex_unlock(lock);
    return here().fail(send_failure, sent, "[kestro_jrpc_mq_pub]: Error mq_send, rc = %d\n", sent);
  }
  here().log(Verbose, "[kestro_jrpc_mq_pub]: mq_send msg[%d]: %s\n", length_of(frame.get()), frame.get());
  return status::ok;
}

int32_t null_pointer_in_pub(Site site) noexcept {
  return site.fail(Debug, status::null_argument, "[kestro_jrpc_mq_pub]: Null Pointer!\n");
}

// The request of a frame, parsed once for all, and the channel that its sender listens on: null for a notification.
int32_t open_frame(const char* frame, int32_t length, Json& request, Text& reply_channel) noexcept {
  char* raw_text = nullptr;
  const auto parsed = kestro_jrpc_parse_msg(frame, length, &raw_text);
  const Text text(raw_text);
  if (parsed != status::ok) {
    return here().fail(Debug, parsed, "[kestro_jrpc_mq_run]: Error parse_msg, rc = %d\n", parsed);
  }
  request = parse_addressed(text.get());
  char* channel = nullptr;
  const auto found = request ? channel_of(request.get(), &channel) : status::general_error;
  if (found != status::ok && found != status::no_request_id) {
    return here().fail(Debug, found, "[kestro_jrpc_mq_run]: Error parse_channel, rc = %d\n", found);
  }
  reply_channel.reset(channel);
  return status::ok;
}

int32_t answer(int32_t* mq_socket_out, const json_t* request, const char* reply_channel,
               kestro_jrpc_mapping_t* table) noexcept {
  char* raw_response = nullptr;
  const auto evaluated = evaluate(request, table, &raw_response);
  const Text response(raw_response);
  if (evaluated != status::ok || !response) return evaluated;

  here().log(Debug, "[kestro_jrpc_mq_run]: Sending response over mq_pub ...\n");
  const auto published = kestro_jrpc_mq_pub(mq_socket_out, reply_channel, response.get());
  if (published != status::ok) here().log(Debug, "[kestro_jrpc_mq_run]: Error mq_send, rc = %d\n", published);
  return published;
}

}  // namespace

int32_t kestro_jrpc_mq_pub_init(const char* sp_addr, int32_t* mq_socket_out) noexcept {
  if (sp_addr == nullptr || mq_socket_out == nullptr) {
    return here().fail(Debug, status::null_argument, "[kestro_jrpc_mq_pub_init]: NULL pointer!\n");
  }
  int32_t handle = -1;
  if (const auto created = kestro_mq_socket_init(KESTRO_MQ_SP_PUB, &handle); created != status::ok) {
    return here().fail(Debug, status::general_error,
                       "[kestro_jrpc_mq_pub_init]: Error mq_socket_init for pub, rc = %d\n", created);
  }
  int32_t eid = 0;
  const auto bound = kestro_mq_socket_bind(handle, KESTRO_MQ_TRANSPORT_TCP, sp_addr, &eid);
  if (bound != status::ok) {
    return here().fail(Debug, bound, "[kestro_jrpc_mq_pub_init]: Error mq_socket_bind for pub, rc = %d\n", bound);
  }
  *mq_socket_out = handle;
  here().log(Debug, "[kestro_jrpc_mq_pub_init]: mq_socket for pub initialized.\n");
  return status::ok;
}

int32_t kestro_jrpc_mq_sub_init(int32_t* mq_socket_in, int32_t nonblock_enable) noexcept {
  if (mq_socket_in == nullptr) {
    return here().fail(Debug, status::null_argument, "[kestro_jrpc_mq_sub_init]: NULL pointer!\n");
  }
  int32_t handle = -1;
  if (const auto created = kestro_mq_socket_init(KESTRO_MQ_SP_SUB, &handle); created != status::ok) {
    return here().fail(Debug, status::general_error,
                       "[kestro_jrpc_mq_sub_init]: Error mq_socket_init for sub, rc = %d\n", created);
  }
  if (nonblock_enable != 0) {
    const auto set = kestro_mq_socket_set_timeout(handle, receive_timeout_ms);
    if (set != status::ok) {
      kestro_mq_socket_close(handle);
      return here().fail(Debug, status::general_error,
                         "[kestro_jrpc_mq_sub_init]: Error kestro_mq_socket_set_timeout for sub, rc = %d\n", set);
    }
  }
  *mq_socket_in = handle;
  here().log(Debug, "[kestro_jrpc_mq_sub_init]: mq_socket for sub initialized.\n");
  return status::ok;
}

int32_t kestro_jrpc_mq_sub_set_channel(const char* sp_addr, const char* channel, int32_t* mq_socket_in) noexcept {
  if (sp_addr == nullptr || channel == nullptr || mq_socket_in == nullptr) {
    return here().fail(Debug, status::null_argument, "[kestro_jrpc_mq_sub_set_channel]: NULL pointer!\n");
  }
  int32_t eid = 0;
  const auto connected = kestro_mq_socket_connect(*mq_socket_in, KESTRO_MQ_TRANSPORT_TCP, sp_addr, &eid);
  if (connected != status::ok) {
    here().log(Debug, "[kestro_jrpc_mq_sub_set_channel]: Error mq_socket_connect for sub, rc = %d\n", connected);
    kestro_mq_socket_close(*mq_socket_in);
    return status::general_error;
  }
  const auto subscribed = kestro_mq_socket_subscribe(*mq_socket_in, channel);
  if (subscribed != status::ok) {
    here().log(Debug, "[kestro_jrpc_mq_sub_set_channel]: Error mq_socket_subscribe for sub, rc = %d\n", subscribed);
    kestro_mq_socket_close(*mq_socket_in);
    return status::general_error;
  }
  return status::ok;
}

int32_t kestro_jrpc_mq_pub(int32_t* mq_socket_out, const char* channel, const char* message) noexcept {
  if (mq_socket_out == nullptr || channel == nullptr || message == nullptr) return null_pointer_in_pub(here());
  return publish(mq_socket_out, channel, message, nullptr, Debug);
}

int32_t kestro_jrpc_mq_pub_lock(int32_t* mq_socket_out, const char* channel, const char* message,
                                int32_t mq_socket_in) noexcept {
  if (mq_socket_out == nullptr || channel == nullptr || message == nullptr) return null_pointer_in_pub(here());
  return publish(mq_socket_out, channel, message, find_fd_lock(mq_socket_in), Error);
}

int32_t kestro_jrpc_mq_run(int32_t* mq_socket_in, int32_t* mq_socket_out, kestro_jrpc_mapping_t* method_handler_table,
                           int32_t nonblock_enable) noexcept {
  if (mq_socket_in == nullptr || mq_socket_out == nullptr || method_handler_table == nullptr) {
    return here().fail(Debug, status::null_argument, "[kestro_jrpc_mq_run]: Null Pointer!\n");
  }
  here().log(Verbose, "[kestro_jrpc_mq_run]: waiting to receive... \n");
  char* raw_frame = nullptr;
  int32_t length = 0;
  const auto received = kestro_mq_socket_recv(*mq_socket_in, &raw_frame, &length, nonblock_enable);
  const Text frame(raw_frame);
  if (received != status::ok) return received;
  if (length == 0) return status::general_error;
  here().log(Verbose, "[kestro_jrpc_mq_run]: mq_recv msg[%d]: %s\n", length, frame.get());

  Json request;
  Text reply_channel;
  const auto opened = open_frame(frame.get(), length, request, reply_channel);
  if (opened != status::ok) return opened;
  return answer(mq_socket_out, request.get(), reply_channel.get(), method_handler_table);
}

void kestro_jrpc_clear_logic_sub_sock(int32_t mq_socket_in) noexcept {
  auto* const lock = find_fd_lock(mq_socket_in);
  if (lock == nullptr || pthread_mutex_trylock(lock) != 0) {
    here().log(Debug, "socket busy, skip clear\n");
    return;
  }
  for (int32_t i = 0; i < frames_cleared; ++i) {
    char* frame = nullptr;
    int32_t length = 0;
    kestro_mq_socket_recv(mq_socket_in, &frame, &length, 1);
    const Text dropped(frame);
  }
  pthread_mutex_unlock(lock);
}
