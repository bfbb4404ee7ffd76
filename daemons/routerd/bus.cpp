#include "routerd/bus.hpp"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>
#include <new>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "kestro_mq.h"

namespace kestro::routerd {

namespace {

constexpr auto here = site_of("kestro_routerd");

// A service that floods the router must not keep it from its clients.
constexpr int frames_at_a_time = 64;

// What the kernel grants a socket of the wanted send buffer; it tells the double, which is with its own overhead.
size_t granted_buffer() {
  const Descriptor probe(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  int size = daemons::wanted_buffer;
  socklen_t length = sizeof size;
  ::setsockopt(probe.get(), SOL_SOCKET, SO_SNDBUF, &size, length);
  ::getsockopt(probe.get(), SOL_SOCKET, SO_SNDBUF, &size, &length);
  return static_cast<size_t>(size) / 2;
}

}  // namespace

Bus::Bus(asio::io_context& io, const std::string& publish, const std::vector<std::string>& subscribe)
    : publisher_(daemons::open_publisher(publish)),
      subscriber_(daemons::open_subscriber(subscribe, KESTRO_JRPC_CHANNEL_ROUTER_REPLY)),
      capacity_(granted_buffer()),
      readable_(io, daemons::receive_descriptor(subscriber_.get())) {}

Bus::~Bus() {
  static_cast<void>(readable_.release());  // nanomsg's own, closed with the socket
}

int32_t Bus::publish(const char* channel, const char* request) {
  int32_t publisher = publisher_.get();
  return kestro_jrpc_mq_pub(&publisher, channel, request);
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
  if (kestro_mq_socket_recv(subscriber_.get(), &raw_frame, &length, 1) != 0) return;
  const Text frame(raw_frame);
  const char* const end = raw_frame + length;
  const char* const bar = std::find(raw_frame, raw_frame + length, '|');
  try {
    take(bar != end ? std::string(bar + 1, end) : std::string());
  } catch (const std::bad_alloc&) {
    here().log(Warning, "out of memory: a response is dropped\n");
  }
}

}  // namespace kestro::routerd
