// The wish to end, as the daemons and the tool take it.

#include "common/signals.hpp"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>

#include <csignal>
#include <stdexcept>

#include "core/owned.hpp"
#include "support/descriptors.hpp"

namespace kestro::test {
namespace {

using daemons::block_ending_signals;

bool is_blocked(int signal) {
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  return sigismember(&blocked, signal) == 1;
}

// A test that ends leaves the signals as they were.
class DaemonsSignals : public testing::Test {
 protected:
  DaemonsSignals() { pthread_sigmask(SIG_SETMASK, nullptr, &before_); }
  ~DaemonsSignals() override { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

TEST_F(DaemonsSignals, EachIsTakenByTheDescriptor) {
  for (const int signal : {SIGTERM, SIGINT}) {
    const Descriptor signals(block_ending_signals());
    pollfd descriptor{signals.get(), POLLIN, 0};
    EXPECT_EQ(poll(&descriptor, 1, 0), 0);
    raise(signal);
    EXPECT_EQ(poll(&descriptor, 1, 0), 1) << signal;
    char taken[256];
    EXPECT_GT(read(signals.get(), taken, sizeof taken), 0);
    EXPECT_LT(read(signals.get(), taken, sizeof taken), 0);  // and does not wait
  }
}

TEST_F(DaemonsSignals, WithoutADescriptorTheyEndTheProgramAsEver) {
  const auto before = open_descriptors();
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none{.rlim_cur = 0, .rlim_max = limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_THROW(block_ending_signals(), std::runtime_error);
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_FALSE(is_blocked(SIGTERM));
  EXPECT_FALSE(is_blocked(SIGINT));
  EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
}  // namespace kestro::test
