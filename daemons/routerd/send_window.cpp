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
    place->inside_ = false;
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
  waiting_->cancel(ignored);
}

SendWindow::Place::~Place() {
  window_.waiting_.remove(this);  // still there when the wait itself was dropped
  if (!inside_) return;
  window_.used_ -= bytes_;
  window_.inside_.remove(this);
  window_.wake_first();
}

asio::awaitable<bool> SendWindow::Place::enter(asio::io_context& io, size_t bytes, Clock::time_point deadline,
                                               const bool& given_up) {
  bytes_ = bytes + overhead;
  asio::steady_timer timer(io);
  window_.waiting_.push_back(this);
  waiting_ = &timer;
  bool first = window_.waiting_.front() == this;
  while (!(first && window_.has_room(bytes_)) && Clock::now() < deadline && !given_up) {
    const auto next_settled = window_.inside_.empty() ? deadline : window_.inside_.front()->settled_;
    timer.expires_at(first ? std::min(deadline, next_settled) : deadline);
    asio::error_code woken;
    co_await timer.async_wait(asio::redirect_error(asio::use_awaitable, woken));
    first = window_.waiting_.front() == this;
  }
  const bool entered = first && !given_up && window_.has_room(bytes_);
  window_.waiting_.remove(this);
  waiting_ = nullptr;
  if (entered) {
    settled_ = Clock::now() + patience;
    window_.used_ += bytes_;
    window_.inside_.push_back(this);
    inside_ = true;
  }
  window_.wake_first();
  co_return entered;
}

}  // namespace kestro::routerd
