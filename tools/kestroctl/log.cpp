// kestroctl log: how much a daemon logs.

#include <unistd.h>

#include <algorithm>
#include <memory>

#include "kestro_general.h"
#include "kestroctl/file.hpp"
#include "kestroctl/log_config.hpp"
#include "kestroctl/output.hpp"
#include "kestroctl/verbs.hpp"

namespace kestro::ctl {

namespace {

constexpr const char* reload = "logger.ReloadConf";
constexpr const char* router = "router";

struct Options {
  std::string daemon;
  std::string level;
  std::string file = KESTRO_LSYSLOG_CONF_FILE;
  bool no_reload = false;
  Seconds timeout{30};
};

void warn_unless_level(const std::string& daemon, const std::string& value) {
  if (!is_log_level(value))
    say(tame(daemon) + ": \"" + tame(value) + "\" is no level; the daemon keeps the one it has");
}

Exit show_all(const std::string& text) {
  const auto entries = read_levels(text);
  size_t width = 0;
  for (const auto& entry : entries) width = std::max(width, entry.daemon.size());
  for (const auto& entry : entries) {
    print(Line(look_of(STDOUT_FILENO)).add(entry.daemon, Colour::Blue, width).add(entry.value).text());
    warn_unless_level(entry.daemon, entry.value);
  }
  return Exit::Done;
}

Exit show(const Options& options, const std::string& text) {
  if (options.daemon.empty()) return show_all(text);
  const auto level = read_level(text, options.daemon);
  if (!level) {
    throw Failure(Exit::Refused, "no level for " + tame(options.daemon) + " in " + options.file +
                                     "; a daemon without one logs at debug");
  }
  print(tame(*level));
  warn_unless_level(options.daemon, *level);
  return Exit::Done;
}

// The router has its own ears; what it forwards reaches every other daemon.
Exit tell_daemon(const Common& common, const Options& options) {
  try {
    if (options.daemon == router) {
      exchange(common.router, json_text(make_request(reload, nullptr, nullptr).get()), options.timeout);
      return Exit::Done;
    }
    const Answer answer = call(common.router, reload, nullptr, options.timeout);
    if (answer.is_error()) tell_error(reload, answer);
    if (answer.is_error()) say(options.file + " is changed, but the daemon may not have read it");
    return answer.status();
  } catch (const Failure& failure) {
    throw Failure(failure.status(), options.file + " is changed, but the daemon was not told: " + failure.what());
  }
}

Exit set(const Common& common, const Options& options, const std::string& text) {
  const auto edited = set_level(text, options.daemon, options.level);
  if (edited != text) replace_file(options.file, edited);
  return options.no_reload ? Exit::Done : tell_daemon(common, options);
}

Exit run(const Common& common, const Options& options) {
  const auto text = read_file_or_nothing(options.file);
  return options.level.empty() ? show(options, text) : set(common, options, text);
}

std::string check_level(const std::string& word) {
  return is_log_level(word) ? "" : "a level is off, info, debug or verbose";
}
std::string check_daemon(const std::string& name) {
  return is_daemon_name(name) ? "" : "no name of a daemon: 1 to 50 characters, no = in it, no # or [ before it";
}

}  // namespace

void add_log(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  auto& verb = add_verb(
      line, configuring, "log", "Show or set how much a daemon logs",
      [&line, options] { return run(line.common, *options); },
      "  kestroctl log                   every daemon's level\n"
      "  kestroctl log router            the router's\n"
      "  kestroctl log router debug      set it, and have the router read it\n"
      "  kestroctl log configd info --no-reload\n\n"
      "Everything else in the file stays as it is. The file is replaced in one step.");
  verb.add_option("DAEMON", options->daemon, "its name in the log: router, configd, simd, ...")
      ->check(CLI::Validator(check_daemon, ""))
      ->type_name("");
  verb.add_option("LEVEL", options->level, "off, info, debug or verbose")
      ->check(CLI::Validator(check_level, ""))
      ->type_name("");
  verb.add_option("--file", options->file, "the configuration file")->capture_default_str()->type_name("PATH");
  verb.add_flag("--no-reload", options->no_reload, "edit the file only");
  add_timeout(verb, options->timeout, "how long to wait for the daemons");
}

}  // namespace kestro::ctl
