// kestroctl wait: until something happens.

#include <unistd.h>

#include <memory>

#include "kestro_jrpc.h"
#include "kestroctl/bus_tap.hpp"
#include "kestroctl/output.hpp"
#include "kestroctl/verbs.hpp"

namespace kestro::ctl {

namespace {

using namespace std::chrono_literals;
using Clock = BusTap::Clock;

struct Options {
  std::string event;
  Seconds timeout{60};
};

bool is_event(const json_t* object, const std::string& name) {
  const char* const method = json_string_value(json_object_get(object, "method"));
  return method != nullptr && method == name && json_object_get(object, "id") == nullptr;
}

// Publishers that are not there yet keep nobody from listening to the others.
void connect(BusTap& tap, const std::string& event, Clock::time_point deadline) {
  const size_t connected = tap.connect(std::min(deadline, Clock::now() + 1s));
  if (connected == 0 && !tap.ended()) {
    say("no publisher is there yet");
    while (tap.connect(std::min(deadline, Clock::now() + 1s)) == 0) {
      if (Clock::now() >= deadline) throw Failure(Exit::CannotConnect, "no publisher came in time");
      if (tap.ended()) return;
    }
  } else if (connected < tap.publishers()) {
    say(std::to_string(connected) + " of " + std::to_string(tap.publishers()) + " publishers are there");
  }
  say("waiting for " + tame(event));
}

Exit run(const Common& common, const Options& options) {
  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(options.timeout);
  BusTap tap(common.bus, KESTRO_JRPC_CHANNEL_505A5451);
  connect(tap, options.event, deadline);
  while (const auto frame = tap.next(deadline)) {
    const Json object(json_loadb(frame->text.data(), frame->text.size(), 0, nullptr));
    if (!is_event(object.get(), options.event)) continue;
    const json_t* const params = json_object_get(object.get(), "params");
    print(params != nullptr ? json_text(params, look_of(STDOUT_FILENO)) : "{}");
    return Exit::Done;
  }
  throw Failure(Exit::NoAnswer, tap.ended() ? "interrupted" : "no " + tame(options.event) + " in time");
}

}  // namespace

void add_wait(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  auto& verb = add_verb(
      line, watching, "wait", "Wait for an event and print its parameters",
      [&line, options] { return run(line.common, *options); },
      "  kestroctl wait events.EdgeSwitchOffline --timeout 600\n\n"
      "\"waiting for\" on standard error tells that it is listening: what happened before is over.");
  verb.add_option("EVENT", options->event, "name of the notification")->required()->type_name("");
  add_timeout(verb, options->timeout, "how long to wait");
}

}  // namespace kestro::ctl
