// An ear on the bus.
#ifndef KESTRO_CTL_BUS_TAP_HPP
#define KESTRO_CTL_BUS_TAP_HPP

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/bus_sockets.hpp"
#include "core/owned.hpp"

namespace kestro::ctl {

// SIGINT and SIGTERM are taken as the wish to end from the construction on.
class BusTap {
 public:
  using Clock = std::chrono::steady_clock;

  // Listens to what begins with `channel` from each publisher. Throws Failure (Usage) where there is no address.
  BusTap(const std::vector<std::string>& publishers, const std::string& channel);

  // Waits until all publishers are connected, or the deadline. How many are.
  size_t connect(Clock::time_point deadline);

  struct Frame {
    std::string channel;
    std::string text;
  };
  // The next frame; nothing when the deadline comes or the end is asked for.
  std::optional<Frame> next(Clock::time_point deadline);
  [[nodiscard]] bool ended() const { return ended_; }
  [[nodiscard]] size_t publishers() const { return publishers_; }

 private:
  std::optional<Frame> take() const;
  void wait(int receive_fd, Clock::time_point deadline);

  Descriptor signals_;
  size_t publishers_;
  daemons::BusSocket socket_;
  bool ended_ = false;
};

// What a frame of the bus holds without its envelope.
BusTap::Frame split_frame(const std::string& frame);

// The name of the service behind a channel; the channel itself where it has none.
std::string name_of_channel(const std::string& channel);

}  // namespace kestro::ctl

#endif
