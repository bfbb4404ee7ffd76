// kestro-routerd: brings JSON-RPC clients onto the message bus.

#include <sys/resource.h>
#include <unistd.h>

#include <asio/io_context.hpp>
#include <cstdio>
#include <exception>

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

// Where the event loop has no memory for itself, it lets an exception out where none may leave. That is no reason for a
// core: the process ends as after any failure, and the service manager starts it again.
[[noreturn]] void end_on_failure() noexcept {
  try {
    if (const auto failure = std::current_exception()) std::rethrow_exception(failure);
    fputs("kestro-routerd: the event loop failed\n", stderr);
  } catch (const std::exception& failure) {
    fprintf(stderr, "kestro-routerd: %s\n", failure.what());
  }
  _exit(1);
}

}  // namespace

int main(int argc, char** argv) {
  std::set_terminate(end_on_failure);
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
