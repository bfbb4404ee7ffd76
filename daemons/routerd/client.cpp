#include "routerd/client.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>
#include <cerrno>

#include "routerd/framing.hpp"

namespace kestro::routerd {

namespace {

// Requests are read through this, so that a client costs the memory of what it sent. One loop, one thread.
std::array<char, 65'536> scratch;

bool is_own_user(int fd) noexcept {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  return peer.uid == 0 || peer.uid == geteuid();
}

}  // namespace

Client::Client(asio::io_context& io, int family, Descriptor connection)
    : io_(io), family_(family), socket_(std::move(connection)) {}

Client::~Client() {
  if (waiting_) static_cast<void>(waiting_->release());  // its descriptor is closed once
}

bool Client::is_privileged() const noexcept {
  return family_ == AF_UNIX && is_own_user(socket_.get());
}

void Client::start_deadline(Seconds timeout, const char* reason) {
  if (!deadline_) deadline_.emplace(io_);
  deadline_->expires_after(std::chrono::duration_cast<asio::steady_timer::duration>(timeout));
  // The turn tells an expiry that was already on its way when the deadline was stopped.
  deadline_->async_wait([self = shared_from_this(), turn = ++turn_, reason](const asio::error_code& stopped) {
    if (!stopped && turn == self->turn_) self->abandon(reason);
  });
}

void Client::stop_deadline() {
  ++turn_;
  if (deadline_) deadline_->cancel();
}

void Client::abandon(const char* reason) {
  abandoned_ = reason;
  asio::error_code ignored;
  if (waiting_) waiting_->cancel(ignored);
}

asio::awaitable<bool> Client::wait_for(Waiting::wait_type what) {
  if (!waiting_) waiting_.emplace(io_, socket_.get());
  asio::error_code failed;
  co_await waiting_->async_wait(what, asio::redirect_error(asio::use_awaitable, failed));
  co_return !failed && abandoned_ == nullptr;
}

asio::awaitable<Client::Received> Client::read_request(size_t max_size, Seconds timeout) {
  Received received;
  RequestScanner scanner;
  bool waited = false;
  for (;;) {
    const ssize_t count = recv(socket_.get(), scratch.data(), scratch.size(), MSG_DONTWAIT);
    if (count > 0) received.text.append(scratch.data(), scanner.feed({scratch.data(), static_cast<size_t>(count)}));
    if (scanner.complete() || (count == 0 && !received.text.empty())) break;
    if (received.text.size() > max_size) break;
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
      received.failure = "closed_early";
      break;
    }
    // Also for more of a long request: others have their turn meanwhile.
    if (!waited) start_deadline(timeout, "read_timeout");
    waited = true;
    if (!co_await wait_for(Waiting::wait_read)) {
      received.failure = abandoned_ != nullptr ? abandoned_ : "closed_early";
      break;
    }
  }
  if (waited) stop_deadline();
  asked_ = true;
  if (received.text.size() > max_size) received.failure = "too_large";
  co_return received;
}

asio::awaitable<const char*> Client::write(std::string_view text, Seconds timeout) {
  bool waited = false;
  while (!text.empty() && abandoned_ == nullptr) {
    const ssize_t count = send(socket_.get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count >= 0) {
      text.remove_prefix(static_cast<size_t>(count));
      continue;
    }
    if (errno != EAGAIN && errno != EINTR) break;
    if (!waited) start_deadline(timeout, "write_timeout");
    waited = true;
    if (!co_await wait_for(Waiting::wait_write)) break;
  }
  if (waited) stop_deadline();
  if (text.empty()) co_return nullptr;
  co_return abandoned_ != nullptr ? abandoned_ : "client_gone";
}

void Client::close() {
  // Unread bytes would turn the close into a reset: an error behind the answer, or, on TCP, instead of it.
  constexpr size_t enough = size_t{1} << 20;
  for (size_t dropped = 0; dropped < enough;) {
    const ssize_t count = recv(socket_.get(), scratch.data(), scratch.size(), MSG_DONTWAIT);
    if (count <= 0) break;
    dropped += static_cast<size_t>(count);
  }
  if (waiting_) static_cast<void>(waiting_->release());
  waiting_.reset();
  socket_ = Descriptor();
}

}  // namespace kestro::routerd
