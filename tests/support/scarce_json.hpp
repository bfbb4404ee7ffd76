// Failing allocations of JSON values on demand.
//
//   for (int nth = 1;; ++nth) {
//     const ScarceJson scarce(nth);                      // the nth allocation from here on fails
//     ...
//     if (!scarce.fired()) break;                        // there is no nth one
//   }
#ifndef KESTRO_TESTS_SCARCE_JSON_HPP
#define KESTRO_TESTS_SCARCE_JSON_HPP

#include <jansson.h>

#include <cstdlib>

namespace kestro::test {

class ScarceJson {
 public:
  explicit ScarceJson(int nth) {
    countdown_ = nth;
    json_set_alloc_funcs(allocate, std::free);
  }
  ScarceJson(const ScarceJson&) = delete;
  ScarceJson& operator=(const ScarceJson&) = delete;
  ~ScarceJson() {
    json_set_alloc_funcs(std::malloc, std::free);
    countdown_ = 0;
  }
  [[nodiscard]] static bool fired() { return countdown_ == 0; }

 private:
  static void* allocate(size_t size) {
    if (countdown_ > 0 && --countdown_ == 0) return nullptr;
    return std::malloc(size);
  }

  static inline int countdown_ = 0;  // 0: disarmed
};

}  // namespace kestro::test

#endif
