// Reading parameters and encoding results while memory runs out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jansson.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "faults/memory.hpp"
#include "kestro_data.h"
#include "kestro_general.h"
#include "kestro_jrpc_utils.h"
#include "kestro_omac_data.h"
#include "kestro_validation.h"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

// An explanation that cannot be made is missing; the status tells all the same.
void explain_what_is_wrong(Trial& trial) {
  const LogLevel level(Verbose);
  const Json params = json_of(R"({"flag":1,"text":"a text that is too long for its place"})");
  std::array<char, 8> text{};
  bool flag = true;
  json_t* raw = nullptr;
  trial.make([&] {
    EXPECT_EQ(kestro_jrpc_utils_parse_input_string(params.get(), &raw, "none", text.data(), text.size()), -35);
  });
  EXPECT_TRUE(raw != nullptr || trial.excused());
  const Json missing(raw);
  raw = nullptr;
  trial.make([&] { EXPECT_EQ(kestro_jrpc_utils_parse_input_bool_val(params.get(), &raw, "flag", &flag), -31); });
  EXPECT_TRUE(raw != nullptr || trial.excused());
  EXPECT_FALSE(flag);
  // An explanation that stands already is kept where no other can be made.
  const bool explained = raw != nullptr;
  trial.make([&] {
    EXPECT_EQ(kestro_jrpc_utils_parse_input_string(params.get(), &raw, "text", text.data(), text.size()), -31);
  });
  EXPECT_TRUE(raw != nullptr || trial.excused());
  EXPECT_TRUE(raw != nullptr || !explained);
  const Json last(raw);
}

struct TextField {
  const char* value;
  int32_t (*retrieve)(const json_t*, json_t**, const char*, char*, const int32_t);
};
constexpr TextField text_fields[] = {
    {"access", kestro_jrpc_utils_retrieve_input_vlan_mode},
    {"enable", kestro_jrpc_utils_retrieve_input_status},
    {"a port", kestro_jrpc_utils_retrieve_input_description},
    {"10.0.0.1", kestro_jrpc_utils_retrieve_input_ip_address},
    {"someone", kestro_jrpc_utils_retrieve_input_username},
    {"2021-03-04", kestro_jrpc_utils_retrieve_input_date},
    {"17:05", kestro_jrpc_utils_retrieve_input_time},
    {"UTC", kestro_jrpc_utils_retrieve_input_time_zone},
    {"AA:BB:CC:DD:EE:FF", kestro_jrpc_utils_retrieve_input_mac_address},
    {"ALIAS", kestro_jrpc_utils_retrieve_input_alias},
    {"vtr-1.2.3-4.bin", kestro_jrpc_utils_retrieve_input_unit_sw_upgrade_filename},
};

// A validator without memory refuses the value, and what is refused is not handed out.
void retrieve_fields(Trial& trial) {
  const LogLevel level(Verbose);
  for (const auto& field : text_fields) {
    const Json params(json_pack("{s:s}", "field", field.value));
    std::array<char, 64> text{};
    json_t* raw = nullptr;
    const auto status =
        trial.call({-34}, [&] { return field.retrieve(params.get(), &raw, "field", text.data(), text.size()); });
    const Json err_data(raw);
    EXPECT_STREQ(text.data(), status == 0 ? field.value : "");
  }
}

void retrieve_a_port_id(Trial& trial) {
  const LogLevel level(Verbose);
  const Json params = json_of(R"({"port_id":"c1-1"})");
  std::array<char, 16> text{};
  json_t* raw = nullptr;
  const auto status = trial.call({-15}, [&] {
    return kestro_jrpc_utils_retrieve_input_port_id(params.get(), &raw, "port_id", text.data(), text.size(), 0, 1, 1,
                                                    1);
  });
  const Json err_data(raw);
  EXPECT_STREQ(text.data(), status == 0 ? "c1-1" : "");
}

void retrieve_ports(Trial& trial) {
  const LogLevel level(Verbose);
  const Json params = json_of(
      R"({"ports":[{"port_number":1,"port_status":0,"poe_status":0,"link_status":1,"link_speed":2,"vlan_mode":0,)"
      R"("vlan_ids":[10,20]}]})");
  std::array<kestro_data_port, 2> ports{};
  int32_t count = 0;
  json_t* raw = nullptr;
  trial.call(
      {}, [&] { return kestro_jrpc_utils_retrieve_input_ports(params.get(), &raw, "ports", ports.data(), &count, 2); });
  EXPECT_EQ(count, 1);
  EXPECT_EQ(raw, nullptr);
}

