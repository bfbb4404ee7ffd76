// Any text for every validator, and for the reader of identifiers: results are the documented ones, and validators that
// speak of the same thing agree.
//
// Values are at most 4 KiB long. One pattern (validate_unit_sw_upgrade_filename) asks for work that grows with the
// square of the length and more, up to the limit of ten million steps that the library sets for a match; longer values
// would find that limit again and again, and nothing else.
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <cstring>
#include <initializer_list>
#include <string>

#include "kestro_data.h"
#include "kestro_utils.h"
#include "kestro_validation.h"
#include "support/fuzz.hpp"

using namespace kestro;
using namespace kestro::fuzz;

namespace {

constexpr size_t max_length = 4096;
constexpr int32_t time_server_refused = -34;

struct TextRow {
  int32_t (*validate)(const char*);
  std::initializer_list<int32_t> refusals;
};

// -1, the limit of the matcher, is left out where no value of this length reaches it.
const TextRow text_rows[] = {
    {validate_port_id, {-2}},
    {validate_c_port_id, {-2}},
    {validate_d_port_id, {-2}},
    {validate_vlan_name_id, {-2}},
    {validate_status, {-3}},
    {validate_oec_id, {-2}},
    {validate_vlan_mode, {-3}},
    {validate_description, {-2, -4}},
    {validate_oec_model, {-3}},
    {validate_entity_name, {-2}},
    {validate_entity_extension, {-4}},
    {validate_ip_address, {-2, -4, -5}},
    {validate_mac_address, {-2, -4, -5}},
    {validate_address_range, {-2}},
    {validate_dhcp_range, {-2}},
    {validate_general_address_range, {-2}},
    {validate_hostname, {-2}},
    {validate_preferred_time_servers, {time_server_refused}},
    {validate_oec_sw_upgrade_filename, {-2}},
    {validate_unit_sw_upgrade_filename, {-1, -2}},
    {validate_db_filename, {-2}},
    {validate_filename, {-2}},
    {validate_unit_sw_bank, {-3}},
    {validate_username, {-2, -3, -4, -5}},
    {validate_password, {-2, -4, -5}},
    {validate_uuid, {-2}},
    {validate_date, {-2}},
    {validate_time, {-2}},
    {validate_zone, {-2}},
};

struct NumberRow {
  int32_t (*validate)(int32_t);
  int32_t min;
  int32_t max;
};

constexpr NumberRow number_rows[] = {
    {validate_vlan_id, 1, 4050},
    {validate_unit_id, 1, 1},
    {validate_laser_id, 0, 7},
    {validate_olt_id, 0, 7},
    {validate_onu_id, -1, 64},
    {validate_port_number, 1, 64},
    {validate_periodic_interval, 1, 3600},
    {validate_port_link_speed, INT32_MIN, INT32_MAX},
};

// A text without the one line feed that a form admits behind it.
std::string_view without_line_feed(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  return text;
}

bool is_address(std::string_view text) {
  in_addr address{};
  return inet_pton(AF_INET, exact(text).get(), &address) == 1;
}

void check_texts(const char* text) {
  for (const auto& row : text_rows) {
    const int32_t result = row.validate(text);
    require(result == 0 || std::ranges::count(row.refusals, result) == 1, "a refusal is a documented one");
  }
}

void check_number(int32_t number) {
  for (const auto& row : number_rows) {
    const bool inside = number >= row.min && number <= row.max;
    require(row.validate(number) == (inside ? 0 : -6), "a number is accepted within its range");
  }
}

void check_agreement(const char* text) {
  const std::string_view whole = text;
  const bool is_port = validate_c_port_id(text) == 0 || validate_d_port_id(text) == 0;
  require((validate_port_id(text) == 0) == is_port, "a port is one of either kind");
  require(
      (validate_entity_name(text) == 0) == (is_port || validate_oec_id(text) == 0 || validate_vlan_name_id(text) == 0),
      "an entity is an edge switch, a port or a VLAN");
  require(validate_filename(text) == validate_oec_sw_upgrade_filename(text), "file names have one form");
  if (validate_unit_sw_upgrade_filename(text) == 0) require(validate_filename(text) == 0, "an image is a file");

  const bool fits = whole.size() <= INET_ADDRSTRLEN - 1;
  require((validate_ip_address(text) == 0) == (fits && is_address(without_line_feed(whole))),
          "an IPv4 address is what the system takes for one");
  const size_t slash = whole.find('/');
  if (validate_general_address_range(text) == 0) {
    require(slash != std::string_view::npos && is_address(whole.substr(0, slash)), "a range begins with an address");
  }
  if (validate_address_range(text) == 0) require(validate_general_address_range(text) == 0, "a range is a range");
}

void check_identifier(const char* text) {
  int32_t oec = -1;
  int32_t port = -1;
  const int32_t status = kestro_parse_oec_port_id(&oec, &port, text);
  require(status == 0 || status == -4, "0 or -4");
  require(status != 0 || oec != 0, "an identifier has an edge switch");
  const bool is_port = validate_c_port_id(text) == 0;
  if (!is_port && validate_oec_id(text) != 0) return;
  require(status == 0, "what is valid can be read");
  std::array<char, 16> again{};
  const int32_t written = is_port ? kestro_create_port_id_str(again.data(), again.size(), oec, port)
                                  : kestro_create_oec_id_str(again.data(), again.size(), oec);
  require(written == 0, "what was read can be written");
  require(strcasecmp(again.data(), std::string(without_line_feed(text)).c_str()) == 0, "and is the same then");
}

void check_mac(const char* text) {
  const Text mac = exact(text);
  const bool valid = validate_mac_address(text) == 0;
  std::array<uint8_t, 6> bytes{};
  require((kestro_str_to_mac_address(mac.get(), bytes.data()) == 0) == valid, "what is valid can be read");
  if (!valid) return;
  mac_str again{};
  kestro_bytes_to_mac_address_string(again, bytes.data());
  require(strcmp(again, mac.get()) == 0, "what was read can be written, and is the same then");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, std::min(size, max_length));
  choose_log_level(input.byte());
  const Text text = exact(input.rest());
  int32_t number = 0;
  memcpy(&number, text.get(), std::min(strlen(text.get()), sizeof(number)));
  check_number(number);
  check_number(static_cast<int16_t>(number));
  check_texts(text.get());
  check_agreement(text.get());
  check_identifier(text.get());
  check_mac(text.get());

  Input halves(reinterpret_cast<const uint8_t*>(text.get()), strlen(text.get()));
  const Text date = exact(halves.line());
  const Text time = exact(halves.rest());
  require((validate_date_time(date.get(), time.get()) == 0) ==
              (validate_date(date.get()) == 0 && validate_time(time.get()) == 0),
          "a date and time is one of each");
  return 0;
}
