// A timer among the descriptors that a daemon waits for.
#ifndef KESTRO_DAEMONS_TIMER_HPP
#define KESTRO_DAEMONS_TIMER_HPP

#include <cstdint>

namespace kestro::daemons {

class Timer {
 public:
  // At rest until it is set. Throws std::runtime_error when the system has no timer.
  Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;
  ~Timer();

  // Fires after so many seconds, and from then on at the interval; once only for 0. Setting it anew ends what was set.
  // Throws std::runtime_error for what the system takes for no time.
  void set(double seconds, double interval = 0) const;

  // Readable when it has fired.
  [[nodiscard]] int descriptor() const noexcept { return descriptor_; }
  // Whether it fired since the last call.
  [[nodiscard]] bool take() const noexcept;

 private:
  int32_t descriptor_ = -1;
};

}  // namespace kestro::daemons

#endif
