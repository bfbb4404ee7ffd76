#include "routerd/bus.hpp"

#include <nanomsg/nn.h>
#include <nanomsg/pubsub.h>
#include <nanomsg/tcp.h>
#include <poll.h>

#include <algorithm>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>
#include <fstream>
#include <stdexcept>

#include "core/owned.hpp"
#include "kestro_mq.h"

namespace kestro::routerd {

namespace {

constexpr int wanted_buffer = 4 << 20;
// A service that floods the router must not keep it from its clients.
constexpr int frames_at_a_time = 64;

// What the kernel grants of a wanted buffer; it doubles that for its own overhead.
size_t granted_buffer(const char* limit_file) {
  size_t limit = 212'992;
  std::ifstream(limit_file) >> limit;
  return std::min<size_t>(wanted_buffer, limit);
}

void require(int32_t status, const std::string& what) {
  if (status != 0) throw std::runtime_error(what);
}

void set(int32_t socket, int level, int option, int value) {
  require(nn_setsockopt(socket, level, option, &value, sizeof value),
          "nn_setsockopt: option " + std::to_string(option));
}

// Small messages leave at once, a lost connection comes back within a moment.
void set_for_a_local_bus(int32_t socket) {
  set(socket, NN_TCP, NN_TCP_NODELAY, 1);
  set(socket, NN_SOL_SOCKET, NN_RECONNECT_IVL, 20);
}

int32_t open_publisher(const std::string& address) {
  int32_t socket = -1;
  require(kestro_mq_socket_init(KESTRO_MQ_SP_PUB, &socket), "cannot open a publish socket");
  set_for_a_local_bus(socket);
  set(socket, NN_SOL_SOCKET, NN_SNDBUF, wanted_buffer);
  int32_t eid = 0;
  require(kestro_mq_socket_bind(socket, KESTRO_MQ_TRANSPORT_TCP, address.c_str(), &eid),
          "cannot publish at " + address + ": " + nn_strerror(nn_errno()));
  return socket;
}

int32_t open_subscriber(const std::vector<std::string>& addresses) {
  int32_t socket = -1;
  require(kestro_jrpc_mq_sub_init(&socket, 0), "cannot open a subscribe socket");
  set_for_a_local_bus(socket);
  set(socket, NN_SOL_SOCKET, NN_RCVBUF, wanted_buffer);
  // A message above the limit would end all receiving from its sender; no answer is too long for the router.
  set(socket, NN_SOL_SOCKET, NN_RCVMAXSIZE, -1);
  for (const auto& address : addresses) {
    require(kestro_jrpc_mq_sub_set_channel(address.c_str(), KESTRO_JRPC_CHANNEL_ROUTER_REPLY, &socket),
            "cannot subscribe at " + address);
  }
  return socket;
}

int receive_descriptor(int32_t socket) {
  int32_t fd = -1;
  require(kestro_mq_socket_recvfd(socket, &fd), "no descriptor to wait on");
  return fd;
}

}  // namespace

Bus::Bus(asio::io_context& io, const std::string& publish, const std::vector<std::string>& subscribe)
    : publisher_(open_publisher(publish)),
      subscriber_(open_subscriber(subscribe)),
      capacity_(granted_buffer("/proc/sys/net/core/wmem_max")),
      readable_(io, receive_descriptor(subscriber_)) {}

Bus::~Bus() {
  static_cast<void>(readable_.release());  // nanomsg's own, closed with the socket
  kestro_mq_socket_close(subscriber_);
  kestro_mq_socket_close(publisher_);
}

int32_t Bus::publish(const char* channel, const char* request) {
  return kestro_jrpc_mq_pub(&publisher_, channel, request);
}

void Bus::stop() {
  stopped_ = true;  // the wait may be over already
  asio::error_code ignored;
  readable_.cancel(ignored);
}

asio::awaitable<void> Bus::receive(std::function<void(std::string)> take) {
  while (!stopped_) {
    asio::error_code failed;
    co_await readable_.async_wait(asio::posix::stream_descriptor::wait_read,
                                  asio::redirect_error(asio::use_awaitable, failed));
    if (failed) co_return;
    int taken = 0;
    do {
      take_one(take);
    } while (++taken < frames_at_a_time && has_frame());
  }
}

// Asking nanomsg would contend with its own thread, which at that moment is receiving the next one.
bool Bus::has_frame() {
  pollfd readable{.fd = readable_.native_handle(), .events = POLLIN, .revents = 0};
  return poll(&readable, 1, 0) > 0;
}

void Bus::take_one(const std::function<void(std::string)>& take) const {
  char* raw_frame = nullptr;
  int32_t length = 0;
  if (kestro_mq_socket_recv(subscriber_, &raw_frame, &length, 1) != 0) return;
  const Text frame(raw_frame);
  const char* const end = raw_frame + length;
  const char* const bar = std::find(raw_frame, raw_frame + length, '|');
  take(bar != end ? std::string(bar + 1, end) : std::string());
}

}  // namespace kestro::routerd
