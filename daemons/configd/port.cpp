#include "configd/port.hpp"

#include <algorithm>
#include <limits>

#include "kestro_data.h"
#include "kestro_jrpc_utils.h"
#include "kestro_utils.h"

namespace kestro::configd {

namespace {

// Ranges, so that the keys of the tables are of use.
constexpr const char* selected = " WHERE switch_number BETWEEN ?1 AND ?2 AND port_number BETWEEN ?3 AND ?4";

Statement query(const Database& database, const std::string& sql, const PortRange& range) {
  const auto last = [](int32_t number) { return number != 0 ? number : std::numeric_limits<int32_t>::max(); };
  Statement statement = database.prepare(sql.c_str());
  statement.bind(range.switch_number, last(range.switch_number), range.port_number, last(range.port_number));
  return statement;
}

std::vector<Port> load_records(const Database& database, const PortRange& range) {
  Statement rows = query(database,
                         std::string("SELECT switch_number, port_number, model, enabled, port.description, vlan_mode"
                                     " FROM port JOIN edge_switch ON number = switch_number") +
                             selected + " ORDER BY switch_number, port_number",
                         range);
  std::vector<Port> ports;
  while (rows.step()) {
    ports.push_back({.id = {rows.integer(0), rows.integer(1)},
                     .model = rows.integer(2),
                     .enabled = rows.integer(3) != 0,
                     .description = rows.text(4),
                     .vlan_mode = rows.integer(5),
                     .vlan_ids = {},
                     .mac_filters = {}});
  }
  return ports;
}

// Calls `take` with each row of a list and the port that it belongs to. The ports are in order; all lists are of ports
// that are there.
template <class Take>
void load_lists(const Database& database, const char* table, const PortRange& range, std::vector<Port>& ports,
                Take&& take) {
  Statement rows =
      query(database,
            std::string("SELECT * FROM ") + table + selected + " ORDER BY switch_number, port_number, position", range);
  while (rows.step()) {
    const PortId id{rows.integer(0), rows.integer(1)};
    const auto port = std::ranges::lower_bound(ports, id, {}, &Port::id);
    if (port != ports.end() && port->id == id) take(*port, rows);
  }
}

Json encode(const std::vector<MacFilter>& filters) {
  Json list(json_array());
  for (const auto& filter : filters) {
    json_array_append_new(list.get(), json_pack("{s:s,s:s}", "mac", filter.mac.c_str(), "mask", filter.mask.c_str()));
  }
  return list;
}

json_t* encode(const std::vector<int32_t>& vlan_ids) {
  return kestro_jrpc_utils_populate_vid_array(vlan_ids.data(), static_cast<int32_t>(vlan_ids.size()));
}

// What is observed and not configured is "unknown".
json_t* record_for_hardware(const Port& port) {
  const int32_t poe =
      supports_poe(port.model) ? KESTRO_DATA_PORT_POE_STATUS_ENABLED : KESTRO_DATA_PORT_POE_STATUS_UNSUPPORTED;
  return json_pack("{s:i,s:i,s:i,s:i,s:i,s:i,s:o,s:o}", "port_number", port.id.port_number, "port_status",
                   port.enabled ? KESTRO_DATA_PORT_STATUS_ENABLED : KESTRO_DATA_PORT_STATUS_DISABLED, "poe_status", poe,
                   "link_status", KESTRO_DATA_PORT_LINK_STATUS_UNKNOWN, "link_speed",
                   KESTRO_DATA_PORT_LINK_SPEED_UNKNOWN, "vlan_mode", port.vlan_mode, "vlan_ids", encode(port.vlan_ids),
                   "mac_filters", encode(port.mac_filters).release());
}

template <class Encode>
Json encode_all(const std::vector<Port>& ports, Encode&& encode_one) {
  Json list(json_array());
  for (const auto& port : ports) {
    if (json_array_append_new(list.get(), encode_one(port)) != 0) throw Failure(status::answer_not_formed);
  }
  return list;
}

}  // namespace

std::string text_of(const PortId& port) {
  char text[16];
  kestro_create_port_id_str(text, sizeof text, port.switch_number, port.port_number);
  return text;
}

std::string name_of_switch(int32_t number) {
  if (number == KESTRO_DATA_OEC_NUMBER_HEAD_END) return "the unit";
  char text[16];
  kestro_create_oec_id_str(text, sizeof text, number);
  return text;
}

bool supports_poe(int32_t model) {
  constexpr int32_t models[] = {
      KESTRO_DATA_OEC_MODEL_VTR_E20P,   KESTRO_DATA_OEC_MODEL_VTR_E30P,    KESTRO_DATA_OEC_MODEL_VTR_E63P,
      KESTRO_DATA_OEC_MODEL_VTR_E53P,   KESTRO_DATA_OEC_MODEL_VTR_E3301PI, KESTRO_DATA_OEC_MODEL_VTR_E73P,
      KESTRO_DATA_OEC_MODEL_VTR_E3310P, KESTRO_DATA_OEC_MODEL_VTR_R6640XP, KESTRO_DATA_OEC_MODEL_VTR_D3340GP,
  };
  return std::ranges::find(models, model) != std::end(models);
}

std::vector<Port> load_ports(const Database& database, const PortRange& range) {
  std::vector<Port> ports = load_records(database, range);
  load_lists(database, "port_vlan", range, ports,
             [](Port& port, const Statement& row) { port.vlan_ids.push_back(row.integer(3)); });
  load_lists(database, "mac_filter", range, ports, [](Port& port, const Statement& row) {
    port.mac_filters.push_back({row.text(3), row.text(4)});
  });
  return ports;
}

Port load_port(const Database& database, const PortId& id) {
  std::vector<Port> ports = load_ports(database, {id.switch_number, id.port_number});
  if (ports.empty() || id.port_number == 0) throw Failure(status::no_such_port, "there is no port " + text_of(id));
  return ports.front();
}

void store_enabled(const Database& database, const PortId& port, bool enabled) {
  database.write("UPDATE port SET enabled = ?1 WHERE switch_number = ?2 AND port_number = ?3", enabled,
                 port.switch_number, port.port_number);
}

void store_description(const Database& database, const PortId& port, const std::string& description) {
  database.write("UPDATE port SET description = ?1 WHERE switch_number = ?2 AND port_number = ?3", description,
                 port.switch_number, port.port_number);
}

void store_vlans(const Database& database, const PortId& port, int32_t mode, const std::vector<int32_t>& vlan_ids) {
  database.write("UPDATE port SET vlan_mode = ?1 WHERE switch_number = ?2 AND port_number = ?3", mode,
                 port.switch_number, port.port_number);
  database.write("DELETE FROM port_vlan WHERE switch_number = ?1 AND port_number = ?2", port.switch_number,
                 port.port_number);
  Statement insert = database.prepare("INSERT INTO port_vlan VALUES (?1, ?2, ?3, ?4)");
  for (size_t i = 0; i < vlan_ids.size(); ++i) {
    insert.bind(port.switch_number, port.port_number, static_cast<int64_t>(i), vlan_ids[i]).run();
  }
}

void store_mac_filters(const Database& database, const PortId& port, const std::vector<MacFilter>& filters) {
  database.write("DELETE FROM mac_filter WHERE switch_number = ?1 AND port_number = ?2", port.switch_number,
                 port.port_number);
  Statement insert = database.prepare("INSERT INTO mac_filter VALUES (?1, ?2, ?3, ?4, ?5)");
  for (size_t i = 0; i < filters.size(); ++i) {
    insert.bind(port.switch_number, port.port_number, static_cast<int64_t>(i), filters[i].mac, filters[i].mask).run();
  }
}

Json for_client(const Port& port) {
  Json object(json_pack("{s:s,s:b,s:s,s:s,s:o,s:b,s:o}", "port_id", text_of(port.id).c_str(), "enabled", port.enabled,
                        "description", port.description.c_str(), "vlan_mode",
                        kestro_data_port_vlan_mode_enum_str[port.vlan_mode], "vlan_ids", encode(port.vlan_ids), "poe",
                        supports_poe(port.model), "mac_filters", encode(port.mac_filters).release()));
  if (!object) throw Failure(status::answer_not_formed);
  return object;
}

Json for_client(const std::vector<Port>& ports) {
  return encode_all(ports, [](const Port& port) { return for_client(port).release(); });
}

Json for_hardware(int32_t switch_number, const std::vector<Port>& ports) {
  Json params(
      json_pack("{s:i,s:o}", "oec_number", switch_number, "ports", encode_all(ports, record_for_hardware).release()));
  if (!params) throw Failure(status::answer_not_formed);
  return params;
}

}  // namespace kestro::configd
