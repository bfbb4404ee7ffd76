// The router: clients on one side, the bus on the other, and who waits for what.
#ifndef KESTRO_ROUTERD_ROUTER_HPP
#define KESTRO_ROUTERD_ROUTER_HPP

#include <asio/awaitable.hpp>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "routerd/bus.hpp"
#include "routerd/client.hpp"
#include "routerd/in_flight.hpp"
#include "routerd/options.hpp"
#include "routerd/request.hpp"
#include "routerd/send_window.hpp"
#include "routerd/stats.hpp"

namespace kestro::routerd {

class Router {
 public:
  // Opens every socket; throws std::runtime_error, saying what is wrong, when one cannot be had.
  Router(asio::io_context& io, Options options);
  Router(const Router&) = delete;
  Router& operator=(const Router&) = delete;
  ~Router();

  // Serves until a signal has ended it.
  void run();

  void set_maintenance(bool enabled);

 private:
  struct Listener {
    int family;
    asio::posix::stream_descriptor readable;
    int32_t fd;
  };
  // A client that is connected: it counts, the shutdown knows it, and it makes room when it goes.
  class Presence;

  void listen(int family, int32_t fd);
  asio::awaitable<void> accept_clients(Listener& listener);
  asio::awaitable<void> serve(std::shared_ptr<Client> client, std::unique_ptr<Presence> presence);
  asio::awaitable<std::string> answer_to(Request& request);
  asio::awaitable<void> keep_stats();
  asio::awaitable<void> end_on_signal();
  asio::awaitable<void> drain();
  asio::awaitable<void> wait_until(std::chrono::duration<double> limit, std::function<bool()> done);

  bool accept_those_waiting(Listener& listener);
  bool accept_one(Listener& listener);
  void begin_serving(const std::shared_ptr<Client>& client);
  void deliver(std::string text);
  void refuse(const char* reason);
  void publish_stats() noexcept;
  void handle_own(const Request& request, const Client& client);
  [[nodiscard]] bool is_busy() const;
  [[nodiscard]] std::chrono::nanoseconds time_for(const std::string& method) const;
  void stop_listening();
  [[noreturn]] void end_at_once();

  asio::io_context& io_;
  Options options_;
  Bus bus_;
  std::list<Listener> listeners_;
  asio::signal_set signals_;
  asio::steady_timer client_left_;
  asio::steady_timer stats_timer_;

  InFlight in_flight_;
  SendWindows windows_;
  std::list<Client*> clients_;
  bool maintenance_ = false;
  bool draining_ = false;
  bool ended_ = false;
  Stats stats_;
  StatsVariable stats_variable_;
};

}  // namespace kestro::routerd

#endif
