// Sockets on the bus as the daemons of one unit want them: small messages leave at once, a lost connection comes back
// within a moment, and the buffers hold a burst.
#ifndef KESTRO_DAEMONS_BUS_SOCKETS_HPP
#define KESTRO_DAEMONS_BUS_SOCKETS_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace kestro::daemons {

// The buffer asked for at each end of a connection. The kernel may grant less.
inline constexpr int wanted_buffer = 4 << 20;

// All throw std::runtime_error, saying which address, when a socket cannot be set up.
int32_t open_publisher(const std::string& address);
// Receives of any length. `wait_ms` bounds one receive; -1 waits for ever.
int32_t open_subscriber(const std::vector<std::string>& addresses, const std::string& channel, int wait_ms = -1);
// Polls readable while the subscriber may have a message. It belongs to the socket.
int receive_descriptor(int32_t subscriber);

// A socket that is closed when it goes out of scope.
class BusSocket {
 public:
  explicit BusSocket(int32_t handle) noexcept : handle_(handle) {}
  BusSocket(const BusSocket&) = delete;
  BusSocket& operator=(const BusSocket&) = delete;
  ~BusSocket();
  [[nodiscard]] int32_t get() const noexcept { return handle_; }
  // The caller's from now on.
  int32_t release() noexcept { return std::exchange(handle_, -1); }

 private:
  int32_t handle_;
};

}  // namespace kestro::daemons

#endif
