// The allocation functions of this program stand in front of the C library's for every library in the process. While
// nothing is counted they cost either side the same one branch.
#include "heap.hpp"

#include <cstddef>

extern "C" {
// The C library's own, under the names that it has for those who replace the usual ones.
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}

namespace {

struct Count {
  bool on;
  size_t allocations;
  size_t bytes;
};
thread_local constinit Count count{};

void note(size_t bytes) noexcept {
  if (!count.on) return;
  ++count.allocations;
  count.bytes += bytes;
}

}  // namespace

extern "C" {

void* malloc(size_t size) noexcept {
  note(size);
  return __libc_malloc(size);
}

void* calloc(size_t members, size_t size) noexcept {
  note(members * size);
  return __libc_calloc(members, size);
}

void* realloc(void* block, size_t size) noexcept {
  note(size);
  return __libc_realloc(block, size);
}
}

namespace kestro::bench {

HeapUse heap_use_of(const Repeat& work, size_t times) {
  count = {.on = true, .allocations = 0, .bytes = 0};
  work(times);
  count.on = false;
  const auto per_operation = [times](size_t total) { return static_cast<double>(total) / static_cast<double>(times); };
  return {per_operation(count.allocations), per_operation(count.bytes)};
}

}  // namespace kestro::bench
