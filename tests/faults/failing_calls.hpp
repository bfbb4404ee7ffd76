// Failing system calls of a process, wherever in it they are made: by this code, by another library, or inside of the
// C library. The kernel turns each call of a kind into a signal, and its handler makes the call after all, or says that
// it failed.
//
// Cannot be undone, and a process that is born of this one keeps it as long as it does not execute a program: meant for
// processes that play one scenario.
#ifndef KESTRO_TESTS_FAULTS_FAILING_CALLS_HPP
#define KESTRO_TESTS_FAULTS_FAILING_CALLS_HPP

#include "faults/plan.hpp"

namespace kestro::test {

class FailingCalls {
 public:
  static constexpr int shortened = 0;  // instead of an error: the call transfers one byte

  static Plan& plan() noexcept;
  // Calls of this number fail with this error, as the plan says. A close that fails has closed nevertheless, as in the
  // kernel.
  static void trap(long number, int error);
  // All calls of this number fail at once. For those that are made while signals are blocked.
  static void refuse(long number, int error);
};

}  // namespace kestro::test

#endif
