// Fields that differ in their validator and their log lines only.
#include "kestro_jrpc_utils/fields.hpp"

#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/site.hpp"
#include "kestro_utils/text_output.hpp"
#include "kestro_validation.h"

using namespace kestro;
using namespace kestro::jrpc_utils;

namespace kestro::jrpc_utils {

int32_t extract(const char* retrieving, const Source& source, TextOutput out) noexcept {
  if (source.name == nullptr || out.text == nullptr) return refuse_null(here());
  here().log(Verbose, "%s", retrieving);
  return kestro_jrpc_utils_parse_input_string(source.params, source.err_data, source.name, out.text, out.length);
}

int32_t conclude(int32_t result, const char* retrieved, TextOutput out) noexcept {
  if (result == status::ok) {
    here().log(Debug, retrieved, out.text);
  } else {
    clear(output(out.text, out.length));
  }
  return result;
}

int32_t as_status(int32_t validator_result) noexcept {
  return validator_result == status::ok ? status::ok : status::validation_failed;
}

}  // namespace kestro::jrpc_utils

namespace {

// A field without a validator takes any value of its type.
template <class Value>
struct Field {
  int32_t (*validate)(Value);
  const char* retrieving;
  const char* retrieved;
  Severity severity = Debug;  // of the line with the value
};

using TextField = Field<const char*>;
using NumberField = Field<int32_t>;

template <class Value>
int32_t check(const Field<Value>& field, Value value) noexcept {
  return field.validate == nullptr ? status::ok : as_status(field.validate(value));
}

int32_t retrieve(const TextField& field, const Source& source, TextOutput out) noexcept {
  if (const auto result = extract(field.retrieving, source, out); result != status::ok) return result;
  return conclude(check<const char*>(field, out.text), field.retrieved, out);
}

int32_t retrieve(const NumberField& field, const Source& source, int32_t* out) noexcept {
  if (source.name == nullptr || out == nullptr) return refuse_null(here());
  here().log(Verbose, "%s", field.retrieving);
  auto result = kestro_jrpc_utils_parse_input_integer(source.params, source.err_data, source.name, out);
  if (result != status::ok) return result;
  if (result = check(field, *out); result == status::ok) {
    here().log(field.severity, field.retrieved, *out);
  } else {
    *out = 0;
  }
  return result;
}

constexpr TextField status_field{validate_status, "Retrieving status...\n", "Retrieved and validated status: %s\n"};
constexpr TextField description{validate_description, "Retrieving description...\n",
                                "Retrieved and validated description: %s\n"};
constexpr TextField vlan_mode{validate_vlan_mode, "Retrieving vlan mode...\n",
                              "Retrieved and validated vlan mode: %s\n"};
constexpr NumberField vlan_id{validate_vlan_id, "Retrieving vlan id...\n", "Retrieved and validated vlan id: %d\n"};
constexpr TextField oec_model{validate_oec_model, "Retrieving oec model...\n",
                              "Retrieved and validated oec model: %s\n"};
constexpr TextField oec_sw_upgrade_filename{validate_oec_sw_upgrade_filename, "Retrieving oec sw upgrade filename...\n",
                                            "Retrieved and validated oec sw upgrade filename: %s\n"};
constexpr NumberField unit_id{validate_unit_id, "Retrieving unit id...\n", "Retrieved and validated unit id: %d\n"};
constexpr TextField unit_sw_bank{validate_unit_sw_bank, "Retrieving sw bank...\n",
                                 "Retrieved and validated sw bank: %s\n"};
constexpr TextField ip_address{validate_ip_address, "Retrieving ip address...\n",
                               "Retrieved and validated ip address: %s\n"};
constexpr NumberField periodic_interval{validate_periodic_interval, "Retrieving periodic interval...\n",
                                        "Retrieved and validated periodic interval: %d\n"};
constexpr TextField username{validate_username, "Retrieving username...\n", "Retrieved and validated username: %s\n"};
constexpr TextField password{validate_password, "Retrieving password...\n", "Retrieved and validated password: %s\n"};
constexpr TextField date{validate_date, "Retrieving date...\n", "Retrieved and validated date: %s\n"};
constexpr TextField time_zone{validate_zone, "Retrieving time zone...\n", "Retrieved and validated time zone: %s\n"};
constexpr TextField time_field{validate_time, "Retrieving time...\n", "Retrieved and validated time: %s\n"};
// The one field whose value is shown at VERBOSE only.
constexpr NumberField laser_id{validate_laser_id, "Retrieving laser_id...\n", "Retrieved and validated laser_id: %d\n",
                               Verbose};
constexpr NumberField olt_id{validate_olt_id, "Retrieving olt id...\n", "Retrieved and validated olt id: %d\n"};
constexpr NumberField onu_id{validate_onu_id, "Retrieving onu id...\n", "Retrieved and validated onu id: %d\n"};
constexpr NumberField port_number{validate_port_number, "Retrieving port number...\n",
                                  "Retrieved and validated port_number: %d\n"};
constexpr NumberField port_link_speed{validate_port_link_speed, "Retrieving port link speed...\n",
                                      "Retrieved and validated port link_speed: %d\n"};
constexpr TextField entity_extension{validate_entity_extension, "Retrieving entity extension...\n",
                                     "Retrieved and validated entity extension: %s\n"};
constexpr NumberField enable{nullptr, "Retrieving enable...\n", "Retrieved and enable value: %d\n"};
// Its line is searched for as it is, although entities are not validated here.
constexpr TextField entity_name{nullptr, "Retrieving entity name...\n", "Retrieved and validated entity name: %s\n"};

}  // namespace

