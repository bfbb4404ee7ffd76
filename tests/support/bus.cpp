#include "support/bus.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>

#include "core/owned.hpp"
#include "kestro_mq.h"
#include "support/log.hpp"

namespace kestro::test {

namespace {

bool is_free(int port) {
  const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

// Keeps ports from the other test programs that run at the same time, as long as this one does: each is a byte of one
// file of the user's, which it locks. The system unlocks them at its end, and children have no part in them.
class Reservations {
 public:
  [[nodiscard]] bool take(int port) const {
    struct flock byte {};
    byte.l_type = F_WRLCK;
    byte.l_whence = SEEK_SET;
    byte.l_start = port;
    byte.l_len = 1;
    return fcntl(file_.get(), F_SETLK, &byte) == 0;
  }

 private:
  Descriptor file_{open(path().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)};

  static std::string path() {
    return std::filesystem::temp_directory_path() / ("kestro-test-ports-" + std::to_string(getuid()));
  }
};
const Reservations reservations;

void require(int32_t status, const char* what) {
  if (status != 0) throw std::runtime_error(what);
}

std::string receive_now(int32_t socket) {
  char* raw = nullptr;
  int32_t length = 0;
  if (kestro_mq_socket_recv(socket, &raw, &length, 1) != 0) return {};
  const Text message(raw);
  return {message.get(), static_cast<size_t>(length)};
}

}  // namespace

int free_port() {
  constexpr int first = 10'000;
  constexpr int count = 20'000;
  static std::atomic<int> next{getpid() * 61};
  for (int tries = 0; tries < count; ++tries) {
    const int port = first + (next++ % count);
    if (reservations.take(port) && is_free(port)) return port;
  }
  throw std::runtime_error("no free port");
}

std::string free_bus_address() {
  return "tcp://127.0.0.1:" + std::to_string(free_port());
}

BusSocket::BusSocket(int32_t sp_type) {
  require(kestro_mq_socket_init(sp_type, &handle_), "bus socket");
}

BusSocket::~BusSocket() {
  kestro_mq_socket_close(handle_);
}

BusSocket& BusSocket::bind(const std::string& address) {
  int32_t eid = 0;
  require(kestro_mq_socket_bind(handle_, KESTRO_MQ_TRANSPORT_TCP, address.c_str(), &eid), "bind");
  return *this;
}

BusSocket& BusSocket::connect(const std::string& address) {
  int32_t eid = 0;
  require(kestro_mq_socket_connect(handle_, KESTRO_MQ_TRANSPORT_TCP, address.c_str(), &eid), "connect");
  return *this;
}

BusSocket& BusSocket::subscribe(std::string_view channel) {
  require(kestro_mq_socket_subscribe(handle_, std::string(channel).c_str()), "subscribe");
  return *this;
}

BusSocket& BusSocket::timeout(int32_t milliseconds) {
  require(kestro_mq_socket_set_timeout(handle_, milliseconds), "time-out");
  return *this;
}

void await_link(int32_t publisher, int32_t subscriber) {
  const LogLevel quiet(0);
  static std::atomic<int> links{0};
  const std::string channel = "link-" + std::to_string(getpid()) + "-" + std::to_string(links++) + "-";
  require(kestro_mq_socket_subscribe(subscriber, channel.c_str()), "subscribe");

  int sent = 0;
  std::string last;
  // First until any probe arrives, then until the last one that was sent has.
  while (last.empty()) {
    kestro_mq_socket_send(publisher, (channel + std::to_string(++sent)).c_str());
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    last = receive_now(subscriber);
  }
  while (last != channel + std::to_string(sent)) {
    if (auto message = receive_now(subscriber); !message.empty()) last = message;
  }
  require(kestro_mq_socket_unsubscribe(subscriber, channel.c_str()), "unsubscribe");
}

BusPair::BusPair() : publisher(KESTRO_MQ_SP_PUB), subscriber(KESTRO_MQ_SP_SUB) {
  publisher.bind(address);
  subscriber.connect(address).subscribe("").timeout(10'000);
  await_link(publisher.handle(), subscriber.handle());
}

}  // namespace kestro::test
