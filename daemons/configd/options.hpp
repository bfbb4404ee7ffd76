// What kestro-configd is told on its command line.
#ifndef KESTRO_CONFIGD_OPTIONS_HPP
#define KESTRO_CONFIGD_OPTIONS_HPP

#include <chrono>
#include <string>

#include "common/bus_addresses.hpp"
#include "kestro_general.h"

namespace kestro::configd {

struct Options {
  daemons::BusAddresses bus;
  std::string database = KESTRO_CFGDB_FILE;
  std::string update_dir = KESTRO_UPDATE_DIR;
  std::chrono::duration<double> hardware_timeout{5};
  bool init = false;
};

// Reads the command line. Prints help, version or what is wrong and ends the process where there is nothing to run.
Options read_options(int argc, char** argv);

}  // namespace kestro::configd

#endif
