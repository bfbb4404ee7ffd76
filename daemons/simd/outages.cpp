#include "simd/outages.hpp"

#include <string>

namespace kestro::simd {

void Outages::take_turn() {
  if (away_ != 0) {
    faults_.set({FaultKind::none, away_});
    away_ = 0;
    return;
  }
  away_ = next_victim();
  if (away_ != 0) faults_.set({FaultKind::offline, away_});
}

// What somebody took offline is left alone: the next one takes its turn.
int32_t Outages::next_victim() {
  const auto first = values_.between("outage/" + std::to_string(outages_++), 0, edge_switches - 1);
  for (int64_t i = 0; i < edge_switches; ++i) {
    const auto oec_number = static_cast<int32_t>((first + i) % edge_switches + 1);
    if (!faults_.is_offline(oec_number)) return oec_number;
  }
  return 0;
}

}  // namespace kestro::simd
