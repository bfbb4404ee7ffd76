#include "simd/service.hpp"

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "common/handles.hpp"
#include "common/log.hpp"
#include "kestro_jrpc_utils.h"
#include "kestro_lsyslog.h"
#include "kestro_utils.h"
#include "kestro_validation.h"

namespace kestro::simd {

namespace {

// Numbers and texts: kestro_error.h.
constexpr int32_t ok = 0;
constexpr int32_t edge_switch_offline = -8;
constexpr int32_t wrong_type = -31;
constexpr int32_t refused = -34;
constexpr int32_t no_such_port = -47;
constexpr int32_t unit_offline = -74;

constexpr int32_t most_edge_switches = 512;
constexpr int32_t most_ports = 64;
constexpr int32_t head_end_ports = 8;

// The service that runs: handlers are plain functions.
Service* serving = nullptr;

// The first explanation stays: it is the one of the reader that knows best.
int32_t explain(json_t** err_data, int32_t status, const std::string& why) {
  if (*err_data == nullptr) *err_data = kestro_jrpc_utils_simple_error_obj(why.c_str());
  return status;
}

std::string oec_id_of(int32_t oec_number) {
  std::array<char, 16> id{};
  kestro_create_oec_id_str(id.data(), id.size(), oec_number);
  return id.data();
}

std::string port_id_of(int32_t oec_number, int32_t port_number) {
  std::array<char, 32> id{};
  kestro_create_port_id_str(id.data(), id.size(), oec_number, port_number);
  return id.data();
}

// ---- What answers a call while something is offline ----

int32_t reach_unit(json_t** err_data) {
  return serving->faults().unit_is_offline() ? explain(err_data, unit_offline, "the unit is offline") : ok;
}

int32_t reach(int32_t oec_number, json_t** err_data) {
  if (const int32_t status = reach_unit(err_data); status != ok) return status;
  if (!serving->faults().is_offline(oec_number)) return ok;
  return explain(err_data, edge_switch_offline, oec_id_of(oec_number) + " is offline");
}

// ---- What requests carry ----

int32_t read_edge_switch(const json_t* params, json_t** err_data, int32_t* oec_number, bool or_head_end) {
  const int32_t status = kestro_jrpc_utils_parse_input_integer(params, err_data, "oec_number", oec_number);
  if (status != ok) return status;
  const bool head_end = or_head_end && *oec_number == KESTRO_DATA_OEC_NUMBER_HEAD_END;
  if (head_end || (*oec_number >= 1 && *oec_number <= most_edge_switches)) return ok;
  return explain(err_data, refused,
                 or_head_end ? "oec_number: 1 to 512 is expected, or 10001 for the unit's own ports"
                             : "oec_number: 1 to 512 is expected");
}

struct Enumeration {
  const char* member;
  int32_t count;
  int32_t (*of)(const kestro_data_port& port);
};
constexpr std::array<Enumeration, 5> enumerations = {{
    {"port_status", KESTRO_DATA_PORT_STATUS_MAX_ENUM_VAL, [](auto& port) -> int32_t { return port.port_status; }},
    {"poe_status", KESTRO_DATA_PORT_POE_STATUS_MAX_ENUM_VAL, [](auto& port) -> int32_t { return port.poe_status; }},
    {"link_status", KESTRO_DATA_PORT_LINK_STATUS_MAX_ENUM_VAL, [](auto& port) -> int32_t { return port.link_status; }},
    {"link_speed", KESTRO_DATA_PORT_LINK_SPEED_MAX_ENUM_VAL, [](auto& port) -> int32_t { return port.link_speed; }},
    {"vlan_mode", KESTRO_DATA_PORT_VLAN_MODE_MAX_ENUM_VAL, [](auto& port) -> int32_t { return port.vlan_mode; }},
}};

int32_t check_number(int32_t oec_number, json_int_t port_number, json_t** err_data) {
  const bool head_end = oec_number == KESTRO_DATA_OEC_NUMBER_HEAD_END;
  if (port_number >= 1 && port_number <= (head_end ? head_end_ports : most_ports)) return ok;
  return explain(err_data, no_such_port, head_end ? "the unit's own ports are 1 to 8" : "ports are 1 to 64");
}

// What the reader of ports lets pass and no hardware would take. Looks at the numbers as they were sent: one that is
// outside of its enumeration must not be read from the record.
int32_t check_port(const json_t* element, int32_t oec_number, json_t** err_data) {
  const json_int_t number = json_integer_value(json_object_get(element, "port_number"));
  if (const int32_t status = check_number(oec_number, number, err_data); status != ok) return status;
  const auto port_number = static_cast<int32_t>(number);
  for (const auto& enumeration : enumerations) {
    const json_int_t value = json_integer_value(json_object_get(element, enumeration.member));
    if (value >= 0 && value < enumeration.count) continue;
    return explain(
        err_data, refused,
        port_id_of(oec_number, port_number) + ": " + enumeration.member + " cannot be " + std::to_string(value));
  }
  return ok;
}

// The filters of one port; a port without the member has none.
int32_t read_filters(json_t* element, json_t** err_data, Port& port) {
  if (json_object_get(element, "mac_filters") == nullptr) return ok;
  kestro_mac_filter* raw = nullptr;
  int32_t count = 0;
  const int32_t status = kestro_jrpc_utils_retrieve_input_mac_filters(element, err_data, "mac_filters", &raw, &count,
                                                                      port.record.oec_number, port.record.port_number);
  if (status != ok) return explain(err_data, status, R"(mac_filters: a list of {"mac", "mask"} is expected)");
  const daemons::Allocated<kestro_mac_filter> filters(raw);
  port.filters.assign(raw, raw + count);
  return ok;
}

int32_t read_records(json_t* params, json_t** err_data, std::vector<kestro_data_port>& records) {
  records.resize(most_ports);
  int32_t count = 0;
  if (json_array_size(json_object_get(params, "ports")) > most_ports) {
    return explain(err_data, refused, "ports: at most 64 are expected");
  }
  const int32_t status =
      kestro_jrpc_utils_retrieve_input_ports(params, err_data, "ports", records.data(), &count, most_ports);
  if (status != ok) return explain(err_data, status, "ports: a member of a port is missing or not acceptable");
  records.resize(static_cast<size_t>(count));
  return ok;
}

int32_t read_ports(json_t* params, json_t** err_data, int32_t oec_number, std::vector<Port>& ports) {
  std::vector<kestro_data_port> records;
  int32_t status = read_records(params, err_data, records);
  for (size_t i = 0; status == ok && i < records.size(); ++i) {
    json_t* const element = json_array_get(json_object_get(params, "ports"), i);
    Port port{records[i], {}};
    port.record.oec_number = oec_number;
    status = check_port(element, oec_number, err_data);
    if (status == ok) status = read_filters(element, err_data, port);
    ports.push_back(std::move(port));
  }
  return status;
}

// 0 where it is not asked for.
int32_t read_mgmt_vlan_id(const json_t* params, json_t** err_data, int32_t* vlan_id) {
  if (json_object_get(params, "mgmt_vlan_id") == nullptr) return ok;
  const int32_t status = kestro_jrpc_utils_retrieve_input_vlan_id(params, err_data, "mgmt_vlan_id", vlan_id);
  return status == ok ? ok : explain(err_data, status, "mgmt_vlan_id: 1 to 4050 is expected");
}

int32_t read_port_numbers(const json_t* params, json_t** err_data, std::vector<int32_t>& numbers) {
  json_t* list = nullptr;
  const int32_t status = kestro_jrpc_utils_parse_input_array(params, err_data, "port_numbers", &list);
  if (status != ok) return status;
  for (size_t i = 0; i < json_array_size(list); ++i) {
    const json_t* const number = json_array_get(list, i);
    if (!json_is_integer(number)) return explain(err_data, wrong_type, "port_numbers: numbers are expected");
    const json_int_t value = json_integer_value(number);
    if (value < 1 || value > most_ports) return explain(err_data, refused, "port_numbers: 1 to 64 is expected");
    numbers.push_back(static_cast<int32_t>(value));
  }
  return ok;
}

int32_t read_port_id(const json_t* params, json_t** err_data, int32_t* oec_number, int32_t* port_number) {
  std::array<char, 16> id{};
  const int32_t status =
      kestro_jrpc_utils_retrieve_input_port_id(params, err_data, "port_id", id.data(), id.size(), 0, 0, 1, 1);
  if (status != ok) return explain(err_data, status, "port_id: a port is expected, like c1-1 or d1");
  kestro_parse_oec_port_id(oec_number, port_number, id.data());
  return check_number(*oec_number, *port_number, err_data);
}

int32_t read_fault_kind(const json_t* params, json_t** err_data, FaultKind& kind) {
  std::array<char, 16> word{};
  const int32_t status = kestro_jrpc_utils_parse_input_string(params, err_data, "fault", word.data(), word.size());
  if (status != ok) return status;
  const auto known = fault_kind(word.data());
  if (!known) return explain(err_data, refused, "fault: offline, silent, late or none is expected");
  kind = *known;
  return ok;
}

int32_t read_oec_id(const json_t* params, json_t** err_data, FaultKind kind, int32_t* oec_number) {
  if (json_object_get(params, "oec_id") == nullptr) return ok;
  if (kind != FaultKind::offline && kind != FaultKind::none) {
    return explain(err_data, refused, "oec_id: the whole unit is silent or late");
  }
  std::array<char, 16> id{};
  int32_t no_port = 0;
  const int32_t status = kestro_jrpc_utils_retrieve_input_oec_id(params, err_data, "oec_id", id.data(), id.size(), 0);
  if (status != ok) return explain(err_data, status, "oec_id: an edge switch is expected, like c3");
  kestro_parse_oec_port_id(oec_number, &no_port, id.data());
  if (*oec_number <= most_edge_switches) return ok;
  return explain(err_data, refused, "oec_id: an edge switch is expected, like c3");
}

int32_t read_delay(const json_t* params, json_t** err_data, FaultKind kind, std::chrono::milliseconds& delay) {
  if (kind != FaultKind::late) return ok;
  int32_t number = 0;
  const int32_t status = kestro_jrpc_utils_parse_input_integer(params, err_data, "milliseconds", &number);
  if (status != ok) return status;
  if (number < 1 || number > longest_delay_ms) {
    return explain(err_data, refused, "milliseconds: 1 to 600000 is expected");
  }
  delay = std::chrono::milliseconds(number);
  return ok;
}

// ---- What answers carry ----

json_t* encode_filters(const Port& port) {
  json_t* const list = json_array();
  for (const auto& filter : port.filters) {
    json_array_append_new(list, json_pack("{s:s,s:s}", "mac", filter.mac, "mask", filter.mask));
  }
  return list;
}

json_t* encode_port(const std::string& port_id, const Port& port) {
  const auto& record = port.record;
  json_t* const object =
      json_pack("{s:s,s:b,s:i}", "port_id", port_id.c_str(), "configured", 1, "port_number", record.port_number);
  for (const auto& enumeration : enumerations) {
    json_object_set_new(object, enumeration.member, json_integer(enumeration.of(record)));
  }
  kestro_jrpc_utils_json_obj_set_vid_array(object, "vlan_ids", record.vlan_id, record.num_of_vlan_ids);
  json_object_set_new(object, "mac_filters", encode_filters(port));
  return object;
}

// ---- Methods ----

int32_t get_temperatures(json_t* /*params*/, json_t** result, json_t** err_data) {
  if (const int32_t status = reach_unit(err_data); status != ok) return status;
  json_t* const list = json_array();
  for (const auto& temperature : serving->hardware().temperatures()) {
    json_array_append_new(list, json_pack("{s:s,s:f}", "sensor", temperature.sensor, "celsius", temperature.celsius));
  }
  *result = json_pack("{s:o}", "temperatures", list);
  return ok;
}

int32_t get_info(json_t* /*params*/, json_t** result, json_t** err_data) {
  if (const int32_t status = reach_unit(err_data); status != ok) return status;
  const auto identity = serving->hardware().identity();
  *result = json_pack("{s:s,s:s,s:s,s:s,s:s}", "model", "VTR-H9", "serial", identity.serial.c_str(), "mac_address",
                      identity.mac_address.c_str(), "sw_version", identity.sw_version.c_str(), "hw_version",
                      identity.hw_version.c_str());
  return ok;
}

// All or nothing: a request of which one port is refused changes none.
int32_t configure(json_t* params, json_t** /*result*/, json_t** err_data) {
  int32_t oec_number = 0;
  int32_t vlan_id = 0;
  std::vector<Port> ports;
  int32_t status = read_edge_switch(params, err_data, &oec_number, true);
  if (status == ok) status = read_ports(params, err_data, oec_number, ports);
  if (status == ok) status = read_mgmt_vlan_id(params, err_data, &vlan_id);
  if (status == ok) status = reach(oec_number, err_data);
  if (status != ok) return status;
  serving->hardware().configure(oec_number, ports);
  if (vlan_id != 0) serving->hardware().set_mgmt_vlan_id(vlan_id);
  return ok;
}

int32_t get_poe_power(json_t* params, json_t** result, json_t** err_data) {
  int32_t oec_number = 0;
  std::vector<int32_t> port_numbers;
  int32_t status = read_edge_switch(params, err_data, &oec_number, false);
  if (status == ok) status = read_port_numbers(params, err_data, port_numbers);
  if (status == ok) status = reach(oec_number, err_data);
  if (status != ok) return status;
  json_t* const list = json_array();
  for (const auto port_number : port_numbers) {
    json_array_append_new(list, json_pack("{s:i,s:I}", "port_number", port_number, "milliwatts",
                                          json_int_t{serving->hardware().poe_milliwatts(oec_number, port_number)}));
  }
  *result = json_pack("{s:o}", "poe_power", list);
  return ok;
}

int32_t get_rssi(json_t* params, json_t** result, json_t** err_data) {
  int32_t olt_id = 0;
  int32_t status = kestro_jrpc_utils_retrieve_input_olt_id(params, err_data, "olt_id", &olt_id);
  if (status != ok) return explain(err_data, status, "olt_id: 0 to 7 is expected");
  if (status = reach_unit(err_data); status != ok) return status;
  json_t* const list = json_array();
  for (const auto& signal : serving->hardware().signals(olt_id)) {
    json_array_append_new(list, json_pack("{s:i,s:f}", "onu_id", signal.onu_id, "dbm", signal.dbm));
  }
  *result = json_pack("{s:o}", "rssi", list);
  return ok;
}

int32_t set_fault(json_t* params, json_t** /*result*/, json_t** err_data) {
  Fault fault;
  int32_t status = read_fault_kind(params, err_data, fault.kind);
  if (status == ok) status = read_oec_id(params, err_data, fault.kind, &fault.oec_number);
  if (status == ok) status = read_delay(params, err_data, fault.kind, fault.delay);
  if (status != ok) return status;
  serving->faults().set(fault);
  daemons::log_info("fault: " + text_of(fault));
  return ok;
}

int32_t get_port(json_t* params, json_t** result, json_t** err_data) {
  int32_t oec_number = 0;
  int32_t port_number = 0;
  const int32_t status = read_port_id(params, err_data, &oec_number, &port_number);
  if (status != ok) return status;
  const auto port_id = port_id_of(oec_number, port_number);
  const Port* const port = serving->hardware().port(oec_number, port_number);
  *result = port != nullptr ? encode_port(port_id, *port)
                            : json_pack("{s:s,s:b}", "port_id", port_id.c_str(), "configured", 0);
  return ok;
}

int32_t get_unit(json_t* /*params*/, json_t** result, json_t** /*err_data*/) {
  json_t* const words = json_array();
  for (const auto& word : serving->faults().words()) kestro_jrpc_utils_append_string_array(words, word.c_str());
  *result = json_pack("{s:i,s:o}", "mgmt_vlan_id", serving->hardware().mgmt_vlan_id(), "faults", words);
  return ok;
}

int32_t discover(json_t* /*params*/, json_t** result, json_t** /*err_data*/) {
  *result = serving->methods().describe();
  return ok;
}

std::vector<daemons::Method> all_methods() {
  using daemons::optional;
  return {
      {"emac.service.CoreSwitchGetTemps", get_temperatures, "Tells the temperatures of the unit, in degrees Celsius."},
      {"emac.service.CoreSwitchGetInfo", get_info, "Tells model, serial number, MAC address and versions of the unit."},
      {"emac.service.CoreSwitchConfigure",
       configure,
       "Sets the state of ports, each in place of its earlier one.",
       {{"oec_number", "integer", "1 to 512 for an edge switch, 10001 for the unit's own ports."},
        {"ports", "array",
         "Objects with port_number, port_status, poe_status, link_status, link_speed, vlan_mode, vlan_ids, and "
         "mac_filters where there are any."},
        {"mgmt_vlan_id", "integer", "The management VLAN, 1 to 4050.", optional}}},
      {"emac.service.EdgeSwitchGetPoePower",
       get_poe_power,
       "Tells what ports of an edge switch deliver, in milliwatts.",
       {{"oec_number", "integer", "1 to 512."}, {"port_numbers", "array", "Numbers from 1 to 64."}}},
      {"omac.service.OltGetMultiRssi",
       get_rssi,
       "Tells the signal of each optical unit on a line, in dBm.",
       {{"olt_id", "integer", "0 to 7."}}},
      {"sim.SetFault",
       set_fault,
       "Makes something fail, or right again.",
       {{"fault", "string", "One of offline, silent, late and none."},
        {"oec_id", "string", "For offline and none: this edge switch only.", optional},
        {"milliseconds", "integer", "For late: the delay of every answer, 1 to 600000.", optional}}},
      {"sim.GetPort",
       get_port,
       "Shows what the hardware holds for a port.",
       {{"port_id", "string", "A port, like c1-1 or d1."}}},
      {"sim.GetUnit", get_unit, "Shows the management VLAN of the hardware, and what is wrong with it."},
      {"rpc.discover", discover, "Describes the methods of this service."},
      {"logger.ReloadConf", kestro_lsyslog_reload_conf_api, "Reads the level of the log anew."},
  };
}

}  // namespace

Service::Service(Hardware& hardware, Faults& faults)
    : hardware_(hardware), faults_(faults), methods_("simd", all_methods()) {
  serving = this;
}

Service::~Service() {
  serving = nullptr;
}

}  // namespace kestro::simd
