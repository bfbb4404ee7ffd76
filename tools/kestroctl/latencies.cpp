#include "kestroctl/latencies.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

namespace kestro::ctl {

// Numbers below 2^6 have slots of their own; each power of two above them has 64, of equal width.
size_t Latencies::slot_of(uint64_t value) noexcept {
  const auto bits = static_cast<unsigned>(std::bit_width(value));
  if (bits <= precision) return static_cast<size_t>(value);
  const unsigned shift = bits - precision - 1;
  return (static_cast<size_t>(shift) << precision) + static_cast<size_t>(value >> shift);
}

uint64_t Latencies::upper_end(size_t slot) noexcept {
  const size_t row = slot >> precision;
  if (row <= 1) return slot;
  const size_t shift = row - 1;
  return ((slot - (shift << precision) + 1) << shift) - 1;
}

void Latencies::add(Time time) noexcept {
  const Time positive = std::max(time, Time{});
  ++counts_[slot_of(static_cast<uint64_t>(positive.count()))];
  ++count_;
  smallest_ = std::min(smallest_, positive);
  largest_ = std::max(largest_, positive);
}

Latencies::Time Latencies::percentile(double percent) const noexcept {
  const auto rank = static_cast<uint64_t>(std::ceil(percent / 100.0 * static_cast<double>(count_)));
  uint64_t seen = 0;
  for (size_t slot = 0; slot < slots && count_ != 0; ++slot) {
    seen += counts_[slot];
    if (seen >= std::max<uint64_t>(rank, 1)) return std::min(Time(upper_end(slot)), largest_);
  }
  return {};
}

double milliseconds(Latencies::Time time) noexcept {
  return static_cast<double>(std::chrono::round<std::chrono::microseconds>(time).count()) / 1000;
}

}  // namespace kestro::ctl
