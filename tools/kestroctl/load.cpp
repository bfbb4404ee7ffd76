#include "kestroctl/load.hpp"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "kestro_jrpc/error_codes.hpp"
#include "kestroctl/output.hpp"

namespace kestro::ctl {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// A service's answer carries the method's name as its "id", one of the router's own the client's.
constexpr const char* request_id = "kestroctl-load";

constexpr auto tick = 100ms;
// A Unix-domain socket whose queue is full says so at once, and again until the router has accepted somebody.
constexpr auto queue_pause = 1ms;

json_t* number(uint64_t value) {
  return json_integer(static_cast<json_int_t>(value));
}

// The first number is random, so that answers to an earlier run do not pass for ours.
int64_t random_number() {
  std::random_device device;
  return std::uniform_int_distribution<int64_t>(1, int64_t{1} << 50)(device);
}

// One request at a time, on a connection of its own.
class Client {
 public:
  enum class State { Idle, Queueing, Connecting, Sending, Receiving, Ended };

  Client(int epoll, const Load& load, const SocketAddress& address) : epoll_(epoll), load_(load), address_(address) {}

  void begin(int64_t number, std::string request, Clock::time_point now) {
    number_ = number;
    request_ = std::move(request);
    answer_.clear();
    sent_ = 0;
    connected_ = false;
    begun_ = now;
    deadline_ = now + std::chrono::duration_cast<Clock::duration>(load_.patience);
    connect();
  }

  // Goes as far as it can without waiting.
  void proceed() {
    if (state_ == State::Queueing) connect();
    if (state_ == State::Connecting) finish_connect();
    if (state_ == State::Sending) send();
    if (state_ == State::Receiving) receive();
  }
  void end() {
    state_ = State::Ended;
    ended_ = Clock::now();
    socket_ = Descriptor();
  }

  [[nodiscard]] bool is_late(Clock::time_point now) const {
    return state_ != State::Idle && state_ != State::Ended && now >= deadline_;
  }
  [[nodiscard]] bool is_queueing() const { return state_ == State::Queueing; }
  [[nodiscard]] bool has_ended() const { return state_ == State::Ended; }

  // Once it has ended.
  void enter(Ledger& ledger) {
    state_ = State::Idle;
    if (!connected_) {
      ++ledger.not_connected;
    } else if (answer_.empty()) {
      ++(at_end_ ? ledger.closed : ledger.lost);
    } else if (!at_end_) {
      ++ledger.lost;
    } else {
      ledger.latencies.add(ended_ - begun_);
      enter_answer(ledger, load_.method, number_, answer_);
    }
  }

 private:
  void connect() {
    at_end_ = false;
    socket_ = Descriptor(::socket(address_.get()->sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (socket_.get() < 0) return end();
    const bool done = ::connect(socket_.get(), address_.get(), address_.size) == 0;
    if (!done && errno == EAGAIN) {
      state_ = State::Queueing;
      socket_ = Descriptor();
      return;
    }
    if (!done && errno != EINPROGRESS) return end();
    connected_ = done;
    state_ = done ? State::Sending : State::Connecting;
    epoll_event event{.events = EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET, .data = {.ptr = this}};
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, socket_.get(), &event) != 0) end();
  }
  void finish_connect() {
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0) return end();
    sockaddr_storage peer{};
    size = sizeof peer;
    if (getpeername(socket_.get(), reinterpret_cast<sockaddr*>(&peer), &size) != 0) return;
    connected_ = true;
    state_ = State::Sending;
  }
  void send() {
    while (sent_ < request_.size()) {
      const ssize_t count = ::send(socket_.get(), request_.data() + sent_, request_.size() - sent_, MSG_NOSIGNAL);
      if (count < 0 && errno == EAGAIN) return;
      if (count < 0 && errno != EINTR) break;  // whoever closes early may have answered
      if (count > 0) sent_ += static_cast<size_t>(count);
    }
    state_ = State::Receiving;
  }
  void receive() {
    std::array<char, 16'384> piece;
    for (;;) {
      const ssize_t count = ::recv(socket_.get(), piece.data(), piece.size(), 0);
      if (count > 0) answer_.append(piece.data(), static_cast<size_t>(count));
      if (count < 0 && errno == EAGAIN) return;
      if (count < 0 && errno == EINTR) continue;
      if (count > 0) continue;
      at_end_ = true;
      return end();
    }
  }

  int epoll_;
  const Load& load_;
  const SocketAddress& address_;
  State state_ = State::Idle;
  Descriptor socket_;
  int64_t number_ = 0;
  std::string request_;
  std::string answer_;
  size_t sent_ = 0;
  bool connected_ = false;
  bool at_end_ = false;
  Clock::time_point begun_;
  Clock::time_point ended_;
  Clock::time_point deadline_;
};

