#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <iterator>
#include <span>
#include <string_view>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_data.h"
#include "kestro_malloc.hpp"
#include "kestro_validation.h"
#include "kestro_validation/engines.hpp"

using namespace kestro;
using namespace kestro::validation;

namespace {

constexpr auto here = site_of("kestro_validation");

// ---- Kinds of fields. A rule without a first line checks silently.

struct FormRule {
  const char* label;
  const char* first_line;
  const char* regex;
};

struct SizedFormRule {
  const char* label;
  const char* first_line;
  int32_t min_length;
  int32_t max_length;
  const char* regex;
};

struct OptionsRule {
  const char* label;
  const char* first_line;
  std::span<const char* const> options;
};

struct RangeRule {
  const char* first_line;
  const char* failure;
  int32_t min;
  int32_t max;
};

template <class Rule, class Value>
void announce(const Rule& rule, Value value) noexcept {
  if (rule.first_line != nullptr) here().log(Verbose, rule.first_line, value);
}

int32_t check(const FormRule& rule, const char* value) noexcept {
  announce(rule, value);
  return check_regex(rule.regex, value, rule.label);
}

int32_t check(const SizedFormRule& rule, std::string_view value) noexcept {
  announce(rule, value.data());
  return validate_length_and_format(value, rule.min_length, rule.max_length, rule.regex, rule.label);
}

int32_t check(const OptionsRule& rule, const char* value) noexcept {
  announce(rule, value);
  return validate_options(value, rule.options.data(), static_cast<int32_t>(rule.options.size()), rule.label);
}

int32_t check(const RangeRule& rule, int32_t value) noexcept {
  announce(rule, value);
  if (value >= rule.min && value <= rule.max) return acceptable;
  return here().fail(Debug, out_of_range, rule.failure, rule.min, rule.max);
}

// ---- Fields. Where a pattern is looser than the field's meaning, daemons and their clients rely on that.

constexpr FormRule port_id{"Port ID", "Validating port id: %s\n",
                           R"((^[cC]([1-9]|[1-9]\d|[1-4]\d\d|50\d|51[0-2])-([1-9]|[1-9]\d)$))"
                           R"(|(^([dD][1-9])|([dD][1-3][0-9])|([dD]4[0-8])|(c10001-[1-4]?[0-9])$))"};
constexpr FormRule c_port_id{"C Port ID", "Validating c-port id: %s\n",
                             R"(^[cC]([1-9]|[1-9]\d|[1-4]\d\d|50\d|51[0-2])-([1-9]|[1-9]\d)$)"};
constexpr FormRule d_port_id{"D Port ID", "Validating d-port id: %s\n",
                             R"(^([dD][1-9])|([dD][1-3][0-9])|([dD]4[0-8])|(c10001-[1-4]?[0-9])$)"};
constexpr FormRule vlan_name_id{
    "Vlan Name ID", "Validating vlan name id: %s\n",
    R"(^v(([1-9])|([1-9][0-9])|([1-9][0-9][0-9])|([1-3][0-9][0-9][0-9])|(40[0-8][0-9])|(409[0-2]))$)"};
constexpr FormRule oec_id{"Edge Switch ID", "Validating oec id: %s\n",
                          R"(^[cC]([1-9]|[1-9]\d|[1-4]\d\d|50\d|51[0-2]|10001)$)"};

constexpr SizedFormRule ip_address{"IP Address", "Validating ip address: %s\n", 7, 15,
                                   R"(^((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.){3})"
                                   R"((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])$)"};
constexpr SizedFormRule mac_address{"MAC Address", "Validating mac address: %s\n", 17, 17,
                                    R"(^((((\d|[A-Fa-f]){2}:){5})|(((\d|[A-Fa-f]){2}-){5}))(\d|[A-Fa-f]){2}$)"};
constexpr FormRule address_range{"address range", nullptr,
                                 R"(^((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.){3})"
                                 R"((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])/(16|22|24)$)"};
constexpr FormRule dhcp_range{"dhcp range", nullptr,
                              R"((^((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.){3})"
                              R"((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])-)"
                              R"(((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.){3})"
                              R"((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])$)|(^$))"};
// Its lines are searched for under the same label as those of dhcp_range.
constexpr FormRule general_address_range{"dhcp range", nullptr,
                                         R"(^((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.){3})"
                                         R"((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])/([1-2]?[0-9]|3[0-2])$)"};
constexpr FormRule hostname{"hostname", nullptr, R"(^[0-9a-zA-Z.-]+$)"};

constexpr const char* filename_regex = R"(^[a-zA-Z0-9,._+@%/-]+$)";
constexpr FormRule filename{"filename", nullptr, filename_regex};
constexpr FormRule oec_sw_upgrade_filename{"OEC SW Upgrade Filename", "Validating sw upgrade filename: %s\n",
                                           filename_regex};
constexpr FormRule unit_sw_upgrade_filename{"Unit SW Upgrade filename", "Validating sw upgrade filename: %s\n",
                                            R"(^.*vtr.*\d+\.\d+\.\d+-\d+\..*)"};
constexpr FormRule db_filename{"Database Filename", "Validating database filename: %s\n",
                               R"(^[^-][a-zA-Z0-9,._+@%-]+$)"};

constexpr SizedFormRule description{"Description", "Validating description: %s\n", 0, 50, R"(^.{0,50}$)"};
constexpr SizedFormRule username{"Username", "Validating username: %s\n", 4, 15, R"(^[a-zA-Z0-9]{4,15}$)"};
constexpr SizedFormRule password{"Password", "Validating password: %s\n", 4, 15, R"(^[a-zA-Z0-9!?_@-]{4,15}$)"};
constexpr FormRule uuid{"UUID", nullptr,
                        R"(^[a-fA-F0-9]{8}-[a-fA-F0-9]{4}-[a-fA-F0-9]{4}-[a-fA-F0-9]{4}-[a-fA-F0-9]{12}$)"};

constexpr FormRule date_rule{"Date", "Validating date: %s\n",
                             R"(^2\d{3}-([1-9]|0[1-9]|1[0-2])-([1-9]|0[1-9]|1\d|2\d|3[0-1])$)"};
constexpr FormRule time_rule{"Time", "Validating time: %s\n", R"(^([0-1]\d|2[0-3]):[0-5]\d$)"};
constexpr FormRule zone{"Time Zone", "Validating time zone: %s\n", R"(^($|([A-Z]{2,5}$)|([a-zA-Z/_]{5,}$)))"};

constexpr const char* statuses[] = {"enable", "disable"};
constexpr const char* vlan_modes[] = {"local", "access", "trunk", "discovery"};
constexpr const char* sw_banks[] = {"all", "current", "previous", "default"};
constexpr OptionsRule status_rule{"Status", "Validating status: %s\n", statuses};
constexpr OptionsRule vlan_mode{"VLAN Mode", "Validating vlan mode: %s\n", vlan_modes};
constexpr OptionsRule oec_model{"OEC Model", "Validating oec model: %s\n", kestro_data_oec_model_name_enum_str};
constexpr OptionsRule unit_sw_bank{"Unit SW Bank", "Validating unit sw bank: %s\n", sw_banks};

constexpr RangeRule vlan_id{"Validating vlan id: %d\n", "FAIL: Vlan id outside acceptable range [%d, %d]\n", 1, 4050};
constexpr RangeRule unit_id{"Validating unit id: %d\n", "FAIL: Unit id outside acceptable range [%d, %d]\n", 1, 1};
constexpr RangeRule laser_id{"Validating laser_id: %d\n", "FAIL: laser_id outside acceptable range [%d, %d]\n", 0, 7};
constexpr RangeRule olt_id{"Validating olt id: %d\n", "FAIL: OLT id outside acceptable range [%d, %d]\n", 0, 7};
constexpr RangeRule onu_id{"Validating ONU id: %d\n", "FAIL: ONU id outside acceptable range [%d, %d]\n", -1, 64};
constexpr RangeRule port_number{"Validating port_number: %d\n", "FAIL: port_number outside acceptable range [%d, %d]\n",
                                1, 64};
constexpr RangeRule periodic_interval{"Validating periodic interval: %d\n",
                                      "FAIL: Periodic interval outside acceptable range [%d, %d]\n", 1, 3600};

constexpr int32_t entity_extension_max_length = 1000;

// Accounts of the system. Some can be no user name at all: the list follows the system's, not the pattern.
constexpr std::string_view reserved_usernames[] = {"root",      "daemon", "bin",      "sys",    "sync",
                                                   "mail",      "proxy",  "www-data", "backup", "operator",
                                                   "haldaemon", "dbus",   "nobody",   "sshd"};

// Which of them are of a length, a bit for each.
constexpr std::array<uint32_t, 16> reserved_of_each_length() {
  std::array<uint32_t, 16> rows{};
  for (size_t row = 0; row < std::size(reserved_usernames); ++row) rows.at(reserved_usernames[row].size()) |= 1U << row;
  return rows;
}
constexpr auto reserved_by_length = reserved_of_each_length();

const std::string_view* find_reserved(std::string_view name) noexcept {
  uint32_t rows = name.size() < reserved_by_length.size() ? reserved_by_length[name.size()] : 0;
  for (; rows != 0; rows &= rows - 1) {
    const auto& reserved = reserved_usernames[std::countr_zero(rows)];
    if (reserved.front() == name.front() && reserved == name) return &reserved;
  }
  return std::end(reserved_usernames);
}

void tell_differences(const char* name, std::span<const std::string_view> reserved) noexcept {
  if (!log_admits(Verbose)) return;
  for (const auto& other : reserved) {
    here().log(Verbose, "[%s] value <%s> did not match blacklist option <%s>\n", username.label, name, other.data());
  }
}

int32_t check_not_reserved(std::string_view name) noexcept {
  const auto* const match = find_reserved(name);
  tell_differences(name.data(), {std::begin(reserved_usernames), match});
  if (match != std::end(reserved_usernames)) {
    return here().fail(Debug, not_an_option, "Validation failed: [%s] value <%s> matches blacklist option <%s>\n",
                       username.label, name.data(), match->data());
  }
  here().log(Debug, "Given [%s] value <%s> is not one of the blacklisted options\n", username.label, name.data());
  return acceptable;
}

bool is_time_server(const char* server) noexcept {
  return validate_ip_address(server) == acceptable || validate_hostname(server) == acceptable;
}

}  // namespace

