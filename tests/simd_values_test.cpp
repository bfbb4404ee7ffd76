// Readings follow from the seed and from what is read.

#include "simd/values.hpp"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace kestro::simd {
namespace {

// Computed apart from this program. A seed that stands in somebody's test must go on giving what it gave.
TEST(SimdValues, AreTheSameForEver) {
  EXPECT_EQ(Values(0).of(""), 0xF52A15E9A9B5E89BU);
  EXPECT_EQ(Values(1).of("temperature/core"), 0x2C585BCCAFBC563DU);
  EXPECT_EQ(Values(UINT64_MAX).of("poe/12/3"), 0x8C9E55F1C03E110FU);
}

TEST(SimdValues, FollowFromSeedAndIdentity) {
  std::set<uint64_t> seen;
  for (uint64_t seed = 0; seed < 100; ++seed) {
    for (int i = 0; i < 100; ++i) seen.insert(Values(seed).of("port/" + std::to_string(i)));
  }
  EXPECT_EQ(seen.size(), 10'000U);
}

TEST(SimdValues, StayWithinBoundsAndReachThem) {
  std::set<int64_t> seen;
  for (int i = 0; i < 1'000; ++i) seen.insert(Values(3).between(std::to_string(i), -2, 2));
  EXPECT_EQ(seen, (std::set<int64_t>{-2, -1, 0, 1, 2}));
  EXPECT_EQ(Values(3).between("one", 5, 5), 5);
}

}  // namespace
}  // namespace kestro::simd
