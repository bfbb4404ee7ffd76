// The whole appliance as tests meet it: simulated hardware, configuration service and router, a client in front, and an
// ear on the bus.
#ifndef KESTRO_TESTS_APPLIANCE_HPP
#define KESTRO_TESTS_APPLIANCE_HPP

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "kestro_jrpc.h"
#include "support/bus.hpp"
#include "support/bus_caller.hpp"
#include "support/json.hpp"
#include "support/process.hpp"
#include "support/shm_name.hpp"
#include "support/stream_peer.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {

// What the programs are told beside where they stand.
struct ApplianceOptions {
  std::vector<std::string> simd = {};
  std::vector<std::string> configd = {"--hardware-timeout", "30"};
  std::vector<std::string> routerd = {};
};

class Appliance {
 public:
  explicit Appliance(const ApplianceOptions& options = {}) : options_(options) {
    start_simd();
    start_configd();
    start_routerd();
    ear_.hear(simd_address_);
    if (!eventually([this] { return is_whole(); })) throw std::runtime_error(logs());
  }
  Appliance(const Appliance&) = delete;
  Appliance& operator=(const Appliance&) = delete;
  // However a test went, each program ends in good order and, where that is looked at, without a leak.
  ~Appliance() {
    for (auto* process : {routerd_.get(), configd_.get(), simd_.get()}) {
      if (process->pid() < 0) continue;
      EXPECT_EQ(process->terminate(), 0) << process->err();
    }
  }

  // Through the router: the result as compact JSON, or "error " and the error object.
  [[nodiscard]] std::string call(const std::string& method, const std::string& params = "{}") const {
    const std::string request = R"({"jsonrpc":"2.0","method":")" + method + R"(","params":)" + params + R"(,"id":1})";
    const Json answer = json_of(StreamPeer::on_path(socket_).send(request + "\n").receive_all());
    if (const json_t* const error = json_object_get(answer.get(), "error")) return "error " + text_of(error);
    return text_of(json_object_get(answer.get(), "result"));
  }
  // The next event of the hardware, its method and its edge switch.
  [[nodiscard]] std::string next_event() {
    const Json event = ear_.notification();
    const char* method = "";
    const char* oec_id = "";
    json_unpack(event.get(), "{s:s,s:{s:s}}", "method", &method, "params", "oec_id", &oec_id);
    return std::string(method) + " " + oec_id;
  }

  [[nodiscard]] Process& simd() { return *simd_; }
  [[nodiscard]] Process& configd() { return *configd_; }
  [[nodiscard]] Process& routerd() { return *routerd_; }
  [[nodiscard]] const TempDir& directory() const { return dir_; }
  [[nodiscard]] std::string logs() const { return simd_->err() + configd_->err() + routerd_->err(); }

  // Each at its old place, with what it finds there.
  void start_simd() {
    simd_ = start({KESTRO_SIMD, "--bus-publish", simd_address_, "--bus-subscribe", routerd_address_, "--bus-subscribe",
                   configd_address_, "--bus-subscribe", ear_.address()},
                  options_.simd);
  }
  void start_configd() {
    configd_ = start(
        {KESTRO_CONFIGD, "--bus-publish", configd_address_, "--bus-subscribe", routerd_address_, "--bus-subscribe",
         simd_address_, "--database", dir_.file("config.db"), "--update-dir", dir_.path().string() + "/", "--init"},
        options_.configd);
  }
  void start_routerd() {
    routerd_ =
        start({KESTRO_ROUTERD, "--listen-unix", socket_, "--bus-publish", routerd_address_, "--bus-subscribe",
               configd_address_, "--bus-subscribe", simd_address_, "--stats-name", stats_name_.str(), "--drain-timeout",
               "0.1", "--timeout", "rpc.discover=0.2", "--timeout", "network.service.Discover=0.2"},
              options_.routerd);
  }

  // Whether everybody has found the others; what is asked before is lost. The configuration service tells the hardware of
  // the unit's own ports as soon as it can.
  [[nodiscard]] bool is_whole() {
    if (routerd_->err().find("ready: clients at") == std::string::npos) return false;
    return is_there("network.service.Discover") && is_there("rpc.discover") && own_ports_are_configured();
  }
  // Whether a service answers its description, within a fraction of a second.
  [[nodiscard]] bool is_there(const std::string& discover) const { return call(discover).front() == '{'; }

 private:
  static std::unique_ptr<Process> start(std::vector<std::string> arguments, const std::vector<std::string>& more) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    return std::make_unique<Process>(arguments);
  }
  // Asked over the bus, the way that events come.
  [[nodiscard]] bool own_ports_are_configured() {
    const auto port = ear_.call(KESTRO_JRPC_CHANNEL_DEFAULT, "sim.GetPort", R"({"port_id":"d1"})", briefly);
    return port.find(R"("configured":true)") != std::string::npos;
  }

  static constexpr std::chrono::milliseconds briefly{200};
  ApplianceOptions options_;
  TempDir dir_;
  ShmName stats_name_;
  std::string socket_ = dir_.file("router.sock");
  std::string simd_address_ = free_bus_address();
  std::string configd_address_ = free_bus_address();
  std::string routerd_address_ = free_bus_address();
  BusCaller ear_;
  std::unique_ptr<Process> simd_;
  std::unique_ptr<Process> configd_;
  std::unique_ptr<Process> routerd_;
};

}  // namespace kestro::test

#endif