int32_t validate_port_id(const char* value) noexcept {
  return check(port_id, value);
}

int32_t validate_c_port_id(const char* value) noexcept {
  return check(c_port_id, value);
}

int32_t validate_d_port_id(const char* value) noexcept {
  return check(d_port_id, value);
}

int32_t validate_vlan_name_id(const char* value) noexcept {
  return check(vlan_name_id, value);
}

int32_t validate_status(const char* value) noexcept {
  return check(status_rule, value);
}

int32_t validate_oec_id(const char* value) noexcept {
  return check(oec_id, value);
}

int32_t validate_vlan_id(int32_t value) noexcept {
  return check(vlan_id, value);
}

int32_t validate_vlan_mode(const char* value) noexcept {
  return check(vlan_mode, value);
}

int32_t validate_description(const char* value) noexcept {
  return check(description, value);
}

int32_t validate_oec_model(const char* value) noexcept {
  return check(oec_model, value);
}

int32_t validate_unit_id(int32_t value) noexcept {
  return check(unit_id, value);
}

int32_t validate_laser_id(int32_t value) noexcept {
  return check(laser_id, value);
}

int32_t validate_olt_id(int32_t value) noexcept {
  return check(olt_id, value);
}

int32_t validate_onu_id(int32_t value) noexcept {
  return check(onu_id, value);
}

