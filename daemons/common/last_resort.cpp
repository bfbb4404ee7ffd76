#include "common/last_resort.hpp"

#include <jansson.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

namespace kestro::daemons {

namespace {

const char* name = "";

[[noreturn]] void end(const char* why) noexcept {
  fprintf(stderr, "%s: %s\n", name, why);
  _exit(1);
}

[[noreturn]] void end_with_exception() noexcept {
  try {
    if (const auto failure = std::current_exception()) std::rethrow_exception(failure);
  } catch (const std::exception& failure) {
    end(failure.what());
  } catch (...) {
  }
  end("it cannot go on");
}

void* allocate(size_t size) noexcept {
  void* const block = malloc(size);
  if (block == nullptr) end("out of memory");
  return block;
}

}  // namespace

void end_on_stray_exceptions(const char* program) noexcept {
  name = program;
  std::set_terminate(end_with_exception);
}

void end_without_json_memory(const char* program) noexcept {
  name = program;
  json_set_alloc_funcs(allocate, free);
}

}  // namespace kestro::daemons
