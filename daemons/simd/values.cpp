#include "simd/values.hpp"

namespace kestro::simd {

namespace {

uint64_t hash(std::string_view text) noexcept {
  uint64_t sum = 0xCBF29CE484222325;
  for (const char byte : text) sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
  return sum;
}

uint64_t mix(uint64_t x) noexcept {
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
  return x ^ (x >> 31);
}

}  // namespace

uint64_t Values::of(std::string_view identity) const noexcept {
  return mix(hash(identity) + mix(seed_));
}

int64_t Values::between(std::string_view identity, int64_t lowest, int64_t highest) const noexcept {
  const auto range = static_cast<uint64_t>(highest - lowest) + 1;
  return lowest + static_cast<int64_t>(of(identity) % range);
}

}  // namespace kestro::simd
