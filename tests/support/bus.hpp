// Sockets of the bus for tests: real ones, on loopback ports picked free.
#ifndef KESTRO_TESTS_BUS_HPP
#define KESTRO_TESTS_BUS_HPP

#include <cstdint>
#include <string>
#include <string_view>

namespace kestro::test {

// A loopback port that nobody uses, outside the range from which the system takes its own.
int free_port();
// "tcp://127.0.0.1:PORT" with a free port.
std::string free_bus_address();

// A bus socket that is closed at the end of the scope.
class BusSocket {
 public:
  explicit BusSocket(int32_t sp_type);
  BusSocket(const BusSocket&) = delete;
  BusSocket& operator=(const BusSocket&) = delete;
  ~BusSocket();

  [[nodiscard]] int32_t handle() const { return handle_; }
  int32_t* address_of_handle() { return &handle_; }
  BusSocket& bind(const std::string& address);
  BusSocket& connect(const std::string& address);
  BusSocket& subscribe(std::string_view channel);
  // Receive time-out in milliseconds.
  BusSocket& timeout(int32_t milliseconds);

 private:
  int32_t handle_ = -1;
};

// Returns once what the publisher sends reaches the subscriber (a fresh connection drops messages without a word).
// Leaves no frame behind.
void await_link(int32_t publisher, int32_t subscriber);

// A publisher and a subscriber to everything, linked.
struct BusPair {
  BusPair();
  std::string address = free_bus_address();
  BusSocket publisher;
  BusSocket subscriber;
};

}  // namespace kestro::test

#endif
