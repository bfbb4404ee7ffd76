#include "configd/core_switch.hpp"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <stdexcept>
#include <utility>

#include "common/log.hpp"
#include "kestro_jrpc.h"
#include "kestro_jrpc_utils.h"
#include "kestro_mq.h"

namespace kestro::configd {

namespace {

using Clock = CoreSwitch::Clock;

constexpr const char* probe_method = "emac.service.CoreSwitchGetInfo";
constexpr int32_t no_status = -32001;  // of a code that is no status of ours
constexpr int frames_at_a_time = 32;
constexpr std::chrono::milliseconds longest_slice{200};  // between two looks at whether the end was asked for

// Registered for the socket of answers, for as long as the process lives.
pthread_mutex_t answers_lock = PTHREAD_MUTEX_INITIALIZER;

// No prefix of another process's: a subscription takes all channels that begin with it.
std::string own_reply_channel() {
  return "configd-" + std::to_string(getpid()) + "-replies";
}

// Numbers of an earlier life of the process are not met again.
int64_t first_number() {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

Clock::duration next_slice(Clock::time_point deadline) {
  const auto left = std::max(deadline - Clock::now(), Clock::duration::zero());
  return std::min<Clock::duration>(left, longest_slice);
}

void set_patience(int32_t socket, Clock::duration slice) {
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(slice).count();
  kestro_mq_socket_set_timeout(socket, static_cast<int32_t>(ms) + 1);
}

std::string seconds(Clock::duration duration) {
  char text[32];
  snprintf(text, sizeof text, "%g s", std::chrono::duration<double>(duration).count());
  return text;
}

// The code of an error object as a status; what the hardware says about it goes on to the client.
[[noreturn]] void refuse(const json_t* error) {
  const auto code = static_cast<int32_t>(json_integer_value(json_object_get(error, "code")));
  const char* why = json_string_value(json_object_get(json_object_get(error, "data"), "message"));
  if (why == nullptr) why = json_string_value(json_object_get(error, "message"));
  const int32_t converted = kestro_jrpc_error_convert_jrpc_to_kestro(code);
  throw Refusal(converted == no_status ? status::hardware_failed : converted, why != nullptr ? why : "");
}

Json result_of(const json_t* answer) {
  if (const json_t* const error = json_object_get(answer, "error"); error != nullptr) refuse(error);
  json_t* const result = json_object_get(answer, "result");
  if (result == nullptr) throw Refusal(status::hardware_failed, "the hardware's answer has no result");
  return Json(json_incref(result));
}

}  // namespace

CoreSwitch::CoreSwitch(int32_t publisher, const std::vector<std::string>& publishers_of_answers,
                       Clock::duration timeout, std::function<bool()> stopping)
    : publisher_(publisher),
      reply_channel_(own_reply_channel()),
      answers_(daemons::open_subscriber(publishers_of_answers, reply_channel_)),
      timeout_(timeout),
      stopping_(std::move(stopping)),
      last_number_(first_number()) {
  if (kestro_jrpc_add_fd_lock(answers_.get(), &answers_lock) != status::ok) {
    throw std::runtime_error("no lock for the socket of answers");
  }
}

void CoreSwitch::require_not_silent() const {
  if (silent()) throw Silence("the hardware did not answer a moment ago, and was not asked again");
}

Json CoreSwitch::call(const char* method, Json params) {
  std::vector<Call> calls;
  calls.push_back({method, std::move(params)});
  return call(calls);
}

Json CoreSwitch::call(const std::vector<Call>& calls) {
  require_not_silent();
  const auto deadline = Clock::now() + timeout_;
  Json result;
  for (const auto& each : calls) {
    kestro_jrpc_clear_logic_sub_sock(answers_.get());
    const int64_t number = publish(each.method, each.params.get());
    result = result_of(await(each.method, number, deadline).get());
  }
  return result;
}

std::string CoreSwitch::request(const char* method, json_t* params, int64_t number) const {
  const Json request(json_pack("{s:s,s:s,s:O,s:s,s:I}", "jsonrpc", "2.0", "method", method, "params", params, "id",
                               reply_channel_.c_str(), "transaction_id", static_cast<json_int_t>(number)));
  if (request == nullptr) throw Failure(status::answer_not_formed);
  return text_of(request.get());
}

// Takes the lock of the socket, which the first wait releases.
int64_t CoreSwitch::publish(const char* method, json_t* params) {
  const int64_t number = ++last_number_;
  const int32_t published = kestro_jrpc_mq_pub_lock(&publisher_, KESTRO_JRPC_CHANNEL_DEFAULT,
                                                    request(method, params, number).c_str(), answers_.get());
  if (published != status::ok) throw Failure(published, "the request to the hardware could not be published");
  return number;
}

// Answers are told by the method alone: one to an earlier call looks like ours but for its number.
Json CoreSwitch::await(const char* method, int64_t number, Clock::time_point deadline) {
  for (bool locked = true;; locked = false) {
    if (!locked) pthread_mutex_lock(&answers_lock);  // every wait releases it
    set_patience(answers_.get(), next_slice(deadline));
    json_t* raw = nullptr;
    kestro_jrpc_mq_sub_for_method_with_limit(answers_.get(), method, &raw, 1);
    Json answer(raw);
    if (answer && json_integer_value(json_object_get(answer.get(), "transaction_id")) == number) return answer;
    if (stopping_()) throw Silence("the service is being stopped");
    if (Clock::now() >= deadline) break;
  }
  silent_until_ = Clock::now() + timeout_;
  daemons::log_warning(std::string("the hardware did not answer ") + method + " within " + seconds(timeout_) +
                       "; further calls fail at once for as long");
  throw Silence("the hardware did not answer within " + seconds(timeout_));
}

void CoreSwitch::probe() {
  const auto now = Clock::now();
  std::erase_if(probes_, [&](const auto& sent) { return now - sent.second > timeout_; });
  const Json params(json_object());
  const int64_t number = ++last_number_;
  kestro_jrpc_mq_pub(&publisher_, KESTRO_JRPC_CHANNEL_DEFAULT, request(probe_method, params.get(), number).c_str());
  probes_[number] = now;
}

bool CoreSwitch::take_sign_of_life() {
  bool alive = false;
  char* raw = nullptr;
  int32_t length = 0;
  for (int taken = 0; taken < frames_at_a_time; ++taken) {
    if (kestro_mq_socket_recv(answers_.get(), &raw, &length, 1) != status::ok) break;
    const Allocated<char> frame(raw);
    char* raw_text = nullptr;
    kestro_jrpc_parse_msg(frame.get(), length, &raw_text);
    const Allocated<char> text(raw_text);
    json_t* raw_answer = nullptr;
    if (text != nullptr) kestro_jrpc_eval_method(probe_method, text.get(), &raw_answer);
    alive = is_timely_probe(Json(raw_answer).get()) || alive;
  }
  return alive;
}

// An error is a sign of life as well.
bool CoreSwitch::is_timely_probe(const json_t* answer) {
  const auto sent = probes_.find(json_integer_value(json_object_get(answer, "transaction_id")));
  if (sent == probes_.end()) return false;
  const bool timely = Clock::now() - sent->second <= timeout_;
  probes_.erase(sent);
  return timely;
}

}  // namespace kestro::configd
