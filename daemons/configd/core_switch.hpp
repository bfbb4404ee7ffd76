// The hardware: calls over the bus to the service that drives the core switch and, through it, the edge switches.
#ifndef KESTRO_CONFIGD_CORE_SWITCH_HPP
#define KESTRO_CONFIGD_CORE_SWITCH_HPP

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "common/bus_sockets.hpp"
#include "configd/failure.hpp"
#include "configd/handles.hpp"

namespace kestro::configd {

// The hardware did not answer in time: what it holds is not known.
class Silence : public Failure {
 public:
  explicit Silence(const std::string& why) : Failure(status::core_switch_offline, why) {}
};

// The hardware answered that it did not do it.
class Refusal : public Failure {
 public:
  using Failure::Failure;
};

// Whoever calls waits, and with it the one thread that serves: a time-out is paid once. For as long again, further calls
// fail at once instead of keeping everybody waiting in turn.
class CoreSwitch {
 public:
  using Clock = std::chrono::steady_clock;
  struct Call {
    const char* method;
    Json params;
  };

  // `publisher` is the daemon's own, which outlives this object. `stopping` ends a wait. Throws std::runtime_error.
  CoreSwitch(int32_t publisher, const std::vector<std::string>& publishers_of_answers, Clock::duration timeout,
             std::function<bool()> stopping);

  // One after the other, all within the time-out. The last one's result. Throws Silence or Refusal.
  Json call(const std::vector<Call>& calls);
  Json call(const char* method, Json params);

  // Throws Silence while calls fail at once.
  void require_not_silent() const;
  [[nodiscard]] bool silent() const { return Clock::now() < silent_until_; }
  // Something else showed that the hardware is there.
  void is_heard() { silent_until_ = {}; }
  [[nodiscard]] Clock::duration timeout() const { return timeout_; }

  // Asks for a sign of life without waiting for it.
  void probe();
  // Takes what lies on the reply channel. Whether a probe was answered in time; other frames are answers that came too
  // late.
  bool take_sign_of_life();
  // Readable when there is something to take.
  [[nodiscard]] int descriptor() const { return daemons::receive_descriptor(answers_.get()); }

 private:
  [[nodiscard]] std::string request(const char* method, json_t* params, int64_t number) const;
  int64_t publish(const char* method, json_t* params);
  Json await(const char* method, int64_t number, Clock::time_point deadline);
  bool is_timely_probe(const json_t* answer);

  int32_t publisher_;
  std::string reply_channel_;
  daemons::BusSocket answers_;
  Clock::duration timeout_;
  std::function<bool()> stopping_;
  int64_t last_number_;
  Clock::time_point silent_until_;
  std::map<int64_t, Clock::time_point> probes_;  // when each was sent
};

}  // namespace kestro::configd

#endif
