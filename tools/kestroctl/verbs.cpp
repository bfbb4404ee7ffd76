#include "kestroctl/verbs.hpp"

#include <utility>

namespace kestro::ctl {

namespace {

constexpr const char* of_all_verbs =
    "`kestroctl --help` shows the options of all verbs (--socket, --tcp, --bus) and the exit statuses.";

}  // namespace

CLI::App& add_verb(CommandLine& line, const char* group, const char* name, const char* what, std::function<Exit()> run,
                   const char* examples) {
  auto& verb = *line.app.add_subcommand(name, what);
  verb.group(group);
  const std::string text = std::string("Examples:\n") + examples;
  verb.footer(text + (text.ends_with('\n') ? "\n" : "\n\n") + of_all_verbs);
  verb.fallthrough();
  verb.callback([&line, run = std::move(run)] { line.run = run; });
  return verb;
}

CLI::Option* add_seconds(CLI::App& verb, const char* name, Seconds& value, const char* what) {
  auto* const option = verb.add_option_function<double>(
      name, [&value](double seconds) { value = Seconds(seconds); }, what);
  option->check(CLI::Range(0.001, 604'800.0).description(""))->type_name("SECONDS");
  if (value.count() > 0) option->default_str(CLI::detail::to_string(value.count()));
  return option;
}

void add_timeout(CLI::App& verb, Seconds& value, const char* what) {
  add_seconds(verb, "--timeout", value, what);
}

}  // namespace kestro::ctl
