// What stands around a router in tests: clients on one side, a bus on the other.
#ifndef KESTRO_TESTS_ROUTER_HPP
#define KESTRO_TESTS_ROUTER_HPP

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "core/owned.hpp"
#include "kestro_mq.h"
#include "kestro_socket.h"
#include "support/bus.hpp"
#include "support/log.hpp"
#include "support/stream.hpp"

namespace kestro::test {

inline const std::string reply_channel = "2524546b-ca99-4868-a062-359cefacff7c";
inline const std::string ports_channel = "3a6f8f51-502f-4238-9638-29764ff1a8a4";
inline const std::string events_channel = "505a5451-3ef2-4618-8087-9a22b800a510";
inline const std::string default_channel = "30e493d7-9e02-41b6-97f5-21f2cc9cbbb3";

// What the router publishes arrives at its own subscriber: there the tests see it, and there they put what a service
// would answer.
class RouterTest : public testing::Test {
 protected:
  ~RouterTest() override {
    if (connection >= 0) kestro_socket_shutdown(&connection);
  }

  int32_t* bus_out() { return bus.publisher.address_of_handle(); }
  int32_t* bus_in() { return bus.subscriber.address_of_handle(); }

  void publish(std::string_view frame) const {
    const LogLevel quiet(0);
    ASSERT_EQ(kestro_mq_socket_send(bus.publisher.handle(), std::string(frame).c_str()), 0);
  }
  // The frame that comes next, or "none".
  [[nodiscard]] std::string next_frame() const {
    const LogLevel quiet(0);
    char* raw = nullptr;
    int32_t length = 0;
    if (kestro_mq_socket_recv(bus.subscriber.handle(), &raw, &length, 0) != 0) return "none";
    const Text frame(raw);
    return {frame.get(), static_cast<size_t>(length)};
  }
  // Whether nothing lies on the bus: what is sent now comes first.
  [[nodiscard]] bool nothing_published() const {
    publish("marker");
    return next_frame() == "marker";
  }
  void accept_client() { ASSERT_EQ(kestro_socket_accept(server.handle(), &connection), 0); }

  static constexpr int32_t untouched = -2;

  BusPair bus;
  StreamServer server;
  int32_t connection = untouched;  // closed at the end, where a test left it open
};

}  // namespace kestro::test

#endif
