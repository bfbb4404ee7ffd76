#include "configd/request.hpp"

#include <array>
#include <cstring>

#include "kestro_data.h"
#include "kestro_jrpc_utils.h"
#include "kestro_utils.h"
#include "kestro_validation.h"

namespace kestro::configd {

namespace {

constexpr int32_t last_switch_number = 512;
constexpr size_t longest_service_name = 50;
// Longer than any value that is taken, so that it is the field's own rule that refuses one.
using Text = std::array<char, 256>;

// Refused unless 0; what the reader left as an explanation stands before `expected`.
void require(int32_t status, const char* name, const std::string& expected) {
  if (status != status::ok) throw Failure(status, std::string(name) + ": " + expected);
}

// The readers let a line feed pass, some at the end only.
void require_one_line(const std::string& text, const char* name, const char* expected) {
  if (text.find('\n') != std::string::npos) require(status::validation_failed, name, expected);
}

}  // namespace

Request::Request(json_t* params, json_t** err_data)
    : params_(params != nullptr ? json_incref(params) : json_object()), err_data_(err_data) {}

int32_t Request::switch_number(const char* name) const {
  Text text{};
  const char* const expected = "an edge switch is expected, c1 to c512";
  require(kestro_jrpc_utils_retrieve_input_oec_id(params(), err_data_, name, text.data(), text.size(), 0), name,
          expected);
  int32_t number = 0;
  int32_t no_port = 0;
  require(kestro_parse_oec_port_id(&number, &no_port, text.data()), name, expected);
  if (number > last_switch_number) require(status::validation_failed, name, expected);
  return number;
}

PortRange Request::port_range(const char* name, All all, bool one_port_only) const {
  Text text{};
  const auto more = static_cast<int8_t>(one_port_only ? 0 : 1);
  require(kestro_jrpc_utils_retrieve_input_port_id(params(), err_data_, name, text.data(), text.size(),
                                                   static_cast<int8_t>(all == All::admitted), more, 1, 1),
          name,
          one_port_only ? "a port is expected, like c1-4 or d5" : "a port or a switch is expected, like c1-4 or c1");
  if (strcmp(text.data(), "all") == 0) return {};
  PortRange range;
  // The reader lets some texts pass that are no identifiers.
  if (kestro_parse_oec_port_id(&range.switch_number, &range.port_number, text.data()) != status::ok) {
    throw Failure(status::no_such_port, std::string("there is no port ") + text.data());
  }
  return range;
}

PortId Request::port(const char* name) const {
  const PortRange range = port_range(name, All::refused, true);
  return {range.switch_number, range.port_number};
}

PortRange Request::ports(const char* name) const {
  return port_range(name, All::admitted, false);
}

PortRange Request::ports_of_one_switch(const char* name) const {
  return port_range(name, All::refused, false);
}

int32_t Request::model(const char* name) const {
  Text text{};
  const int32_t status =
      kestro_jrpc_utils_retrieve_input_oec_model(params(), err_data_, name, text.data(), text.size());
  if (status != status::validation_failed) require(status, name, "the name of a model is expected");
  for (int32_t model = KESTRO_DATA_OEC_MODEL_UNKNOWN + 1; model < KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL; ++model) {
    if (strcmp(text.data(), kestro_data_oec_model_name_enum_str[model]) == 0) return model;
  }
  const std::string given = json_string_value(json_object_get(params(), name));
  throw Failure(status::no_such_model, "there is no model \"" + given + "\"");
}

std::string Request::device_mac_address(const char* name) const {
  mac_str text{};
  require(kestro_jrpc_utils_retrieve_input_mac_address(params(), err_data_, name, text, sizeof text), name,
          "a MAC address is expected, like 02:00:01:00:00:01");
  const bool is_of_a_group = std::stoi(std::string(text, 2), nullptr, 16) % 2 != 0;
  if (is_of_a_group) {
    require(status::validation_failed, name, "the address of one device is expected, no multicast or broadcast");
  }
  return text;
}

std::string Request::alias(const char* name) const {
  Text text{};
  const char* const expected = "one line of at most 8 characters is expected";
  require(kestro_jrpc_utils_retrieve_input_alias(params(), err_data_, name, text.data(), text.size()), name, expected);
  require_one_line(text.data(), name, expected);
  return text.data();
}

std::string Request::description(const char* name) const {
  Text text{};
  const char* const expected = "one line of at most 50 bytes is expected";
  require(kestro_jrpc_utils_retrieve_input_description(params(), err_data_, name, text.data(), text.size()), name,
          expected);
  require_one_line(text.data(), name, expected);
  return text.data();
}

bool Request::boolean(const char* name) const {
  bool value = false;
  require(kestro_jrpc_utils_parse_input_bool_val(params(), err_data_, name, &value), name, "true or false is expected");
  return value;
}

int32_t Request::vlan_id(const char* name) const {
  int32_t value = 0;
  require(kestro_jrpc_utils_retrieve_input_vlan_id(params(), err_data_, name, &value), name,
          "a VLAN is expected, 1 to 4050");
  return value;
}

std::vector<int32_t> Request::vlan_ids(const char* name) const {
  const char* const expected = "a list of 1 to 130 different VLANs, 1 to 4050, is expected";
  std::array<int32_t, KESTRO_DATA_MAX_VLANS_PER_PORT> values{};
  int32_t count = 0;
  require(kestro_jrpc_utils_retrieve_input_vlan_ids(params(), err_data_, name, values.data(), &count), name, expected);
  if (count == 0) require(status::validation_failed, name, expected);
  return {values.begin(), values.begin() + count};
}

// The records are ours after success only; of an empty list there is one nevertheless.
std::vector<MacFilter> Request::mac_filters(const char* name, const PortId& port) const {
  kestro_mac_filter* raw = nullptr;
  int32_t count = 0;
  require(kestro_jrpc_utils_retrieve_input_mac_filters(params(), err_data_, name, &raw, &count, port.switch_number,
                                                       port.port_number),
          name, R"(a list of objects with "mac" and "mask", two MAC addresses, is expected)");
  const Allocated<kestro_mac_filter> records(raw);
  std::vector<MacFilter> filters;
  filters.reserve(static_cast<size_t>(count));
  for (int32_t i = 0; i < count; ++i) filters.push_back({records.get()[i].mac, records.get()[i].mask});
  return filters;
}

std::string Request::service_name(const char* name) const {
  Text text{};
  require(kestro_jrpc_utils_retrieve_input_entity_name(params(), err_data_, name, text.data(), text.size()), name,
          "the name of a service is expected");
  return std::string(text.data()).substr(0, longest_service_name);
}

std::string Request::new_filename(const char* name) const {
  Text text{};
  const char* const expected = "two or more letters, digits and ,._+@%- are expected, the first no dash";
  require(kestro_jrpc_utils_parse_input_string(params(), err_data_, name, text.data(), text.size()), name, expected);
  if (validate_db_filename(text.data()) != status::ok) require(status::validation_failed, name, expected);
  require_one_line(text.data(), name, expected);
  return text.data();
}

std::string Request::uploaded_filename(const char* name) const {
  Text text{};
  const char* const expected = "the name of a file in the update directory is expected";
  require(kestro_jrpc_utils_retrieve_input_db_filename(params(), err_data_, name, text.data(), text.size()), name,
          expected);
  require_one_line(text.data(), name, expected);
  return text.data();
}

}  // namespace kestro::configd
