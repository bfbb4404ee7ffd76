// The router's two sockets on the bus.
#ifndef KESTRO_ROUTERD_BUS_HPP
#define KESTRO_ROUTERD_BUS_HPP

#include <asio/awaitable.hpp>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common/bus_sockets.hpp"
#include "kestro_jrpc.h"

namespace kestro::routerd {

class Bus {
 public:
  // Throws std::runtime_error, saying which address, when a socket cannot be set up.
  Bus(asio::io_context& io, const std::string& publish, const std::vector<std::string>& subscribe);
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;
  ~Bus();

  // Publishes a request on the channel of its service. Never waits.
  int32_t publish(const char* channel, const char* request);

  // Hands each frame of the reply channel to `take`, without its channel, until stop(). A frame without a separator
  // gives an empty text.
  asio::awaitable<void> receive(std::function<void(std::string)> take);

  // Ends receive().
  void stop();

  // Bytes that one publisher can have on its way to a subscriber without losing any, overhead included.
  [[nodiscard]] size_t capacity() const noexcept { return capacity_; }

 private:
  [[nodiscard]] bool has_frame();
  void take_one(const std::function<void(std::string)>& take) const;

  daemons::BusSocket publisher_;
  daemons::BusSocket subscriber_;
  size_t capacity_;
  asio::posix::stream_descriptor readable_;
  bool stopped_ = false;
};

}  // namespace kestro::routerd

#endif
