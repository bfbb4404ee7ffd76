// Requests against method tables.
#include "requests.hpp"
#include "work.hpp"

namespace kestro::bench {

namespace {

constexpr size_t usual_request = 131;

Pair evaluate(Methods::Handler handler) {
  Methods methods(1, handler);
  const std::string request = request_of(usual_request, methods.last());
  return {evaluation(request, std::move(methods)), bare_evaluation(request, handler)};
}

Pair evaluate_small() {
  return evaluate(answer_port);
}

Pair evaluate_large() {
  list_length = 110'000 / element_size();
  return evaluate(answer_list);
}

// The floor is ours with the first row.
Pair look_up_last() {
  const Methods methods(100, answer_port);
  return {evaluation(request_of(usual_request, methods.last()), Methods(100, answer_port)),
          evaluation(request_of(usual_request, methods.name(0)), Methods(100, answer_port))};
}

}  // namespace

std::vector<Work> evaluation_work() {
  return {
      {.name = "evaluate: request 131 B, result 46 B", .target = 1.05, .prepare = evaluate_small},
      {.name = "evaluate: request 131 B, result 110 KB", .target = 1.02, .prepare = evaluate_large, .block = 8},
      {.name = "evaluate: method 100 of 100 beside method 1", .target = 1.05, .prepare = look_up_last},
  };
}

}  // namespace kestro::bench
