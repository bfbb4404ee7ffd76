// Standard error, captured at the descriptor: what other threads, children and plain writes say counts too.
#ifndef KESTRO_TESTS_CAPTURED_STDERR_HPP
#define KESTRO_TESTS_CAPTURED_STDERR_HPP

#include <string>

namespace kestro::test {

class CapturedStderr {
 public:
  CapturedStderr();
  CapturedStderr(const CapturedStderr&) = delete;
  CapturedStderr& operator=(const CapturedStderr&) = delete;
  ~CapturedStderr();

  // What was written since the capture began, or since the last clear().
  [[nodiscard]] std::string text() const;
  void clear();

 private:
  int saved_;
  int file_;
};

// What standard error receives while the action runs.
template <class Action>
std::string stderr_of(Action&& action) {
  const CapturedStderr capture;
  action();
  return capture.text();
}

}  // namespace kestro::test

#endif
