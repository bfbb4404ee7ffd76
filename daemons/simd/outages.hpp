// Edge switches that go and come back by themselves.
#ifndef KESTRO_SIMD_OUTAGES_HPP
#define KESTRO_SIMD_OUTAGES_HPP

#include <cstdint>

#include "simd/faults.hpp"
#include "simd/values.hpp"

namespace kestro::simd {

// In turns: one of the first eight edge switches goes offline, then it is back, then another one goes. The seed gives
// the order.
class Outages {
 public:
  static constexpr int32_t edge_switches = 8;

  Outages(uint64_t seed, Faults& faults) noexcept : values_(seed), faults_(faults) {}

  void take_turn();

 private:
  [[nodiscard]] int32_t next_victim();

  Values values_;
  Faults& faults_;
  int32_t away_ = 0;  // the edge switch, or 0
  uint64_t outages_ = 0;
};

}  // namespace kestro::simd

#endif
