// The configuration service as tests meet it: the process, a core switch that does as the test says, and a client on
// the bus.
#ifndef KESTRO_TESTS_CONFIGD_HPP
#define KESTRO_TESTS_CONFIGD_HPP

#include <gtest/gtest.h>
#include <jansson.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/owned.hpp"
#include "kestro_jrpc.h"
#include "kestro_mq.h"
#include "support/bus.hpp"
#include "support/database.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/process.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {

inline Json next_message(int32_t subscriber, bool wait) {
  char* raw = nullptr;
  int32_t length = 0;
  if (kestro_mq_socket_recv(subscriber, &raw, &length, wait ? 0 : 1) != 0) return nullptr;
  const Text frame(raw);
  char* raw_text = nullptr;
  kestro_jrpc_parse_msg(frame.get(), length, &raw_text);
  const Text text(raw_text);
  return json_of(text.get());
}

// Serves the methods of the hardware on a thread of its own, and keeps what it is told.
class ScriptedCoreSwitch {
 public:
  enum class Mood {
    obedient,
    refusing,  // answers with the code, and does not do it
    deaf,      // neither does it nor answers
    mute,      // does it and does not answer
    holding    // does it and keeps the answer
  };

  ScriptedCoreSwitch(const std::string& address, const std::string& configd)
      : publisher_(KESTRO_MQ_SP_PUB), subscriber_(KESTRO_MQ_SP_SUB) {
    publisher_.bind(address);
    subscriber_.connect(configd).subscribe(KESTRO_JRPC_CHANNEL_DEFAULT).timeout(10);
    thread_ = std::thread([this] { serve(); });
  }
  ScriptedCoreSwitch(const ScriptedCoreSwitch&) = delete;
  ScriptedCoreSwitch& operator=(const ScriptedCoreSwitch&) = delete;
  ~ScriptedCoreSwitch() {
    stop_ = true;
    thread_.join();
  }

  void be(Mood mood, int code = 0) {
    const std::lock_guard lock(mutex_);
    mood_ = mood;
    code_ = code;
  }
  // From now on what was kept is sent before each answer.
  void replay() {
    const std::lock_guard lock(mutex_);
    replaying_ = true;
  }
  void answer_what_was_kept() {
    const std::lock_guard lock(mutex_);
    send_kept();
    kept_.clear();
  }
  // How often the method was called.
  int calls(const std::string& method) const {
    const std::lock_guard lock(mutex_);
    const auto found = calls_.find(method);
    return found == calls_.end() ? 0 : found->second;
  }
  int configured() const { return calls("emac.service.CoreSwitchConfigure"); }
  // A member of what it holds for a port ("1-4": port 4 of switch 1), as text; empty when it was never told.
  std::string held(const std::string& port, const char* member) const {
    const std::lock_guard lock(mutex_);
    const auto found = held_.find(port);
    return found == held_.end() ? "" : text_of(json_object_get(found->second.get(), member));
  }
  int mgmt_vlan() const {
    const std::lock_guard lock(mutex_);
    return mgmt_vlan_;
  }
  // It is replaced by one that holds nothing.
  void lose_everything() {
    const std::lock_guard lock(mutex_);
    held_.clear();
  }
  void publish(const std::string& channel, const std::string& message) {
    const std::lock_guard lock(mutex_);
    kestro_mq_socket_send(publisher_.handle(), (channel + "|" + message).c_str());
  }

 private:
  void serve() {
    while (!stop_) {
      const Json request = next_message(subscriber_.handle(), true);
      const std::lock_guard lock(mutex_);
      if (request) take(request.get());
    }
  }

  void take(const json_t* request) {
    const std::string method = json_string_value(json_object_get(request, "method"));
    ++calls_[method];
    if (json_object_get(request, "id") == nullptr || mood_ == Mood::deaf) return;
    const bool does_it = mood_ != Mood::refusing;
    const Json result = does_it ? obey(method, json_object_get(request, "params")) : nullptr;
    if (mood_ == Mood::mute) return;
    const std::string answer = answer_to(request, method, result.get());
    if (mood_ == Mood::holding) return kept_.push_back(answer);
    if (replaying_) send_kept();
    kestro_mq_socket_send(publisher_.handle(), answer.c_str());
  }

  void send_kept() {
    for (const auto& kept : kept_) kestro_mq_socket_send(publisher_.handle(), kept.c_str());
  }