int32_t kestro_jrpc_utils_retrieve_input_oec_model(const json_t* params, json_t** err_data, const char* param_name,
                                                   char* out, const int32_t length) noexcept {
  return retrieve(oec_model, {params, err_data, param_name}, {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_unit_id(const json_t* params, json_t** err_data, const char* param_name,
                                                 int32_t* out) noexcept {
  return retrieve(unit_id, {params, err_data, param_name}, out);
}

int32_t kestro_jrpc_utils_retrieve_input_port_number(const json_t* params, json_t** err_data, const char* param_name,
                                                     int32_t* out) noexcept {
  return retrieve(port_number, {params, err_data, param_name}, out);
}

int32_t kestro_jrpc_utils_retrieve_input_port_link_speed(const json_t* params, json_t** err_data,
                                                         const char* param_name, int32_t* out) noexcept {
  return retrieve(port_link_speed, {params, err_data, param_name}, out);
}

int32_t kestro_jrpc_utils_retrieve_input_vlan_id(const json_t* params, json_t** err_data, const char* param_name,
                                                 int32_t* out) noexcept {
  return retrieve(vlan_id, {params, err_data, param_name}, out);
}

int32_t kestro_jrpc_utils_retrieve_input_vlan_mode(const json_t* params, json_t** err_data, const char* param_name,
                                                   char* out, const int32_t length) noexcept {
  return retrieve(vlan_mode, {params, err_data, param_name}, {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_laser_id(const json_t* params, json_t** err_data, const char* param_name,
                                                  int32_t* out) noexcept {
  return retrieve(laser_id, {params, err_data, param_name}, out);
}

int32_t kestro_jrpc_utils_retrieve_input_olt_id(const json_t* params, json_t** err_data, const char* param_name,
                                                int32_t* out) noexcept {
  return retrieve(olt_id, {params, err_data, param_name}, out);
}

int32_t kestro_jrpc_utils_retrieve_input_onu_id(const json_t* params, json_t** err_data, const char* param_name,
                                                int32_t* out) noexcept {
  return retrieve(onu_id, {params, err_data, param_name}, out);
}

int32_t kestro_jrpc_utils_retrieve_input_status(const json_t* params, json_t** err_data, const char* param_name,
                                                char* out, const int32_t length) noexcept {
  return retrieve(status_field, {params, err_data, param_name}, {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_enable(const json_t* params, json_t** err_data, const char* param_name,
                                                int32_t* out) noexcept {
  return retrieve(enable, {params, err_data, param_name}, out);
}

int32_t kestro_jrpc_utils_retrieve_input_description(const json_t* params, json_t** err_data, const char* param_name,
                                                     char* out, const int32_t length) noexcept {
  return retrieve(description, {params, err_data, param_name}, {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_entity_name(const json_t* params, json_t** err_data, const char* param_name,
                                                     char* out, const int32_t length) noexcept {
  return retrieve(entity_name, {params, err_data, param_name}, {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_entity_extension(const json_t* params, json_t** err_data,
                                                          const char* param_name, char* out,
                                                          const int32_t length) noexcept {
  return retrieve(entity_extension, {params, err_data, param_name}, {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_ip_address(const json_t* params, json_t** err_data, const char* param_name,
                                                    char* out, const int32_t length) noexcept {
  return retrieve(ip_address, {params, err_data, param_name}, {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_oec_sw_upgrade_filename(const json_t* params, json_t** err_data,
                                                                 const char* param_name, char* out,
                                                                 const int32_t length) noexcept {
  return retrieve(oec_sw_upgrade_filename, {params, err_data, param_name}, {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_unit_sw_bank(const json_t* params, json_t** err_data, const char* param_name,
                                                      char* out, const int32_t length) noexcept {
  return retrieve(unit_sw_bank, {params, err_data, param_name}, {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_username(const json_t* params, json_t** err_data, const char* param_name,
                                                  char* out, const int32_t length) noexcept {
  return retrieve(username, {params, err_data, param_name}, {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_password(const json_t* params, json_t** err_data, const char* param_name,
                                                  char* out, const int32_t length) noexcept {
  return retrieve(password, {params, err_data, param_name}, {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_periodic_interval(const json_t* params, json_t** err_data,
                                                           const char* param_name, int32_t* out) noexcept {
  return retrieve(periodic_interval, {params, err_data, param_name}, out);
}

int32_t kestro_jrpc_utils_retrieve_input_date(const json_t* params, json_t** err_data, const char* param_name,
                                              char* out, const int32_t length) noexcept {
  return retrieve(date, {params, err_data, param_name}, {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_time(const json_t* params, json_t** err_data, const char* param_name,
                                              char* out, const int32_t length) noexcept {
  return retrieve(time_field, {params, err_data, param_name}, {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_time_zone(const json_t* params, json_t** err_data, const char* param_name,
                                                   char* out, const int32_t length) noexcept {
  return retrieve(time_zone, {params, err_data, param_name}, {out, length});
}
