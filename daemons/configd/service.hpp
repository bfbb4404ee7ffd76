// kestro-configd at work: what it watches and serves.
#ifndef KESTRO_CONFIGD_SERVICE_HPP
#define KESTRO_CONFIGD_SERVICE_HPP

#include "common/bus_sockets.hpp"
#include "common/loop.hpp"
#include "common/methods.hpp"
#include "common/timer.hpp"
#include "configd/applier.hpp"
#include "configd/context.hpp"
#include "configd/core_switch.hpp"
#include "configd/database.hpp"
#include "configd/options.hpp"

namespace kestro::configd {

// One thread does everything. While it waits for the hardware, requests wait on the bus.
class Service {
 public:
  // Throws std::runtime_error when a socket or the database cannot be opened. There is one at a time.
  Service(daemons::Loop& loop, const Options& options);
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  ~Service();

  // Until the loop's end is asked for. No failure ends it.
  void run();

 private:
  void serve_requests();
  void serve_events();
  void take_event(const json_t* event);
  void take_signs_of_life();
  void tick();

  daemons::Loop& loop_;
  Database database_;
  daemons::BusSocket publisher_;
  daemons::BusSocket requests_;
  daemons::BusSocket events_;
  CoreSwitch core_switch_;
  Applier applier_;
  daemons::Methods methods_;
  daemons::Timer timer_;
  Context context_;
};

}  // namespace kestro::configd

#endif
