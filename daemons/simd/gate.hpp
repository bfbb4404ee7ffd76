// Between the bus and the methods: holds back what a silent or a late unit would not answer yet.
#ifndef KESTRO_SIMD_GATE_HPP
#define KESTRO_SIMD_GATE_HPP

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

#include "common/bus_sockets.hpp"
#include "common/timer.hpp"
#include "kestro_jrpc.h"
#include "simd/faults.hpp"

namespace kestro::simd {

// Frames come in by a subscriber to the bus. The gate drops them, keeps them until their time, or hands them on at
// once, over a second pair of sockets inside of the process, to the table of methods. Requests for "sim." methods,
// which steer the simulation, and for "logger.ReloadConf" always pass at once.
class Gate {
 public:
  // The sockets, the table and the faults belong to the caller and outlive the gate. Throws std::runtime_error when
  // sockets or a timer cannot be had.
  Gate(int32_t subscriber, int32_t publisher, kestro_jrpc_mapping_t* table, const Faults& faults);
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  // Readable when take_frames(), or release_due(), has something to do.
  [[nodiscard]] int frames_descriptor() const;
  [[nodiscard]] int due_descriptor() const { return timer_.descriptor(); }

  void take_frames();
  void release_due();

 private:
  using Clock = std::chrono::steady_clock;

  bool take_one();
  void decide(std::string frame);
  void serve(const std::string& frame);
  void set_timer() const;

  int32_t subscriber_;
  int32_t publisher_;
  kestro_jrpc_mapping_t* table_;
  const Faults& faults_;
  daemons::BusSocket inner_publisher_;
  daemons::BusSocket inner_subscriber_;
  daemons::Timer timer_;
  std::multimap<Clock::time_point, std::string> waiting_;
};

}  // namespace kestro::simd

#endif
