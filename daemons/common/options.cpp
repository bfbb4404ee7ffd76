#include "common/options.hpp"

#include <cstdlib>
#include <sstream>

#include "kestro_mq.h"

namespace kestro::daemons {

namespace {

constexpr int usage_status = 2;

std::string check_bus_address(const std::string& address) {
  if (address.rfind("tcp://", 0) != 0) return "a bus address looks like tcp://127.0.0.1:5000";
  if (address.size() > KESTRO_MQ_SP_ADDR_MAX_LEN) return "a bus address has at most 128 characters";
  return {};
}

// The program, with the verb that was given.
std::string name_as_typed(const CLI::App& program) {
  std::string name = program.get_name();
  for (const auto* const verb : program.get_subcommands()) name += " " + verb->get_name();
  return name;
}

std::string check_path(const std::string& path) {
  return path.empty() ? "a path is expected" : "";
}

}  // namespace

CLI::Validator bus_address() {
  return {check_bus_address, "tcp://HOST:PORT"};
}

CLI::Validator at_least(uint64_t lowest) {
  const auto check = [lowest](const std::string& text) {
    uint64_t number = 0;
    const bool sound = text[0] != '-' && CLI::detail::lexical_cast(text, number) && number >= lowest;
    return sound ? "" : "a number is expected, " + std::to_string(lowest) + " or more";
  };
  return {check, ""};
}

CLI::Validator seconds(double shortest, double longest) {
  std::ostringstream range;
  range << shortest << " to " << longest;
  const auto check = [=, expected = range.str() + " seconds are expected"](const std::string& text) {
    double number = 0;
    const bool sound = CLI::detail::lexical_cast(text, number) && number >= shortest && number <= longest;
    return sound ? "" : expected;
  };
  return {check, range.str()};
}

CLI::Validator path() {
  return {check_path, ""};
}

void add_basics(CLI::App& app) {
  app.set_version_flag("--version", app.get_name() + " " KESTRO_VERSION);
  app.get_formatter()->column_width(34);
  app.failure_message([](const CLI::App* program, const CLI::Error& failure) {
    const auto name = name_as_typed(*program);
    return name + ": " + failure.what() + "\n`" + name + " --help` shows how it is used.\n";
  });
}

void add_bus_options(CLI::App& app, BusAddresses& bus, const std::string& publishes, const std::string& subscribes) {
  app.add_option("--bus-publish", bus.publish, publishes + " (bound)")
      ->required()
      ->check(bus_address())
      ->type_name("ADDRESS");
  app.add_option("--bus-subscribe", bus.subscribe, subscribes + " (connected); repeatable")
      ->required()
      ->check(bus_address())
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
}

void parse_or_exit(CLI::App& app, int argc, char** argv, const std::function<void()>& check) {
  try {
    app.parse(argc, argv);
    if (check) check();
  } catch (const CLI::ParseError& end) {
    std::exit(app.exit(end) == 0 ? 0 : usage_status);
  }
}

}  // namespace kestro::daemons
