// kestroctl monitor: what travels on the bus.

#include <fnmatch.h>
#include <sys/time.h>
#include <unistd.h>

#include <ctime>
#include <deque>
#include <memory>
#include <utility>

#include "common/options.hpp"
#include "kestroctl/bus_tap.hpp"
#include "kestroctl/latencies.hpp"
#include "kestroctl/mask.hpp"
#include "kestroctl/output.hpp"
#include "kestroctl/pairing.hpp"
#include "kestroctl/verbs.hpp"

namespace kestro::ctl {

namespace {

using namespace std::chrono_literals;
using Clock = BusTap::Clock;

constexpr size_t channel_width = 8;

struct Options {
  std::string method = "*";
  std::string channel;
  bool json = false;
  uint64_t limit = 0;  // none where 0
};

enum class Kind { Request, Response, Notification, Junk };

// A frame, understood, with its secrets masked.
struct Message {
  Kind kind = Kind::Junk;
  std::string channel;
  std::string method;
  Json object;
  size_t size = 0;
  std::optional<Clock::duration> latency;
};

Message understand(const BusTap::Frame& frame) {
  Message message;
  message.channel = frame.channel;
  message.size = frame.text.size();
  message.object = Json(json_loadb(frame.text.data(), frame.text.size(), JSON_REJECT_DUPLICATES, nullptr));
  const json_t* const object = message.object.get();
  const json_t* const id = json_object_get(object, "id");
  const json_t* const method = json_object_get(object, "method");
  const bool answers = json_object_get(object, "result") != nullptr || json_object_get(object, "error") != nullptr;
  if (json_is_string(method)) {
    message.kind = id != nullptr ? Kind::Request : Kind::Notification;
    message.method = json_string_value(method);
  } else if (answers && json_is_string(id)) {
    message.kind = Kind::Response;
    message.method = json_string_value(id);
  }
  mask_secrets(message.object.get());
  return message;
}

std::string now_text(const char* pattern) {
  timeval now{};
  gettimeofday(&now, nullptr);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char date[40];
  strftime(date, sizeof date, pattern, &local);
  return format("%s.%03u", date, static_cast<unsigned>(now.tv_usec / 1000) % 1000);
}

std::string latency_text(const Message& message) {
  return message.latency ? format("%.2f ms", milliseconds(*message.latency)) : "";
}

std::string member_text(const Message& message, const char* name) {
  const json_t* const value = json_object_get(message.object.get(), name);
  return value != nullptr ? json_text(value) : "";
}

void add_response(Line& line, const Message& message) {
  line.add("<-").add(message.method, Colour::Bold).add(latency_text(message), Colour::Yellow);
  const json_t* const error = json_object_get(message.object.get(), "error");
  if (error == nullptr) {
    line.add(member_text(message, "result"), Colour::Grey);
    return;
  }
  const char* const text = json_string_value(json_object_get(error, "message"));
  line.add("error " + json_text(json_object_get(error, "code")), Colour::Red)
      .add(text != nullptr ? text : "", Colour::Red);
  const json_t* const data = json_object_get(error, "data");
  if (data != nullptr && !json_is_null(data)) line.add(json_text(data), Colour::Red);
}

std::string line_of(const Message& message, Look look) {
  Line line(look);
  line.add(now_text("%H:%M:%S"), Colour::Grey).add(name_of_channel(message.channel), Colour::Cyan, channel_width);
  switch (message.kind) {
    case Kind::Request:
      line.add("->").add(message.method, Colour::Bold).add(member_text(message, "params"), Colour::Grey);
      break;
    case Kind::Response:
      add_response(line, message);
      break;
    case Kind::Notification:
      line.add("**", Colour::Yellow).add(message.method, Colour::Yellow).add(member_text(message, "params"));
      break;
    case Kind::Junk:
      line.add("??", Colour::Red).add("no JSON-RPC, " + std::to_string(message.size) + " bytes", Colour::Red);
      break;
  }
  return line.text(width_of(STDOUT_FILENO));
}

std::string json_of(const Message& message) {
  constexpr const char* kinds[] = {"request", "response", "notification", "junk"};
  const Json record(json_pack("{s:s,s:s,s:s}", "time", now_text("%FT%T").c_str(), "channel",
                              tame(name_of_channel(message.channel)).c_str(), "kind",
                              kinds[static_cast<size_t>(message.kind)]));
  json_t* const object = record.get();
  if (message.kind == Kind::Junk) {
    json_object_set_new(object, "bytes", json_integer(static_cast<json_int_t>(message.size)));
    return json_text(object);
  }
  json_object_set_new(object, "method", json_string(message.method.c_str()));
  if (message.latency) json_object_set_new(object, "latency_ms", json_real(milliseconds(*message.latency)));
  for (const char* name : {"transaction_id", "params", "result", "error"}) {
    if (json_t* const value = json_object_get(message.object.get(), name)) json_object_set(object, name, value);
  }
  return json_text(object);
}

bool is_wanted(const Options& options, const Message& message) {
  const bool channel = options.channel.empty() || options.channel == message.channel ||
                       options.channel == name_of_channel(message.channel);
  return channel && fnmatch(options.method.c_str(), message.method.c_str(), 0) == 0;
}

void tell_connections(BusTap& tap) {
  const size_t connected = tap.connect(Clock::now() + 1s);
  if (tap.ended()) return;
  const auto all = std::to_string(tap.publishers());
  say(connected < tap.publishers() ? "listening; " + std::to_string(connected) + " of " + all +
                                         " publishers are there, the others are waited for"
                                   : "listening to " + all + (connected == 1 ? " publisher" : " publishers"));
}

// Shows messages in their order, but for this: what publishers say at the same time is received in any order, so a
// response that has come before its request waits for it, for a moment.
class Display {
 public:
  explicit Display(const Options& options) : options_(options), look_(look_of(STDOUT_FILENO)) {}

