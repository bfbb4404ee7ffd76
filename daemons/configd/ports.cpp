// The methods about ports.
#include <numeric>
#include <string>

#include "common/log.hpp"
#include "configd/handlers.hpp"
#include "configd/mgmt_vlan.hpp"
#include "configd/port.hpp"
#include "kestro_data.h"

namespace kestro::configd {

namespace {

void require_switch(const Database& database, int32_t number) {
  if (database.number(0, "SELECT count(*) FROM edge_switch WHERE number = ?1", number) == 0) {
    throw Failure(status::no_such_switch, "there is no edge switch " + name_of_switch(number));
  }
}

Port require_port(const Database& database, const PortId& id) {
  require_switch(database, id.switch_number);
  return load_port(database, id);
}

// Stores and applies. `what` is for the log.
Json change(Context& context, const PortId& id, const std::string& what, const std::function<void()>& write) {
  require_port(context.database, id);
  Json answer;  // nothing is stored that cannot be answered
  const auto write_and_answer = [&] {
    write();
    answer = for_client(load_port(context.database, id));
  };
  context.applier.change(id.switch_number, write_and_answer, [&] {
    std::vector<CoreSwitch::Call> calls;
    calls.push_back({configure_method, for_hardware(id.switch_number, {load_port(context.database, id)})});
    return calls;
  });
  daemons::log_info(text_of(id) + ": " + what);
  return answer;
}

Json change_vlans(Context& context, const PortId& id, kestro_data_port_vlan_mode mode,
                  const std::vector<int32_t>& vlans) {
  std::string what = kestro_data_port_vlan_mode_enum_str[mode];
  for (const int32_t vlan : vlans) what += " " + std::to_string(vlan);
  return change(context, id, "VLANs are now " + what, [&] {
    store_vlans(context.database, id, mode, vlans);
    if (id.switch_number == KESTRO_DATA_OEC_NUMBER_HEAD_END) require_mgmt_vlan_on_a_port(context.database);
  });
}

// How many filters the model takes on one port, and on all of them.
void require_room_for_filters(const Database& database, const Port& port, size_t count) {
  if (kestro_data_oec_supports_mac_limiting[port.model] == 0) {
    throw Failure(status::no_mac_filters, name_of_switch(port.id.switch_number) + " takes no MAC filters");
  }
  const auto per_port = static_cast<size_t>(kestro_data_oec_max_acl_per_port[port.model]);
  const auto total = static_cast<size_t>(kestro_data_oec_max_acl_total[port.model]);
  const auto elsewhere = static_cast<size_t>(
      database.number(0, "SELECT count(*) FROM mac_filter WHERE switch_number = ?1 AND port_number <> ?2",
                      port.id.switch_number, port.id.port_number));
  if (count > per_port || count + elsewhere > total) {
    throw Failure(status::too_many_entries, "the model takes " + std::to_string(per_port) +
                                                " MAC filters on a port and " + std::to_string(total) +
                                                " in all; other ports have " + std::to_string(elsewhere));
  }
}

void require_no_repetition(const std::vector<MacFilter>& filters) {
  for (size_t i = 0; i < filters.size(); ++i) {
    for (size_t j = 0; j < i; ++j) {
      if (filters[i].mac == filters[j].mac && filters[i].mask == filters[j].mask) {
        throw Failure(status::not_unique, "MAC filter " + filters[i].mac + " is given twice");
      }
    }
  }
}

// [{"port_number", "milliwatts"}] of one switch with the identifiers of the ports
Json with_port_ids(int32_t switch_number, const json_t* readings) {
  if (!json_is_array(readings)) throw Failure(status::hardware_failed, "the hardware's answer has no readings");
  Json list(json_array());
  for (size_t i = 0; i < json_array_size(readings); ++i) {
    const json_t* const reading = json_array_get(readings, i);
    const auto port = static_cast<int32_t>(json_integer_value(json_object_get(reading, "port_number")));
    json_array_append_new(list.get(), json_pack("{s:s,s:O?}", "port_id", text_of(PortId{switch_number, port}).c_str(),
                                                "milliwatts", json_object_get(reading, "milliwatts")));
  }
  return list;
}

}  // namespace

Json ports_get(Context& context, const Request& request) {
  const PortRange range = request.ports("port_id");
  if (range.switch_number != 0) require_switch(context.database, range.switch_number);
  if (range.port_number != 0) load_port(context.database, {range.switch_number, range.port_number});
  return for_client(load_ports(context.database, range));
}

Json ports_set_enabled(Context& context, const Request& request) {
  const PortId port = request.port("port_id");
  const bool enabled = request.boolean("enabled");
  return change(context, port, enabled ? "enabled" : "disabled",
                [&] { store_enabled(context.database, port, enabled); });
}

// Nothing that the hardware holds.
Json ports_set_description(Context& context, const Request& request) {
  const PortId port = request.port("port_id");
  const std::string description = request.description("description");
  require_port(context.database, port);
  Transaction transaction(context.database);
  store_description(context.database, port, description);
  Json answer = for_client(load_port(context.database, port));
  transaction.commit();
  daemons::log_info(text_of(port) + ": description is now \"" + description + "\"");
  return answer;
}

Json ports_set_vlan_local(Context& context, const Request& request) {
  return change_vlans(context, request.port("port_id"), KESTRO_DATA_PORT_VLAN_MODE_LOCAL, {});
}

Json ports_set_vlan_access(Context& context, const Request& request) {
  const PortId port = request.port("port_id");
  return change_vlans(context, port, KESTRO_DATA_PORT_VLAN_MODE_ACCESS, {request.vlan_id("vlan_id")});
}

Json ports_set_vlan_trunk(Context& context, const Request& request) {
  const PortId port = request.port("port_id");
  return change_vlans(context, port, KESTRO_DATA_PORT_VLAN_MODE_TRUNK, request.vlan_ids("vlan_ids"));
}

Json ports_set_mac_filters(Context& context, const Request& request) {
  const PortId id = request.port("port_id");
  const std::vector<MacFilter> filters = request.mac_filters("mac_filters", id);
  require_room_for_filters(context.database, require_port(context.database, id), filters.size());
  require_no_repetition(filters);
  return change(context, id, "admits " + (filters.empty() ? "all" : std::to_string(filters.size())) + " MAC addresses",
                [&] { store_mac_filters(context.database, id, filters); });
}

Json ports_poe_get_instant_power(Context& context, const Request& request) {
  const PortRange range = request.ports_of_one_switch("port_id");
  require_switch(context.database, range.switch_number);
  if (range.port_number != 0) load_port(context.database, {range.switch_number, range.port_number});
  const std::vector<Port> ports = load_ports(context.database, range);
  Json numbers(json_array());
  for (const auto& port : ports) json_array_append_new(numbers.get(), json_integer(port.id.port_number));
  if (ports.empty() || !supports_poe(ports.front().model)) {
    throw Failure(status::no_poe, name_of_switch(range.switch_number) + " does not support PoE");
  }
  const Json result = context.core_switch.call(
      "emac.service.EdgeSwitchGetPoePower",
      Json(json_pack("{s:i,s:o}", "oec_number", range.switch_number, "port_numbers", numbers.release())));
  return with_port_ids(range.switch_number, json_object_get(result.get(), "poe_power"));
}

}  // namespace kestro::configd
