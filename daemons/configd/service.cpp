#include "configd/service.hpp"

#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

#include "common/log.hpp"
#include "configd/methods.hpp"
#include "configd/port.hpp"
#include "kestro_jrpc.h"
#include "kestro_mq.h"
#include "kestro_utils.h"

namespace kestro::configd {

namespace {

// A burst of frames must not keep the service from its other descriptors.
constexpr int frames_at_a_time = 32;
constexpr int32_t nothing_there = -46;
// The first time soon: what a killed process left pending is waiting.
constexpr double first_tick_s = 0.1;
constexpr double tick_s = 1;
constexpr const char* reload = R"({"jsonrpc":"2.0","method":"logger.ReloadConf"})";

CoreSwitch::Clock::duration clock_duration(std::chrono::duration<double> seconds) {
  return std::chrono::duration_cast<CoreSwitch::Clock::duration>(seconds);
}

// Nothing that fails here may end the service.
template <class Work>
void survive(const char* what, Work&& work) {
  try {
    work();
  } catch (const std::exception& exception) {
    daemons::log_error(std::string(what) + ": " + exception.what());
  }
}

Json next_event(int32_t socket) {
  char* raw = nullptr;
  int32_t length = 0;
  if (kestro_mq_socket_recv(socket, &raw, &length, 1) != status::ok) return nullptr;
  const Allocated<char> frame(raw);
  char* raw_text = nullptr;
  kestro_jrpc_parse_msg(frame.get(), length, &raw_text);
  const Allocated<char> text(raw_text);
  Json event(text != nullptr ? json_loads(text.get(), JSON_REJECT_DUPLICATES, nullptr) : nullptr);
  return event != nullptr ? std::move(event) : Json(json_object());  // something was there
}

// Not needed before the first backup is asked for, which may be the moment when it is too late to find out.
void warn_of_missing_directory(const std::string& update_dir) {
  std::error_code not_there;
  if (std::filesystem::is_directory(update_dir, not_there)) return;
  daemons::log_warning("there is no directory " + update_dir + ": no backup can be written or applied");
}

// The switch that came back; 0 for any other event.
int32_t switch_that_is_back(const json_t* event) {
  const char* method = nullptr;
  const char* oec_id = nullptr;
  if (json_unpack(const_cast<json_t*>(event), "{s:s,s:{s:s}}", "method", &method, "params", "oec_id", &oec_id) != 0) {
    return 0;
  }
  int32_t number = 0;
  int32_t no_port = 0;
  if (kestro_parse_oec_port_id(&number, &no_port, oec_id) != status::ok) return 0;
  if (std::string(method) == "events.EdgeSwitchOffline") daemons::log_warning(name_of_switch(number) + " is offline");
  return std::string(method) == "events.EdgeSwitchOnline" ? number : 0;
}

}  // namespace

Service::Service(daemons::Loop& loop, const Options& options)
    : loop_(loop),
      database_(options.database),
      publisher_(daemons::open_publisher(options.bus.publish)),
      requests_(daemons::open_subscriber(options.bus.subscribe, KESTRO_JRPC_CHANNEL_3A6F8F51)),
      events_(daemons::open_subscriber(options.bus.subscribe, KESTRO_JRPC_CHANNEL_505A5451)),
      core_switch_(publisher_.get(), options.bus.subscribe, clock_duration(options.hardware_timeout),
                   [&loop] { return loop.stopping(); }),
      applier_(database_, core_switch_),
      methods_(methods()),
      context_{.database = database_,
               .core_switch = core_switch_,
               .applier = applier_,
               .update_dir = options.update_dir,
               .describe = [this] { return Json(methods_.describe()); },
               .tell_others_to_reload =
                   [this] {
                     int32_t publisher = publisher_.get();
                     kestro_jrpc_mq_pub(&publisher, KESTRO_JRPC_CHANNEL_DEFAULT, reload);
                   }} {
  timer_.set(first_tick_s, tick_s);
  serve_with(&context_);
}

Service::~Service() {
  serve_with(nullptr);
}

void Service::run() {
  loop_.watch(daemons::receive_descriptor(requests_.get()), [this] { serve_requests(); });
  loop_.watch(daemons::receive_descriptor(events_.get()), [this] { serve_events(); });
  loop_.watch(core_switch_.descriptor(), [this] { take_signs_of_life(); });
  loop_.watch(timer_.descriptor(), [this] { tick(); });
  daemons::log_info(
      "ready: " + std::to_string(database_.number(0, "SELECT count(*) FROM edge_switch WHERE number <= 512")) +
      " edge switches in " + database_.path());
  warn_of_missing_directory(context_.update_dir);
  loop_.run();
  daemons::log_info("stopped");
}

void Service::serve_requests() {
  int32_t in = requests_.get();
  int32_t out = publisher_.get();
  for (int served = 0; served < frames_at_a_time && !loop_.stopping(); ++served) {
    if (kestro_jrpc_mq_run(&in, &out, methods_.table(), 1) == nothing_there) return;
  }
}

void Service::serve_events() {
  survive("events", [this] {
    for (int taken = 0; taken < frames_at_a_time; ++taken) {
      const Json event = next_event(events_.get());
      if (event == nullptr) return;
      take_event(event.get());
    }
  });
}

void Service::take_event(const json_t* event) {
  const int32_t number = switch_that_is_back(event);
  if (number == 0) return;
  daemons::log_info(name_of_switch(number) + " is online");
  applier_.is_back(number);
  applier_.repair();
}

void Service::take_signs_of_life() {
  survive("answers of the hardware", [this] {
    if (core_switch_.take_sign_of_life()) applier_.repair();
  });
}

void Service::tick() {
  if (!timer_.take()) return;
  survive("once a second", [this] { applier_.tick(); });
}

}  // namespace kestro::configd
