#include "configd/mgmt_vlan.hpp"

#include <string>

#include "kestro_data.h"

namespace kestro::configd {

int32_t mgmt_vlan(const Database& database) {
  return database.number(0, "SELECT value FROM setting WHERE name = 'mgmt_vlan_id'");
}

void store_mgmt_vlan(const Database& database, int32_t vlan_id) {
  database.write("UPDATE setting SET value = ?1 WHERE name = 'mgmt_vlan_id'", vlan_id);
}

void require_mgmt_vlan_on_a_port(const Database& database) {
  const int32_t vlan = mgmt_vlan(database);
  if (vlan == 0) return;
  const bool carried = database.number(0, "SELECT count(*) FROM port_vlan WHERE switch_number = ?1 AND vlan_id = ?2",
                                       KESTRO_DATA_OEC_NUMBER_HEAD_END, vlan) != 0;
  if (!carried) {
    throw Failure(status::mgmt_vlan_on_no_port, "management VLAN " + std::to_string(vlan) + " would be on no D port");
  }
}

Json mgmt_vlan_for_hardware(int32_t vlan_id) {
  Json params(
      json_pack("{s:i,s:[],s:i}", "oec_number", KESTRO_DATA_OEC_NUMBER_HEAD_END, "ports", "mgmt_vlan_id", vlan_id));
  if (!params) throw Failure(status::answer_not_formed);
  return params;
}

}  // namespace kestro::configd
