// Work that is measured: ours beside a floor, the bare library doing the same.
#ifndef KESTRO_BENCH_WORK_HPP
#define KESTRO_BENCH_WORK_HPP

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kestro::bench {

// Does the same operation a number of times. The loop is inside so that nothing of the measuring is in it.
using Repeat = std::function<void(size_t times)>;

// An operation as a loop.
template <class Operation>
Repeat repeat(Operation operation) {
  return [operation = std::move(operation)](size_t times) mutable {
    for (size_t i = 0; i < times; ++i) operation();
  };
}

// Two ways to do one thing, ready to be done. Whatever they need lives as long as they do.
struct Pair {
  Repeat ours;
  Repeat floor;
  std::function<void()> tidy_up = [] {};  // after each block of either, untimed
};

// How the two are compared.
enum class Measure {
  Ratio,            // ours / floor
  ExtraNanoseconds  // ours - floor, where the floor is all but nothing
};

// What passes while the work is done.
enum class Clock {
  Thread,  // the time that the calling thread had a processor: what other programs take of it does not count
  Wall     // where other threads do part of the work
};

struct Work {
  std::string name;
  double target;  // met by this or less
  std::function<Pair()> prepare;
  size_t block = 2048;  // operations in one go, before it is the other's turn
  Measure measure = Measure::Ratio;
  Clock clock = Clock::Thread;
};

std::vector<Work> evaluation_work();
std::vector<Work> logging_work();
std::vector<Work> validation_work();
std::vector<Work> retrieval_work();
std::vector<Work> bus_work();
std::vector<Work> storage_work();

// All of the above, in the order of the report.
std::vector<Work> all_work();

}  // namespace kestro::bench

#endif
