#include "kestroctl/verbs.hpp"

#include <utility>

namespace kestro::ctl {

CLI::App& add_verb(CommandLine& line, const char* group, const char* name, const char* what, std::function<Exit()> run,
                   const char* examples) {
  auto& verb = *line.app.add_subcommand(name, what);
  verb.group(group);
  verb.footer(std::string("Examples:\n") + examples);
  verb.fallthrough();
  verb.callback([&line, run = std::move(run)] { line.run = run; });
  return verb;
}

void add_timeout(CLI::App& verb, Seconds& value, const char* what) {
  verb.add_option_function<double>(
          "--timeout", [&value](double seconds) { value = Seconds(seconds); }, what)
      ->check(CLI::Range(0.001, 604'800.0))
      ->default_str(CLI::detail::to_string(value.count()))
      ->type_name("SECONDS");
}

}  // namespace kestro::ctl
