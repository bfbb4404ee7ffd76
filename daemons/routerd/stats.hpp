// What the router counts, and where operators read it.
#ifndef KESTRO_ROUTERD_STATS_HPP
#define KESTRO_ROUTERD_STATS_HPP

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace kestro::routerd {

struct Stats {
  uint64_t accepted = 0;
  // How connections ended: each in one of these, unless it is still open.
  uint64_t answered = 0;
  uint64_t busy = 0;
  uint64_t timed_out = 0;
  uint64_t handled = 0;                     // notifications that the router itself handled
  std::map<std::string, uint64_t> refused;  // by reason
  // Of the answered, busy and timed out: those who were not there any more, or did not take their answer in time.
  uint64_t client_gone = 0;

  // Frames from the bus that reached nobody.
  uint64_t late = 0;     // their client has had its answer, or gave up
  uint64_t foreign = 0;  // they answer nothing that was asked here
  uint64_t garbage = 0;  // no JSON-RPC response

  size_t clients = 0;
  size_t in_flight = 0;
  uint64_t bytes_in = 0;
  uint64_t bytes_out = 0;

  // Answered requests by the time that the service took: slot n counts those below 2^n milliseconds.
  std::array<uint64_t, 20> latency_ms{};

  void count_latency(std::chrono::nanoseconds took) noexcept;
  // Throws std::bad_alloc rather than tell a part of them.
  [[nodiscard]] std::string json() const;
};

// The counters as JSON text in a shared-memory variable, while the object lives.
class StatsVariable {
 public:
  static constexpr int32_t size = 8192;

  explicit StatsVariable(std::string name);
  StatsVariable(const StatsVariable&) = delete;
  StatsVariable& operator=(const StatsVariable&) = delete;
  ~StatsVariable();
  void publish(const Stats& stats) const;

 private:
  std::string name_;
  bool usable_;
};

}  // namespace kestro::routerd

#endif
