// Callers on a publish/subscribe server: each connects, subscribes to a channel of its own, publishes its request, takes
// the answer, and begins anew. Usage: redis_load SOCKET CLIENTS SECONDS CONNECTIONS
//
// Clients commonly speak version 2 of the protocol, where a connection with a subscription can do nothing else: they
// take two, and publish once the subscription is confirmed. With version 3 one connection and one write do it all.

#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "stream_load.hpp"
#include "unix_socket.hpp"

namespace {

using kestro::bench::connect_to;
using kestro::bench::Outcome;
using kestro::bench::send_whole;

std::string command(const std::vector<std::string>& words) {
  std::string text = "*" + std::to_string(words.size()) + "\r\n";
  for (const auto& word : words) text += "$" + std::to_string(word.size()) + "\r\n" + word + "\r\n";
  return text;
}

struct Server {
  struct Call : kestro::bench::Call {
    int publisher = -1;  // the second connection, if there is one
    bool subscribed = false;
  };

  const char* path;
  bool two_connections;

  void begin(Call& call) const {
    call.fd = connect_to(path);
    call.subscribed = false;
    const std::string subscription = command({"SUBSCRIBE", channel_of(call)});
    if (two_connections) {
      call.publisher = connect_to(path);
      send_whole(call.fd, subscription);
    } else {
      send_whole(call.fd, command({"HELLO", "3"}) + subscription + publication(call));
    }
  }
  [[nodiscard]] Outcome take(Call& call, bool ended) const {
    if (two_connections && !call.subscribed && !ended) {
      call.subscribed = true;  // the confirmation comes in one piece
      send_whole(call.publisher, publication(call));
      return Outcome::Pending;
    }
    if (call.received.ends_with("\"transaction_id\":" + std::to_string(call.number) + "}\r\n"))
      return Outcome::Answered;
    return ended ? Outcome::Lost : Outcome::Pending;
  }
  void end(Call& call) const {
    if (two_connections) close(call.publisher);
  }

  static std::string channel_of(const Call& call) { return "answer-" + std::to_string(call.number); }
  static std::string publication(const Call& call) {
    const std::string request = R"({"jsonrpc":"2.0","method":"ports.Get","params":{"port":"c1-1"},"id":")" +
                                channel_of(call) + R"(","transaction_id":)" + std::to_string(call.number) + "}";
    return command({"PUBLISH", "ports", request});
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  const Server server{.path = argv[1], .two_connections = argv[4][0] == '2'};
  kestro::bench::StreamLoad(server, strtoul(argv[2], nullptr, 10), strtod(argv[3], nullptr)).run();
}