int32_t validate_port_number(int32_t value) noexcept {
  return check(port_number, value);
}

int32_t validate_port_link_speed(int32_t /*value*/) noexcept {
  return acceptable;
}

int32_t validate_entity_name(const char* value) noexcept {
  const bool valid = validate_oec_id(value) == acceptable || validate_port_id(value) == acceptable ||
                     validate_vlan_name_id(value) == acceptable;
  return valid ? acceptable : no_match;
}

int32_t validate_entity_extension(const char* value) noexcept {
  here().log(Verbose, "Validating extension: %s\n", value);
  return check_length(value, 0, entity_extension_max_length, "extension");
}

int32_t validate_ip_address(const char* value) noexcept {
  return check(ip_address, value);
}

int32_t validate_mac_address(const char* value) noexcept {
  return check(mac_address, value);
}

int32_t validate_address_range(const char* value) noexcept {
  return check(address_range, value);
}

int32_t validate_dhcp_range(const char* value) noexcept {
  return check(dhcp_range, value);
}

int32_t validate_general_address_range(const char* value) noexcept {
  return check(general_address_range, value);
}

int32_t validate_hostname(const char* value) noexcept {
  return check(hostname, value);
}

int32_t validate_preferred_time_servers(const char* value) noexcept {
  const Text copy = copy_of(value);
  char* rest = copy.get();
  while (const char* const server = strsep(&rest, " ")) {
    if (*server != '\0' && !is_time_server(server)) return status::validation_failed;
  }
  return acceptable;
}

int32_t validate_oec_sw_upgrade_filename(const char* value) noexcept {
  return check(oec_sw_upgrade_filename, value);
}

int32_t validate_unit_sw_upgrade_filename(const char* value) noexcept {
  if (const auto result = check(unit_sw_upgrade_filename, value); result != acceptable) return result;
  return validate_filename(value);
}

int32_t validate_db_filename(const char* value) noexcept {
  return check(db_filename, value);
}

int32_t validate_filename(const char* value) noexcept {
  return check(filename, value);
}

int32_t validate_unit_sw_bank(const char* value) noexcept {
  return check(unit_sw_bank, value);
}

int32_t validate_username(const char* value) noexcept {
  const std::string_view name(value);
  if (const auto result = check(username, name); result != acceptable) return result;
  return check_not_reserved(name);
}

int32_t validate_password(const char* value) noexcept {
  return check(password, value);
}

int32_t validate_uuid(const char* value) noexcept {
  return check(uuid, value);
}

int32_t validate_periodic_interval(int32_t value) noexcept {
  return check(periodic_interval, value);
}

int32_t validate_date(const char* value) noexcept {
  return check(date_rule, value);
}

int32_t validate_time(const char* value) noexcept {
  return check(time_rule, value);
}

int32_t validate_date_time(const char* date, const char* time) noexcept {
  if (const auto result = validate_date(date); result != acceptable) return result;
  return validate_time(time);
}

int32_t validate_zone(const char* value) noexcept {
  return check(zone, value);
}
