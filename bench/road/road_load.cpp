// Clients of a router: each connects, sends one request, reads its answer to the end, and begins anew.
// Usage: road_load SOCKET CLIENTS SECONDS SIZE

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
  long number = 0;
  Tally::Clock::time_point begun;
  std::string answer;
};

class Load {
 public:
  Load(const char* path, size_t clients, double seconds, long size)
      : epoll_(epoll_create1(0)), clients_(clients), size_(size), tally_(seconds) {
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
  void begin(size_t index) {
    Client& client = clients_[index];
    client.number = ++numbers_;
    client.answer.clear();
    client.begun = Tally::Clock::now();
    client.fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(client.fd, reinterpret_cast<const sockaddr*>(&address_), sizeof address_) != 0) exit(1);
    const std::string what = size_ > 0 ? "\"size\":" + std::to_string(size_) : R"("port":"c1-1")";
    const std::string request = R"({"jsonrpc":"2.0","method":"ports.Get","params":{)" + what +
                                R"(},"id":1,"transaction_id":)" + std::to_string(client.number) + "}";
    if (send(client.fd, request.data(), request.size(), MSG_NOSIGNAL) < 0) exit(1);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = index;
    epoll_ctl(epoll_, EPOLL_CTL_ADD, client.fd, &event);
    ++open_;
  }

  void receive(size_t index) {
    static std::array<char, 262'144> buffer;
    Client& client = clients_[index];
    const ssize_t count = recv(client.fd, buffer.data(), buffer.size(), 0);
    if (count > 0) {
      client.answer.append(buffer.data(), static_cast<size_t>(count));
      return;
    }
    if (is_right(client)) {
      tally_.answered(client.begun);
    } else {
      tally_.lost();
    }
    close(client.fd);
    --open_;
    if (tally_.goes_on()) begin(index);
  }

  [[nodiscard]] bool is_right(const Client& client) const {
    const std::string end = "\"transaction_id\":" + std::to_string(client.number) + "}";
    const auto& answer = client.answer;
    return answer.size() >= end.size() + static_cast<size_t>(size_) && answer.find("\"result\":") < 60 &&
           answer.compare(answer.size() - end.size(), end.size(), end) == 0;
  }

  int epoll_;
  sockaddr_un address_{};
  std::vector<Client> clients_;
  long size_;
  Tally tally_;
  long numbers_ = 0;
  size_t open_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  Load(argv[1], strtoul(argv[2], nullptr, 10), strtod(argv[3], nullptr), strtol(argv[4], nullptr, 10)).run();
}
