#include "routerd/options.hpp"

#include <sys/un.h>

#include <cstdlib>

#include "common/options.hpp"

namespace kestro::routerd {

namespace {

using Seconds = std::chrono::duration<double>;

constexpr double shortest_time = 0.001;
constexpr double longest_time = 7 * 24 * 3600;

void add_seconds(CLI::App& app, const std::string& name, Seconds& value, const std::string& what) {
  app.add_option_function<double>(
         name, [&value](double seconds) { value = Seconds(seconds); }, what)
      ->check(daemons::seconds(shortest_time, longest_time))
      ->default_str(CLI::detail::to_string(value.count()))
      ->type_name("SECONDS");
}

// "METHOD=SECONDS"
std::pair<std::string, double> parse_method_timeout(const std::string& text) {
  const auto equals = text.rfind('=');
  const std::string number = equals == std::string::npos ? "" : text.substr(equals + 1);
  char* end = nullptr;
  const double seconds = std::strtod(number.c_str(), &end);
  const bool in_range = seconds >= shortest_time && seconds <= longest_time;
  if (equals == 0 || number.empty() || *end != '\0' || !in_range) {
    throw CLI::ValidationError("--timeout", "\"" + text + "\" is not METHOD=SECONDS with 0.001 to 604800 seconds");
  }
  return {text.substr(0, equals), seconds};
}

std::string check_path(const std::string& path) {
  return path.size() < sizeof sockaddr_un{}.sun_path ? "" : "a socket's path has at most 107 characters";
}

std::string check_stats_name(const std::string& name) {
  const bool sound = name.size() > 1 && name[0] == '/' && name.rfind('/') == 0;
  return sound ? "" : "the name of a variable is a slash and a word";
}

void add_options(CLI::App& app, Options& options) {
  app.add_option("--listen-unix", options.listen_unix, "Unix-domain socket for clients")
      ->check(CLI::Validator(check_path, ""))
      ->type_name("PATH");
  app.add_option("--listen-tcp", options.listen_tcp, "port on 127.0.0.1 for clients")
      ->check(CLI::Range(1, 65535))
      ->type_name("PORT");
  daemons::add_bus_options(app, options.bus, "where requests are published", "a service's publisher");
  app.add_option("--max-clients", options.max_clients, "connections at once; more wait to be accepted")
      ->check(daemons::at_least(1))
      ->capture_default_str();
  app.add_option("--max-in-flight", options.max_in_flight, "requests on the bus at once; more are answered busy")
      ->check(daemons::at_least(1))
      ->capture_default_str();
  app.add_option("--max-request", options.max_request, "longest request in bytes")
      ->check(CLI::Range(size_t{1}, bus_message_limit - envelope_allowance))
      ->capture_default_str();
  add_seconds(app, "--read-timeout", options.read_timeout, "for a request to arrive, from its accept");
  add_seconds(app, "--write-timeout", options.write_timeout, "for an answer to be taken");
  add_seconds(app, "--drain-timeout", options.drain_timeout, "for requests on the bus to be answered at the end");
  app.add_option_function<std::vector<std::string>>(
         "--timeout",
         [&options](const std::vector<std::string>& rows) {
           for (const auto& row : rows) {
             const auto [method, seconds] = parse_method_timeout(row);
             options.method_timeouts.insert_or_assign(method, seconds);
           }
         },
         "how long a method may take, instead of its usual time; repeatable")
      ->type_name("METHOD=SECONDS")
      ->allow_extra_args(false);
  app.add_option("--stats-name", options.stats_name, "shared-memory variable with the counters, as JSON")
      ->check(CLI::Validator(check_stats_name, ""))
      ->type_name("/NAME")
      ->capture_default_str();
  app.add_flag("--strict-ids", options.strict_ids, "answer with the client's own \"id\", not the method's name");
}

}  // namespace

Options read_options(int argc, char** argv) {
  CLI::App app("Brings JSON-RPC clients onto the message bus. Runs in the foreground and logs to standard error.",
               "kestro-routerd");
  daemons::add_basics(app);
  app.footer(
      "SIGTERM and SIGINT end it: what is on the bus is answered first. A second one ends it at once. Exit "
      "status: 0 it was ended, 1 it could not start or was ended at once, 2 the command line is wrong.\n\n"
      "Example:\n"
      "  kestro-routerd --listen-unix /run/kestro/router.sock \\\n"
      "      --bus-publish tcp://127.0.0.1:5000 --bus-subscribe tcp://127.0.0.1:5001");
  Options options;
  add_options(app, options);
  daemons::parse_or_exit(app, argc, argv, [&options] {
    if (options.listen_unix.empty() && options.listen_tcp == 0) {
      throw CLI::RequiredError("--listen-unix or --listen-tcp");
    }
  });
  return options;
}

}  // namespace kestro::routerd
