// A daemon on the bus that calls services and hears their notifications.
#ifndef KESTRO_TESTS_BUS_CALLER_HPP
#define KESTRO_TESTS_BUS_CALLER_HPP

#include <jansson.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "core/owned.hpp"
#include "kestro_jrpc.h"
#include "kestro_mq.h"
#include "support/bus.hpp"
#include "support/json.hpp"
#include "support/process.hpp"

namespace kestro::test {

class BusCaller {
 public:
  BusCaller() : out_(KESTRO_MQ_SP_PUB), in_(KESTRO_MQ_SP_SUB) {
    out_.bind(address_);
    in_.subscribe(reply_channel_ + "|").subscribe(KESTRO_JRPC_CHANNEL_505A5451);
  }

  // Where services must subscribe in order to be called.
  [[nodiscard]] const std::string& address() const { return address_; }
  void hear(const std::string& publisher) { in_.connect(publisher); }

  // The result as compact JSON, or "error " and the error object; "" when no answer came in time.
  std::string call(const std::string& channel, const std::string& method, const std::string& params = "{}",
                   std::chrono::milliseconds patience = std::chrono::minutes(1)) {
    return await(ask(channel, method, params), patience);
  }
  // Its halves, for calls that overlap.
  json_int_t ask(const std::string& channel, const std::string& method, const std::string& params = "{}") {
    const json_int_t number = ++last_number_;
    publish(channel, R"({"jsonrpc":"2.0","method":")" + method + R"(","params":)" + params + R"(,"id":")" +
                         reply_channel_ + R"(","transaction_id":)" + std::to_string(number) + "}");
    return number;
  }
  std::string await(json_int_t number, std::chrono::milliseconds patience = std::chrono::minutes(1)) {
    const Json answer = receive(patience, [&](const json_t* message) {
      return json_integer_value(json_object_get(message, "transaction_id")) == number;
    });
    if (!answer) return "";
    if (const json_t* const error = json_object_get(answer.get(), "error")) return "error " + text_of(error);
    return text_of(json_object_get(answer.get(), "result"));
  }

  void publish(const std::string& channel, const std::string& text) {
    kestro_jrpc_mq_pub(out_.address_of_handle(), channel.c_str(), text.c_str());
  }

  // The next notification that this caller has not looked at, whole; null when none came in time.
  Json notification(std::chrono::milliseconds patience = std::chrono::minutes(1)) {
    return receive(patience, [](const json_t* message) { return json_object_get(message, "id") == nullptr; });
  }

 private:
  // The first message that is wanted. Others are put aside for later.
  template <class Wanted>
  Json receive(std::chrono::milliseconds patience, Wanted&& wanted) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (;;) {
      for (auto at = aside_.begin(); at != aside_.end(); ++at) {
        if (!wanted(at->get())) continue;
        Json found = std::move(*at);
        aside_.erase(at);
        return found;
      }
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return nullptr;
      in_.timeout(static_cast<int32_t>(left.count()));
      take_one();
    }
  }
  void take_one() {
    char* raw = nullptr;
    int32_t length = 0;
    if (kestro_mq_socket_recv(in_.handle(), &raw, &length, 0) != 0) return;
    const Text frame(raw);
    char* raw_text = nullptr;
    kestro_jrpc_parse_msg(frame.get(), length, &raw_text);
    const Text text(raw_text);
    if (text) aside_.push_back(json_of(text.get()));
  }

  std::string address_ = free_bus_address();
  std::string reply_channel_ = "caller-" + std::to_string(getpid()) + "-" + address_;
  BusSocket out_;
  BusSocket in_;
  json_int_t last_number_ = 0;
  std::vector<Json> aside_;
};

}  // namespace kestro::test

#endif
