// kestroctl call: a method, its parameters, its result.

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "common/options.hpp"
#include "kestroctl/output.hpp"
#include "kestroctl/params.hpp"
#include "kestroctl/verbs.hpp"

namespace kestro::ctl {

namespace {

struct Options {
  std::string method;
  std::string params;
  std::string id = "kestroctl";
  bool raw = false;
  int repeat = 1;
  Seconds timeout = usual_patience;
};

// An id is a text or a number.
Json make_id(const std::string& text) {
  Json number(json_loadb(text.data(), text.size(), JSON_DECODE_ANY, nullptr));
  if (json_is_number(number.get())) return number;
  Json id(json_stringn(text.data(), text.size()));
  if (!id) throw Failure(Exit::Usage, "--id: no UTF-8 text");
  return id;
}

Exit show(const Options& options, const std::string& text) {
  if (options.raw && !text.empty()) {
    print(text);
    return Answer(text).status();
  }
  const Answer answer(text);
  if (answer.is_error()) {
    tell_error(options.method, answer);
  } else {
    print(json_text(answer.result(), look_of(STDOUT_FILENO)));
  }
  return answer.status();
}

void tell_times(std::vector<double> milliseconds) {
  std::sort(milliseconds.begin(), milliseconds.end());
  say(format("%zu calls: %.2f ms at best, %.2f in the middle, %.2f at worst", milliseconds.size(), milliseconds.front(),
             milliseconds[milliseconds.size() / 2], milliseconds.back()));
}

Exit run(const Common& common, const Options& options) {
  const Json params = read_params(options.params);
  const Json id = make_id(options.id);
  const auto request = json_text(make_request(options.method, params.get(), id.get()).get());
  Exit status = Exit::Done;
  std::vector<double> milliseconds;
  for (int i = 0; i < options.repeat; ++i) {
    const auto begun = std::chrono::steady_clock::now();
    const auto text = exchange(common.router, request, options.timeout);
    milliseconds.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begun).count());
    const Exit shown = show(options, text);
    if (status == Exit::Done) status = shown;
  }
  if (options.repeat > 1) tell_times(std::move(milliseconds));
  return status;
}

}  // namespace

void add_call(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  auto& verb = add_verb(
      line, calling, "call", "Call a method and print its result",
      [&line, options] { return run(line.common, *options); },
      "  kestroctl call ports.Get '{\"port_id\": \"c1-1\"}'\n"
      "  kestroctl call dhcp.SetService @lobby.json\n"
      "  kestroctl call oec.List | jq -r '.[].oec_id'\n");
  verb.add_option("METHOD", options->method, "its name; `kestroctl list` shows all")->required()->type_name("");
  verb.add_option("PARAMS", options->params, "a JSON object, - for standard input, or @FILE")->type_name("");
  verb.add_flag("--raw", options->raw, "print the whole answer, the bytes as they came");
  verb.add_option("--id", options->id, "the request's \"id\", a text or a number")
      ->capture_default_str()
      ->type_name("ID");
  verb.add_option("--repeat", options->repeat, "call so many times, one after the other")
      ->check(daemons::at_least(1))
      ->type_name("N");
  add_timeout(verb, options->timeout, "how long to wait for the router");
}

}  // namespace kestro::ctl
