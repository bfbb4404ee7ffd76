// One client's connection.
#ifndef KESTRO_ROUTERD_CLIENT_HPP
#define KESTRO_ROUTERD_CLIENT_HPP

#include <asio/awaitable.hpp>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/owned.hpp"

namespace kestro::routerd {

class Client : public std::enable_shared_from_this<Client> {
 public:
  using Seconds = std::chrono::duration<double>;

  // Takes the descriptor over.
  Client(asio::io_context& io, int family, Descriptor connection);
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client();

  struct Received {
    std::string text;
    const char* failure = nullptr;  // a word for the counters
  };
  // The request: whole, or why it is not. Nothing behind it is kept.
  asio::awaitable<Received> read_request(size_t max_size, Seconds timeout);

  // Whether read_request() is over.
  [[nodiscard]] bool has_asked() const noexcept { return asked_; }

  // Writes an answer, which the caller keeps meanwhile. Null when all of it is written, or a word that says why not.
  asio::awaitable<const char*> write(std::string_view text, Seconds timeout);

  // Ends the connection so that what was written arrives, even where the client has sent more than its request.
  void close();
  // Ends whatever the connection waits for, now or next. `reason` is a word for the counters.
  void abandon(const char* reason);

  // On a Unix-domain socket and of the router's own user, or root.
  [[nodiscard]] bool is_privileged() const noexcept;

 private:
  using Waiting = asio::posix::stream_descriptor;

  void start_deadline(Seconds timeout, const char* reason);
  void stop_deadline();
  // False when it ends the connection instead.
  asio::awaitable<bool> wait_for(Waiting::wait_type what);

  asio::io_context& io_;
  int family_;
  Descriptor socket_;
  // Most clients have sent their request when they are accepted, and have room for their answer when it comes: the
  // loop learns of a connection only when that has to be waited for.
  std::optional<Waiting> waiting_;
  std::optional<asio::steady_timer> deadline_;
  unsigned turn_ = 0;
  bool asked_ = false;
  // A cancelled wait may have been over already: who waits in a loop looks here too.
  const char* abandoned_ = nullptr;
};

}  // namespace kestro::routerd

#endif
