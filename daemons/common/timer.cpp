#include "common/timer.hpp"

#include <stdexcept>

#include "kestro_timer.h"

namespace kestro::daemons {

Timer::Timer() {
  if (kestro_timer_init(&descriptor_, 1) != 0) throw std::runtime_error("no timer");
}

Timer::~Timer() {
  kestro_timer_free(&descriptor_);
}

void Timer::set(double seconds, double interval) const {
  if (kestro_timer_nsec_set(descriptor_, static_cast<float>(seconds), static_cast<float>(interval)) != 0) {
    throw std::runtime_error("a timer could not be set");
  }
}

bool Timer::take() const noexcept {
  return kestro_timer_read(descriptor_) == 0;
}

}  // namespace kestro::daemons
