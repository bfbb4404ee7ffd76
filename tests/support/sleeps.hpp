// Sleeping without the wait: while the object lives, the calling thread's sleeps are noted and end at once.
//
//   Sleeps sleeps;
//   call_that_retries();
//   EXPECT_THAT(sleeps.lengths(), Each(50ms));
#ifndef KESTRO_TESTS_SLEEPS_HPP
#define KESTRO_TESTS_SLEEPS_HPP

#include <chrono>
#include <functional>
#include <vector>

namespace kestro::test {

class Sleeps {
 public:
  // `meanwhile` runs in the place of each sleep, with the number of the sleep from 1.
  explicit Sleeps(std::function<void(size_t)> meanwhile = {});
  Sleeps(const Sleeps&) = delete;
  Sleeps& operator=(const Sleeps&) = delete;
  ~Sleeps();

  void note(std::chrono::nanoseconds length);
  [[nodiscard]] const std::vector<std::chrono::nanoseconds>& lengths() const { return lengths_; }

 private:
  std::function<void(size_t)> meanwhile_;
  std::vector<std::chrono::nanoseconds> lengths_;
};

}  // namespace kestro::test

#endif
