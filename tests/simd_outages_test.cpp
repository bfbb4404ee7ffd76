// Edge switches that go and come back by themselves.

#include "simd/outages.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace kestro::simd {
namespace {

using testing::AnyOf;
using testing::IsEmpty;

// What happens in a number of turns: the number of a switch that goes, its negative when it is back.
std::vector<int32_t> history(uint64_t seed, int turns, const std::vector<int32_t>& taken_before = {}) {
  Faults faults;
  for (const auto oec_number : taken_before) faults.set({FaultKind::offline, oec_number});
  std::vector<int32_t> history;
  faults.on_change([&](int32_t oec_number, bool online) { history.push_back(online ? -oec_number : oec_number); });
  Outages outages(seed, faults);
  for (int i = 0; i < turns; ++i) outages.take_turn();
  return history;
}

TEST(SimdOutages, ASwitchGoesAndIsBackBeforeTheNextOne) {
  const auto turns = history(1, 200);
  ASSERT_EQ(turns.size(), 200U);
  std::set<int32_t> seen;
  for (size_t i = 0; i < turns.size(); i += 2) {
    EXPECT_EQ(turns[i + 1], -turns[i]);
    seen.insert(turns[i]);
  }
  EXPECT_EQ(seen, (std::set<int32_t>{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(SimdOutages, TheSeedGivesTheOrder) {
  EXPECT_EQ(history(1, 40), history(1, 40));
  EXPECT_NE(history(1, 40), history(2, 40));
}

TEST(SimdOutages, WhatSomebodyTookOfflineIsLeftAlone) {
  for (const auto change : history(1, 200, {1, 2, 3, 4, 5, 7})) EXPECT_THAT(change, AnyOf(6, -6, 8, -8));
  EXPECT_THAT(history(1, 10, {1, 2, 3, 4, 5, 6, 7, 8}), IsEmpty());
}

TEST(SimdOutages, WhatSomebodyBroughtBackIsNotToldTwice) {
  Faults faults;
  Outages outages(1, faults);
  outages.take_turn();
  faults.set({FaultKind::none});
  int changes = 0;
  faults.on_change([&](int32_t /*oec_number*/, bool /*online*/) { ++changes; });
  outages.take_turn();
  EXPECT_EQ(changes, 0);
}

}  // namespace
}  // namespace kestro::simd
