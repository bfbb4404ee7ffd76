// Failing system and library calls on demand.
//
//   const Fault no_memory("calloc", ENOMEM);            // the next call fails
//   const Fault later("malloc", ENOMEM, 3);             // the third one does
//
// A fault is armed for the calling thread, fires once, and is disarmed when the object goes out of scope. The
// calls that can fail are listed in faults.list.
#ifndef KESTRO_TESTS_FAULTS_HPP
#define KESTRO_TESTS_FAULTS_HPP

#include <cstddef>
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
  size_t slot_ = 0;
};

}  // namespace kestro::test

#endif
