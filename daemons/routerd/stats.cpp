#include "routerd/stats.hpp"

#include <jansson.h>
#include <sys/mman.h>

#include <bit>
#include <new>
#include <utility>

#include "core/owned.hpp"
#include "kestro_jrpc/json.hpp"
#include "kestro_shm.h"

namespace kestro::routerd {

namespace {

json_t* number(uint64_t value) {
  return json_integer(static_cast<json_int_t>(value));
}

}  // namespace

void Stats::count_latency(std::chrono::nanoseconds took) noexcept {
  const auto milliseconds = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(took).count());
  const auto slot = static_cast<size_t>(std::bit_width(milliseconds));
  ++latency_ms[slot < latency_ms.size() ? slot : latency_ms.size() - 1];
}

std::string Stats::json() const {
  const Json by_reason(json_object());
  bool whole = true;
  for (const auto& [reason, count] : refused) {
    whole = json_object_set_new(by_reason.get(), reason.c_str(), number(count)) == 0 && whole;
  }
  const Json histogram(json_array());
  for (const auto count : latency_ms) whole = json_array_append_new(histogram.get(), number(count)) == 0 && whole;
  const Json object(json_pack(
      "{s:o,s:o,s:o,s:o,s:o,s:o,s:O,s:o,s:o,s:o,s:o,s:o,s:o,s:o,s:O}", "accepted", number(accepted), "answered",
      number(answered), "busy", number(busy), "timed_out", number(timed_out), "handled", number(handled), "client_gone",
      number(client_gone), "refused", by_reason.get(), "late", number(late), "foreign", number(foreign), "garbage",
      number(garbage), "clients", number(clients), "in_flight", number(in_flight), "bytes_in", number(bytes_in),
      "bytes_out", number(bytes_out), "latency_below_2_to_n_ms", histogram.get()));
  const Text text = encode_json(object.get());
  if (!whole || !text) throw std::bad_alloc();
  return text.get();
}

StatsVariable::StatsVariable(std::string name)
    : name_(std::move(name)), usable_(kestro_shm_create(name_.c_str(), size) == 0) {}

StatsVariable::~StatsVariable() {
  if (usable_) shm_unlink(name_.c_str());
}

void StatsVariable::publish(const Stats& stats) const {
  if (usable_) kestro_shm_set_string(name_.c_str(), size, stats.json().c_str());
}

}  // namespace kestro::routerd
