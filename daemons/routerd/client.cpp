#include "routerd/client.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>

#include "routerd/framing.hpp"

namespace kestro::routerd {

namespace {

using Socket = asio::generic::stream_protocol::socket;

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
    : socket_(io), deadline_(io), privileged_(family == AF_UNIX && is_own_user(connection.get())) {
  socket_.assign(asio::generic::stream_protocol(family, 0), connection.get());
  static_cast<void>(connection.release());
  socket_.non_blocking(true);
}

void Client::start_deadline(Seconds timeout, const char* reason) {
  deadline_.expires_after(std::chrono::duration_cast<asio::steady_timer::duration>(timeout));
  // The turn tells an expiry that was already on its way when the deadline was stopped.
  deadline_.async_wait([self = shared_from_this(), turn = ++turn_, reason](const asio::error_code& stopped) {
    if (!stopped && turn == self->turn_) self->abandon(reason);
  });
}

void Client::stop_deadline() {
  ++turn_;
  deadline_.cancel();
}

void Client::abandon(const char* reason) {
  abandoned_ = reason;
  asio::error_code ignored;
  socket_.cancel(ignored);
}

asio::awaitable<Client::Received> Client::read_request(size_t max_size, Seconds timeout) {
  start_deadline(timeout, "read_timeout");
  Received received;
  RequestScanner scanner;
  bool at_end = false;
  asio::error_code failed;
  while (!scanner.complete() && !at_end && !failed && received.text.size() <= max_size) {
    co_await socket_.async_wait(Socket::wait_read, asio::redirect_error(asio::use_awaitable, failed));
    if (failed || abandoned_ != nullptr) break;
    const size_t count = socket_.read_some(asio::buffer(scratch), failed);
    if (failed == asio::error::would_block) failed.clear();
    at_end = failed == asio::error::eof;
    received.text.append(scratch.data(), scanner.feed({scratch.data(), count}));
  }
  stop_deadline();
  if (received.text.size() > max_size) {
    received.failure = "too_large";
  } else if (!scanner.complete() && !(at_end && !received.text.empty())) {
    received.failure = abandoned_ != nullptr ? abandoned_ : "closed_early";
  }
  co_return received;
}

asio::awaitable<const char*> Client::write(std::string_view text, Seconds timeout) {
  start_deadline(timeout, "write_timeout");
  asio::error_code failed;
  while (!text.empty() && !failed && abandoned_ == nullptr) {
    text.remove_prefix(socket_.write_some(asio::buffer(text), failed));
    if (failed == asio::error::would_block) {
      co_await socket_.async_wait(Socket::wait_write, asio::redirect_error(asio::use_awaitable, failed));
    }
  }
  stop_deadline();
  if (text.empty()) co_return nullptr;
  co_return abandoned_ != nullptr ? abandoned_ : "client_gone";
}

void Client::close() {
  asio::error_code ignored;
  socket_.shutdown(Socket::shutdown_send, ignored);
  // Unread bytes would turn the close into a reset, which can overtake the answer.
  size_t dropped = 0;
  while (dropped < (size_t{1} << 20)) {
    asio::error_code nothing_more;
    dropped += socket_.read_some(asio::buffer(scratch), nothing_more);
    if (nothing_more) break;
  }
  socket_.close(ignored);
}

}  // namespace kestro::routerd
