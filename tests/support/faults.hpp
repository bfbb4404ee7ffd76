// Failing system and library calls on demand.
//
//   const Fault no_memory("calloc", ENOMEM);            // the next call fails
//   const Fault later("malloc", ENOMEM, 3);             // the third one does
//
// A fault is armed for the calling thread, fires once, and is disarmed when the object goes out of scope. The
// calls that can fail are listed in faults.list.
#ifndef KESTRO_TESTS_FAULTS_HPP
#define KESTRO_TESTS_FAULTS_HPP

#include <string_view>

namespace kestro::test {

class Fault {
 public:
  Fault(std::string_view call, int error, int nth = 1);
  Fault(const Fault&) = delete;
  Fault& operator=(const Fault&) = delete;
  ~Fault();

  [[nodiscard]] bool fired() const;

 private:
  std::string_view call_;
};

}  // namespace kestro::test

#endif
