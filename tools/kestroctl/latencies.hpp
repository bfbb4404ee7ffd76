// How long things took: any number of times in a fixed amount of memory.
#ifndef KESTRO_CTL_LATENCIES_HPP
#define KESTRO_CTL_LATENCIES_HPP

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace kestro::ctl {

// Counts by magnitude. A percentile is at most 1/64 above the time that it stands for; smallest and largest are exact.
class Latencies {
 public:
  using Time = std::chrono::nanoseconds;

  void add(Time time) noexcept;
  [[nodiscard]] uint64_t count() const noexcept { return count_; }
  [[nodiscard]] Time smallest() const noexcept { return count_ != 0 ? smallest_ : Time{}; }
  [[nodiscard]] Time largest() const noexcept { return largest_; }
  // The least time that at least `percent` of all do not exceed; 0 where there is none.
  [[nodiscard]] Time percentile(double percent) const noexcept;

 private:
  static constexpr unsigned precision = 6;  // bits kept of each number
  static constexpr size_t slots = (64 - precision + 1) << precision;

  static size_t slot_of(uint64_t value) noexcept;
  static uint64_t upper_end(size_t slot) noexcept;

  std::array<uint64_t, slots> counts_{};
  uint64_t count_ = 0;
  Time smallest_ = Time::max();
  Time largest_{};
};

// To the microsecond.
double milliseconds(Latencies::Time time) noexcept;

}  // namespace kestro::ctl

#endif
