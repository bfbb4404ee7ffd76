// What is wrong with the unit, and who is told of it.

#include "simd/faults.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kestro::simd {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SimdFaults : public testing::Test {
 protected:
  SimdFaults() {
    faults_.on_change([this](int32_t oec_number, bool online) {
      told_.push_back("c" + std::to_string(oec_number) + (online ? " online" : " offline"));
    });
  }
  void set(const std::string& word) { faults_.set(parse_fault(word).value()); }

  Faults faults_;
  std::vector<std::string> told_;
};

TEST_F(SimdFaults, NothingIsWrongAtFirst) {
  EXPECT_FALSE(faults_.unit_is_offline());
  EXPECT_FALSE(faults_.is_offline(3));
  EXPECT_FALSE(faults_.is_silent());
  EXPECT_EQ(faults_.delay().count(), 0);
  EXPECT_THAT(faults_.words(), IsEmpty());
}

TEST_F(SimdFaults, OneSwitchGoesAndComesBack) {
  set("offline=c3");
  EXPECT_TRUE(faults_.is_offline(3));
  EXPECT_FALSE(faults_.is_offline(4));
  EXPECT_FALSE(faults_.unit_is_offline());
  set("none=c3");
  EXPECT_FALSE(faults_.is_offline(3));
  EXPECT_THAT(told_, ElementsAre("c3 offline", "c3 online"));
}

TEST_F(SimdFaults, OnlyTransitionsAreTold) {
  set("none=c3");
  set("offline=c3");
  set("offline=c3");
  EXPECT_THAT(told_, ElementsAre("c3 offline"));
}

TEST_F(SimdFaults, TheUnitAsAWholeIsNoSwitch) {
  set("offline");
  EXPECT_TRUE(faults_.unit_is_offline());
  EXPECT_FALSE(faults_.is_offline(3));
  EXPECT_THAT(told_, IsEmpty());
}

TEST_F(SimdFaults, ALaterDelayReplacesAnEarlierOne) {
  set("late=1500");
  set("late=20");
  EXPECT_EQ(faults_.delay().count(), 20);
}

TEST_F(SimdFaults, OneSwitchComingBackLeavesTheRest) {
  for (const auto* word : {"offline", "offline=c7", "offline=c3", "silent", "late=20"}) set(word);
  EXPECT_THAT(faults_.words(), ElementsAre("offline", "offline=c3", "offline=c7", "silent", "late=20"));
  set("none=c3");
  EXPECT_THAT(faults_.words(), ElementsAre("offline", "offline=c7", "silent", "late=20"));
}

TEST_F(SimdFaults, NoneEndsThemAll) {
  for (const auto* word : {"offline", "offline=c7", "offline=c3", "silent", "late=20"}) set(word);
  told_.clear();
  set("none");
  EXPECT_THAT(faults_.words(), IsEmpty());
  EXPECT_THAT(told_, ElementsAre("c3 online", "c7 online"));
}

}  // namespace
}  // namespace kestro::simd
