// The verbs of the command line. Each lives in a source of its own name and adds itself.
#ifndef KESTRO_CTL_VERBS_HPP
#define KESTRO_CTL_VERBS_HPP

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "kestroctl/client.hpp"
#include "kestroctl/exit_status.hpp"

namespace kestro::ctl {

// What every verb may need.
struct Common {
  RouterAddress router;
  std::vector<std::string> bus;
};

struct CommandLine {
  CLI::App app{"What an engineer asks the services of a unit, and what they say."};
  Common common;
  std::function<Exit()> run;  // of the verb that was given
};

// Headings of the help.
inline constexpr const char* calling = "Calling services";
inline constexpr const char* watching = "Watching";
inline constexpr const char* configuring = "Configuring";
inline constexpr const char* looking_up = "Looking up (without a router)";

// Adds a verb that does `run`, with examples below its help.
CLI::App& add_verb(CommandLine& line, const char* group, const char* name, const char* what, std::function<Exit()> run,
                   const char* examples);
// An option with a time from 0.001 to 604800 seconds. A default of 0 is none.
CLI::Option* add_seconds(CLI::App& verb, const char* name, Seconds& value, const char* what);
// --timeout.
void add_timeout(CLI::App& verb, Seconds& value, const char* what);

void add_bench(CommandLine& line);
void add_call(CommandLine& line);
void add_check(CommandLine& line);
void add_describe(CommandLine& line);
void add_explain(CommandLine& line);
void add_list(CommandLine& line);
void add_log(CommandLine& line);
void add_monitor(CommandLine& line);
void add_notify(CommandLine& line);
void add_stats(CommandLine& line);
void add_wait(CommandLine& line);

}  // namespace kestro::ctl

#endif