void retrieve_mac_filters(Trial& trial) {
  const LogLevel level(Verbose);
  const Json params = json_of(R"({"filters":[{"mac":"AA:BB:CC:DD:EE:FF","mask":"FF:FF:FF:FF:FF:FF"},)"
                              R"({"mac":"AA:BB:CC:DD:EE:00","mask":"FF:FF:FF:FF:FF:00"}]})");
  kestro_mac_filter* filters = nullptr;
  int32_t count = 0;
  json_t* raw = nullptr;
  const auto status = trial.call({-22, -34}, [&] {
    return kestro_jrpc_utils_retrieve_input_mac_filters(params.get(), &raw, "filters", &filters, &count, 1, 2);
  });
  const Json err_data(raw);
  EXPECT_EQ(count, 2);
  if (status == -22) {
    EXPECT_EQ(filters, nullptr);
  }
  if (status == 0) {
    EXPECT_STREQ(filters[1].mask, "FF:FF:FF:FF:FF:00");
    free(filters);
  }
}

void retrieve_a_db_filename(Trial& trial) {
  const LogLevel level(Verbose);
  const std::string name = "faults" + std::to_string(getpid()) + ".db";
  const Json params(json_pack("{s:s}", "name", ("-" + name).c_str()));
  std::filesystem::create_directories(KESTRO_UPDATE_DIR);
  std::ofstream(KESTRO_UPDATE_DIR "-" + name) << "contents";
  std::array<char, 64> text{};
  json_t* raw = nullptr;
  const auto status = trial.call({-34}, [&] {
    return kestro_jrpc_utils_retrieve_input_db_filename(params.get(), &raw, "name", text.data(), text.size());
  });
  const Json err_data(raw);
  EXPECT_EQ(text.data(), status == 0 ? name : "");
  EXPECT_TRUE(std::filesystem::remove(KESTRO_UPDATE_DIR + name));
}

// After a lease that was refused for its form the leases are the caller's.
void read_a_dhcp_service(Trial& trial) {
  const LogLevel level(Verbose);
  const Json service = json_of(
      R"({"service_name":"office","address_range":"10.0.0.0/24","dhcp_range":"10.0.0.10-10.0.0.20",)"
      R"("static_leases":[{"ip":"10.0.0.5","mac":"AA:BB:CC:DD:EE:FF"},{"ip":"10.0.0.6","mac":"AA:BB:CC:DD:EE:00"}]})");
  address_pool dhcp{};
  error err{};
  const auto status =
      trial.call({-4}, [&] { return kestro_jrpc_utils_parse_service_dhcp(service.get(), &dhcp, &err); });
  EXPECT_EQ(err.msg[0] != '\0', status != 0);
  if (status != 0) {
    EXPECT_THAT(err.msg, testing::EndsWith("has invalid format"));
  }
  if (dhcp.static_leases != nullptr) {
    EXPECT_EQ(dhcp.n_leases, 2);
  }
  free(dhcp.static_leases);
}

void read_router_values(Trial& trial) {
  const LogLevel level(Verbose);
  router_cfg values{};
  const auto status = trial.call({-1}, [&] {
    return kestro_json_parse_rcfg_init_vals_from_str(&values, R"({"mac_addr":"AA:BB:CC:DD","model":"R1"})");
  });
  EXPECT_STREQ(values.model, status == 0 ? "R1" : "");
}

void encode_mac_addresses(Trial& trial) {
  const LogLevel level(Verbose);
  std::array<mac_str, 20> macs{};
  for (auto& mac : macs) strcpy(mac, "AA:BB:CC:DD:EE:FF");
  json_t* raw = nullptr;
  const auto status = trial.call({-22, -1}, [&] {
    return kestro_jrpc_utils_populate_json_mac_addresses_array(&raw, macs.data(), static_cast<int32_t>(macs.size()));
  });
  const Json array(raw);
  EXPECT_EQ(array != nullptr, status == 0);
  // Some addresses are better than none.
  EXPECT_TRUE(status != 0 || json_array_size(array.get()) == macs.size() || trial.excused());

  const std::array<port_macs, 2> ports = {port_macs{macs.data(), 20}, port_macs{macs.data(), 2}};
  const Json all(trial.give([&] { return kestro_jrpc_utils_encode_all_mac_addresses_connected(2, ports.data()); }));
  if (all) {
    EXPECT_EQ(json_array_size(json_array_get(all.get(), 0)), 20U);
    EXPECT_EQ(json_array_size(json_array_get(all.get(), 1)), 2U);
  }
}

