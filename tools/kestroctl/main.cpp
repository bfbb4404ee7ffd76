// kestroctl: what an engineer types.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <sstream>

#include "common/last_resort.hpp"
#include "common/options.hpp"
#include "core/log.hpp"
#include "kestro_lsyslog.h"
#include "kestroctl/verbs.hpp"

using namespace kestro;
using namespace kestro::ctl;

namespace {

constexpr const char* usual_socket = "/run/kestro/router.sock";
constexpr const char* exit_statuses =
    "Exit status:\n"
    "  0  done\n"
    "  1  the service answered an error, the router refused, or a value is not acceptable\n"
    "  2  wrong usage\n"
    "  3  no answer in time\n"
    "  4  cannot connect\n"
    "  5  the system is busy\n\n"
    "`kestroctl VERB --help` shows options and examples.";

void add_common_options(CommandLine& line, bool& verbose) {
  auto& app = line.app;
  app.add_option("--socket", line.common.router.socket, "the router's Unix-domain socket; also from KESTRO_SOCKET")
      ->type_name("PATH")
      ->default_str(usual_socket);
  app.add_option("--tcp", line.common.router.port, "the router's port on 127.0.0.1, instead")
      ->check(CLI::Range(1, 65535).description(""))
      ->type_name("PORT");
  app.add_option("--bus", line.common.bus,
                 "a publisher to listen to; repeatable; also from KESTRO_BUS, with blanks between")
      ->check(daemons::bus_address().description(""))
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
  app.add_flag("--debug", verbose, "the library's own log, on standard error");
}

// What the command line leaves open.
void complete(Common& common) {
  if (common.router.port != 0 && !common.router.socket.empty()) {
    throw Failure(Exit::Usage, "--socket or --tcp, not both");
  }
  if (common.router.port == 0 && common.router.socket.empty()) {
    const char* const given = getenv("KESTRO_SOCKET");
    common.router.socket = given != nullptr && *given != '\0' ? given : usual_socket;
  }
  const char* const bus = getenv("KESTRO_BUS");
  if (!common.bus.empty() || bus == nullptr) return;
  std::istringstream words(bus);
  for (std::string word; words >> word;) {
    if (const auto wrong = daemons::bus_address()(word); !wrong.empty())
      throw Failure(Exit::Usage, "KESTRO_BUS: " + wrong);
    common.bus.push_back(word);
  }
}

void add_verbs(CommandLine& line) {
  add_call(line);
  add_notify(line);
  add_list(line);
  add_describe(line);
  add_monitor(line);
  add_wait(line);
  add_stats(line);
  add_log(line);
  add_bench(line);
  add_check(line);
  add_explain(line);
}

Exit run(int argc, char** argv) {
  CommandLine line;
  line.app.name("kestroctl");
  line.app.require_subcommand(0, 1);  // one that is missing is looked for below: a word that is none is told as such
  line.app.footer(exit_statuses);
  bool verbose = false;
  daemons::add_basics(line.app);
  add_common_options(line, verbose);
  add_verbs(line);
  daemons::parse_or_exit(line.app, argc, argv, [&line] {
    if (line.app.get_subcommands().empty()) throw CLI::RequiredError("a verb");
  });
  _source = "kestroctl";
  _level = verbose ? KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE : KESTRO_LSYSLOG_LOGGING_LEVEL_OFF;
  complete(line.common);
  return line.run();
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_DFL);  // whoever reads our output may stop reading
  daemons::end_on_stray_exceptions("kestroctl");
  daemons::end_without_json_memory("kestroctl");
  try {
    return static_cast<int>(run(argc, argv));
  } catch (const Failure& failure) {
    fprintf(stderr, "kestroctl: %s\n", failure.what());
    return static_cast<int>(failure.status());
  } catch (const std::exception& failure) {
    fprintf(stderr, "kestroctl: %s\n", failure.what());
    return static_cast<int>(Exit::Refused);
  }
}
