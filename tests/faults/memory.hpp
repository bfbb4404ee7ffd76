// Campaigns against the memory of a scenario: each of its allocations fails, once or from there on for ever.
#ifndef KESTRO_TESTS_FAULTS_MEMORY_HPP
#define KESTRO_TESTS_FAULTS_MEMORY_HPP

#include <gtest/gtest.h>

#include <cstdio>
#include <ostream>

#include "faults/campaign.hpp"
#include "faults/failing_malloc.hpp"

namespace kestro::test {

struct MemoryScenario {
  const char* name;
  Play play;
  Ending ending = {};  // that the contract allows where memory runs out
};
inline void PrintTo(const MemoryScenario& scenario, std::ostream* out) {
  *out << scenario.name;
}

class MemoryCampaign : public testing::TestWithParam<MemoryScenario> {
 protected:
  static Outcome run(int nth, Persistence persistence) {
    return perform({.play = GetParam().play,
                    .plan = FailingMalloc::plan(),
                    .nth = nth,
                    .persistence = persistence,
                    .ending = GetParam().ending,
                    .prologue = FailingMalloc::account,
                    .epilogue = [] { EXPECT_EQ(FailingMalloc::outstanding(), 0U) << "blocks are leaked"; }});
  }

  static void exhaust(Persistence persistence) {
    const Outcome all_is_well = run(0, persistence);
    ASSERT_TRUE(all_is_well.well) << all_is_well.objection;
    int trials = 0;
    for (int nth = 1; nth <= all_is_well.seen; ++nth) {
      if (!is_chosen(nth, 48)) continue;
      const Outcome outcome = run(nth, persistence);
      ++trials;
      ASSERT_TRUE(outcome.well) << "allocation " << nth << " of " << all_is_well.seen << ": " << outcome.objection;
      ASSERT_GT(outcome.failed, 0) << "allocation " << nth;
    }
    RecordProperty("allocations", all_is_well.seen);
    RecordProperty("trials", trials);
    printf("[   FAULTS ] %d of %d allocations failed\n", trials, all_is_well.seen);
  }
};

TEST_P(MemoryCampaign, FailsOnce) {
  exhaust(Persistence::Once);
}
TEST_P(MemoryCampaign, FailsForEver) {
  exhaust(Persistence::ForEver);
}

}  // namespace kestro::test

#endif
