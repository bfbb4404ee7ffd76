// kestroctl list and describe: which methods there are, and what they want.

#include <unistd.h>

#include <algorithm>
#include <memory>

#include "kestroctl/output.hpp"
#include "kestroctl/services.hpp"
#include "kestroctl/verbs.hpp"

namespace kestro::ctl {

namespace {

struct Options {
  std::string method;
  bool names = false;
  Seconds timeout{30};
};

Exit list(const Common& common, const Options& options) {
  const auto services = discover(common.router, options.timeout);
  const Look look = look_of(STDOUT_FILENO);
  size_t width = 0;
  for (const auto& method : services.methods) width = std::max(width, method.name.size() + 1);
  for (const auto& method : services.methods) {
    Line line(look);
    line.add(method.name, options.names ? Colour::None : Colour::Bold, options.names ? 0 : width);
    if (!options.names) line.add(method.description);
    print(line.text(width_of(STDOUT_FILENO)));
  }
  return services.status;
}

void describe_parameters(const std::vector<Parameter>& parameters, Look look) {
  size_t width = 0;
  for (const auto& parameter : parameters) width = std::max(width, parameter.name.size());
  for (const auto& parameter : parameters) {
    print("  " +
          Line(look)
              .add(parameter.name, Colour::Blue, width)
              .add(parameter.type, Colour::Green, 8)
              .add(parameter.required ? "required" : "optional", parameter.required ? Colour::Yellow : Colour::Grey)
              .add(parameter.description)
              .text());
  }
}

Exit describe(const Common& common, const Options& options) {
  const auto services = discover(common.router, options.timeout);
  const auto found = std::find_if(services.methods.begin(), services.methods.end(),
                                  [&](const Method& method) { return method.name == options.method; });
  if (found == services.methods.end()) {
    const bool all_answered = services.status == Exit::Done;
    throw Failure(all_answered ? Exit::Refused : services.status,
                  std::string(all_answered ? "no service describes " : "no service that answered describes ") +
                      tame(options.method) + "; `kestroctl list` shows all that there are");
  }
  const Look look = look_of(STDOUT_FILENO);
  print(Line(look).add(found->name, Colour::Bold).add("(" + found->service + ")", Colour::Grey).text());
  print("  " + tame(found->description));
  print("");
  print(found->parameters.empty() ? "No parameters." : "Parameters:");
  describe_parameters(found->parameters, look);
  print("\nExample:\n  " + tame(example_call(*found)));
  return Exit::Done;
}

}  // namespace

void add_list(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  auto& verb = add_verb(
      line, calling, "list", "List the methods of all services",
      [&line, options] { return list(line.common, *options); },
      "  kestroctl list\n"
      "  kestroctl list --names | grep ports\n\n"
      "A service that does not answer is named on standard error; the others are listed all the same.");
  verb.add_flag("--names", options->names, "names only");
  add_timeout(verb, options->timeout, "how long to wait for the services");
}

void add_describe(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  auto& verb = add_verb(
      line, calling, "describe", "Show what a method wants, and a call of it",
      [&line, options] { return describe(line.common, *options); }, "  kestroctl describe ports.SetVlanTrunk\n");
  verb.add_option("METHOD", options->method, "its name")->required()->type_name("");
  add_timeout(verb, options->timeout, "how long to wait for the services");
}

}  // namespace kestro::ctl
