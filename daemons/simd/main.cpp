// kestro-simd: the hardware of a unit, simulated.

#include <cstdio>
#include <exception>

#include "common/bus_sockets.hpp"
#include "common/last_resort.hpp"
#include "common/log.hpp"
#include "common/loop.hpp"
#include "common/timer.hpp"
#include "kestro_lsyslog.h"
#include "simd/events.hpp"
#include "simd/gate.hpp"
#include "simd/options.hpp"
#include "simd/outages.hpp"
#include "simd/service.hpp"

namespace {

using namespace kestro;
using namespace kestro::simd;

void run(const Options& options) {
  daemons::Loop loop;
  const daemons::BusSocket publisher(daemons::open_publisher(options.bus.publish));
  const daemons::BusSocket subscriber(daemons::open_subscriber(options.bus.subscribe, KESTRO_JRPC_CHANNEL_DEFAULT));

  Hardware hardware(options.seed);
  Faults faults;
  for (const auto& fault : options.faults) faults.set(fault);
  faults.on_change([&](int32_t oec_number, bool online) { publish_transition(publisher.get(), oec_number, online); });
  Service service(hardware, faults);
  Gate gate(subscriber.get(), publisher.get(), service.methods().table(), faults);
  loop.watch(gate.frames_descriptor(), [&] { gate.take_frames(); });
  loop.watch(gate.due_descriptor(), [&] { gate.release_due(); });

  Outages outages(options.seed, faults);
  const daemons::Timer turns;
  if (options.event_interval > 0) turns.set(options.event_interval, options.event_interval);
  loop.watch(turns.descriptor(), [&] {
    if (turns.take()) outages.take_turn();
  });

  daemons::log_info("ready: seed " + std::to_string(options.seed) + ", publishing at " + options.bus.publish);
  loop.run();
}

}  // namespace

int main(int argc, char** argv) {
  daemons::end_on_stray_exceptions("kestro-simd");
  daemons::end_without_json_memory("kestro-simd");
  try {
    const auto options = read_options(argc, argv);
    kestro_lsyslog_init("simd");
    run(options);
  } catch (const std::exception& failure) {
    fprintf(stderr, "kestro-simd: %s\n", failure.what());
    return 1;
  }
  return 0;
}
