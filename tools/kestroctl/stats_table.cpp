#include "kestroctl/stats_table.hpp"

#include <algorithm>
#include <cmath>

namespace kestro::ctl {

namespace {

constexpr int bar_width = 40;

json_int_t number(const json_t* counters, const char* name) {
  return json_integer_value(json_object_get(counters, name));
}

// How many connections were refused, for whatever reason.
json_int_t refused(const json_t* counters) {
  json_int_t sum = 0;
  const char* reason = nullptr;
  json_t* count = nullptr;
  json_object_foreach(json_object_get(counters, "refused"), reason, count) sum += json_integer_value(count);
  return sum;
}

class Table {
 public:
  Table(const json_t* now, const json_t* before, double seconds, Look look)
      : now_(now), before_(before), seconds_(seconds), look_(look) {}

  std::string text() {
    head("connections");
    row("accepted", "accepted", "");
    row("  answered", "answered", "by a service");
    row("  busy", "busy", "turned away: too much in flight, maintenance or shutdown");
    row("  timed out", "timed_out", "no response in the method's time");
    row("  handled", "handled", "notifications for the router itself");
    row("  refused", refused(now_), before_ != nullptr ? refused(before_) : 0, "closed without an answer");
    reasons();
    head("of these");
    row("  client gone", "client_gone", "was not there for its answer, or took it too slowly");
    head("now");
    level("  clients", "clients");
    level("  in flight", "in_flight");
    head("bytes");
    row("  in", "bytes_in", "");
    row("  out", "bytes_out", "");
    head("frames from the bus that reached nobody");
    row("  late", "late", "after the time-out, or twice");
    row("  foreign", "foreign", "not asked for here");
    row("  garbage", "garbage", "no JSON-RPC");
    latencies();
    return std::move(text_);
  }

 private:
  void line(const std::string& text, Colour colour = Colour::None) {
    text_ += (text_.empty() ? "" : "\n") + paint(text, colour, look_);
  }
  void head(const char* text) { line(text, Colour::Grey); }

  void row(const char* label, json_int_t now, json_int_t before, const char* what) {
    std::string shown = format("%-16s%12lld", label, static_cast<long long>(now));
    if (before_ != nullptr) shown += format("%12.1f/s", static_cast<double>(now - before) / seconds_);
    if (*what != '\0') shown += std::string("  ") + what;
    line(shown);
  }
  void row(const char* label, const char* name, const char* what) {
    row(label, number(now_, name), number(before_, name), what);
  }
  void level(const char* label, const char* name) {
    line(format("%-16s%12lld", label, static_cast<long long>(number(now_, name))));
  }

  void reasons() {
    const char* reason = nullptr;
    json_t* count = nullptr;
    json_object_foreach(json_object_get(now_, "refused"), reason, count) {
      if (json_integer_value(count) == 0) continue;
      line(format("    %-20.40s%4lld", tame(reason).c_str(), static_cast<long long>(json_integer_value(count))),
           Colour::Red);
    }
  }

  // From the first slot that counts anything to the last.
  void latencies() {
    const json_t* const slots = json_object_get(now_, "latency_below_2_to_n_ms");
    const auto count = [slots](size_t i) { return json_integer_value(json_array_get(slots, i)); };
    size_t first = 0;
    size_t last = json_array_size(slots);
    while (first < last && count(first) == 0) ++first;
    while (last > first && count(last - 1) == 0) --last;
    if (first == last) return;
    json_int_t most = 1;
    for (size_t i = first; i < last; ++i) most = std::max(most, count(i));
    head("time that services took");
    for (size_t i = first; i < last; ++i) {
      const auto length =
          static_cast<size_t>(std::ceil(bar_width * static_cast<double>(count(i)) / static_cast<double>(most)));
      const bool open_ended = i + 1 == json_array_size(slots);
      const std::string bound =
          open_ended ? format("  from %8lld ms", 1LL << (i - 1)) : format("  below %7lld ms", 1LL << i);
      std::string shown = bound + format("%11lld", static_cast<long long>(count(i)));
      if (length > 0) shown.append("  ").append(paint(std::string(length, '#'), Colour::Green, look_));
      line(shown);
    }
  }

  const json_t* now_;
  const json_t* before_;
  double seconds_;
  Look look_;
  std::string text_;
};

}  // namespace

std::string stats_table(const json_t* counters, const json_t* before, double seconds, Look look) {
  return Table(counters, before, seconds, look).text();
}

}  // namespace kestro::ctl
