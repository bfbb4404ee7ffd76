// The router daemon as tests meet it: the process, services behind it, clients in front.
#ifndef KESTRO_TESTS_ROUTERD_HPP
#define KESTRO_TESTS_ROUTERD_HPP

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <jansson.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/owned.hpp"
#include "core/sanitized.hpp"
#include "kestro_jrpc.h"
#include "kestro_shm.h"
#include "routerd/stats.hpp"
#include "support/bus.hpp"
#include "support/log.hpp"
#include "support/process.hpp"
#include "support/shm_name.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {

// A request in JSON texts; `more` holds further members, each with its comma.
inline std::string request(const std::string& method, const std::string& params, const std::string& id,
                           const std::string& more = "") {
  return R"({"jsonrpc":"2.0","method":")" + method + R"(","params":)" + params + R"(,"id":)" + id + more + "}";
}
inline std::string answer(const std::string& method, const std::string& result, const std::string& more = "") {
  return R"({"jsonrpc":"2.0","id":")" + method + R"(","result":)" + result + more + "}";
}
inline std::string busy(const std::string& id) {
  return R"({"jsonrpc":"2.0","id":")" + id + R"(","error":{"code":-32014,"message":"System is busy.","data":null}})";
}
inline std::string timed_out(const std::string& id) {
  return R"({"jsonrpc":"2.0","id":")" + id + R"(","error":{"code":-32005,"message":"Command timed out","data":null}})";
}

// One client's connection.
class Connection {
 public:
  explicit Connection(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), std::min(path.size(), sizeof address.sun_path - 1));
    connect_to(reinterpret_cast<sockaddr*>(&address), sizeof address);
  }
  explicit Connection(int port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connect_to(reinterpret_cast<sockaddr*>(&address), sizeof address);
  }

  // False when the other side is gone.
  bool send(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t count = ::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL);
      if (count <= 0) return false;
      text.remove_prefix(static_cast<size_t>(count));
    }
    return true;
  }
  void end_sending() const { ::shutdown(socket_.get(), SHUT_WR); }

  // What comes until the connection is closed, at most `piece` bytes at a time.
  [[nodiscard]] std::string receive(size_t piece = 65'536) const {
    std::string text;
    std::string buffer(piece, '\0');
    // A child that stops or goes on interrupts a receive that has a time limit.
    const auto next = [&] { return TEMP_FAILURE_RETRY(::recv(socket_.get(), buffer.data(), buffer.size(), 0)); };
    for (ssize_t count = 0; (count = next()) > 0;) text.append(buffer.data(), static_cast<size_t>(count));
    return text;
  }
  // Whether nothing more comes, and the connection was closed in good order.
  [[nodiscard]] bool ends_well() const {
    char byte = 0;
    return TEMP_FAILURE_RETRY(::recv(socket_.get(), &byte, 1, 0)) == 0;
  }
  // Receives so many bytes.
  [[nodiscard]] std::string receive_exactly(size_t size) const {
    std::string text(size, '\0');
    const ssize_t count = TEMP_FAILURE_RETRY(::recv(socket_.get(), text.data(), size, MSG_WAITALL));
    text.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return text;
  }
  std::string call(std::string_view text) const {
    send(text);
    return receive();
  }
  // Whether anything, the end included, is there to be received.
  [[nodiscard]] bool has_news() const {
    char byte = 0;
    return ::recv(socket_.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) >= 0;
  }

 private:
  void connect_to(const sockaddr* address, socklen_t size) const {
    if (::connect(socket_.get(), address, size) != 0) throw std::runtime_error("nobody listens");
    const timeval patience{60, 0};
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }

  Descriptor socket_;
};

// A running daemon with two services: one for "ports." and one for "events." methods.
class Road {
 public:
  explicit Road(const std::vector<std::string>& options = {}) {
    start_router(options);
    start_ports();
    events_ = start_service(events_address_, KESTRO_JRPC_CHANNEL_505A5451);
    if (!is_served("ports") || !is_served("events")) throw std::runtime_error(router().err());
  }
  Road(const Road&) = delete;
  Road& operator=(const Road&) = delete;
  // However a test went, the daemon ends in good order and, where that is looked at, without a leak.
  ~Road() {
    if (router_->pid() < 0) return;
    EXPECT_EQ(router_->terminate(), 0) << router_->err();
  }

