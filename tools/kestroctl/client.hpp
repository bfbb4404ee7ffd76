// One request through the router: a connection of its own, a request ended by a line feed, and what comes until the
// router closes.
#ifndef KESTRO_CTL_CLIENT_HPP
#define KESTRO_CTL_CLIENT_HPP

#include <jansson.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "core/owned.hpp"
#include "kestroctl/exit_status.hpp"

namespace kestro::ctl {

using Seconds = std::chrono::duration<double>;

// Longer than the router waits for the slowest of its methods.
inline constexpr Seconds usual_patience{300};

struct RouterAddress {
  std::string socket;
  int port = 0;  // on 127.0.0.1; 0 for the socket

  [[nodiscard]] std::string text() const;
};

// The address as the system wants it.
struct SocketAddress {
  // Throws Failure where the path is too long.
  explicit SocketAddress(const RouterAddress& router);
  [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }

  sockaddr_storage storage{};
  socklen_t size = 0;
};

// A request object. `params` is borrowed and may be null; so may `id`, for a notification.
Json make_request(const std::string& method, json_t* params, json_t* id);

// What the router sent, nothing where it closed without an answer. Throws Failure: CannotConnect, or NoAnswer when
// `patience` ended first.
std::string exchange(const RouterAddress& router, const std::string& request, Seconds patience);

// An answer, understood.
class Answer {
 public:
  // Throws Failure for an empty text, which tells that the router refused the request, and for one that is no answer.
  explicit Answer(const std::string& text);

  // Borrowed; null where the answer is an error.
  [[nodiscard]] json_t* result() const;
  [[nodiscard]] bool is_error() const { return error() != nullptr; }
  [[nodiscard]] int32_t code() const;
  [[nodiscard]] std::string message() const;
  // Borrowed; null where there is none.
  [[nodiscard]] json_t* data() const;
  // The explanation in `data`, where it is one.
  [[nodiscard]] std::string explanation() const;
  [[nodiscard]] Exit status() const;

 private:
  [[nodiscard]] json_t* error() const;
  Json object_;
};

// exchange() of a call without parameters, understood.
Answer call(const RouterAddress& router, const std::string& method, json_t* params, Seconds patience);

// A member of an object as text; empty where it is none.
std::string text_member(const json_t* object, const char* name);

// Tells an error answer on standard error.
void tell_error(const std::string& method, const Answer& answer);

}  // namespace kestro::ctl

#endif
