// kestro-routerd: brings JSON-RPC clients onto the message bus.

#include <sys/resource.h>

#include <asio/io_context.hpp>
#include <cstdio>
#include <exception>

#include "common/last_resort.hpp"
#include "kestro_lsyslog.h"
#include "routerd/memory.hpp"
#include "routerd/options.hpp"
#include "routerd/router.hpp"

namespace {

// Each client takes a descriptor; the usual soft limit is below what the hard one allows.
void raise_descriptor_limit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv) {
  // Where the event loop has no memory for itself, it lets an exception out where none may leave.
  kestro::daemons::end_on_stray_exceptions("kestro-routerd");
  kestro::routerd::guard_json_memory();
  try {
    auto options = kestro::routerd::read_options(argc, argv);
    kestro_lsyslog_init("router");
    raise_descriptor_limit();
    asio::io_context io(1);
    kestro::routerd::Router(io, std::move(options)).run();
  } catch (const std::exception& failure) {
    fprintf(stderr, "kestro-routerd: %s\n", failure.what());
    return 1;
  }
  return 0;
}
