// Callers on a stream socket, all in one thread: each connects, asks, takes its answer, and begins anew.
#ifndef KESTRO_BENCH_ROAD_STREAM_LOAD_HPP
#define KESTRO_BENCH_ROAD_STREAM_LOAD_HPP

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include "tally.hpp"

namespace kestro::bench {

struct Call {
  int fd = -1;
  long number = 0;  // of all calls; what comes back with the answer
  Tally::Clock::time_point begun;
  std::string received;
};

enum class Outcome { Pending, Answered, Lost };

// A protocol has:
//   Call                                  a bench::Call, with what else it needs
//   void begin(Call& call)                connects as call.fd, which is closed for it, and asks
//   Outcome take(Call& call, bool ended)  after something was received, or the connection has ended
//   void end(Call& call)                  releases what else begin() took
template <class Protocol>
class StreamLoad {
 public:
  StreamLoad(Protocol protocol, size_t clients, double seconds)
      : protocol_(protocol), epoll_(epoll_create1(EPOLL_CLOEXEC)), calls_(clients), tally_(seconds) {}

  void run() {
    for (size_t i = 0; i < calls_.size(); ++i) begin(i);
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
    auto& call = calls_[index];
    call.number = ++numbers_;
    call.received.clear();
    call.begun = Tally::Clock::now();
    protocol_.begin(call);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = index;
    epoll_ctl(epoll_, EPOLL_CTL_ADD, call.fd, &event);
    ++open_;
  }

  void receive(size_t index) {
    static std::array<char, 262'144> buffer;
    auto& call = calls_[index];
    const ssize_t count = recv(call.fd, buffer.data(), buffer.size(), 0);
    if (count > 0) call.received.append(buffer.data(), static_cast<size_t>(count));
    switch (protocol_.take(call, count <= 0)) {
      case Outcome::Pending:
        return;
      case Outcome::Answered:
        tally_.answered(call.begun);
        break;
      case Outcome::Lost:
        tally_.lost();
        break;
    }
    close(call.fd);
    protocol_.end(call);
    --open_;
    if (tally_.goes_on()) begin(index);
  }

  Protocol protocol_;
  int epoll_;
  std::vector<typename Protocol::Call> calls_;
  Tally tally_;
  long numbers_ = 0;
  size_t open_ = 0;
};

}  // namespace kestro::bench

#endif
