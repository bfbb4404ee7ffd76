// Timers of the daemons.

#include "common/timer.hpp"

#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>
#include <stdexcept>

#include "support/captured_stderr.hpp"
#include "support/descriptors.hpp"
#include "support/faults.hpp"

namespace kestro::test {
namespace {

using daemons::Timer;

bool fires(const Timer& timer, int wait_ms = -1) {
  pollfd descriptor{timer.descriptor(), POLLIN, 0};
  return poll(&descriptor, 1, wait_ms) == 1;
}

TEST(DaemonsTimer, RestsUntilItIsSet) {
  const Timer timer;
  EXPECT_FALSE(fires(timer, 0));
  EXPECT_FALSE(timer.take());
}

TEST(DaemonsTimer, FiresOnceWithoutAnInterval) {
  const Timer timer;
  timer.set(0.001);
  ASSERT_TRUE(fires(timer));
  EXPECT_TRUE(timer.take());
  EXPECT_FALSE(fires(timer, 20));
}

TEST(DaemonsTimer, FiresAgainAtTheInterval) {
  const Timer timer;
  timer.set(0.001, 0.002);
  for (int time = 0; time < 3; ++time) {
    ASSERT_TRUE(fires(timer));
    EXPECT_TRUE(timer.take());
  }
}

TEST(DaemonsTimer, SettingItAnewEndsWhatWasSet) {
  const Timer timer;
  timer.set(0.001, 0.001);
  ASSERT_TRUE(fires(timer));
  timer.set(3600);
  EXPECT_FALSE(fires(timer, 20));
}

TEST(DaemonsTimer, ATimeThatIsNoneIsAnError) {
  const Timer timer;
  stderr_of([&] { EXPECT_THROW(timer.set(-1), std::runtime_error); });
}

TEST(DaemonsTimer, LeavesNoDescriptor) {
  const auto before = open_descriptors();
  { const Timer timer; }
  EXPECT_EQ(open_descriptors(), before);
  const Fault none("timerfd_create", EMFILE);
  stderr_of([] { EXPECT_THROW(Timer(), std::runtime_error); });
  EXPECT_TRUE(none.fired());
  EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
}  // namespace kestro::test
