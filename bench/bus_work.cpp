// Frames over the bus.
#include <nanomsg/nn.h>
#include <nanomsg/pubsub.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "kestro_mq.h"
#include "work.hpp"

namespace kestro::bench {

namespace {

constexpr size_t frame_size = 256;

void expect(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(std::string(what) + ": " + nn_strerror(nn_errno()));
}

// A publisher and its subscriber.
class Link {
 public:
  explicit Link(const std::string& address)
      : publisher_(nn_socket(AF_SP, NN_PUB)), subscriber_(nn_socket(AF_SP, NN_SUB)) {
    expect(nn_setsockopt(subscriber_, NN_SUB, NN_SUB_SUBSCRIBE, "", 0) == 0, "subscribe");
    expect(nn_bind(publisher_, address.c_str()) >= 0, "bind");
    expect(nn_connect(subscriber_, address.c_str()) >= 0, "connect");
    await();
  }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;
  ~Link() {
    nn_close(publisher_);
    nn_close(subscriber_);
  }

  void send_ours(const char* frame) const { expect(kestro_mq_socket_send(publisher_, frame) == 0, "send"); }
  void receive_ours() const {
    char* message = nullptr;
    int32_t length = 0;
    expect(kestro_mq_socket_recv(subscriber_, &message, &length, 0) == 0, "receive");
    free(message);
  }
  void send_barely(const char* frame) const { expect(nn_send(publisher_, frame, strlen(frame), 0) >= 0, "send"); }
  void receive_barely() const {
    void* message = nullptr;
    expect(nn_recv(subscriber_, &message, NN_MSG, 0) >= 0, "receive");
    nn_freemsg(message);
  }

 private:
  // What is published before the connection stands is lost.
  void await() const {
    while (!arrives()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    while (arrives_late()) {
    }
  }
  [[nodiscard]] bool arrives() const {
    expect(nn_send(publisher_, "", 0, 0) >= 0, "send");
    return nn_recv(subscriber_, nullptr, 0, NN_DONTWAIT) >= 0;
  }
  [[nodiscard]] bool arrives_late() const {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return nn_recv(subscriber_, nullptr, 0, NN_DONTWAIT) >= 0;
  }

  int publisher_;
  int subscriber_;
};

std::string unique_address(const char* scheme, const char* name) {
  return std::string(scheme) + "kestro-bench-" + name + "-" + std::to_string(::getpid());
}

// There and back.
Pair ping_pong(const char* scheme) {
  const auto there = std::make_shared<Link>(unique_address(scheme, "there"));
  const auto back = std::make_shared<Link>(unique_address(scheme, "back"));
  const std::string frame(frame_size, 'x');
  return {repeat([=] {
            for (const Link* const link : {there.get(), back.get()}) {
              link->send_ours(frame.c_str());
              link->receive_ours();
            }
          }),
          repeat([=] {
            for (const Link* const link : {there.get(), back.get()}) {
              link->send_barely(frame.c_str());
              link->receive_barely();
            }
          })};
}

Pair in_flight(const char* scheme) {
  constexpr size_t frames = 64;
  const auto link = std::make_shared<Link>(unique_address(scheme, "flight"));
  const std::string frame(frame_size, 'x');
  return {repeat([=] {
            for (size_t i = 0; i < frames; ++i) link->send_ours(frame.c_str());
            for (size_t i = 0; i < frames; ++i) link->receive_ours();
          }),
          repeat([=] {
            for (size_t i = 0; i < frames; ++i) link->send_barely(frame.c_str());
            for (size_t i = 0; i < frames; ++i) link->receive_barely();
          })};
}

}  // namespace

std::vector<Work> bus_work() {
  constexpr const char* within = "inproc://";
  constexpr const char* between = "ipc:///tmp/";
  return {
      {.name = "bus: ping-pong in a process", .target = 1.05, .prepare = [] { return ping_pong(within); }},
      {.name = "bus: 64 in flight in a process",
       .target = 1.05,
       .prepare = [] { return in_flight(within); },
       .block = 4},
      // The bus has threads of its own here.
      {.name = "bus: ping-pong over ipc",
       .target = 1.05,
       .prepare = [] { return ping_pong(between); },
       .clock = Clock::Wall},
      {.name = "bus: 64 in flight over ipc",
       .target = 1.05,
       .prepare = [] { return in_flight(between); },
       .block = 4,
       .clock = Clock::Wall},
  };
}

}  // namespace kestro::bench
