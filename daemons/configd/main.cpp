// kestro-configd: keeps the configuration of the unit.

#include <cstdio>
#include <exception>

#include "common/last_resort.hpp"
#include "common/loop.hpp"
#include "configd/database.hpp"
#include "configd/options.hpp"
#include "configd/service.hpp"
#include "kestro_lsyslog.h"

int main(int argc, char** argv) {
  kestro::daemons::end_on_stray_exceptions("kestro-configd");
  kestro::daemons::end_without_json_memory("kestro-configd");
  try {
    const auto options = kestro::configd::read_options(argc, argv);
    kestro_lsyslog_init("configd");
    kestro::daemons::Loop loop;
    if (options.init) kestro::configd::Database::create(options.database);
    kestro::configd::Service(loop, options).run();
  } catch (const std::exception& failure) {
    fprintf(stderr, "kestro-configd: %s\n", failure.what());
    return 1;
  }
  return 0;
}
