#include "support/sleeps.hpp"

#include <ctime>
#include <utility>

namespace kestro::test {

namespace {
thread_local Sleeps* current = nullptr;
}

Sleeps::Sleeps(std::function<void(size_t)> meanwhile) : meanwhile_(std::move(meanwhile)) {
  current = this;
}

Sleeps::~Sleeps() {
  current = nullptr;
}

void Sleeps::note(std::chrono::nanoseconds length) {
  lengths_.push_back(length);
  if (!meanwhile_) return;
  current = nullptr;  // what runs meanwhile may sleep in earnest
  meanwhile_(lengths_.size());
  current = this;
}

}  // namespace kestro::test

extern "C" {
int __real_nanosleep(const timespec* length, timespec* remaining);

int __wrap_nanosleep(const timespec* length, timespec* remaining) {
  auto* const sleeps = kestro::test::current;
  if (sleeps == nullptr) return __real_nanosleep(length, remaining);
  sleeps->note(std::chrono::seconds(length->tv_sec) + std::chrono::nanoseconds(length->tv_nsec));
  return 0;
}
}
