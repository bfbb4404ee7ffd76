// What one measurement counts, and its report: a line of JSON.
#ifndef KESTRO_BENCH_ROAD_TALLY_HPP
#define KESTRO_BENCH_ROAD_TALLY_HPP

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace kestro::bench {

class Tally {
 public:
  using Clock = std::chrono::steady_clock;

  // Calls begun after that time are not started; those that run are waited for, five seconds at the most.
  explicit Tally(double seconds) : end_(begin_ + std::chrono::duration_cast<Clock::duration>(Seconds(seconds))) {}

  [[nodiscard]] bool goes_on() const { return Clock::now() < end_; }
  [[nodiscard]] bool gave_up() const { return Clock::now() > end_ + std::chrono::seconds(5); }
  void answered(Clock::time_point begun) {
    last_ = Clock::now();
    microseconds_.push_back(std::chrono::duration<double, std::micro>(last_ - begun).count());
  }
  void lost(size_t count = 1) { lost_ += count; }

  void report() {
    std::sort(microseconds_.begin(), microseconds_.end());
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    printf(R"({"answered":%zu,"lost":%zu,"seconds":%.6f,"p50_us":%.2f,"p99_us":%.2f,"client_cpu_us":%.0f})"
           "\n",
           microseconds_.size(), lost_, Seconds(last_ - begin_).count(), quantile(0.5), quantile(0.99),
           in_microseconds(used.ru_utime) + in_microseconds(used.ru_stime));
  }

 private:
  using Seconds = std::chrono::duration<double>;

  [[nodiscard]] double quantile(double part) const {
    if (microseconds_.empty()) return 0;
    return microseconds_[static_cast<size_t>(part * static_cast<double>(microseconds_.size() - 1))];
  }
  static double in_microseconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
  }

  Clock::time_point begin_ = Clock::now();
  Clock::time_point end_;
  Clock::time_point last_ = begin_;
  std::vector<double> microseconds_;
  size_t lost_ = 0;
};

}  // namespace kestro::bench

#endif
