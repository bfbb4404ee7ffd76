#include "kestroctl/fields.hpp"

#include <charconv>
#include <optional>

#include "kestro_validation.h"

namespace kestro::ctl {

namespace {

constexpr Field table[] = {
    {"address_range", validate_address_range, "an IPv4 address and /16, /22 or /24"},
    {"c_port_id", validate_c_port_id, "c or C, an edge-switch number from 1 to 512, -, a port number from 1 to 99"},
    {"d_port_id", validate_d_port_id, "d or D and a port number from 1 to 48, or c10001- and a number from 0 to 49"},
    {"date", validate_date, "YYYY-MM-DD, years 2000 to 2999; leading zeros may be left out"},
    {"date_time", validate_date_time, "a date, a blank, and a time: YYYY-MM-DD HH:MM"},
    {"db_filename", validate_db_filename, "letters, digits and ,._+@%- ; at least two, not beginning with -"},
    {"description", validate_description, "at most 50 bytes on one line"},
    {"dhcp_range", validate_dhcp_range, "two IPv4 addresses joined by - , or empty"},
    {"entity_extension", validate_entity_extension, "at most 1000 bytes"},
    {"entity_name", validate_entity_name, "an edge switch (c12), a port (c12-3, d4) or a VLAN name (v10)"},
    {"filename", validate_filename, "letters, digits and ,._+@%/- ; at least one"},
    {"general_address_range", validate_general_address_range, "an IPv4 address, / and a length from 0 to 32"},
    {"hostname", validate_hostname, "letters, digits, . and - ; at least one"},
    {"ip_address", validate_ip_address, "four decimal numbers from 0 to 255, without leading zeros"},
    {"laser_id", validate_laser_id, "0 to 7"},
    {"mac_address", validate_mac_address, "six pairs of hexadecimal digits, all joined by : or all by -"},
    {"oec_id", validate_oec_id, "c or C and a number from 1 to 512, or 10001 for the head-end unit"},
    {"oec_model", validate_oec_model, "the name of an edge-switch model, like VTR-E30p, or unknown"},
    {"oec_sw_upgrade_filename", validate_oec_sw_upgrade_filename, "letters, digits and ,._+@%/- ; at least one"},
    {"olt_id", validate_olt_id, "0 to 7"},
    {"onu_id", validate_onu_id, "-1 to 64"},
    {"password", validate_password, "4 to 15 letters, digits and !?_@-"},
    {"periodic_interval", validate_periodic_interval, "1 to 3600"},
    {"port_id", validate_port_id, "a port of an edge switch (c12-3) or of the head-end unit (d4)"},
    {"port_link_speed", validate_port_link_speed, "any number"},
    {"port_number", validate_port_number, "1 to 64"},
    {"preferred_time_servers", validate_preferred_time_servers, "IPv4 addresses and host names, with blanks between"},
    {"status", validate_status, "enable or disable"},
    {"time", validate_time, "HH:MM, 00:00 to 23:59"},
    {"unit_id", validate_unit_id, "1"},
    {"unit_sw_bank", validate_unit_sw_bank, "all, current, previous or default"},
    {"unit_sw_upgrade_filename", validate_unit_sw_upgrade_filename,
     "holds vtr and, behind it, a version like 1.20.3-4 and a dot; letters, digits and ,._+@%/-"},
    {"username", validate_username, "4 to 15 letters and digits, and no account of the system"},
    {"uuid", validate_uuid, "hexadecimal digits, 8-4-4-4-12"},
    {"vlan_id", validate_vlan_id, "1 to 4050"},
    {"vlan_mode", validate_vlan_mode, "local, access, trunk or discovery"},
    {"vlan_name_id", validate_vlan_name_id, "v and a number from 1 to 4092"},
    {"zone", validate_zone, "empty, 2 to 5 capital letters, or 5 or more letters, / and _"},
};

std::string reason_of(int32_t result) {
  switch (result) {
    case -1:
      return "it takes too much work to check";
    case -2:
      return "it does not have the form";
    case -3:
      return "it is none of the values that are possible, or a reserved one";
    case -4:
      return "it is too long";
    case -5:
      return "it is too short";
    case -6:
      return "it is out of range";
    default:
      return "one of its parts is not acceptable";
  }
}

Verdict verdict_of(int32_t result) {
  return result == 0 ? Verdict{true, ""} : Verdict{false, reason_of(result) + " (" + std::to_string(result) + ")"};
}

std::optional<int32_t> number_of(const std::string& text) {
  int32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, wrong] = std::from_chars(text.data(), end, number);
  if (wrong != std::errc() || stopped != end) return std::nullopt;
  return number;
}

struct Judge {
  const std::string& value;

  Verdict operator()(TextCheck check) const { return verdict_of(check(value.c_str())); }
  Verdict operator()(NumberCheck check) const {
    const auto number = number_of(value);
    return number ? verdict_of(check(*number)) : Verdict{false, "it is no whole number of 32 bits"};
  }
  Verdict operator()(PairCheck check) const {
    const auto blank = value.find(' ');
    if (blank == std::string::npos) return {false, "two words are expected, with a blank between"};
    return verdict_of(check(value.substr(0, blank).c_str(), value.substr(blank + 1).c_str()));
  }
};

}  // namespace

std::span<const Field> fields() {
  return table;
}

const Field* find_field(const std::string& name) {
  for (const auto& field : table) {
    if (name == field.name) return &field;
  }
  return nullptr;
}

Verdict judge(const Field& field, const std::string& value) {
  return std::visit(Judge{value}, field.check);
}

}  // namespace kestro::ctl
