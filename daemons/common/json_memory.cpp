#include "common/json_memory.hpp"

#include <jansson.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace kestro::daemons {

namespace {

const char* name = "";

void* allocate(size_t size) noexcept {
  void* const block = malloc(size);
  if (block == nullptr) {
    fprintf(stderr, "%s: out of memory\n", name);
    _exit(1);
  }
  return block;
}

}  // namespace

void end_without_json_memory(const char* program) noexcept {
  name = program;
  json_set_alloc_funcs(allocate, free);
}

}  // namespace kestro::daemons
