// Where the readings of the simulated unit come from: each follows from the seed and from what is read, and from
// nothing else. The order of calls, their number and the time make no difference.
#ifndef KESTRO_SIMD_VALUES_HPP
#define KESTRO_SIMD_VALUES_HPP

#include <cstdint>
#include <string_view>

namespace kestro::simd {

class Values {
 public:
  explicit Values(uint64_t seed) noexcept : seed_(seed) {}

  // The number that belongs to an identity, like "temperature/core". The identity is hashed byte by byte (FNV-1a), the
  // seed is added, and the sum is mixed until every bit of it counts in every bit of the number (the finalizer of
  // splitmix64).
  [[nodiscard]] uint64_t of(std::string_view identity) const noexcept;

  // The same within bounds, both included.
  [[nodiscard]] int64_t between(std::string_view identity, int64_t lowest, int64_t highest) const noexcept;

 private:
  uint64_t seed_;
};

}  // namespace kestro::simd

#endif
