// kestroctl bench: how fast, and whether nothing goes astray.

#include <unistd.h>

#include <csignal>
#include <memory>

#include "common/options.hpp"
#include "kestroctl/load.hpp"
#include "kestroctl/output.hpp"
#include "kestroctl/params.hpp"
#include "kestroctl/verbs.hpp"

namespace kestro::ctl {

namespace {

constexpr int bar_width = 30;

struct Options {
  size_t clients = 8;
  uint64_t requests = 1000;
  Seconds duration{0};
  std::string method = "emac.service.CoreSwitchGetTemps";
  std::string params = "{}";
  Seconds timeout{30};
  bool json = false;
};

volatile std::sig_atomic_t interrupted = 0;

// The first one ends the load in good order, the second one at once.
void end_on_signals() {
  struct sigaction action {};
  action.sa_handler = [](int) { interrupted = 1; };
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

class ProgressBar {
 public:
  explicit ProgressBar(const Options& options) : options_(options), shown_(isatty(STDERR_FILENO) != 0) {}
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  ~ProgressBar() {
    if (shown_) fputs("\r\33[K", stderr);
  }

  void show(const Ledger& ledger) const {
    if (!shown_) return;
    const double done = options_.duration.count() > 0
                            ? ledger.took / options_.duration
                            : static_cast<double>(ledger.outcomes()) / static_cast<double>(options_.requests);
    const auto filled = static_cast<size_t>(std::min(done, 1.0) * bar_width);
    fprintf(stderr, "\r[%s%s] %3.0f %%  %llu requests, %.0f/s", std::string(filled, '#').c_str(),
            std::string(bar_width - filled, ' ').c_str(), std::min(done, 1.0) * 100,
            static_cast<unsigned long long>(ledger.outcomes()),
            static_cast<double>(ledger.outcomes()) / std::max(ledger.took.count(), 1e-3));
  }

 private:
  const Options& options_;
  bool shown_;
};

bool nobody_is_there(const Ledger& ledger) {
  return ledger.not_connected > 0 && ledger.not_connected == ledger.outcomes();
}

void show_outcome(const char* name, uint64_t count, Colour colour) {
  if (count == 0) return;
  print("  " + Line(look_of(STDOUT_FILENO))
                   .add(name, colour, 16)
                   .add(format("%10llu", static_cast<unsigned long long>(count)))
                   .text());
}

void show(const Ledger& ledger) {
  const Look look = look_of(STDOUT_FILENO);
  const double rate = static_cast<double>(ledger.outcomes()) / std::max(ledger.took.count(), 1e-9);
  print(Line(look)
            .add(format("%llu requests in %.2f s,", static_cast<unsigned long long>(ledger.requests),
                        ledger.took.count()))
            .add(format("%.0f/s", rate), Colour::Bold)
            .text());
  show_outcome("answered", ledger.answered, Colour::Green);
  for (const auto& [code, count] : ledger.errors) show_outcome(format("error %d", code).c_str(), count, Colour::Yellow);
  show_outcome("timed out", ledger.timed_out, Colour::Yellow);
  show_outcome("busy", ledger.busy, Colour::Yellow);
  show_outcome("closed", ledger.closed, Colour::Red);
  show_outcome("lost", ledger.lost, Colour::Red);
  show_outcome("mixed up", ledger.mixed_up, Colour::Red);
  show_outcome("not connected", ledger.not_connected, Colour::Red);
  if (ledger.latencies.count() == 0) return;
  print("latency in ms");
  const auto row = [](const char* name, Latencies::Time time) {
    print(format("  %-16s%11.2f", name, milliseconds(time)));
  };
  row("min", ledger.latencies.smallest());
  for (const auto& [name, percent] : percentiles) row(name, ledger.latencies.percentile(percent));
  row("max", ledger.latencies.largest());
}

Exit status_of(const Ledger& ledger) {
  if (nobody_is_there(ledger)) return Exit::CannotConnect;
  return ledger.is_sound() ? Exit::Done : Exit::Refused;
}

Exit run(const Common& common, const Options& options) {
  const Json params = read_params(options.params);
  const Load load{.router = common.router,
                  .clients = options.clients,
                  .requests = options.duration.count() > 0 ? 0 : options.requests,
                  .duration = options.duration,
                  .patience = options.timeout,
                  .method = options.method,
                  .params = params.get()};
  end_on_signals();
  Ledger ledger;
  {
    const ProgressBar bar(options);
    ledger = run_load(load, [&bar](const Ledger& so_far) {
      bar.show(so_far);
      return interrupted == 0 && !nobody_is_there(so_far);
    });
  }
  if (options.json) {
    print(json_text(ledger.json().get(), look_of(STDOUT_FILENO)));
  } else {
    show(ledger);
  }
  if (nobody_is_there(ledger)) say("cannot connect to " + common.router.text());
  return status_of(ledger);
}

}  // namespace

void add_bench(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  auto& verb = add_verb(
      line, calling, "bench", "Send many requests at once and account for each of them",
      [&line, options] { return run(line.common, *options); },
      "  kestroctl bench\n"
      "  kestroctl bench --clients 100 --requests 50000 --method ports.Get --params '{\"port_id\": \"c1-1\"}'\n"
      "  kestroctl bench --duration 60 --json\n\n"
      "Each request has a connection and a number of its own. The exit status is 0 only when every one has its "
      "outcome\n"
      "and none was lost (no answer came, or not all of it) or mixed up (somebody else's answer came).");
  verb.add_option("--clients", options->clients, "requests at once")
      ->check(CLI::Range(1, 100'000).description(""))
      ->capture_default_str()
      ->type_name("N");
  auto* const requests = verb.add_option("--requests", options->requests, "how many")
                             ->check(daemons::at_least(1))
                             ->capture_default_str()
                             ->type_name("N");
  add_seconds(verb, "--duration", options->duration, "for how long, instead")->excludes(requests);
  verb.add_option("--method", options->method, "what to call")->capture_default_str()->type_name("METHOD");
  verb.add_option("--params", options->params, "a JSON object, - for standard input, or @FILE")
      ->capture_default_str()
      ->type_name("PARAMS");
  add_timeout(verb, options->timeout, "how long one request may take");
  verb.add_flag("--json", options->json, "the ledger as JSON");
}

}  // namespace kestro::ctl
