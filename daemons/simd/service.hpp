// The methods of the simulated unit.
#ifndef KESTRO_SIMD_SERVICE_HPP
#define KESTRO_SIMD_SERVICE_HPP

#include "common/methods.hpp"
#include "simd/faults.hpp"
#include "simd/hardware.hpp"

namespace kestro::simd {

// The hardware and the faults belong to the caller. Handlers have no argument for them, so there is one service in a
// process at a time.
class Service {
 public:
  Service(Hardware& hardware, Faults& faults);
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  ~Service();

  [[nodiscard]] daemons::Methods& methods() { return methods_; }
  [[nodiscard]] Hardware& hardware() { return hardware_; }
  [[nodiscard]] Faults& faults() { return faults_; }

 private:
  Hardware& hardware_;
  Faults& faults_;
  daemons::Methods methods_;
};

}  // namespace kestro::simd

#endif