class Run {
 public:
  Run(const Load& load, const Progress& progress)
      : load_(load), progress_(progress), address_(load.router), epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    if (epoll_.get() < 0) throw Failure(Exit::Refused, std::string("no descriptor for the load: ") + strerror(errno));
    const Json id(json_string(request_id));
    request_ = make_request(load.method, load.params, id.get());
    for (size_t i = 0; i < load.clients; ++i)
      clients_.push_back(std::make_unique<Client>(epoll_.get(), load_, address_));
  }

  Ledger run() {
    for (auto& client : clients_) begin(*client);
    while (in_flight_ > 0 || !resting_.empty()) {
      wait();
      for (Client* client : std::exchange(queueing_, {})) proceed(*client);
      if (Clock::now() >= next_tick_) look_around();
      for (Client* client : std::exchange(ended_, {})) settle(*client);
    }
    ledger_.took = Clock::now() - begun_;
    return std::move(ledger_);
  }

 private:
  [[nodiscard]] bool goes_on() const {
    if (stopped_ || (load_.requests != 0 && ledger_.requests >= load_.requests)) return false;
    return load_.duration.count() == 0 || Clock::now() - begun_ < load_.duration;
  }

  void begin(Client& client) {
    if (!goes_on()) return;
    ++ledger_.requests;
    ++in_flight_;
    const int64_t transaction = next_number_++;
    json_object_set_new(request_.get(), "transaction_id", json_integer(transaction));
    client.begin(transaction, json_text(request_.get()) + "\n", Clock::now());
    proceed(client);
  }
  void proceed(Client& client) {
    client.proceed();
    note(client);
  }
  void note(Client& client) {
    if (client.is_queueing()) queueing_.push_back(&client);
    if (client.has_ended()) ended_.push_back(&client);
  }

  // A router that is not there is not asked again at once.
  void settle(Client& client) {
    const auto before = ledger_.not_connected;
    client.enter(ledger_);
    --in_flight_;
    if (ledger_.not_connected == before) {
      begin(client);
    } else {
      resting_.push_back(&client);
    }
  }

  void wait() {
    const auto longest = !ended_.empty() ? 0ms : !queueing_.empty() ? queue_pause : tick;
    const int count =
        epoll_wait(epoll_.get(), events_.data(), static_cast<int>(events_.size()), static_cast<int>(longest.count()));
    for (int i = 0; i < count; ++i) proceed(*static_cast<Client*>(events_[static_cast<size_t>(i)].data.ptr));
  }

  void look_around() {
    const auto now = Clock::now();
    next_tick_ = now + tick;
    for (auto& client : clients_) {
      if (client->is_late(now)) {
        client->end();
        note(*client);
      }
    }
    ledger_.took = now - begun_;
    if (!progress_(ledger_)) stopped_ = true;
    for (Client* client : std::exchange(resting_, {})) begin(*client);
  }

  const Load& load_;
  const Progress& progress_;
  SocketAddress address_;
  Descriptor epoll_;
  Json request_;
  std::vector<std::unique_ptr<Client>> clients_;
  std::vector<Client*> queueing_;
  std::vector<Client*> ended_;
  std::vector<Client*> resting_;
  std::array<epoll_event, 256> events_{};
  Ledger ledger_;
  uint64_t in_flight_ = 0;
  int64_t next_number_ = random_number();
  bool stopped_ = false;
  Clock::time_point begun_ = Clock::now();
  Clock::time_point next_tick_ = begun_ + tick;
};

}  // namespace

uint64_t Ledger::outcomes() const {
  uint64_t sum = answered + timed_out + busy + closed + lost + mixed_up + not_connected;
  for (const auto& [code, count] : errors) sum += count;
  return sum;
}

bool Ledger::is_sound() const {
  return outcomes() == requests && lost == 0 && mixed_up == 0;
}

Json Ledger::json() const {
  const Json by_code(json_object());
  for (const auto& [code, count] : errors)
    json_object_set_new(by_code.get(), std::to_string(code).c_str(), number(count));
  const Json times(json_object());
  const auto add = [&times](const char* name, Latencies::Time time) {
    json_object_set_new(times.get(), name, json_real(milliseconds(time)));
  };
  add("min", latencies.smallest());
  for (const auto& [name, percent] : percentiles) add(name, latencies.percentile(percent));
  add("max", latencies.largest());
  return Json(json_pack("{s:o,s:o,s:O,s:o,s:o,s:o,s:o,s:o,s:o,s:f,s:O}", "requests", number(requests), "answered",
                        number(answered), "errors", by_code.get(), "timed_out", number(timed_out), "busy", number(busy),
                        "closed", number(closed), "lost", number(lost), "mixed_up", number(mixed_up), "not_connected",
                        number(not_connected), "seconds", took.count(), "latency_ms", times.get()));
}

Ledger run_load(const Load& load, const Progress& progress) {
  return Run(load, progress).run();
}

void enter_answer(Ledger& ledger, const std::string& method, int64_t number, const std::string& answer) {
  const Json object(json_loadb(answer.data(), answer.size(), 0, nullptr));
  const json_t* const error = json_object_get(object.get(), "error");
  if (error == nullptr && json_object_get(object.get(), "result") == nullptr) {
    ++ledger.lost;  // cut off
    return;
  }
  const json_t* const transaction = json_object_get(object.get(), "transaction_id");
  const char* const id = json_string_value(json_object_get(object.get(), "id"));
  const auto code = static_cast<int32_t>(json_integer_value(json_object_get(error, "code")));
  const bool named = id != nullptr && (id == method || id == std::string_view(request_id));
  if (!json_is_integer(transaction) || json_integer_value(transaction) != number || !named) {
    ++ledger.mixed_up;
  } else if (error == nullptr) {
    ++ledger.answered;
  } else if (code == jrpc_code::busy) {
    ++ledger.busy;
  } else if (code == jrpc_code::timed_out) {
    ++ledger.timed_out;
  } else {
    ++ledger.errors[code];
  }
}

}  // namespace kestro::ctl
