// Many clients at once, and a ledger in which each request has exactly one outcome.
#ifndef KESTRO_CTL_LOAD_HPP
#define KESTRO_CTL_LOAD_HPP

#include <jansson.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "kestroctl/client.hpp"
#include "kestroctl/latencies.hpp"

namespace kestro::ctl {

struct Load {
  RouterAddress router;
  size_t clients = 8;
  uint64_t requests = 1000;  // no limit where 0
  Seconds duration{0};       // no limit where 0; requests on their way are still awaited
  Seconds patience{30};      // for one request, from its connect to the end of its answer
  std::string method;
  json_t* params = nullptr;  // borrowed
};

struct Ledger {
  uint64_t requests = 0;  // begun
  // How they ended.
  uint64_t answered = 0;               // with a result
  std::map<int32_t, uint64_t> errors;  // with an error of this code, but for the next two
  uint64_t timed_out = 0;              // by the router: no response in the method's time
  uint64_t busy = 0;                   // by the router: the system is busy
  uint64_t closed = 0;                 // the connection was closed without an answer
  uint64_t lost = 0;                   // nothing came in time, or not all of an answer
  uint64_t mixed_up = 0;               // somebody else's answer came
  uint64_t not_connected = 0;

  Latencies latencies;  // of whatever was answered, errors included
  Seconds took{0};

  [[nodiscard]] uint64_t outcomes() const;
  // Each request has one outcome, and none was lost or mixed up.
  [[nodiscard]] bool is_sound() const;
  // Latencies in milliseconds.
  [[nodiscard]] Json json() const;
};

struct Percentile {
  const char* name;
  double percent;
};
inline constexpr Percentile percentiles[] = {{"p50", 50}, {"p90", 90}, {"p99", 99}, {"p99.9", 99.9}};

// Whether to go on; asked some ten times a second.
using Progress = std::function<bool(const Ledger&)>;

// Runs the load on the calling thread, one connection for each request, as many at once as there are clients. Each
// request has a "transaction_id" of its own, which its answer must carry. A client that could not connect rests for a
// moment. Throws Failure only where the system has no
// descriptors for it.
Ledger run_load(const Load& load, const Progress& progress);

// Enters the outcome of a request that ended with these bytes, as if it had been one of the load's.
void enter_answer(Ledger& ledger, const std::string& method, int64_t number, const std::string& answer);

}  // namespace kestro::ctl

#endif
