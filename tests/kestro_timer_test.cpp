#include "kestro_timer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

#include "core/owned.hpp"
#include "kestro_lsyslog.h"
#include "support/captured_stderr.hpp"
#include "support/descriptors.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"

namespace {
struct Armed {
  int flags;
  itimerspec setting;
} armed;
}  // namespace

// Takes the place of the C library's: notes the setting and hands it on.
extern "C" int timerfd_settime(int fd, int flags, const itimerspec* setting, itimerspec* old) noexcept {
  armed = {.flags = flags, .setting = *setting};
  return static_cast<int>(syscall(SYS_timerfd_settime, fd, flags, setting, old));
}

namespace kestro::test {
namespace {

using testing::HasSubstr;

constexpr const char* module = "kestro_timer";
constexpr int limit = 10'000;

class Timer {
 public:
  explicit Timer(int32_t nonblock = 1) { EXPECT_EQ(kestro_timer_init(&tfd_, nonblock), 0); }
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;
  ~Timer() { close(tfd_); }

  [[nodiscard]] int32_t fd() const { return tfd_; }
  [[nodiscard]] bool expires() const {
    pollfd state{.fd = tfd_, .events = POLLIN, .revents = 0};
    return poll(&state, 1, limit) == 1;
  }

 private:
  int32_t tfd_ = -1;
};

std::string setting() {
  const auto& [interval, value] = armed.setting;
  std::ostringstream text;
  text << value.tv_sec << "s " << value.tv_nsec << "ns, " << interval.tv_sec << "s " << interval.tv_nsec << "ns";
  return text.str();
}

// ---- Creating ----

TEST(TimerInit, OnlyANonblockOfOneDoesNotBlock) {
  for (const int32_t nonblock : {0, 1, 2, -1, INT32_MAX}) {
    const Timer timer(nonblock);
    EXPECT_EQ((fcntl(timer.fd(), F_GETFL) & O_NONBLOCK) != 0, nonblock == 1) << nonblock;
    EXPECT_NE(fcntl(timer.fd(), F_GETFD) & FD_CLOEXEC, 0);
  }
}

TEST(TimerInit, RunsOnTheMonotonicClock) {
  const Timer timer;
  std::ifstream file("/proc/self/fdinfo/" + std::to_string(timer.fd()));
  std::ostringstream info;
  info << file.rdbuf();
  EXPECT_THAT(info.str(), HasSubstr("clockid: " + std::to_string(CLOCK_MONOTONIC) + "\n"));
}

TEST(TimerInit, TellsItAtVerbose) {
  const LogLevel verbose(KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE);
  EXPECT_THAT(stderr_of([] { const Timer timer; }), HasLog(Verbose, module, "Timer successfully created\n"));
}

TEST(TimerInit, FailureIsReportedAndLeavesMinusOne) {
  int32_t tfd = 77;
  const auto report = stderr_of([&] {
    const Fault fault("timerfd_create", EMFILE);
    EXPECT_EQ(kestro_timer_init(&tfd, 1), -1);
  });
  EXPECT_EQ(tfd, -1);
  EXPECT_EQ(report, "kestro_timer_init: Too many open files\n");
}

TEST(TimerInit, NullIsRefusedAndTold) {
  EXPECT_THAT(stderr_of([] { EXPECT_EQ(kestro_timer_init(nullptr, 1), -20); }),
              HasLog(Debug, module, "[kestro_timer_init]: NULL pointer!\n"));
}

// ---- Arming ----

TEST(TimerSet, ArmsWholeSeconds) {
  const struct {
    int32_t period, interval;
    const char* armed;
  } rows[] = {{5, 2, "5s 0ns, 2s 0ns"},
              {1, 0, "1s 0ns, 0s 0ns"},
              {0, 7, "0s 0ns, 7s 0ns"},
              {INT32_MAX, INT32_MAX, "2147483647s 0ns, 2147483647s 0ns"}};
  const LogLevel verbose(KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE);
  const Timer timer;
  for (const auto& row : rows) {
    const auto log = stderr_of([&] { EXPECT_EQ(kestro_timer_set(timer.fd(), row.period, row.interval), 0); });
    EXPECT_EQ(setting(), row.armed);
    EXPECT_EQ(armed.flags, 0);
    EXPECT_THAT(log, HasLog(Verbose, module,
                            "Timer successfully set to " + std::to_string(row.period) + " period and " +
                                std::to_string(row.interval) + " interval\n"));
  }
}

TEST(TimerNsecSet, ArmsFractions) {
  const struct {
    float period, interval;
    const char *armed, *told;
  } rows[] = {
      {1.5F, 0.25F, "1s 500000000ns, 0s 250000000ns", "1.500000 period and 0.250000"},
      {0.1F, 0.0F, "0s 100000001ns, 0s 0ns", "0.100000 period and 0.000000"},
      {0.3F, 2.7F, "0s 300000011ns, 2s 700000047ns", "0.300000 period and 2.700000"},
      {0.7F, 3.0F, "0s 699999988ns, 3s 0ns", "0.700000 period and 3.000000"},
      {1e-9F, 1.9e-9F, "0s 0ns, 0s 1ns", "0.000000 period and 0.000000"},
      {0.0F, 0.0F, "0s 0ns, 0s 0ns", "0.000000 period and 0.000000"},
  };
  const LogLevel verbose(KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE);
  const Timer timer;
  for (const auto& row : rows) {
    const auto log = stderr_of([&] { EXPECT_EQ(kestro_timer_nsec_set(timer.fd(), row.period, row.interval), 0); });
    EXPECT_EQ(setting(), row.armed);
    EXPECT_EQ(armed.flags, 0);
    EXPECT_THAT(log, HasLog(Verbose, module, std::string("Timer successfully set to ") + row.told + " interval\n"));
  }
}

TEST(TimerNsecSet, TimesThatAreNoneAreRefusedByTheSystem) {
  constexpr auto infinite = std::numeric_limits<float>::infinity();
  constexpr auto none = std::numeric_limits<float>::quiet_NaN();
  const Timer timer;
  for (const float seconds : {-1.0F, -0.5F, infinite, -infinite, none, 1e19F, -1e19F}) {
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(kestro_timer_nsec_set(timer.fd(), seconds, 1), -1) << seconds; }),
              "kestro_timer_set: Invalid argument\n");
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(kestro_timer_nsec_set(timer.fd(), 1, seconds), -1) << seconds; }),
              "kestro_timer_set: Invalid argument\n");
  }
}

