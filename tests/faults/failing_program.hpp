// What a test and the program that it makes fail agree upon.
#ifndef KESTRO_TESTS_FAULTS_FAILING_PROGRAM_HPP
#define KESTRO_TESTS_FAULTS_FAILING_PROGRAM_HPP

#include <array>
#include <cstddef>
#include <string_view>

#include "faults/plan.hpp"

namespace kestro::test {

// Lies in a file that both map; its path is in this variable of the environment.
constexpr const char* control_variable = "KESTRO_FAULTS_CONTROL";

struct Control {
  Plan memory;
  Plan calls;
  // The call that the second plan is for, and its error.
  std::array<char, 32> call{};
  int error = 0;
  // Whether the plans watch from the start of main().
  bool memory_from_start = false;
  bool calls_from_start = false;
  // Whether all threads of the program are watched, and not just the one of main().
  bool all_threads = false;

  void choose(std::string_view name, int with_error) {
    call = {};
    name.copy(call.data(), call.size() - 1);
    error = with_error;
  }
};

}  // namespace kestro::test

#endif
