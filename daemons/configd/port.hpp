// Ports as they are stored, as clients see them and as the hardware is told.
#ifndef KESTRO_CONFIGD_PORT_HPP
#define KESTRO_CONFIGD_PORT_HPP

#include <compare>
#include <cstdint>
#include <string>
#include <vector>

#include "configd/database.hpp"
#include "configd/handles.hpp"

namespace kestro::configd {

// A port of an edge switch or, with KESTRO_DATA_OEC_NUMBER_HEAD_END for the switch, of the unit itself.
struct PortId {
  int32_t switch_number = 0;
  int32_t port_number = 0;
  auto operator<=>(const PortId&) const = default;
};
// "c1-4", "d5"
std::string text_of(const PortId& port);
// "c1"; "the unit" for the head-end's own number
std::string name_of_switch(int32_t number);

struct MacFilter {
  std::string mac;
  std::string mask;
};

struct Port {
  PortId id;
  int32_t model = 0;  // of its switch
  bool enabled = true;
  std::string description;
  int32_t vlan_mode = 0;
  std::vector<int32_t> vlan_ids;
  std::vector<MacFilter> mac_filters;
};

// Which ports: 0 stands for all.
struct PortRange {
  int32_t switch_number = 0;
  int32_t port_number = 0;
};

// Whether ports of the model feed what is connected to them.
bool supports_poe(int32_t model);

// In the order of their numbers.
std::vector<Port> load_ports(const Database& database, const PortRange& range);
// Throws "no such switch" or "no such port".
Port load_port(const Database& database, const PortId& id);

void store_enabled(const Database& database, const PortId& port, bool enabled);
void store_description(const Database& database, const PortId& port, const std::string& description);
void store_vlans(const Database& database, const PortId& port, int32_t mode, const std::vector<int32_t>& vlan_ids);
void store_mac_filters(const Database& database, const PortId& port, const std::vector<MacFilter>& filters);

// {"port_id", "enabled", "description", "vlan_mode", "vlan_ids", "poe", "mac_filters"}
Json for_client(const Port& port);
Json for_client(const std::vector<Port>& ports);
// The parameters of emac.service.CoreSwitchConfigure: ports of one switch.
Json for_hardware(int32_t switch_number, const std::vector<Port>& ports);

}  // namespace kestro::configd

#endif