void encode_vids(Trial& trial) {
  const LogLevel level(Verbose);
  const std::array<int32_t, 20> vids = {1, 2, 3};
  const Json array(trial.give([&] { return kestro_jrpc_utils_populate_vid_array(vids.data(), 20); }));
  EXPECT_TRUE(!array || json_array_size(array.get()) == 20);

  // What cannot be set leaves the object as it was.
  const Json object = json_of(R"({"vids":"as it was"})");
  const auto set = trial.call(
      {-30}, [&] { return kestro_jrpc_utils_json_obj_set_vid_array(object.get(), "vids", vids.data(), 20); });
  EXPECT_EQ(json_is_array(json_object_get(object.get(), "vids")), set == 0);
  const auto added =
      trial.call({-30}, [&] { return kestro_jrpc_utils_json_obj_set_vid_array(object.get(), "more", vids.data(), 3); });
  EXPECT_EQ(json_object_size(object.get()), added == 0 ? 2U : 1U);
}

void append_texts(Trial& trial) {
  const LogLevel level(Verbose);
  const Json array(json_array());
  size_t size = 0;
  for (int i = 0; i < 12; ++i) {
    if (trial.call({-30}, [&] { return kestro_jrpc_utils_append_string_array(array.get(), "a text"); }) == 0) ++size;
    EXPECT_EQ(json_array_size(array.get()), size);
  }
}

void encode_counters(Trial& trial) {
  const LogLevel level(Verbose);
  kestro_counter_strings counters{};
  strcpy(counters.tx_frames, "12345");
  const Json object(trial.give([&] { return kestro_jrpc_utils_encode_olt_counter_strings(&counters); }));
  EXPECT_TRUE(!object || json_object_size(object.get()) == 12);
}

void encode_or_panic(Trial& trial) {
  const LogLevel level(Verbose);
  const Json value = json_of(R"({"a":[1,2,3]})");
  const Text text(trial.give([&] { return kestro_jrpc_utils_dumps_validate(json_incref(value.get())); }));
  EXPECT_EQ(value->refcount, 1U);
}

struct Validator {
  const char* value;
  int32_t (*validate)(const char*);
};
constexpr Validator validators[] = {
    {"c1-1", validate_port_id},
    {"c1-1", validate_c_port_id},
    {"d1", validate_d_port_id},
    {"c1", validate_oec_id},
    {"AA:BB:CC:DD:EE:FF", validate_mac_address},
    {"10.0.0.1", validate_ip_address},
    {"10.0.0.0/24", validate_address_range},
    {"10.0.0.1-10.0.0.9", validate_dhcp_range},
    {"host.example", validate_hostname},
    {"someone", validate_username},
    {"pass!word", validate_password},
    {"17:05", validate_time},
};

// Without memory nothing is acceptable, and no other reason is given.
void validate(Trial& trial) {
  const LogLevel level(Verbose);
  for (const auto& row : validators) {
    trial.call({-1}, [&] { return row.validate(row.value); });
  }
  trial.call({-1}, [] { return validate_date_time("2021-03-04", "17:05"); });
}

const Ending no_copy = aborts(" unsuccessful\n");

INSTANTIATE_TEST_SUITE_P(Parameters, MemoryCampaign,
                         testing::ValuesIn(std::vector<MemoryScenario>{
                             {"ExplainWhatIsWrong", explain_what_is_wrong},
                             {"RetrieveFields", retrieve_fields},
                             {"RetrieveAPortId", retrieve_a_port_id},
                             {"RetrievePorts", retrieve_ports},
                             {"RetrieveMacFilters", retrieve_mac_filters},
                             {"RetrieveADbFilename", retrieve_a_db_filename, no_copy},
                             {"ReadADhcpService", read_a_dhcp_service, no_copy},
                             {"ReadRouterValues", read_router_values},
                             {"EncodeMacAddresses", encode_mac_addresses},
                             {"EncodeVids", encode_vids},
                             {"AppendTexts", append_texts},
                             {"EncodeCounters", encode_counters},
                             {"EncodeOrPanic", encode_or_panic, aborts("PANIC: could not dump out JSON\n")},
                             {"Validate", validate},
                         }),
                         name_of<MemoryScenario>);

}  // namespace
}  // namespace kestro::test
