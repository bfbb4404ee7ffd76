// What an operation takes from the heap.
#ifndef KESTRO_BENCH_HEAP_HPP
#define KESTRO_BENCH_HEAP_HPP

#include <cstddef>

#include "work.hpp"

namespace kestro::bench {

// Per operation. A block that grows counts as a new one.
struct HeapUse {
  double allocations;
  double bytes;
};

// Counts what the calling thread allocates in all libraries of the process.
HeapUse heap_use_of(const Repeat& work, size_t times);

}  // namespace kestro::bench

#endif
