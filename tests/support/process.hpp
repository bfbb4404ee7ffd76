// Real processes for tests: started by path, stopped by pid, output captured.
#ifndef KESTRO_TESTS_PROCESS_HPP
#define KESTRO_TESTS_PROCESS_HPP

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "core/owned.hpp"

namespace kestro::test {

class Process {
 public:
  // `arguments` begins with the path of the program. `environment` adds to the test's own ("NAME=value").
  explicit Process(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {});
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  // Ends the process if it still runs.
  ~Process();

  [[nodiscard]] pid_t pid() const { return pid_; }
  void signal(int number) const;
  // Waits for the end. The exit status, or 128 and the signal that ended it.
  int wait();
  // SIGTERM, then wait().
  int terminate();

  // What it wrote so far.
  [[nodiscard]] std::string out() const;
  [[nodiscard]] std::string err() const;

 private:
  pid_t pid_ = -1;
  int status_ = 0;
  Descriptor out_;
  Descriptor err_;
};

// Looks again and again until the condition holds; false when a minute has passed without it.
template <class Condition>
bool eventually(Condition&& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace kestro::test

#endif
