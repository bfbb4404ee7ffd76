// Failing allocations of a whole process. A program that links failing_malloc.cpp has it take the place of malloc() for
// everybody: the libraries, the C library itself, and operator new.
//
// The message library ends the process when one of its own allocations fails; those are left alone.
#ifndef KESTRO_TESTS_FAULTS_FAILING_MALLOC_HPP
#define KESTRO_TESTS_FAULTS_FAILING_MALLOC_HPP

#include <cstddef>

#include "faults/plan.hpp"

namespace kestro::test {

// Whether this is a place in the code of the message library.
bool is_in_message_library(const void* place) noexcept;

class FailingMalloc {
 public:
  // What decides; another one may take its place.
  static Plan& plan() noexcept;
  static void take_plan(Plan& plan) noexcept;

  // From here on, the blocks that are allocated while the plan watches are kept account of.
  static void account() noexcept;
  // Those that nobody has released yet.
  static size_t outstanding() noexcept;
};

}  // namespace kestro::test

#endif
