// The requests that are on the bus, by the number under which the router sent them.
#ifndef KESTRO_ROUTERD_IN_FLIGHT_HPP
#define KESTRO_ROUTERD_IN_FLIGHT_HPP

#include <asio/awaitable.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "routerd/response.hpp"

namespace kestro::routerd {

class InFlight {
 public:
  using Clock = std::chrono::steady_clock;

  InFlight();

  // One request in flight, from the number that it gets to its answer or its deadline.
  class Entry {
   public:
    Entry(InFlight& all, asio::io_context& io, std::string method, Clock::time_point deadline);
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    ~Entry();

    [[nodiscard]] int32_t number() const noexcept { return number_; }
    [[nodiscard]] Clock::time_point begun() const noexcept { return begun_; }
    [[nodiscard]] Clock::time_point deadline() const noexcept { return deadline_; }
    // The response, or nothing when the deadline passed or the wait was given up.
    asio::awaitable<std::optional<Response>> response();
    [[nodiscard]] const bool& given_up() const noexcept { return given_up_; }

   private:
    friend class InFlight;
    void wake();

    InFlight& all_;
    asio::steady_timer timer_;
    std::string method_;
    Clock::time_point begun_ = Clock::now();
    Clock::time_point deadline_;
    int32_t number_;
    std::optional<Response> response_;
    bool given_up_ = false;
  };

  enum class Delivery { Done, Late, Foreign };
  // Gives a response to whoever waits under its number for an answer of its method. It is taken when that is done.
  Delivery deliver(Response& response);

  // Ends every wait without a response.
  void give_up_all();

  [[nodiscard]] size_t size() const noexcept { return entries_.size(); }

 private:
  int32_t take_number();

  std::unordered_map<int64_t, Entry*> entries_;
  int32_t first_;
  int32_t next_;
  bool wrapped_ = false;
};

}  // namespace kestro::routerd

#endif
