// kestroctl notify: a request without "id".

#include <memory>

#include "kestroctl/output.hpp"
#include "kestroctl/params.hpp"
#include "kestroctl/verbs.hpp"

namespace kestro::ctl {

namespace {

struct Options {
  std::string method;
  std::string params;
  Seconds timeout{10};
};

Exit run(const Common& common, const Options& options) {
  const Json params = read_params(options.params);
  const auto text =
      exchange(common.router, json_text(make_request(options.method, params.get(), nullptr).get()), options.timeout);
  if (!text.empty()) say("a notification was answered, which should not be: " + tame(text));
  return text.empty() ? Exit::Done : Exit::Refused;
}

}  // namespace

void add_notify(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  auto& verb = add_verb(
      line, calling, "notify", "Send a notification, which nobody answers",
      [&line, options] { return run(line.common, *options); },
      "  kestroctl notify logger.ReloadConf\n"
      "  kestroctl notify router.SetMaintenance '{\"enable\": true}'\n\n"
      "The router takes the notifications that it handles itself, and refuses others. It answers neither: its log and\n"
      "`kestroctl stats` (handled, refused) tell which it was.");
  verb.add_option("METHOD", options->method, "its name")->required()->type_name("");
  verb.add_option("PARAMS", options->params, "a JSON object, - for standard input, or @FILE")->type_name("");
  add_timeout(verb, options->timeout, "how long to wait for the router to take it");
}

}  // namespace kestro::ctl
