// Callers on sd-bus: each connects, calls one method, takes the answer, and begins anew.
// Usage: sdbus_load ADDRESS CLIENTS SECONDS

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "tally.hpp"

namespace {

using kestro::bench::Tally;

class Load {
 public:
  Load(const char* address, size_t clients, double seconds) : address_(address), callers_(clients), tally_(seconds) {
    sd_event_default(&event_);
  }

  void run() {
    for (auto& caller : callers_) begin(caller);
    while (open_ > 0 && !tally_.gave_up()) {
      sd_event_run(event_, 100'000);
      for (Caller* const caller : done_) {
        sd_bus_close_unref(caller->bus);
        --open_;
        if (tally_.goes_on()) begin(*caller);
      }
      done_.clear();
    }
    tally_.lost(open_);
    tally_.report();
  }

 private:
  struct Caller {
    Load* load = nullptr;
    sd_bus* bus = nullptr;
    Tally::Clock::time_point begun;
  };

  void begin(Caller& caller) {
    caller.load = this;
    caller.begun = Tally::Clock::now();
    const bool called = sd_bus_new(&caller.bus) >= 0 && sd_bus_set_address(caller.bus, address_) >= 0 &&
                        sd_bus_set_bus_client(caller.bus, 1) >= 0 && sd_bus_start(caller.bus) >= 0 &&
                        sd_bus_attach_event(caller.bus, event_, 0) >= 0 &&
                        sd_bus_call_method_async(caller.bus, nullptr, "test.Ports", "/ports", "test.Ports", "Get", take,
                                                 &caller, "s", "c1-1") >= 0;
    if (!called) exit(1);
    ++open_;
  }

  static int take(sd_bus_message* answer, void* userdata, sd_bus_error* /*error*/) {
    auto* const caller = static_cast<Caller*>(userdata);
    const char* port = nullptr;
    if (sd_bus_message_is_method_error(answer, nullptr) == 0 && sd_bus_message_read(answer, "s", &port) > 0) {
      caller->load->tally_.answered(caller->begun);
    } else {
      caller->load->tally_.lost();
    }
    caller->load->done_.push_back(caller);
    return 0;
  }

  const char* address_;
  sd_event* event_ = nullptr;
  std::vector<Caller> callers_;
  std::vector<Caller*> done_;
  Tally tally_;
  size_t open_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  Load(argv[1], strtoul(argv[2], nullptr, 10), strtod(argv[3], nullptr)).run();
}