  std::string answer_to(const json_t* request, const std::string& method, json_t* result) const {
    Json answer(json_pack("{s:s,s:s}", "jsonrpc", "2.0", "id", method.c_str()));
    if (result != nullptr) {
      json_object_set(answer.get(), "result", result);
    } else {
      json_object_set_new(
          answer.get(), "error",
          json_pack("{s:i,s:s,s:{s:s}}", "code", code_, "message", "no", "data", "message", "not today"));
    }
    json_object_set(answer.get(), "transaction_id", json_object_get(request, "transaction_id"));
    return std::string(json_string_value(json_object_get(request, "id"))) + "|" + text_of(answer.get());
  }

  Json obey(const std::string& method, const json_t* params) {
    if (method == "emac.service.CoreSwitchConfigure") configure(params);
    if (method != "emac.service.EdgeSwitchGetPoePower") return json_of("0");
    Json readings(json_array());
    for (size_t i = 0; i < json_array_size(json_object_get(params, "port_numbers")); ++i) {
      const auto port = json_integer_value(json_array_get(json_object_get(params, "port_numbers"), i));
      json_array_append_new(readings.get(), json_pack("{s:I,s:I}", "port_number", port, "milliwatts", port * 1000));
    }
    return Json(json_pack("{s:o}", "poe_power", readings.release()));
  }

  void configure(const json_t* params) {
    const auto number = json_integer_value(json_object_get(params, "oec_number"));
    const json_t* const ports = json_object_get(params, "ports");
    for (size_t i = 0; i < json_array_size(ports); ++i) {
      json_t* const port = json_array_get(ports, i);
      const auto port_number = json_integer_value(json_object_get(port, "port_number"));
      held_[std::to_string(number) + "-" + std::to_string(port_number)].reset(json_incref(port));
    }
    if (const json_t* vlan = json_object_get(params, "mgmt_vlan_id"); vlan != nullptr) {
      mgmt_vlan_ = static_cast<int>(json_integer_value(vlan));
    }
  }

  BusSocket publisher_;
  BusSocket subscriber_;
  mutable std::mutex mutex_;
  Mood mood_ = Mood::obedient;
  int code_ = 0;
  bool replaying_ = false;
  std::vector<std::string> kept_;
  std::map<std::string, int> calls_;
  std::map<std::string, Json> held_;
  int mgmt_vlan_ = 0;
  std::atomic<bool> stop_ = false;
  std::thread thread_;
};

using Mood = ScriptedCoreSwitch::Mood;

// "02:00:01:00:" and the number.
inline std::string mac_of(int number) {
  char text[64];
  snprintf(text, sizeof text, "02:00:01:00:%02X:%02X", number / 256, number % 256);
  return text;
}

// What a call gave.
struct Answer {
  std::string result;   // compact; empty for an error
  int code = 0;         // of an error
  std::string message;  // of its data; empty without
};

inline Answer answer_of(const json_t* response) {
  if (const json_t* result = json_object_get(response, "result"); result != nullptr) return {text_of(result), 0, ""};
  const json_t* const error = json_object_get(response, "error");
  const char* const message = json_string_value(json_object_get(json_object_get(error, "data"), "message"));
  return {"", static_cast<int>(json_integer_value(json_object_get(error, "code"))), message != nullptr ? message : ""};
}

// A unit: a database of its own, the service and its hardware, linked with each other and with the test.
class Unit {
 public:
  explicit Unit(const std::string& hardware_timeout = "60", const std::vector<std::string>& environment = {})
      : hardware_timeout_(hardware_timeout),
        environment_(environment),
        requests_(KESTRO_MQ_SP_PUB),
        answers_(KESTRO_MQ_SP_SUB) {
    std::filesystem::create_directory(update_dir());
    requests_.bind(client_address_);
    answers_.connect(configd_address_).subscribe(channel_).timeout(20);
    core_switch_ = std::make_unique<ScriptedCoreSwitch>(hardware_address_, configd_address_);
    start();
    if (!eventually([&] { return !is_pending("10001"); })) throw std::runtime_error(daemon().err());
  }
  Unit(const Unit&) = delete;
  Unit& operator=(const Unit&) = delete;
  // However a test went, the daemon ends in good order and, where that is looked at, without a leak.
  ~Unit() {
    if (daemon_->pid() < 0) return;
    EXPECT_EQ(daemon_->terminate(), 0) << daemon_->err();
  }

