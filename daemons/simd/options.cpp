#include "simd/options.hpp"

#include "common/options.hpp"

namespace kestro::simd {

namespace {

constexpr double longest_interval = 7 * 24 * 3600;

// Looked at again: what was accepted a moment ago may be refused where memory runs out.
Fault accepted(const std::string& word) {
  const auto fault = parse_fault(word);
  if (!fault) throw CLI::ValidationError("--fault", "cannot read \"" + word + "\"");
  return *fault;
}

std::string check_fault(const std::string& text) {
  return parse_fault(text) ? "" : "\"" + text + "\" is none of offline, offline=SWITCH, silent, late=MILLISECONDS";
}

std::string check_interval(const std::string& text) {
  double seconds = 0;
  const bool sound =
      CLI::detail::lexical_cast(text, seconds) && (seconds == 0 || (seconds >= 0.01 && seconds <= longest_interval));
  return sound ? "" : "0, or 0.01 to 604800 seconds";
}

void add_options(CLI::App& app, Options& options) {
  daemons::add_bus_options(app, options.bus, "where answers and events are published", "a caller's publisher");
  app.add_option("--seed", options.seed, "what the readings of the unit follow from")
      ->check(daemons::at_least(0))
      ->type_name("NUMBER")
      ->capture_default_str();
  app.add_option_function<std::vector<std::string>>(
         "--fault",
         [&options](const std::vector<std::string>& words) {
           for (const auto& word : words) options.faults.push_back(accepted(word));
         },
         "what is wrong from the start: offline, offline=c3, silent, late=1500; repeatable")
      ->check(CLI::Validator(check_fault, ""))
      ->type_name("FAULT")
      ->allow_extra_args(false);
  app.add_option("--event-interval", options.event_interval,
                 "an edge switch goes offline, or comes back, this often; 0 for never")
      ->check(CLI::Validator(check_interval, ""))
      ->type_name("SECONDS")
      ->capture_default_str();
}

}  // namespace

Options read_options(int argc, char** argv) {
  CLI::App app(
      "Stands in for the hardware of the unit on the message bus. Runs in the foreground and logs to standard "
      "error.",
      "kestro-simd");
  daemons::add_basics(app);
  app.footer(
      "Every reading follows from the seed alone. SIGTERM and SIGINT end it. Exit status: 0 it was ended, 1 it could "
      "not "
      "start, 2 the command line is wrong.\n\n"
      "Example:\n"
      "  kestro-simd --bus-publish tcp://127.0.0.1:5002 --bus-subscribe tcp://127.0.0.1:5000 \\\n"
      "      --bus-subscribe tcp://127.0.0.1:5001 --seed 7 --fault offline=c3");
  Options options;
  add_options(app, options);
  daemons::parse_or_exit(app, argc, argv);
  return options;
}

}  // namespace kestro::simd
