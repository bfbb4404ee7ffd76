// kestro_bench                     measures the work named by Google Benchmark's --benchmark_filter, or all
// kestro_bench --instructions      does each work so that a profiler can count it: see do_countably
// kestro_bench --curves DIRECTORY  writes how cost grows, one table of tab-separated values for each kind of work
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include "core/log.hpp"
#include "curves.hpp"
#include "heap.hpp"
#include "side_by_side.hpp"
#include "work.hpp"

// A profiler that toggles its collection at this function and dumps after it counts the work and nothing else.
extern "C" __attribute__((noinline)) void kestro_bench_counted(const kestro::bench::Repeat& work, size_t times) {
  work(times);
}

namespace kestro::bench {

std::vector<Work> all_work() {
  std::vector<Work> all;
  for (const auto part : {evaluation_work, logging_work, validation_work, retrieval_work, bus_work, storage_work}) {
    std::ranges::move(part(), std::back_inserter(all));
  }
  return all;
}

namespace {

constexpr size_t warm_up = 16;
constexpr size_t counted = 16;

void report_heap(benchmark::State& state, const Pair& pair) {
  const HeapUse ours = heap_use_of(pair.ours, counted);
  pair.tidy_up();
  const HeapUse floor = heap_use_of(pair.floor, counted);
  pair.tidy_up();
  state.counters["ours_allocations"] = ours.allocations;
  state.counters["floor_allocations"] = floor.allocations;
  state.counters["ours_bytes"] = ours.bytes;
  state.counters["floor_bytes"] = floor.bytes;
}

void report_times(benchmark::State& state, const Work& work, const SideBySide& times) {
  state.counters["ours_ns"] = times.ours();
  state.counters["floor_ns"] = times.floor();
  state.counters["target"] = work.target;
  if (work.measure == Measure::ExtraNanoseconds) {
    state.counters["extra_ns"] = times.ours() - times.floor();
    return;
  }
  state.counters["ratio"] = times.ratio();
  state.counters["ratio_q1"] = times.ratio_at(0.25);
  state.counters["ratio_q3"] = times.ratio_at(0.75);
}

void measure(benchmark::State& state, const Work& work) {
  const Pair pair = work.prepare();
  for (const Repeat* const side : {&pair.ours, &pair.floor}) {
    (*side)(warm_up);
    pair.tidy_up();
  }
  report_heap(state, pair);
  SideBySide times(pair, work.block, work.clock);
  for ([[maybe_unused]] const auto _ : state) state.SetIterationTime(times.round());
  report_times(state, work, times);
}

// Ours, then the floor, of each work in the order of the report; names the works as it goes.
void do_countably() {
  for (const Work& work : all_work()) {
    const Pair pair = work.prepare();
    for (const Repeat* const side : {&pair.ours, &pair.floor}) {
      (*side)(warm_up);
      pair.tidy_up();
      kestro_bench_counted(*side, counted);
      pair.tidy_up();
    }
    printf("%zu\t%s\n", counted, work.name.c_str());
  }
}

void run_benchmarks(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const auto all = all_work();
  for (const Work& work : all) {
    benchmark::RegisterBenchmark(work.name.c_str(), measure, work)->UseManualTime();
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}

}  // namespace

}  // namespace kestro::bench

int main(int argc, char** argv) {
  using namespace kestro;
  // As a daemon runs: what succeeds is not told.
  _level = Info;
  _source = "bench";
  const std::string_view mode = argc > 1 ? argv[1] : "";
  if (mode == "--instructions") {
    bench::do_countably();
  } else if (mode == "--curves" && argc > 2) {
    return bench::write_curves(argv[2]) ? EXIT_SUCCESS : EXIT_FAILURE;
  } else {
    bench::run_benchmarks(argc, argv);
  }
  return EXIT_SUCCESS;
}
