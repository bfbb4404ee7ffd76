#include "kestroctl/client.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "kestro_jrpc/error_codes.hpp"
#include "kestroctl/output.hpp"

namespace kestro::ctl {

namespace {

constexpr int32_t invalid_parameters = -32602;

using Clock = std::chrono::steady_clock;

class Connection {
 public:
  Connection(const RouterAddress& router, Seconds patience)
      : router_(router),
        patience_(patience),
        deadline_(Clock::now() + std::chrono::duration_cast<Clock::duration>(patience)) {
    const SocketAddress address(router);
    socket_ = Descriptor(::socket(address.get()->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    // Also bounds the connect; afterwards poll() does, which looks at the deadline.
    const auto microseconds = std::chrono::ceil<std::chrono::microseconds>(patience).count();
    const timeval limit{microseconds / 1'000'000, microseconds % 1'000'000};
    setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (::connect(socket_.get(), address.get(), address.size) != 0) fail_to_connect(errno);
  }

  void send(std::string_view text) {
    while (!text.empty()) {
      await(POLLOUT);
      const ssize_t count = ::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      // Whoever closes early may have answered: the receive tells.
      if (count < 0 && (errno == EPIPE || errno == ECONNRESET)) return;
      if (count > 0) text.remove_prefix(static_cast<size_t>(count));
    }
  }

  std::string receive() {
    std::string text;
    std::array<char, 65'536> piece;
    for (;;) {
      await(POLLIN);
      const ssize_t count = ::recv(socket_.get(), piece.data(), piece.size(), MSG_DONTWAIT);
      if (count > 0) text.append(piece.data(), static_cast<size_t>(count));
      if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) return text;
    }
  }

 private:
  [[noreturn]] void fail_to_connect(int error) const {
    if (error == EAGAIN || error == EINPROGRESS) give_up();
    std::string hint;
    if (error == ENOENT || error == ECONNREFUSED) hint = "; does kestro-routerd run, and is this its address?";
    throw Failure(Exit::CannotConnect, "cannot connect to " + router_.text() + ": " + strerror(error) + hint);
  }
  [[noreturn]] void give_up() const {
    throw Failure(Exit::NoAnswer, "no answer from " + router_.text() + " within " + format("%g s", patience_.count()));
  }
  void await(short events) {
    pollfd wanted{socket_.get(), events, 0};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
    if (left <= 0) give_up();
    poll(&wanted, 1, static_cast<int>(std::min<long>(left, 3'600'000)));
    if (Clock::now() >= deadline_) give_up();
  }

  RouterAddress router_;
  Seconds patience_;
  Clock::time_point deadline_;
  Descriptor socket_;
};

}  // namespace

std::string text_member(const json_t* object, const char* name) {
  const char* const text = json_string_value(json_object_get(object, name));
  return text != nullptr ? text : "";
}

std::string RouterAddress::text() const {
  return port != 0 ? "127.0.0.1:" + std::to_string(port) : socket;
}

SocketAddress::SocketAddress(const RouterAddress& router) {
  if (router.port != 0) {
    auto& address = reinterpret_cast<sockaddr_in&>(storage);
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(router.port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    size = sizeof address;
    return;
  }
  auto& address = reinterpret_cast<sockaddr_un&>(storage);
  if (router.socket.size() >= sizeof address.sun_path) {
    throw Failure(Exit::Usage, "a socket's path has at most 107 characters");
  }
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, router.socket.c_str(), router.socket.size());
  size = sizeof address;
}

Json make_request(const std::string& method, json_t* params, json_t* id) {
  Json request(json_pack("{s:s,s:s}", "jsonrpc", "2.0", "method", method.c_str()));
  if (!request) throw Failure(Exit::Usage, "a method's name is UTF-8 text");
  if (params != nullptr) json_object_set(request.get(), "params", params);
  if (id != nullptr) json_object_set(request.get(), "id", id);
  return request;
}

std::string exchange(const RouterAddress& router, const std::string& request, Seconds patience) {
  Connection connection(router, patience);
  connection.send(request + "\n");
  return connection.receive();
}

Answer::Answer(const std::string& text) {
  if (text.empty()) {
    throw Failure(Exit::Refused,
                  "the router closed the connection without an answer: it refused the request; its log tells why, and "
                  "`kestroctl stats` counts the reasons");
  }
  json_error_t error;
  object_ = Json(json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, &error));
  if (!object_) {
    throw Failure(Exit::Refused, "what came is no JSON object (" + std::to_string(text.size()) + " bytes, line " +
                                     std::to_string(error.line) + ": " + tame(error.text) + "); --raw shows it");
  }
  if (result() == nullptr && !json_is_object(this->error())) {
    throw Failure(Exit::Refused, "what came is no JSON-RPC answer: " + json_text(object_.get()));
  }
}

json_t* Answer::result() const {
  return json_object_get(object_.get(), "result");
}
json_t* Answer::error() const {
  return json_object_get(object_.get(), "error");
}
int32_t Answer::code() const {
  return static_cast<int32_t>(json_integer_value(json_object_get(error(), "code")));
}
std::string Answer::message() const {
  return text_member(error(), "message");
}
json_t* Answer::data() const {
  json_t* const data = json_object_get(error(), "data");
  return json_is_null(data) ? nullptr : data;
}
std::string Answer::explanation() const {
  return json_object_size(data()) == 1 ? text_member(data(), "message") : "";
}

Exit Answer::status() const {
  if (!is_error()) return Exit::Done;
  if (code() == jrpc_code::timed_out) return Exit::NoAnswer;
  return code() == jrpc_code::busy ? Exit::Busy : Exit::Refused;
}

Answer call(const RouterAddress& router, const std::string& method, json_t* params, Seconds patience) {
  const Json id(json_string("kestroctl"));
  return Answer(exchange(router, json_text(make_request(method, params, id.get()).get()), patience));
}

void tell_error(const std::string& method, const Answer& answer) {
  const Look look = look_of(STDERR_FILENO);
  const auto code = std::to_string(answer.code());
  say(Line(look).add(tame(method) + ":").add("error " + code, Colour::Red).text());
  const auto tell = [&](const char* what, const std::string& text) {
    say_plainly("  " + paint(what, Colour::Grey, look) + text);
  };
  tell("message  ", tame(answer.message()));
  if (!answer.explanation().empty()) {
    tell("because  ", tame(answer.explanation()));
  } else if (answer.data() != nullptr) {
    tell("data     ", json_text(answer.data(), look));
  }
  if (answer.code() == jrpc_code::timed_out) {
    tell("look at  ", "the service's log: it is down, stuck, or slower than the router waits for this method");
  } else if (answer.code() == jrpc_code::busy) {
    tell("look at  ", "`kestroctl stats`: requests in flight, or maintenance");
  } else if (answer.code() == jrpc_code::method_not_found) {
    tell("look at  ", "`kestroctl list`: the methods that there are");
  } else if (answer.code() == invalid_parameters) {
    tell("look at  ", "`kestroctl describe " + tame(method) + "`: what it wants");
  } else {
    tell("more     ", "`kestroctl explain " + code + "`");
  }
}

}  // namespace kestro::ctl
