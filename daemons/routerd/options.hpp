// What kestro-routerd is told on its command line.
#ifndef KESTRO_ROUTERD_OPTIONS_HPP
#define KESTRO_ROUTERD_OPTIONS_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "common/bus_addresses.hpp"

namespace kestro::routerd {

// A message on the bus, with its envelope, must not be longer: a subscriber that is sent more goes deaf.
inline constexpr size_t bus_message_limit = size_t{1} << 20;
// What the envelope and the rewritten "id" and "transaction_id" may add to a request.
inline constexpr size_t envelope_allowance = 256;

struct Options {
  std::string listen_unix;
  int32_t listen_tcp = 0;
  daemons::BusAddresses bus;

  size_t max_clients = 1024;
  size_t max_in_flight = 256;
  size_t max_request = bus_message_limit - envelope_allowance;
  std::chrono::duration<double> read_timeout{5};
  std::chrono::duration<double> write_timeout{5};
  std::chrono::duration<double> drain_timeout{5};
  std::map<std::string, double, std::less<>> method_timeouts;  // seconds

  std::string stats_name = "/kestro-routerd";
  bool strict_ids = false;
};

// Reads the command line. Prints help, version or what is wrong and ends the process where there is nothing to run.
Options read_options(int argc, char** argv);

}  // namespace kestro::routerd

#endif
