#include "curves.hpp"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "requests.hpp"
#include "side_by_side.hpp"

namespace kestro::bench {

namespace {

// A table begins with the names of its columns: x, and what grows with it.
struct Curve {
  const char* name;
  const char* columns;
  std::vector<size_t> points;
  Pair (*prepare)(size_t x);
};

Pair growing_request(size_t bytes) {
  Methods methods(1, answer_port);
  const std::string request = request_of(std::max<size_t>(bytes, 120), methods.last());
  return {evaluation(request, std::move(methods)), bare_evaluation(request, answer_port)};
}

Pair growing_answer(size_t bytes) {
  list_length = bytes / element_size();
  Methods methods(1, answer_list);
  const std::string request = request_of(131, methods.last());
  return {evaluation(request, std::move(methods)), bare_evaluation(request, answer_list)};
}

Pair growing_table(size_t methods) {
  Methods table(methods, answer_port);
  const std::string request = request_of(131, table.last());
  return {evaluation(request, std::move(table)), bare_evaluation(request, answer_port)};
}

const std::vector<size_t> sizes{100, 1'000, 10'000, 100'000, 300'000, 1'000'000};

const Curve curves[] = {
    {"request_size", "bytes of the request\tkestro, us\tbare jansson, us", sizes, growing_request},
    {"result_size", "bytes of the result\tkestro, us\tbare jansson, us", sizes, growing_answer},
    {"method_table",
     "rows of the table, the last of which is called\tkestro, us\tbare jansson without a table, us",
     {1, 3, 10, 30, 100, 300, 1'000},
     growing_table},
};

// Blocks of about a tenth of a millisecond, and some hundred of them.
void write_point(FILE* file, const Curve& curve, size_t x) {
  const Pair pair = curve.prepare(x);
  SideBySide trial(pair, 1);
  for (int i = 0; i < 10; ++i) trial.round();
  const auto block = std::clamp<size_t>(static_cast<size_t>(100'000 / trial.ours()), 1, 64);
  SideBySide times(pair, block);
  const auto rounds = std::clamp(2e8 / (trial.ours() * static_cast<double>(block)), 15.0, 400.0);
  for (int i = 0; i < static_cast<int>(rounds); ++i) times.round();
  fprintf(file, "%zu\t%.3f\t%.3f\n", x, times.ours() / 1000, times.floor() / 1000);
}

bool write_curve(const std::string& directory, const Curve& curve) {
  const File file(fopen((directory + "/" + curve.name + ".tsv").c_str(), "w"));
  if (!file) return false;
  fprintf(file.get(), "%s\n", curve.columns);
  for (const size_t x : curve.points) write_point(file.get(), curve, x);
  return ferror(file.get()) == 0;
}

}  // namespace

bool write_curves(const char* directory) {
  return std::ranges::all_of(curves, [&](const Curve& curve) { return write_curve(directory, curve); });
}

}  // namespace kestro::bench
