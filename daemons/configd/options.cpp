#include "configd/options.hpp"

#include "common/options.hpp"

namespace kestro::configd {

namespace {

constexpr double shortest_timeout = 0.01;
constexpr double longest_timeout = 60;

void add_options(CLI::App& app, Options& options) {
  daemons::add_bus_options(app, options.bus, "where answers, and requests to the hardware, are published",
                           "a publisher of requests: the router's, the hardware's");
  app.add_option("--database", options.database, "the configuration database")
      ->check(daemons::path())
      ->type_name("PATH")
      ->capture_default_str();
  app.add_option("--update-dir", options.update_dir, "where backups are written to and read from")
      ->check(daemons::path())
      ->type_name("PATH")
      ->capture_default_str();
  app.add_option_function<double>(
         "--hardware-timeout",
         [&options](double seconds) { options.hardware_timeout = std::chrono::duration<double>(seconds); },
         "how long the hardware may take to answer")
      ->check(daemons::seconds(shortest_timeout, longest_timeout))
      ->default_str(CLI::detail::to_string(options.hardware_timeout.count()))
      ->type_name("SECONDS");
  app.add_flag("--init", options.init, "create the database, if it is not there");
}

}  // namespace

Options read_options(int argc, char** argv) {
  CLI::App app(
      "Keeps the configuration of the unit, and the hardware in agreement with it. Runs in the foreground and "
      "logs to standard error.",
      "kestro-configd");
  daemons::add_basics(app);
  app.footer(
      "SIGTERM and SIGINT end it. Exit status: 0 it was ended, 1 it could not start, 2 the command line is wrong.\n\n"
      "Example:\n"
      "  kestro-configd --init --bus-publish tcp://127.0.0.1:5001 \\\n"
      "      --bus-subscribe tcp://127.0.0.1:5000 --bus-subscribe tcp://127.0.0.1:5002");
  Options options;
  add_options(app, options);
  daemons::parse_or_exit(app, argc, argv);
  return options;
}

}  // namespace kestro::configd
