#include "kestroctl/bus_tap.hpp"

#include <nanomsg/nn.h>
#include <poll.h>

#include <algorithm>
#include <utility>

#include "common/signals.hpp"
#include "kestro_jrpc.h"
#include "kestro_mq.h"
#include "kestroctl/exit_status.hpp"

namespace kestro::ctl {

namespace {

using namespace std::chrono_literals;

// A connection that stands on this side stands on the other a moment later.
constexpr auto moment = 10ms;

constexpr std::pair<const char*, const char*> channel_names[] = {
    {KESTRO_JRPC_CHANNEL_ROUTER_REPLY, "reply"}, {KESTRO_JRPC_CHANNEL_3A6F8F51, "config"},
    {KESTRO_JRPC_CHANNEL_505A5451, "events"},    {KESTRO_JRPC_CHANNEL_B4469F46, "cache"},
    {KESTRO_JRPC_CHANNEL_DEFAULT, "hardware"},
};

const std::vector<std::string>& needed(const std::vector<std::string>& publishers) {
  if (publishers.empty()) {
    throw Failure(Exit::Usage, "which bus? Give --bus ADDRESS for each publisher, or set KESTRO_BUS");
  }
  return publishers;
}

}  // namespace

BusTap::BusTap(const std::vector<std::string>& publishers, const std::string& channel)
    : signals_(daemons::block_ending_signals()),
      publishers_(publishers.size()),
      socket_(daemons::open_subscriber(needed(publishers), channel)) {}

size_t BusTap::connect(Clock::time_point deadline) {
  const auto connected = [this] {
    return static_cast<size_t>(nn_get_statistic(socket_.get(), NN_STAT_CURRENT_CONNECTIONS));
  };
  while (connected() < publishers_ && Clock::now() < deadline && !ended_) wait(-1, Clock::now() + moment);
  wait(-1, Clock::now() + moment);
  return connected();
}

std::optional<BusTap::Frame> BusTap::next(Clock::time_point deadline) {
  const int fd = daemons::receive_descriptor(socket_.get());
  while (!ended_) {
    if (auto frame = take()) return frame;
    if (Clock::now() >= deadline) break;
    wait(fd, deadline);
  }
  return std::nullopt;
}

std::optional<BusTap::Frame> BusTap::take() const {
  char* raw = nullptr;
  int32_t length = 0;
  if (kestro_mq_socket_recv(socket_.get(), &raw, &length, 1) != 0) return std::nullopt;
  const Text frame(raw);
  return split_frame({frame.get(), static_cast<size_t>(length)});
}

void BusTap::wait(int receive_fd, Clock::time_point deadline) {
  pollfd descriptors[] = {{signals_.get(), POLLIN, 0}, {receive_fd, POLLIN, 0}};
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  poll(descriptors, std::size(descriptors), static_cast<int>(std::clamp<long>(left, 0, 60'000)));
  if (descriptors[0].revents != 0) ended_ = true;
}

BusTap::Frame split_frame(const std::string& frame) {
  const auto bar = frame.find('|');
  if (bar == std::string::npos) return {"", frame};
  return {frame.substr(0, bar), frame.substr(bar + 1)};
}

std::string name_of_channel(const std::string& channel) {
  for (const auto& [id, name] : channel_names) {
    if (channel == id) return name;
  }
  return channel;
}

}  // namespace kestro::ctl
