// The VLAN on which the unit is managed.
#ifndef KESTRO_CONFIGD_MGMT_VLAN_HPP
#define KESTRO_CONFIGD_MGMT_VLAN_HPP

#include <cstdint>

#include "configd/database.hpp"
#include "configd/handles.hpp"

namespace kestro::configd {

// 0 until it is set.
int32_t mgmt_vlan(const Database& database);
void store_mgmt_vlan(const Database& database, int32_t vlan_id);

// Throws when no port of the unit carries the stored management VLAN: the unit could not be reached any more.
void require_mgmt_vlan_on_a_port(const Database& database);

// The parameters of emac.service.CoreSwitchConfigure.
Json mgmt_vlan_for_hardware(int32_t vlan_id);

}  // namespace kestro::configd

#endif