  void take(Message message, Clock::time_point now) {
    if (message.kind == Kind::Response) {
      message.latency = pairing_.response(message.channel, message.object.get(), now);
      if (!message.latency) return early_.push_back({std::move(message), now + patience});
    }
    if (message.kind == Kind::Request) pairing_.request(message.object.get(), now);
    const bool asks = message.kind == Kind::Request;
    print_wanted(message);
    if (asks) show_early(now);
  }
  // Those that have waited long enough.
  void show_late(Clock::time_point now) {
    while (!early_.empty() && early_.front().until <= now) {
      print_wanted(early_.front().message);
      early_.pop_front();
    }
  }
  [[nodiscard]] Clock::time_point wake_up() const {
    return early_.empty() ? Clock::time_point::max() : early_.front().until;
  }
  [[nodiscard]] bool done() const { return options_.limit != 0 && shown_ >= options_.limit; }

 private:
  static constexpr auto patience = 50ms;

  struct Early {
    Message message;
    Clock::time_point until;
  };

  void show_early(Clock::time_point now) {
    for (auto early = early_.begin(); early != early_.end(); ++early) {
      if (!pairing_.response(early->message.channel, early->message.object.get(), now)) continue;
      early->message.latency = Clock::duration::zero();  // both were here already
      print_wanted(early->message);
      early_.erase(early);
      return;
    }
  }
  void print_wanted(const Message& message) {
    if (done() || !is_wanted(options_, message)) return;
    print(options_.json ? json_of(message) : line_of(message, look_));
    ++shown_;
  }

  const Options& options_;
  Look look_;
  Pairing pairing_;
  std::deque<Early> early_;
  uint64_t shown_ = 0;
};

Exit run(const Common& common, const Options& options) {
  BusTap tap(common.bus, "");
  tell_connections(tap);
  Display display(options);
  while (!tap.ended() && !display.done()) {
    if (const auto frame = tap.next(display.wake_up())) display.take(understand(*frame), Clock::now());
    display.show_late(Clock::now());
  }
  return Exit::Done;
}

}  // namespace

void add_monitor(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  auto& verb = add_verb(
      line, watching, "monitor", "Show what travels on the bus, as it travels",
      [&line, options] { return run(line.common, *options); },
      "  kestroctl monitor --bus tcp://127.0.0.1:5000 --bus tcp://127.0.0.1:5001\n"
      "  kestroctl monitor --method 'ports.*'\n"
      "  kestroctl monitor --channel events --json | jq .params\n\n"
      "-> is a request, <- a response with the time since its request was heard, ** a notification, ?? none of them.\n"
      "Passwords and the like are masked. Control-C ends it.");
  verb.add_option("--method", options->method, "only methods that match, like 'ports.*'")->type_name("GLOB");
  verb.add_option("--channel", options->channel,
                  "only this: config, hardware, events, cache, reply, or a channel's own name")
      ->type_name("NAME");
  verb.add_flag("--json", options->json, "one JSON object in each line");
  verb.add_option("--limit", options->limit, "end after so many lines; without it only Control-C ends it")
      ->check(daemons::at_least(1))
      ->type_name("N");
}

}  // namespace kestro::ctl
