#include "routerd/stats.hpp"

#include <fcntl.h>
#include <jansson.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <bit>
#include <cerrno>
#include <cstring>
#include <utility>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "kestro_jrpc/json.hpp"
#include "kestro_shm.h"
#include "routerd/memory.hpp"

namespace kestro::routerd {

namespace {

constexpr auto here = site_of("kestro_routerd");

json_t* number(uint64_t value) {
  return json_integer(static_cast<json_int_t>(value));
}

// The library gives a new variable permissions that only root can do with. The router need not be root, so it makes the
// object itself: one that everybody may read, and never one that somebody else has put there.
bool create_variable(const char* name, int32_t size) {
  constexpr mode_t readable = 0644;
  shm_unlink(name);
  const Descriptor object(shm_open(name, O_CREAT | O_EXCL | O_RDWR, readable));
  if (object.get() < 0 || fchmod(object.get(), readable) != 0) {
    here().log(Error, "no counters: cannot create %s: %s\n", name, strerror(errno));
    return false;
  }
  return kestro_shm_create(name, size) == 0;
}

}  // namespace

void Stats::count_latency(std::chrono::nanoseconds took) noexcept {
  const auto milliseconds = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(took).count());
  const auto slot = static_cast<size_t>(std::bit_width(milliseconds));
  ++latency_ms[slot < latency_ms.size() ? slot : latency_ms.size() - 1];
}

std::string Stats::json() const {
  const Json by_reason(json_object());
  for (const auto& [reason, count] : refused) {
    require_memory(json_object_set_new(by_reason.get(), reason.c_str(), number(count)) == 0);
  }
  const Json histogram(json_array());
  for (const auto count : latency_ms) require_memory(json_array_append_new(histogram.get(), number(count)) == 0);
  const Json object(json_pack(
      "{s:o,s:o,s:o,s:o,s:o,s:o,s:O,s:o,s:o,s:o,s:o,s:o,s:o,s:o,s:O}", "accepted", number(accepted), "answered",
      number(answered), "busy", number(busy), "timed_out", number(timed_out), "handled", number(handled), "client_gone",
      number(client_gone), "refused", by_reason.get(), "late", number(late), "foreign", number(foreign), "garbage",
      number(garbage), "clients", number(clients), "in_flight", number(in_flight), "bytes_in", number(bytes_in),
      "bytes_out", number(bytes_out), "latency_below_2_to_n_ms", histogram.get()));
  const Text text = encode_json(object.get());
  require_memory(text != nullptr);
  return text.get();
}

StatsVariable::StatsVariable(std::string name)
    : name_(std::move(name)), usable_(create_variable(name_.c_str(), size)) {}

StatsVariable::~StatsVariable() {
  if (usable_) shm_unlink(name_.c_str());
}

void StatsVariable::publish(const Stats& stats) const {
  if (usable_) kestro_shm_set_string(name_.c_str(), size, stats.json().c_str());
}

}  // namespace kestro::routerd
