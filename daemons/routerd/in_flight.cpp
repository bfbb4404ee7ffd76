#include "routerd/in_flight.hpp"

#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>
#include <limits>
#include <random>
#include <utility>

namespace kestro::routerd {

namespace {

// Services may keep the number in 32 bits. The first one is random, so that answers to an earlier run are told apart.
int32_t random_number() {
  std::random_device device;
  return std::uniform_int_distribution<int32_t>(1, 1 << 30)(device);
}

}  // namespace

InFlight::InFlight() : first_(random_number()), next_(first_) {}

int32_t InFlight::take_number() {
  int32_t number = 0;
  do {
    number = next_;
    wrapped_ = wrapped_ || next_ == std::numeric_limits<int32_t>::max();
    next_ = next_ == std::numeric_limits<int32_t>::max() ? 1 : next_ + 1;
  } while (entries_.contains(number));
  return number;
}

InFlight::Entry::Entry(InFlight& all, asio::io_context& io, std::string method, Clock::time_point deadline)
    : all_(all), timer_(io), method_(std::move(method)), deadline_(deadline), number_(all.take_number()) {
  all_.entries_.emplace(number_, this);
}

InFlight::Entry::~Entry() {
  all_.entries_.erase(number_);
}

asio::awaitable<std::optional<Response>> InFlight::Entry::response() {
  // The timer is the deadline, and what wakes the wait before it.
  timer_.expires_at(deadline_);
  asio::error_code woken;
  if (!response_ && !given_up_) co_await timer_.async_wait(asio::redirect_error(asio::use_awaitable, woken));
  co_return std::move(response_);
}

void InFlight::Entry::wake() {
  timer_.cancel();
}

InFlight::Delivery InFlight::deliver(Response& response) {
  const int64_t number = response.number();
  const auto found = entries_.find(number);
  if (found == entries_.end()) {
    const bool issued = number > 0 && (wrapped_ || (number >= first_ && number < next_));
    return issued ? Delivery::Late : Delivery::Foreign;
  }
  Entry& entry = *found->second;
  if (entry.method_ != response.method()) return Delivery::Foreign;
  if (entry.response_) return Delivery::Late;
  entry.response_ = std::move(response);
  entry.wake();
  return Delivery::Done;
}

void InFlight::give_up_all() {
  for (auto& [number, entry] : entries_) {
    entry->given_up_ = true;
    entry->wake();
  }
}

}  // namespace kestro::routerd
