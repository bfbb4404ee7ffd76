// What the unit says unasked.
#ifndef KESTRO_SIMD_EVENTS_HPP
#define KESTRO_SIMD_EVENTS_HPP

#include <cstdint>

namespace kestro::simd {

// Publishes "events.EdgeSwitchOnline" or "events.EdgeSwitchOffline" with the edge switch and the present time.
void publish_transition(int32_t publisher, int32_t oec_number, bool online);

}  // namespace kestro::simd

#endif
