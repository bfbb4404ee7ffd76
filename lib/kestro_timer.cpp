#include "kestro_timer.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "core/site.hpp"
#include "core/status.hpp"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_timer");

timespec in_timespec(float seconds) noexcept {
  constexpr float past_every_time = 0x1p63F;
  constexpr timespec refused{.tv_sec = -1, .tv_nsec = 0};  // by the system, as every negative time
  if (!(std::fabs(seconds) < past_every_time)) return refused;

  double whole = 0;
  const double fraction = std::modf(static_cast<double>(seconds), &whole);
  return {.tv_sec = static_cast<time_t>(whole), .tv_nsec = static_cast<long>(fraction * 1'000'000'000)};
}

int32_t arm(int32_t tfd, timespec period, timespec interval) noexcept {
  const itimerspec setting{.it_interval = interval, .it_value = period};
  if (timerfd_settime(tfd, 0, &setting, nullptr) == 0) return status::ok;
  perror("kestro_timer_set");
  return status::general_error;
}

}  // namespace

int32_t kestro_timer_init(int32_t* tfd, int32_t nonblock) noexcept {
  if (tfd == nullptr) return here().fail(Debug, status::null_argument, "[kestro_timer_init]: NULL pointer!\n");

  *tfd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | (nonblock == 1 ? TFD_NONBLOCK : 0));
  if (*tfd < 0) {
    perror("kestro_timer_init");
    return status::general_error;
  }
  here().log(Verbose, "Timer successfully created\n");
  return status::ok;
}

int32_t kestro_timer_set(int32_t tfd, int32_t period, int32_t interval) noexcept {
  const auto armed = arm(tfd, {.tv_sec = period, .tv_nsec = 0}, {.tv_sec = interval, .tv_nsec = 0});
  if (armed == status::ok) {
    here().log(Verbose, "Timer successfully set to %d period and %d interval\n", period, interval);
  }
  return armed;
}

int32_t kestro_timer_nsec_set(int32_t tfd, float period, float interval) noexcept {
  const auto armed = arm(tfd, in_timespec(period), in_timespec(interval));
  if (armed == status::ok) {
    here().log(Verbose, "Timer successfully set to %f period and %f interval\n", static_cast<double>(period),
               static_cast<double>(interval));
  }
  return armed;
}

int32_t kestro_timer_read(int32_t tfd) noexcept {
  uint64_t expirations = 0;
  const ssize_t count = read(tfd, &expirations, sizeof expirations);
  if (count == sizeof expirations) return status::ok;
  if (count >= 0) return status::general_error;
  if (errno == EAGAIN) return status::timer_not_expired;
  const int error = errno;
  here().log_unchecked(Error, "Bad errno value (%d = '%s')!\n", error, strerror(error));
  return status::general_error;
}

int32_t kestro_timer_free(int32_t* tfd) noexcept {
  if (tfd == nullptr) return here().fail(Debug, status::null_argument, "[kestro_timer_free]: NULL pointer!\n");
  close(*tfd);
  *tfd = 0;
  return status::ok;
}
