// One thing that goes wrong with the unit, as a request or the command line names it.
#ifndef KESTRO_SIMD_FAULT_HPP
#define KESTRO_SIMD_FAULT_HPP

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace kestro::simd {

enum class FaultKind {
  none,     // what was wrong is right again
  offline,  // cannot be reached: calls fail
  silent,   // requests are taken and not answered
  late      // answers come after a delay
};

struct Fault {
  FaultKind kind = FaultKind::none;
  int32_t oec_number = 0;  // one edge switch, for offline and none; 0 is the whole unit
  std::chrono::milliseconds delay{0};
};

inline constexpr int32_t longest_delay_ms = 600'000;

// "offline", "silent", "late" or "none".
std::optional<FaultKind> fault_kind(const std::string& word);

// A fault in one word: "offline", "offline=c3", "silent", "late=1500", "none", "none=c3". Nothing for any other text.
std::optional<Fault> parse_fault(const std::string& text);
// The word for it.
std::string text_of(const Fault& fault);

}  // namespace kestro::simd

#endif
