#include "kestro_data.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "cli_mw_port_struct.h"
#include "kestro_omac_data.h"

namespace {

using testing::ElementsAreArray;
using testing::MatchesRegex;

// Whether the enumerators count from 0 in this order: the numbers stand in requests and in databases.
template <auto... Values>
constexpr bool counts_from_zero() {
  int next = 0;
  return ((static_cast<int>(Values) == next++) && ...);
}

static_assert(counts_from_zero<KESTRO_DATA_PORT_STATUS_DISABLED, KESTRO_DATA_PORT_STATUS_ENABLED,
                               KESTRO_DATA_PORT_STATUS_TROUBLED, KESTRO_DATA_PORT_STATUS_MAX_ENUM_VAL>());
static_assert(counts_from_zero<KESTRO_DATA_OEC_STATUS_DISABLED, KESTRO_DATA_OEC_STATUS_ENABLED,
                               KESTRO_DATA_OEC_STATUS_FAILED, KESTRO_DATA_OEC_STATUS_MAX_ENUM_VAL>());
static_assert(counts_from_zero<KESTRO_DATA_PORT_POE_STATUS_UNKNOWN, KESTRO_DATA_PORT_POE_STATUS_DISABLED,
                               KESTRO_DATA_PORT_POE_STATUS_ENABLED, KESTRO_DATA_PORT_POE_STATUS_OEC_OFFLINE,
                               KESTRO_DATA_PORT_POE_STATUS_UNSUPPORTED, KESTRO_DATA_PORT_POE_STATUS_MAX_ENUM_VAL>());
static_assert(counts_from_zero<KESTRO_DATA_PORT_LINK_STATUS_UNKNOWN, KESTRO_DATA_PORT_LINK_STATUS_DOWN,
                               KESTRO_DATA_PORT_LINK_STATUS_UP, KESTRO_DATA_PORT_LINK_STATUS_OEC_OFFLINE,
                               KESTRO_DATA_PORT_LINK_STATUS_MAX_ENUM_VAL>());
static_assert(
    counts_from_zero<KESTRO_DATA_PORT_LINK_SPEED_UNKNOWN, KESTRO_DATA_PORT_LINK_SPEED_OFFLINE,
                     KESTRO_DATA_PORT_LINK_SPEED_DOWN, KESTRO_DATA_PORT_LINK_SPEED_NOT_SUPPORTED,
                     KESTRO_DATA_PORT_LINK_SPEED_10M, KESTRO_DATA_PORT_LINK_SPEED_100M, KESTRO_DATA_PORT_LINK_SPEED_1G,
                     KESTRO_DATA_PORT_LINK_SPEED_10G, KESTRO_DATA_PORT_LINK_SPEED_MAX_ENUM_VAL>());
static_assert(counts_from_zero<KESTRO_DATA_PORT_VLAN_MODE_UNKNOWN, KESTRO_DATA_PORT_VLAN_MODE_LOCAL,
                               KESTRO_DATA_PORT_VLAN_MODE_ACCESS, KESTRO_DATA_PORT_VLAN_MODE_TRUNK,
                               KESTRO_DATA_PORT_VLAN_MODE_TRANSPARENT, KESTRO_DATA_PORT_VLAN_MODE_DISCOVERY,
                               KESTRO_DATA_PORT_VLAN_MODE_SFP, KESTRO_DATA_PORT_VLAN_MODE_MAX_ENUM_VAL>());
static_assert(counts_from_zero<KESTRO_DATA_SECURE_CURRENT, KESTRO_DATA_SECURE_ENABLE, KESTRO_DATA_SECURE_DISABLE,
                               KESTRO_DATA_SECURE_CLEAR, KESTRO_DATA_SECURE_MAX_VALUE>());
static_assert(
    counts_from_zero<KESTRO_DATA_MAC_TYPE_KESTRO, KESTRO_DATA_MAC_TYPE_ENGENIUS, KESTRO_DATA_MAC_TYPE_LANTECH,
                     KESTRO_DATA_MAC_TYPE_ADVANTECH, KESTRO_DATA_MAC_TYPE_OTHER, KESTRO_DATA_MAC_TYPE_MAX_ENUM_VAL>());
static_assert(
    counts_from_zero<
        KESTRO_DATA_OEC_MODEL_UNKNOWN, KESTRO_DATA_OEC_MODEL_VTR_E10, KESTRO_DATA_OEC_MODEL_VTR_E20P,
        KESTRO_DATA_OEC_MODEL_VTR_E20I, KESTRO_DATA_OEC_MODEL_VTR_E200, KESTRO_DATA_OEC_MODEL_VTR_E30P,
        KESTRO_DATA_OEC_MODEL_VTR_E63P, KESTRO_DATA_OEC_MODEL_GENERIC, KESTRO_DATA_OEC_MODEL_VTR_E53P,
        KESTRO_DATA_OEC_MODEL_VTR_E3301PI, KESTRO_DATA_OEC_MODEL_VTR_E73P, KESTRO_DATA_OEC_MODEL_VTR_E2301I,
        KESTRO_DATA_OEC_MODEL_VTR_E3310P, KESTRO_DATA_OEC_MODEL_VTR_E2301I_5, KESTRO_DATA_OEC_MODEL_EKI_7706G,
        KESTRO_DATA_OEC_MODEL_IPES_3408GSFP, KESTRO_DATA_OEC_MODEL_IPES_3416DSFP, KESTRO_DATA_OEC_MODEL_VTR_R6640XP,
        KESTRO_DATA_OEC_MODEL_VTR_D3340GP, KESTRO_DATA_OEC_MODEL_VTR_R6620GT, KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL>());
static_assert(counts_from_zero<MAC_STR, MAC_BYTES>());
static_assert(std::is_same_v<kestro_data_port_poe_status, enum poe_status>);
static_assert(std::is_same_v<kestro_data_port_vlan_mode, enum kestro_vlan_mode>);
static_assert(KESTRO_DATA_OEC_NUMBER_HEAD_END == 10001 && KESTRO_DATA_MAX_VLANS_PER_PORT == 130);

// Slots: one more than there are values, for the null pointer, except where nothing ends the table.
static_assert(std::size(kestro_data_port_status_enum_str) == 4);
static_assert(std::size(kestro_data_oec_status_enum_str) == 4);
static_assert(std::size(kestro_data_port_status_action_enum_str) == 3);
static_assert(std::size(kestro_data_oec_status_action_enum_str) == 3);
static_assert(std::size(kestro_data_port_poe_status_enum_str) == 6);
static_assert(std::size(kestro_data_port_link_status_enum_str) == 5);
static_assert(std::size(kestro_data_port_link_speed_enum_str) == 9);
static_assert(std::size(kestro_data_port_vlan_mode_enum_str) == 8);
static_assert(std::size(kestro_data_oec_model_name_enum_str) == 20);
static_assert(std::size(kestro_data_secure_options_str) == 5);
static_assert(std::size(topology_status_enum_str) == 3);
static_assert(std::size(redundancy_states_strs) == 4);
static_assert(std::size(kestro_counter_strings_fields) == 12);
static_assert(std::size(kestro_data_oec_model_generic_support) == 20);
static_assert(std::size(kestro_data_oec_supports_mac_limiting) == 20);
static_assert(std::size(kestro_data_oec_num_of_ports) == 20);
static_assert(std::size(kestro_data_oec_max_acl_per_port) == 20);
static_assert(std::size(kestro_data_oec_max_acl_total) == 20);
static_assert(std::size(kestro_data_oec_needs_stp_acl_input) == 20);
static_assert(std::size(kestro_data_expected_router_port_for_model) == 20);
static_assert(std::size(kestro_data_model_to_mac_ranges_mapping_tbl) == 5);
static_assert(std::is_same_v<decltype(kestro_data_oec_model_generic_support), const int32_t[20]>);
static_assert(std::is_same_v<decltype(kestro_data_oec_supports_mac_limiting), const int32_t[20]>);
static_assert(std::is_same_v<decltype(kestro_data_oec_num_of_ports), const int32_t[20]>);
static_assert(std::is_same_v<decltype(kestro_data_oec_max_acl_per_port), const int32_t[20]>);
static_assert(std::is_same_v<decltype(kestro_data_oec_max_acl_total), const int32_t[20]>);
static_assert(std::is_same_v<decltype(kestro_data_oec_needs_stp_acl_input), const bool[20]>);
static_assert(std::is_same_v<decltype(kestro_data_expected_router_port_for_model), const int32_t[20]>);

// Records: sizes of texts and order of fields.
template <size_t... Offsets>
constexpr bool ascending() {
  size_t last = 0;
  bool first = true;
  bool result = true;
  for (const size_t offset : {Offsets...}) {
    result = result && (first ? offset == 0 : offset > last);
    first = false;
    last = offset;
  }
  return result;
}

template <class Record, class Type>
Type type_of(Type Record::*);

// Whether all of these fields are of the type.
template <class Type, auto... Fields>
constexpr bool have_type() {
  return (std::is_same_v<decltype(type_of(Fields)), Type> && ...);
}

static_assert(sizeof(mac_str) == 20 && sizeof(ip_str) == 16 && sizeof(error) == 512);
static_assert(sizeof(kestro_data_oec::mac_address) == 20 && sizeof(kestro_data_oec::switch_mac_address) == 20);
static_assert(sizeof(kestro_data_oec::description) == 51 && sizeof(kestro_data_oec::hw_version) == 32);
static_assert(sizeof(kestro_data_oec::sw_version) == 32 && sizeof(kestro_data_oec::ip_addr) == 16);
static_assert(sizeof(kestro_data_oec::alias) == 9 && sizeof(kestro_data_oec::esw_sw_version) == 32);
static_assert(have_type<int32_t, &kestro_data_oec::oec_id, &kestro_data_oec::onu_id, &kestro_data_oec::olt_id,
                        &kestro_data_oec::rtt>());
static_assert(have_type<int8_t, &kestro_data_oec::last_olt, &kestro_data_oec::cfg_pending>());
static_assert(have_type<int64_t, &kestro_data_oec::last_saved, &kestro_data_oec::last_checked,
                        &kestro_data_oec::last_seen, &kestro_data_oec::offline_online_transition_time>());
static_assert(have_type<kestro_data_oec_model_name, &kestro_data_oec::model>());
static_assert(have_type<kestro_data_oec_status, &kestro_data_oec::oec_status, &router_cfg::rtr_status>());
static_assert(
    ascending<offsetof(kestro_data_oec, oec_id), offsetof(kestro_data_oec, model),
              offsetof(kestro_data_oec, oec_status), offsetof(kestro_data_oec, mac_address),
              offsetof(kestro_data_oec, switch_mac_address), offsetof(kestro_data_oec, description),
              offsetof(kestro_data_oec, hw_version), offsetof(kestro_data_oec, sw_version),
              offsetof(kestro_data_oec, ip_addr), offsetof(kestro_data_oec, alias), offsetof(kestro_data_oec, onu_id),
              offsetof(kestro_data_oec, olt_id), offsetof(kestro_data_oec, last_olt), offsetof(kestro_data_oec, rtt),
              offsetof(kestro_data_oec, last_saved), offsetof(kestro_data_oec, cfg_pending),
              offsetof(kestro_data_oec, last_checked), offsetof(kestro_data_oec, last_seen),
              offsetof(kestro_data_oec, offline_online_transition_time), offsetof(kestro_data_oec, esw_sw_version)>());

static_assert(sizeof(kestro_data_port::description) == 51 && std::size(kestro_data_port{}.vlan_id) == 130);
static_assert(ascending<offsetof(kestro_data_port, oec_number), offsetof(kestro_data_port, port_number),
                        offsetof(kestro_data_port, port_status), offsetof(kestro_data_port, poe_status),
                        offsetof(kestro_data_port, link_status), offsetof(kestro_data_port, link_speed),
                        offsetof(kestro_data_port, vlan_mode), offsetof(kestro_data_port, description),
                        offsetof(kestro_data_port, vlan_id), offsetof(kestro_data_port, num_of_vlan_ids),
                        offsetof(kestro_data_port, pair_oec), offsetof(kestro_data_port, pair_port),
                        offsetof(kestro_data_port, filter_enabled), offsetof(kestro_data_port, filter_count)>());

static_assert(sizeof(kestro_onu_port_hardware_info_t) == 4 * sizeof(int32_t));
static_assert(ascending<offsetof(kestro_onu_port_hardware_info_t, port_number),
                        offsetof(kestro_onu_port_hardware_info_t, poe_status),
                        offsetof(kestro_onu_port_hardware_info_t, link_status),
                        offsetof(kestro_onu_port_hardware_info_t, link_speed)>());

static_assert(sizeof(kestro_mac_filter) == 4 + 4 + 20 + 20);
static_assert(offsetof(kestro_mac_filter, oec_num) == 0 && offsetof(kestro_mac_filter, oec_number) == 0);
static_assert(offsetof(kestro_mac_filter, port_num) == 4 && offsetof(kestro_mac_filter, port_number) == 4);
static_assert(offsetof(kestro_mac_filter, mac) == 8 && offsetof(kestro_mac_filter, macaddr_allowed) == 8);
static_assert(offsetof(kestro_mac_filter, mask) == 28 && offsetof(kestro_mac_filter, macaddr_mask) == 28);

static_assert(offsetof(static_lease, ip) == 0 && offsetof(static_lease, mac) == 16);
static_assert(offsetof(address_pool, address_range) == 51 && offsetof(address_pool, dhcp_range) == 102);
static_assert(sizeof(address_pool::dhcp_range) == 51);
static_assert(ascending<offsetof(address_pool, service_name), offsetof(address_pool, static_leases),
                        offsetof(address_pool, n_leases)>());
static_assert(have_type<mac_str*, &port_macs::macs>() && have_type<size_t, &kestro_mac_vector::size>());
static_assert(have_type<int32_t, &port_macs::n_macs, &address_pool::n_leases>());
static_assert(offsetof(port_macs, macs) == 0 && offsetof(port_macs, n_macs) == sizeof(void*));
static_assert(offsetof(kestro_mac_vector, pmacs) == 0 && offsetof(kestro_mac_vector, size) == sizeof(void*));

static_assert(sizeof(router_cfg::sw_version) == 64 && sizeof(router_cfg::credentials) == 64);
static_assert(sizeof(router_cfg::model) == 64 && sizeof(router_cfg::wan_port) == 32);
static_assert(sizeof(router_cfg::nat_outside_ip) == 51 && sizeof(router_cfg::dns_servers) == 100);
static_assert(
    ascending<offsetof(router_cfg, mac_addr), offsetof(router_cfg, sw_version), offsetof(router_cfg, credentials),
              offsetof(router_cfg, model), offsetof(router_cfg, wan_ip), offsetof(router_cfg, asw_port),
              offsetof(router_cfg, wan_port), offsetof(router_cfg, nat_enabled), offsetof(router_cfg, nat_gw),
              offsetof(router_cfg, nat_outside_ip), offsetof(router_cfg, use_peer_dns),
              offsetof(router_cfg, dns_servers), offsetof(router_cfg, last_seen), offsetof(router_cfg, last_configured),
              offsetof(router_cfg, rtr_status), offsetof(router_cfg, custom_other_cmd_last_configured)>());

static_assert(sizeof(cli_mw_vlan_struct::port) == 2000 && sizeof(cli_mw_vlan_struct::oec) == 2000);
static_assert(sizeof(cli_mw_vlan_struct::description) == 51);
static_assert(have_type<int16_t, &cli_mw_vlan_struct::vlan_id, &cli_mw_vlan_struct::num_ports>());
static_assert(std::is_same_v<decltype(cli_mw_vlan_struct::port), int16_t[1000]>);
static_assert(std::is_same_v<decltype(cli_mw_vlan_struct::oec), int16_t[1000]>);
static_assert(ascending<offsetof(cli_mw_vlan_struct, vlan_id), offsetof(cli_mw_vlan_struct, description),
                        offsetof(cli_mw_vlan_struct, port), offsetof(cli_mw_vlan_struct, oec),
                        offsetof(cli_mw_vlan_struct, num_ports)>());

TEST(DataTables, NamesOfTheModels) {
  EXPECT_THAT(kestro_data_oec_model_name_enum_str,
              ElementsAreArray({"unknown",       "VTR-E10",       "VTR-E20p",    "VTR-E20i",    "VTR-E200",
                                "VTR-E30p",      "VTR-E6301p",    "Generic OEC", "VTR-E5301pi", "VTR-E3301pi",
                                "VTR-E7301p",    "VTR-E2301i",    "VTR-E3310p",  "VTR-E2301i*", "EKI-7706G",
                                "IPES-3408GSFP", "IPES-3416DSFP", "VTR-R6640XP", "VTR-D3340GP", "VTR-R6620GT"}));
  const std::string e6301p = kestro_data_oec_model_name_enum_str[KESTRO_DATA_OEC_MODEL_VTR_E63P];
  const std::string starred = kestro_data_oec_model_name_enum_str[KESTRO_DATA_OEC_MODEL_VTR_E2301I_5];
  const std::string last = kestro_data_oec_model_name_enum_str[KESTRO_DATA_OEC_MODEL_VTR_R6620GT];
  EXPECT_EQ(e6301p, "VTR-E6301p");
  EXPECT_EQ(starred, "VTR-E2301i*");
  EXPECT_EQ(last, "VTR-R6620GT");
}

TEST(DataTables, SecureOptions) {
  EXPECT_THAT(std::vector<std::string>(kestro_data_secure_options_str, kestro_data_secure_options_str + 4),
              ElementsAreArray({"current", "enable", "disable", "clear"}));
}

struct Table {
  const char* name;
  const char* const* texts;
  size_t slots;
};

#define TABLE(name)              \
  Table {                        \
#name, name, std::size(name) \
  }

const Table terminated_tables[] = {
    TABLE(kestro_data_port_status_enum_str),
    TABLE(kestro_data_oec_status_enum_str),
    TABLE(kestro_data_port_status_action_enum_str),
    TABLE(kestro_data_oec_status_action_enum_str),
    TABLE(kestro_data_port_poe_status_enum_str),
    TABLE(kestro_data_port_link_status_enum_str),
    TABLE(kestro_data_port_link_speed_enum_str),
    TABLE(kestro_data_port_vlan_mode_enum_str),
    TABLE(kestro_data_secure_options_str),
    TABLE(topology_status_enum_str),
    TABLE(redundancy_states_strs),
};

class TerminatedTable : public testing::TestWithParam<Table> {};

TEST_P(TerminatedTable, EndsInItsLastSlotAndNamesEachValueOnce) {
  const auto& [name, texts, slots] = GetParam();
  ASSERT_EQ(texts[slots - 1], nullptr);
  std::set<std::string> seen;
  for (size_t i = 0; i + 1 < slots; ++i) {
    ASSERT_NE(texts[i], nullptr);
    EXPECT_THAT(texts[i], MatchesRegex("[a-z0-9]+"));
    EXPECT_TRUE(seen.insert(texts[i]).second) << texts[i];
  }
}

INSTANTIATE_TEST_SUITE_P(All, TerminatedTable, testing::ValuesIn(terminated_tables),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(DataTables, VlanModesThatUsersMayAskFor) {
  EXPECT_STREQ(kestro_data_port_vlan_mode_enum_str[KESTRO_DATA_PORT_VLAN_MODE_LOCAL], "local");
  EXPECT_STREQ(kestro_data_port_vlan_mode_enum_str[KESTRO_DATA_PORT_VLAN_MODE_ACCESS], "access");
  EXPECT_STREQ(kestro_data_port_vlan_mode_enum_str[KESTRO_DATA_PORT_VLAN_MODE_TRUNK], "trunk");
  EXPECT_STREQ(kestro_data_port_vlan_mode_enum_str[KESTRO_DATA_PORT_VLAN_MODE_DISCOVERY], "discovery");
}

TEST(DataTables, ActionsLeadToTheStatusOfTheSameNumber) {
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(std::string(kestro_data_port_status_action_enum_str[i]) + "d", kestro_data_port_status_enum_str[i]);
    EXPECT_EQ(std::string(kestro_data_oec_status_action_enum_str[i]) + "d", kestro_data_oec_status_enum_str[i]);
  }
}

TEST(DataTables, CapabilitiesAgreeWithEachOther) {
  for (size_t model = 0; model < KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL; ++model) {
    SCOPED_TRACE(kestro_data_oec_model_name_enum_str[model]);
    const int32_t ports = kestro_data_oec_num_of_ports[model];
    const int32_t per_port = kestro_data_oec_max_acl_per_port[model];
    const int32_t total = kestro_data_oec_max_acl_total[model];
    const bool limits = kestro_data_oec_supports_mac_limiting[model] == 1;
    EXPECT_EQ(ports > 0, model != KESTRO_DATA_OEC_MODEL_UNKNOWN);
    EXPECT_LE(ports, 64);
    EXPECT_EQ(per_port > 0, limits);
    EXPECT_LE(per_port, total);
    EXPECT_LE(total, per_port * ports);
    EXPECT_LE(kestro_data_expected_router_port_for_model[model], ports);
    EXPECT_FALSE(limits && kestro_data_oec_model_generic_support[model] == 1);
    EXPECT_TRUE(limits || !kestro_data_oec_needs_stp_acl_input[model]);
  }
  EXPECT_EQ(kestro_data_oec_model_generic_support[KESTRO_DATA_OEC_MODEL_GENERIC], 1);
}

TEST(DataTables, MacRangesOfTheMakersDoNotMeetAndTheLastRowTakesTheRest) {
  const auto& rows = kestro_data_model_to_mac_ranges_mapping_tbl;
  std::string last;
  for (int32_t row = 0; row < KESTRO_DATA_MAC_TYPE_MAX_ENUM_VAL; ++row) {
    EXPECT_EQ(rows[row].mac_type, row);
    EXPECT_THAT(rows[row].min, MatchesRegex("([0-9A-F]{2}:){5}[0-9A-F]{2}"));
    EXPECT_THAT(rows[row].max, MatchesRegex("([0-9A-F]{2}:){5}[0-9A-F]{2}"));
    if (row == KESTRO_DATA_MAC_TYPE_OTHER) break;
    // Texts of the normal form sort as the addresses do.
    EXPECT_LT(last, rows[row].min);
    EXPECT_LT(std::string(rows[row].min), rows[row].max);
    last = rows[row].max;
  }
  EXPECT_STREQ(rows[KESTRO_DATA_MAC_TYPE_OTHER].min, "00:00:00:00:00:00");
  EXPECT_STREQ(rows[KESTRO_DATA_MAC_TYPE_OTHER].max, "FF:FF:FF:FF:FF:FF");
}

TEST(CounterStrings, FieldsStandInTheOrderOfTheirNames) {
  static_assert(sizeof(kestro_counter_strings) == 12UL * 21);
  kestro_counter_strings counters{};
  char* const fields[] = {counters.tx_frames,
                          counters.rx_frames,
                          counters.tx_bytes,
                          counters.rx_bytes,
                          counters.rx_error_frames,
                          counters.rx_discard_frames,
                          counters.tx_unicast_frames,
                          counters.rx_unicast_frames,
                          counters.tx_multicast_frames,
                          counters.rx_multicast_frames,
                          counters.tx_broadcast_frames,
                          counters.rx_broadcast_frames};
  for (size_t i = 0; i < 12; ++i) EXPECT_EQ(fields[i] - fields[0], static_cast<ptrdiff_t>(21 * i));
  EXPECT_THAT(kestro_counter_strings_fields,
              ElementsAreArray({"tx_frames", "rx_frames", "tx_bytes", "rx_bytes", "rx_error_frames",
                                "rx_discard_frames", "tx_unicast_frames", "rx_unicast_frames", "tx_multicast_frames",
                                "rx_multicast_frames", "tx_broadcast_frames", "rx_broadcast_frames"}));
}

TEST(MacFilter, NamesShareTheirStorage) {
  kestro_mac_filter filter{};
  filter.oec_num = 12;
  filter.port_num = 4;
  filter.mac[0] = 'A';
  filter.mask[0] = 'F';
  EXPECT_EQ(filter.oec_number, 12);
  EXPECT_EQ(filter.port_number, 4);
  EXPECT_EQ(filter.macaddr_allowed[0], 'A');
  EXPECT_EQ(filter.macaddr_mask[0], 'F');
}

}  // namespace
