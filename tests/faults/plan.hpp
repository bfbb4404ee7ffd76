// Which of many equal calls fails.
#ifndef KESTRO_TESTS_FAULTS_PLAN_HPP
#define KESTRO_TESTS_FAULTS_PLAN_HPP

#include <pthread.h>

#include <cstdint>

namespace kestro::test {

enum class Persistence { Once, ForEver };

// A number that is asked from within malloc(), before a sanitizer is ready: no function of the standard library, of
// which the instrumented copy might be linked.
template <class Value>
class Lockless {
 public:
  [[gnu::always_inline]] constexpr explicit Lockless(Value value) noexcept : value_(value) {}
  [[gnu::always_inline]] Value get() const noexcept { return __atomic_load_n(&value_, __ATOMIC_SEQ_CST); }
  [[gnu::always_inline]] void set(Value value) noexcept { __atomic_store_n(&value_, value, __ATOMIC_SEQ_CST); }
  [[gnu::always_inline]] Value increased() noexcept { return __atomic_add_fetch(&value_, 1, __ATOMIC_SEQ_CST); }

 private:
  Value value_;
};

// Calls of one thread, or of all, are counted while watched; the nth one fails, or that one and all behind it. May lie in
// memory that two processes share.
class Plan {
 public:
  void make(int32_t nth, Persistence persistence) noexcept {
    watching_.set(0);
    seen_.set(0);
    failed_.set(0);
    for_ever_.set(persistence == Persistence::ForEver ? 1 : 0);
    nth_.set(nth);
  }
  // From here on the calling thread, and no other, is watched.
  void watch() noexcept {
    thread_.set(pthread_self());
    watching_.set(1);
  }
  // From here on all threads are.
  void watch_all() noexcept {
    thread_.set(0);
    watching_.set(1);
  }
  void rest() noexcept { watching_.set(0); }
  // The thread, or the threads, that were watched before, be they another process's.
  void watch_again() noexcept { watching_.set(1); }

  [[nodiscard]] int32_t seen() const noexcept { return seen_.get(); }
  [[nodiscard]] int32_t failed() const noexcept { return failed_.get(); }
  [[nodiscard]] bool is_for_ever() const noexcept { return for_ever_.get() != 0; }

  [[nodiscard, gnu::always_inline]] bool watches_me() const noexcept {
    if (watching_.get() == 0) return false;
    const pthread_t thread = thread_.get();
    return thread == 0 || thread == pthread_self();
  }
  // Counts a call. Whether it is one to fail.
  [[nodiscard, gnu::always_inline]] bool fails() noexcept {
    const int32_t number = seen_.increased();
    const int32_t first = nth_.get();
    if (first == 0 || number < first || (number > first && for_ever_.get() == 0)) return false;
    failed_.increased();
    return true;
  }

 private:
  Lockless<int32_t> nth_{0};  // 0: none
  Lockless<int32_t> for_ever_{0};
  Lockless<int32_t> seen_{0};
  Lockless<int32_t> failed_{0};
  Lockless<int32_t> watching_{0};
  Lockless<pthread_t> thread_{0};  // 0: all
};

}  // namespace kestro::test

#endif
