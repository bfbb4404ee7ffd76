// kestro-routerd: brings JSON-RPC clients onto the message bus.

#include <sys/resource.h>

#include <asio/io_context.hpp>
#include <cstdio>
#include <exception>

#include "kestro_lsyslog.h"
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
  auto options = kestro::routerd::read_options(argc, argv);
  kestro_lsyslog_init("router");
  raise_descriptor_limit();
  try {
    asio::io_context io(1);
    kestro::routerd::Router(io, std::move(options)).run();
  } catch (const std::exception& failure) {
    fprintf(stderr, "kestro-routerd: %s\n", failure.what());
    return 1;
  }
  return 0;
}
