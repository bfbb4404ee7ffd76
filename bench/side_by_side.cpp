#include "side_by_side.hpp"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <functional>

namespace kestro::bench {

namespace {

double nanoseconds(Clock clock) {
  timespec now{};
  clock_gettime(clock == Clock::Thread ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

}  // namespace

double SideBySide::round() {
  if (ours_.size() % 2 == 0) {
    ours_.push_back(time(pair_.ours));
    floor_.push_back(time(pair_.floor));
  } else {
    floor_.push_back(time(pair_.floor));
    ours_.push_back(time(pair_.ours));
  }
  return ours_.back() * static_cast<double>(block_) * 1e-9;
}

double SideBySide::ratio() const {
  return median(ratios());
}

double SideBySide::ratio_at(double part) const {
  return quantile(ratios(), part);
}

double SideBySide::time(const Repeat& work) {
  const double start = nanoseconds(clock_);
  work(block_);
  const double taken = nanoseconds(clock_) - start;
  pair_.tidy_up();
  return taken / static_cast<double>(block_);
}

std::vector<double> SideBySide::ratios() const {
  std::vector<double> result(ours_.size());
  std::ranges::transform(ours_, floor_, result.begin(), std::divides{});
  return result;
}

double SideBySide::quantile(std::vector<double> values, double part) {
  if (values.empty()) return std::nan("");
  const auto nth = values.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
  std::ranges::nth_element(values, nth);
  return *nth;
}

}  // namespace kestro::bench