  [[nodiscard]] Process& router() { return *router_; }
  [[nodiscard]] Process& ports() { return *ports_; }
  [[nodiscard]] Process& events() { return *events_; }
  void start_ports() { ports_ = start_service(ports_address_, KESTRO_JRPC_CHANNEL_3A6F8F51); }

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] const std::filesystem::path& directory() const { return dir_.path(); }
  [[nodiscard]] Connection connect() const { return Connection(path_); }
  [[nodiscard]] Connection connect_by_tcp() const { return Connection(port_); }
  std::string call(std::string_view text) const { return connect().call(text); }

  // Whether the service answers, after a while at the latest. What is sent before it is on the bus is lost.
  bool is_served(const std::string& service) {
    return eventually([&] {
      const bool served = call(request(service + ".up.Echo", "{}", "0")).find("result") != std::string::npos;
      (served ? probes_answered_ : probes_lost_) += 1;
      return served;
    });
  }

  // A counter, as the daemon last published it, without the probes; -1 when there is none. Refusals by their reason.
  [[nodiscard]] int64_t counter(const std::string& name) const {
    std::array<char, routerd::StatsVariable::size> text{};
    kestro_shm_get_string(stats_name_.c_str(), routerd::StatsVariable::size, text.data());
    const Json counters(json_loads(text.data(), 0, nullptr));
    const json_t* const number = json_object_get(counters.get(), name.c_str());
    const json_t* const refused = json_object_get(json_object_get(counters.get(), "refused"), name.c_str());
    if (json_is_integer(number)) return json_integer_value(number) - probes_counted_as(name);
    return json_is_integer(refused) ? json_integer_value(refused) : -1;
  }
  // What is counted from here on was published after this.
  void forget_counters() const { kestro_shm_clear(stats_name_.c_str(), routerd::StatsVariable::size); }
  [[nodiscard]] bool counts(const std::string& name, int64_t number) const {
    return eventually([&] { return counter(name) == number; });
  }
  [[nodiscard]] bool counts_at_least(const std::string& name, int64_t number) const {
    return eventually([&] { return counter(name) >= number; });
  }
  // Whether the daemon says so in its log, sooner or later.
  [[nodiscard]] bool logs(std::string_view text) const {
    return eventually([&] { return router_->err().find(text) != std::string::npos; });
  }
  [[nodiscard]] const std::string& stats_name() const { return stats_name_.str(); }

 private:
  [[nodiscard]] int64_t probes_counted_as(std::string_view name) const {
    if (name == "answered") return probes_answered_;
    if (name == "timed_out") return probes_lost_;
    return name == "accepted" ? probes_answered_ + probes_lost_ : 0;
  }

  void start_router(const std::vector<std::string>& options) {
    std::vector<std::string> arguments = {KESTRO_ROUTERD,    "--listen-unix",       path_,
                                          "--listen-tcp",    std::to_string(port_), "--bus-publish",
                                          router_address_,   "--bus-subscribe",     ports_address_,
                                          "--bus-subscribe", events_address_,       "--stats-name",
                                          stats_name_.str(), "--timeout",           "ports.up.Echo=0.2",
                                          "--timeout",       "events.up.Echo=0.2"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    if (std::find(options.begin(), options.end(), "--drain-timeout") == options.end()) {
      arguments.insert(arguments.end(), {"--drain-timeout", "0.1"});
    }
    router_ = std::make_unique<Process>(arguments);
    if (!logs("ready: clients at")) throw std::runtime_error(router().err());
  }
  [[nodiscard]] std::unique_ptr<Process> start_service(const std::string& address, const std::string& channel) const {
    return std::make_unique<Process>(std::vector<std::string>{MISBEHAVING_SERVICE, address, router_address_, channel});
  }

  TempDir dir_;
  std::string path_ = dir_.file("router.sock");
  int port_ = free_port();
  std::string router_address_ = free_bus_address();
  std::string ports_address_ = free_bus_address();
  std::string events_address_ = free_bus_address();
  ShmName stats_name_;
  int64_t probes_answered_ = 0;
  int64_t probes_lost_ = 0;
  std::unique_ptr<Process> router_;
  std::unique_ptr<Process> ports_;
  std::unique_ptr<Process> events_;
};

}  // namespace kestro::test

#endif