  Process& daemon() { return *daemon_; }
  ScriptedCoreSwitch& core_switch() { return *core_switch_; }
  [[nodiscard]] std::string database() const { return dir_.file("configd.db"); }
  [[nodiscard]] std::string update_dir() const { return dir_.file("update"); }
  [[nodiscard]] std::string update_file(const std::string& name) const { return dir_.file("update/" + name); }

  // Returns when the service answers.
  void start() {
    daemon_ = std::make_unique<Process>(
        std::vector<std::string>{KESTRO_CONFIGD, "--init", "--bus-publish", configd_address_, "--bus-subscribe",
                                 client_address_, "--bus-subscribe", hardware_address_, "--database", database(),
                                 "--update-dir", update_dir(), "--hardware-timeout", hardware_timeout_},
        environment_);
    // What is sent before both directions are linked is lost.
    const bool up = eventually([&] {
      const int64_t number = send("oec.List", "{}");
      const auto patience = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
      while (std::chrono::steady_clock::now() < patience) {
        if (take_one() && answers_by_number_.contains(number)) return true;
      }
      return false;
    });
    if (!up) throw std::runtime_error(daemon().err());
  }

  // Sends a request and does not wait; the number under which its answer comes.
  int64_t send(const std::string& method, const std::string& params) {
    const int64_t number = ++last_number_;
    const std::string message = R"({"jsonrpc":"2.0","method":")" + method + R"(","params":)" + params + R"(,"id":")" +
                                channel_ + R"(","transaction_id":)" + std::to_string(number) + "}";
    kestro_mq_socket_send(requests_.handle(), (std::string(KESTRO_JRPC_CHANNEL_3A6F8F51) + "|" + message).c_str());
    return number;
  }
  // Takes what is there, or comes within a moment.
  bool has_come(int64_t number) {
    take_one();
    return answers_by_number_.contains(number);
  }
  Answer receive(int64_t number) {
    const bool came = eventually([&] { return has_come(number); });
    if (!came) throw std::runtime_error("no answer; the log:\n" + daemon().err());
    return answers_by_number_.at(number);
  }
  Answer call(const std::string& method, const std::string& params) { return receive(send(method, params)); }
  // A call that must do.
  std::string done(const std::string& method, const std::string& params) {
    const Answer answer = call(method, params);
    EXPECT_EQ(answer.code, 0) << method << " " << params << ": " << answer.message;
    return answer.result;
  }

  // c1 of a model, known to the hardware.
  void register_switch(const std::string& model = "VTR-E30p", int number = 1) {
    done("oec.Register", R"({"oec_id":"c)" + std::to_string(number) + R"(","model":")" + model +
                             R"(","mac_address":")" + mac_of(number) + R"("})");
    EXPECT_TRUE(eventually([&] { return !is_pending(std::to_string(number)); })) << daemon().err();
  }
  [[nodiscard]] bool is_pending(const std::string& number) const {
    return stored("SELECT cfg_pending FROM edge_switch WHERE number = " + number) == "1";
  }
  // As another process sees the database.
  [[nodiscard]] std::string stored(const std::string& sql) const {
    const Database database(this->database());
    database.run("PRAGMA busy_timeout = 10000");
    return database.value(sql);
  }
  void expect_sound_database() const {
    EXPECT_EQ(stored("PRAGMA integrity_check"), "ok");
    EXPECT_EQ(stored("PRAGMA foreign_key_check"), "");
  }
  [[nodiscard]] bool logs(std::string_view text) const {
    return eventually([&] { return daemon_->err().find(text) != std::string::npos; });
  }

 private:
  bool take_one() {
    const Json response = next_message(answers_.handle(), true);
    if (!response) return false;
    answers_by_number_[json_integer_value(json_object_get(response.get(), "transaction_id"))] =
        answer_of(response.get());
    return true;
  }

  LogLevel quiet_{0};
  std::string hardware_timeout_;
  std::vector<std::string> environment_;
  TempDir dir_;
  std::string configd_address_ = free_bus_address();
  std::string client_address_ = free_bus_address();
  std::string hardware_address_ = free_bus_address();
  std::string channel_ = "test-" + dir_.path().filename().string();
  BusSocket requests_;
  BusSocket answers_;
  std::unique_ptr<ScriptedCoreSwitch> core_switch_;
  std::unique_ptr<Process> daemon_;
  int64_t last_number_ = 0;
  std::map<int64_t, Answer> answers_by_number_;
};

}  // namespace kestro::test

#endif
