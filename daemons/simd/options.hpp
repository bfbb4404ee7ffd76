// The command line of kestro-simd.
#ifndef KESTRO_SIMD_OPTIONS_HPP
#define KESTRO_SIMD_OPTIONS_HPP

#include <cstdint>
#include <vector>

#include "common/bus_addresses.hpp"
#include "simd/fault.hpp"

namespace kestro::simd {

struct Options {
  daemons::BusAddresses bus;
  uint64_t seed = 1;
  std::vector<Fault> faults;
  double event_interval = 0;  // seconds; 0 for no events of its own
};

// Prints help or what is wrong and ends the process where there is nothing to run.
Options read_options(int argc, char** argv);

}  // namespace kestro::simd

#endif
