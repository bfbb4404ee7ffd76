// Callers on a publish/subscribe server: each connects, subscribes to a channel of its own, publishes its request, takes
// the answer, and begins anew. Usage: redis_load SOCKET CLIENTS SECONDS CONNECTIONS
//
// Clients commonly speak version 2 of the protocol, where a connection with a subscription can do nothing else: they
// take two, and publish once the subscription is confirmed. With version 3 one connection and one write do it all.

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tally.hpp"

namespace {

using kestro::bench::Tally;

struct Client {
  int fd = -1;
  int publisher = -1;  // the second connection, if there is one
  bool subscribed = false;
  long number = 0;
  Tally::Clock::time_point begun;
  std::string received;
};

std::string command(const std::vector<std::string>& words) {
  std::string text = "*" + std::to_string(words.size()) + "\r\n";
  for (const auto& word : words) text += "$" + std::to_string(word.size()) + "\r\n" + word + "\r\n";
  return text;
}

class Load {
 public:
  Load(const char* path, size_t clients, double seconds, bool two_connections)
      : epoll_(epoll_create1(0)), clients_(clients), two_connections_(two_connections), tally_(seconds) {
    address_.sun_family = AF_UNIX;
    strncpy(address_.sun_path, path, sizeof address_.sun_path - 1);
  }

  void run() {
    for (size_t i = 0; i < clients_.size(); ++i) begin(i);
    std::array<epoll_event, 64> events{};
    while (open_ > 0 && !tally_.gave_up()) {
      const int count = epoll_wait(epoll_, events.data(), events.size(), 100);
      for (int i = 0; i < count; ++i) receive(events[static_cast<size_t>(i)].data.u64);
    }
    tally_.lost(open_);
    tally_.report();
  }

 private:
  [[nodiscard]] int connected() const {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address_), sizeof address_) != 0) exit(1);
    return fd;
  }
  static void write_to(int fd, const std::string& text) {
    if (send(fd, text.data(), text.size(), MSG_NOSIGNAL) < 0) exit(1);
  }
  static std::string channel_of(const Client& client) { return "answer-" + std::to_string(client.number); }
  static std::string publication(const Client& client) {
    const std::string request = R"({"jsonrpc":"2.0","method":"ports.Get","params":{"port":"c1-1"},"id":")" +
                                channel_of(client) + R"(","transaction_id":)" + std::to_string(client.number) + "}";
    return command({"PUBLISH", "ports", request});
  }

  void begin(size_t index) {
    Client& client = clients_[index];
    client.number = ++numbers_;
    client.received.clear();
    client.subscribed = false;
    client.begun = Tally::Clock::now();
    client.fd = connected();
    const std::string subscription = command({"SUBSCRIBE", channel_of(client)});
    if (two_connections_) {
      client.publisher = connected();
      write_to(client.fd, subscription);
    } else {
      write_to(client.fd, command({"HELLO", "3"}) + subscription + publication(client));
    }
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = index;
    epoll_ctl(epoll_, EPOLL_CTL_ADD, client.fd, &event);
    ++open_;
  }

  void receive(size_t index) {
    static std::array<char, 65'536> buffer;
    Client& client = clients_[index];
    const ssize_t count = recv(client.fd, buffer.data(), buffer.size(), 0);
    if (count > 0) client.received.append(buffer.data(), static_cast<size_t>(count));
    if (two_connections_ && !client.subscribed && count > 0) {
      client.subscribed = true;  // the confirmation comes in one piece
      write_to(client.publisher, publication(client));
      return;
    }
    const bool answered = has_answer(client);
    if (count > 0 && !answered) return;
    if (answered) {
      tally_.answered(client.begun);
    } else {
      tally_.lost();
    }
    close(client.fd);
    if (two_connections_) close(client.publisher);
    --open_;
    if (tally_.goes_on()) begin(index);
  }

  static bool has_answer(const Client& client) {
    const std::string end = "\"transaction_id\":" + std::to_string(client.number) + "}\r\n";
    const auto& text = client.received;
    return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
  }

  int epoll_;
  sockaddr_un address_{};
  std::vector<Client> clients_;
  bool two_connections_;
  Tally tally_;
  long numbers_ = 0;
  size_t open_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  Load(argv[1], strtoul(argv[2], nullptr, 10), strtod(argv[3], nullptr), argv[4][0] == '2').run();
}
