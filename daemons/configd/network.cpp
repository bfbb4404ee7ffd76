// The network of the unit itself, and what the service says of itself.
#include <string>

#include "common/log.hpp"
#include "configd/handlers.hpp"
#include "configd/mgmt_vlan.hpp"
#include "kestro_data.h"
#include "kestro_lsyslog.h"

namespace kestro::configd {

Json network_apply_mgmt_vlan(Context& context, const Request& request) {
  const int32_t vlan = request.vlan_id("vlan_id");
  const auto write = [&] {
    store_mgmt_vlan(context.database, vlan);
    require_mgmt_vlan_on_a_port(context.database);
  };
  context.applier.change(KESTRO_DATA_OEC_NUMBER_HEAD_END, write, [&] {
    std::vector<CoreSwitch::Call> calls;
    calls.push_back({configure_method, mgmt_vlan_for_hardware(vlan)});
    return calls;
  });
  daemons::log_info("the unit: management VLAN is now " + std::to_string(vlan));
  return nullptr;
}

Json logger_reload_conf(Context& context, const Request& /*request*/) {
  kestro_lsyslog_reload_conf();
  context.tell_others_to_reload();
  return nullptr;
}

Json discover(Context& context, const Request& /*request*/) {
  return context.describe();
}

}  // namespace kestro::configd
