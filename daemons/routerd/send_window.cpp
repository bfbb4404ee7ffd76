#include "routerd/send_window.hpp"

#include <algorithm>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>

namespace kestro::routerd {

namespace {

// What the kernel adds to a small message in a connection's buffer.
constexpr size_t overhead = 2'560;
// A service that has not taken a request after this long is stuck: nothing is gained by sparing its buffer.
constexpr auto patience = std::chrono::seconds(1);

}  // namespace

bool SendWindow::has_room(size_t bytes) {
  const auto now = Clock::now();
  while (!inside_.empty() && inside_.front()->settled_ <= now) {
    Place* const place = inside_.front();
    used_ -= place->bytes_;
    place->state_ = Place::State::Outside;
    inside_.pop_front();
  }
  return inside_.empty() || used_ + bytes <= capacity_;
}

void SendWindow::wake_first() noexcept {
  if (!waiting_.empty()) waiting_.front()->wake();
}

void SendWindow::wake_all() noexcept {
  for (auto* const place : waiting_) place->wake();
}

void SendWindow::Place::wake() noexcept {
  asio::error_code ignored;
  timer_->cancel(ignored);
}

SendWindow::Place::~Place() {
  if (state_ == State::Waiting) window_.waiting_.erase(position_);  // the wait itself was dropped
  if (state_ != State::Inside) return;
  window_.used_ -= bytes_;
  window_.inside_.erase(position_);
  window_.wake_first();
}

bool SendWindow::Place::enter_at_once(size_t bytes) {
  bytes_ = bytes + overhead;
  if (!window_.waiting_.empty() || !window_.has_room(bytes_)) return false;
  position_ = window_.inside_.insert(window_.inside_.end(), this);
  settle();
  return true;
}

void SendWindow::Place::settle() {
  settled_ = Clock::now() + patience;
  window_.used_ += bytes_;
  state_ = State::Inside;
}

asio::awaitable<bool> SendWindow::Place::enter(asio::io_context& io, size_t bytes, Clock::time_point deadline,
                                               const bool& given_up) {
  bytes_ = bytes + overhead;
  asio::steady_timer timer(io);
  timer_ = &timer;
  position_ = window_.waiting_.insert(window_.waiting_.end(), this);
  state_ = State::Waiting;
  bool first = window_.waiting_.front() == this;
  while (!(first && window_.has_room(bytes_)) && Clock::now() < deadline && !given_up) {
    const auto next_settled = window_.inside_.empty() ? deadline : window_.inside_.front()->settled_;
    timer.expires_at(first ? std::min(deadline, next_settled) : deadline);
    asio::error_code woken;
    co_await timer.async_wait(asio::redirect_error(asio::use_awaitable, woken));
    first = window_.waiting_.front() == this;
  }
  const bool entered = first && !given_up && window_.has_room(bytes_);
  if (entered) {
    window_.inside_.splice(window_.inside_.end(), window_.waiting_, position_);
    settle();
  } else {
    window_.waiting_.erase(position_);
    state_ = State::Outside;
  }
  timer_ = nullptr;
  window_.wake_first();
  co_return entered;
}

}  // namespace kestro::routerd
