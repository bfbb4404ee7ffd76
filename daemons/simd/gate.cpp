#include "simd/gate.hpp"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "common/handles.hpp"
#include "kestro_mq.h"

namespace kestro::simd {

namespace {

constexpr const char* inner_address = "inproc://kestro-simd";

// The timer belongs to the loop's patience: however many frames come, it gets its turn.
constexpr int frames_at_a_time = 64;

// No frame is lost between the inner sockets; this only keeps the daemon from waiting for ever should one be.
constexpr int inner_patience_ms = 1000;

// As many frames are looked for after a served one.
constexpr int most_left_behind = 3;
constexpr int32_t nothing_there = -46;

constexpr double shortest_wait_s = 0.001;

void require(int32_t status, const char* what) {
  if (status != 0) throw std::runtime_error(what);
}

int32_t open_inner(int32_t kind) {
  int32_t socket = -1;
  require(kestro_mq_socket_init(kind, &socket), "cannot open a socket inside of the process");
  return socket;
}

// Whether the method is one of "sim.", or is about the log of this process, which no fault of the unit keeps from its
// operator. What is no request steers nothing.
bool steers(const std::string& frame) {
  char* raw = nullptr;
  kestro_jrpc_parse_msg(frame.c_str(), static_cast<int32_t>(frame.size()), &raw);
  const daemons::Allocated<char> text(raw);
  const daemons::Json request(text ? json_loads(text.get(), JSON_REJECT_DUPLICATES, nullptr) : nullptr);
  const char* const method = json_string_value(json_object_get(request.get(), "method"));
  if (method == nullptr) return false;
  const std::string_view name(method);
  return name.substr(0, 4) == "sim." || name == "logger.ReloadConf";
}

}  // namespace

Gate::Gate(int32_t subscriber, int32_t publisher, kestro_jrpc_mapping_t* table, const Faults& faults)
    : subscriber_(subscriber),
      publisher_(publisher),
      table_(table),
      faults_(faults),
      inner_publisher_(open_inner(KESTRO_MQ_SP_PUB)),
      inner_subscriber_(open_inner(KESTRO_MQ_SP_SUB)) {
  int32_t eid = 0;
  require(kestro_mq_socket_bind(inner_publisher_.get(), KESTRO_MQ_TRANSPORT_INPROC, inner_address, &eid), "inner bind");
  require(kestro_mq_socket_subscribe(inner_subscriber_.get(), ""), "inner subscription");
  require(kestro_mq_socket_set_timeout(inner_subscriber_.get(), inner_patience_ms), "inner time-out");
  require(kestro_mq_socket_connect(inner_subscriber_.get(), KESTRO_MQ_TRANSPORT_INPROC, inner_address, &eid),
          "inner connection");
}

int Gate::frames_descriptor() const {
  return daemons::receive_descriptor(subscriber_);
}

void Gate::take_frames() {
  for (int taken = 0; taken < frames_at_a_time && take_one(); ++taken) {
  }
}

bool Gate::take_one() {
  char* raw = nullptr;
  int32_t length = 0;
  if (kestro_mq_socket_recv(subscriber_, &raw, &length, 1) != 0) return false;
  const daemons::Allocated<char> frame(raw);
  decide({frame.get(), static_cast<size_t>(length)});
  return true;
}

void Gate::decide(std::string frame) {
  const bool hindered = faults_.is_silent() || faults_.delay().count() > 0;
  if (!hindered || steers(frame)) return serve(frame);
  if (faults_.is_silent()) return;
  waiting_.emplace(Clock::now() + faults_.delay(), std::move(frame));
  set_timer();
}

void Gate::serve(const std::string& frame) {
  if (kestro_mq_socket_send(inner_publisher_.get(), frame.c_str()) != 0) return;
  int32_t inner = inner_subscriber_.get();
  int32_t status = kestro_jrpc_mq_run(&inner, &publisher_, table_, 0);
  // Where the receive failed the frame is still there, and would be served in the place of the next one.
  for (int more = 0; more < most_left_behind && status != nothing_there; ++more) {
    status = kestro_jrpc_mq_run(&inner, &publisher_, table_, 1);
  }
}

void Gate::release_due() {
  static_cast<void>(timer_.take());
  while (!waiting_.empty() && waiting_.begin()->first <= Clock::now()) {
    const auto due = waiting_.extract(waiting_.begin());
    serve(due.mapped());
  }
  set_timer();
}

void Gate::set_timer() const {
  if (waiting_.empty()) return;
  const std::chrono::duration<double> wait = waiting_.begin()->first - Clock::now();
  timer_.set(std::max(wait.count(), shortest_wait_s));
}

}  // namespace kestro::simd
