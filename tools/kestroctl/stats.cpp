// kestroctl stats: what the router counts.

#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <thread>

#include "kestro_shm.h"
#include "kestroctl/output.hpp"
#include "kestroctl/stats_table.hpp"
#include "kestroctl/verbs.hpp"
#include "routerd/stats.hpp"

namespace kestro::ctl {

namespace {

using namespace std::chrono_literals;

constexpr const char* clear_screen = "\33[H\33[2J\33[3J";
constexpr int attempts = 20;

struct Options {
  std::string name = "/kestro-routerd";
  bool watch = false;
  bool json = false;
};

// The router writes while others read: a text that is half written is read again.
Json read_counters(const std::string& name) {
  std::array<char, routerd::StatsVariable::size> text{};
  for (int attempt = 0; attempt < attempts; ++attempt) {
    errno = 0;
    if (kestro_shm_get_string(name.c_str(), static_cast<int32_t>(text.size()), text.data()) != 0) {
      std::string message = "cannot read the counters " + name + ": ";
      message += strerror(errno);
      message += errno == EACCES ? "; try it as root" : "; does kestro-routerd run, and is this its --stats-name?";
      throw Failure(Exit::CannotConnect, message);
    }
    Json counters(json_loads(text.data(), 0, nullptr));
    if (json_is_object(counters.get())) return counters;
    std::this_thread::sleep_for(5ms);
  }
  throw Failure(Exit::Refused, name + " does not hold the counters of a router");
}

// Waits a second. False when the end is asked for.
class Second {
 public:
  Second() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  }
  bool pass() {
    const timespec second{1, 0};
    return sigtimedwait(&signals_, nullptr, &second) < 0;
  }

 private:
  sigset_t signals_{};
};

void show(const Options& options, const json_t* counters, const json_t* before, double seconds) {
  const Look look = look_of(STDOUT_FILENO);
  if (options.json) {
    print(json_text(counters, options.watch ? Look{} : look));
  } else {
    const std::string table = stats_table(counters, before, seconds, look);
    print((options.watch && look.pretty ? clear_screen : "") + paint(options.name, Colour::Bold, look) + "\n" + table);
  }
}

Exit run(const Options& options) {
  Json counters = read_counters(options.name);
  show(options, counters.get(), nullptr, 0);
  Second second;
  while (options.watch && second.pass()) {
    Json before = std::move(counters);
    counters = read_counters(options.name);
    show(options, counters.get(), before.get(), 1);
  }
  return Exit::Done;
}

}  // namespace

void add_stats(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  auto& verb = add_verb(
      line, watching, "stats", "Show what the router counts", [options] { return run(*options); },
      "  kestroctl stats\n"
      "  kestroctl stats --watch\n"
      "  kestroctl stats --json | jq .refused\n\n"
      "The router refreshes its counters each second, in shared memory: no connection is needed.");
  verb.add_flag("--watch", options->watch, "show them each second, with rates, until Control-C");
  verb.add_option("--name", options->name, "the shared-memory variable, the router's --stats-name")
      ->capture_default_str()
      ->type_name("/NAME");
  verb.add_flag("--json", options->json, "as JSON");
}

}  // namespace kestro::ctl
