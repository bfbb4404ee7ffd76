// Times two ways of doing the same thing by turns, so that what else the machine does hits both alike.
#ifndef KESTRO_BENCH_SIDE_BY_SIDE_HPP
#define KESTRO_BENCH_SIDE_BY_SIDE_HPP

#include <vector>

#include "work.hpp"

namespace kestro::bench {

class SideBySide {
 public:
  SideBySide(const Pair& pair, size_t block, Clock clock = Clock::Thread) : pair_(pair), block_(block), clock_(clock) {}

  // A block of each; who is first changes from round to round. Returns the seconds that ours took.
  double round();

  // Medians over the rounds: nanoseconds per operation, and ours by floor within one round.
  [[nodiscard]] double ours() const { return median(ours_); }
  [[nodiscard]] double floor() const { return median(floor_); }
  [[nodiscard]] double ratio() const;
  // The quartiles of the ratio: between them lies half of the rounds.
  [[nodiscard]] double ratio_at(double part) const;

 private:
  double time(const Repeat& work);
  [[nodiscard]] std::vector<double> ratios() const;
  static double median(std::vector<double> values) { return quantile(std::move(values), 0.5); }
  static double quantile(std::vector<double> values, double part);

  const Pair& pair_;
  size_t block_;
  Clock clock_;
  std::vector<double> ours_;
  std::vector<double> floor_;
};

}  // namespace kestro::bench

#endif