TEST(TimerSet, FailureIsReportedByBothUnderOneWord) {
  const LogLevel verbose(KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE);
  EXPECT_EQ(stderr_of([] { EXPECT_EQ(kestro_timer_set(-1, 1, 0), -1); }), "kestro_timer_set: Bad file descriptor\n");
  EXPECT_EQ(stderr_of([] { EXPECT_EQ(kestro_timer_nsec_set(-1, 1, 0), -1); }),
            "kestro_timer_set: Bad file descriptor\n");
  const Timer timer;
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(kestro_timer_set(timer.fd(), -1, 0), -1); }),
            "kestro_timer_set: Invalid argument\n");
}

// ---- Reading ----

TEST(TimerRead, TakesAllExpirations) {
  const Timer timer;
  ASSERT_EQ(kestro_timer_nsec_set(timer.fd(), 0.001F, 0), 0);
  ASSERT_TRUE(timer.expires());
  EXPECT_EQ(kestro_timer_read(timer.fd()), 0);
  EXPECT_EQ(kestro_timer_read(timer.fd()), -25);
}

TEST(TimerRead, BlockingTimerWaitsForAnExpiration) {
  const Timer timer(0);
  ASSERT_EQ(kestro_timer_nsec_set(timer.fd(), 0.001F, 0), 0);
  EXPECT_EQ(kestro_timer_read(timer.fd()), 0);
}

TEST(TimerRead, IntervalFiresAgain) {
  const Timer timer;
  ASSERT_EQ(kestro_timer_nsec_set(timer.fd(), 0.001F, 0.001F), 0);
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(timer.expires());
    EXPECT_EQ(kestro_timer_read(timer.fd()), 0);
  }
}

TEST(TimerRead, NewSettingReplacesTheOldOne) {
  const Timer timer;
  ASSERT_EQ(kestro_timer_set(timer.fd(), 1000, 1000), 0);
  ASSERT_EQ(kestro_timer_nsec_set(timer.fd(), 0.001F, 0), 0);
  EXPECT_TRUE(timer.expires());
  ASSERT_EQ(kestro_timer_set(timer.fd(), 0, 5), 0);  // a period of 0 disarms, and forgets what has expired
  EXPECT_EQ(kestro_timer_read(timer.fd()), -25);
}

TEST(TimerRead, NothingExpiredIsSilent) {
  const LogLevel verbose(KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE);
  const Timer timer;
  ASSERT_EQ(kestro_timer_set(timer.fd(), 1000, 0), 0);
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(kestro_timer_read(timer.fd()), -25); }), "");
}

TEST(TimerRead, ShortReadIsASilentFailure) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const Descriptor reader(ends[0]);
  Descriptor writer(ends[1]);
  ASSERT_EQ(write(writer.get(), "seven b", 7), 7);
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(kestro_timer_read(reader.get()), -1); }), "");
  writer = Descriptor();
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(kestro_timer_read(reader.get()), -1); }), "");  // nothing at all
}

TEST(TimerRead, AnyOtherFailureIsAnError) {
  EXPECT_THAT(stderr_of([] { EXPECT_EQ(kestro_timer_read(-1), -1); }),
              HasLog(Error, module, "Bad errno value (9 = 'Bad file descriptor')!\n"));
  const Descriptor directory(open("/", O_RDONLY | O_CLOEXEC));
  EXPECT_THAT(stderr_of([&] { EXPECT_EQ(kestro_timer_read(directory.get()), -1); }),
              HasLog(Error, module, "Bad errno value (21 = 'Is a directory')!\n"));
}

// ---- Closing ----

TEST(TimerFree, ClosesAndLeavesZero) {
  const auto before = open_descriptors();
  int32_t tfd = -1;
  ASSERT_EQ(kestro_timer_init(&tfd, 1), 0);
  EXPECT_EQ(kestro_timer_free(&tfd), 0);
  EXPECT_EQ(tfd, 0);
  EXPECT_EQ(open_descriptors(), before);
}

TEST(TimerFree, IgnoresWhatTheCloseSays) {
  int32_t tfd = -1;
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(kestro_timer_free(&tfd), 0); }), "");
  EXPECT_EQ(tfd, 0);
}

TEST(TimerFree, NullIsRefusedAndTold) {
  EXPECT_THAT(stderr_of([] { EXPECT_EQ(kestro_timer_free(nullptr), -20); }),
              HasLog(Debug, module, "[kestro_timer_free]: NULL pointer!\n"));
}

}  // namespace
}  // namespace kestro::test
