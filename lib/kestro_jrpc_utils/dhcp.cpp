// The description of a DHCP service.
#include <cstdlib>
#include <span>

#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/site.hpp"
#include "kestro_malloc.h"
#include "kestro_utils.h"
#include "kestro_utils/text_output.hpp"
#include "kestro_validation.h"

using namespace kestro;
using namespace kestro::jrpc_utils;

namespace {

// What came of reading. Callers have learnt to own the leases after the one failure and not after the other.
enum class Outcome { taken, misshapen, invalid };

struct TextMember {
  const char* name;
  const char* misshapen;
  int32_t (*validate)(const char*);  // null: any text
  const char* invalid;
};

constexpr TextMember service_name{
    "service_name", "DHCP obj field service_name either does not exist or is not a string", nullptr, nullptr};
constexpr TextMember address_range{"address_range",
                                   "DHCP obj field address_range either does not exist or is not a string",
                                   validate_address_range, "DHCP address_range (%s) has invalid format"};
constexpr TextMember dhcp_range{"dhcp_range", "DHCP obj field dhcp_range either does not exist or is not a string",
                                validate_dhcp_range, "DHCP dhcp_range (%s) has invalid format"};
constexpr TextMember lease_ip{"ip", "static lease object ip field is either missing or not a string",
                              validate_ip_address, "static lease IP (%s) has invalid format"};
constexpr TextMember lease_mac{"mac", "static lease object mac field is either missing or not a string",
                               validate_mac_address, "static lease MAC address (%s) has invalid format"};

// Copies what fits, and validates the copy: it is what will be used.
Outcome read(const TextMember& member, const json_t* object, std::span<char> out, struct error* err) noexcept {
  const char* const text = json_string_value(json_object_get(object, member.name));
  if (text == nullptr) {
    err_printf(err, "%s", member.misshapen);
    return Outcome::misshapen;
  }
  print(out, "%s", text);
  if (member.validate != nullptr && member.validate(out.data()) != status::ok) {
    err_printf(err, member.invalid, out.data());
    return Outcome::invalid;
  }
  return Outcome::taken;
}

Outcome read(const json_t* entry, static_lease& lease, struct error* err) noexcept {
  if (!json_is_object(entry)) {
    err_printf(err, "static lease entry is not an object");
    return Outcome::misshapen;
  }
  const Outcome ip = read(lease_ip, entry, lease.ip, err);
  return ip == Outcome::taken ? read(lease_mac, entry, lease.mac, err) : ip;
}

// After a misshapen entry the list is released, and the record keeps its address.
Outcome read_leases(const json_t* list, address_pool& dhcp, struct error* err) noexcept {
  const size_t count = json_array_size(list);
  dhcp.n_leases = static_cast<int32_t>(count);
  dhcp.static_leases = static_cast<static_lease*>(ocalloc(count, sizeof(static_lease)));
  for (size_t i = 0; i < count; ++i) {
    const Outcome outcome = read(json_array_get(list, i), dhcp.static_leases[i], err);
    if (outcome == Outcome::misshapen) free(dhcp.static_leases);
    if (outcome != Outcome::taken) return outcome;
  }
  return Outcome::taken;
}

Outcome read(const json_t* object, address_pool& dhcp, struct error* err) noexcept {
  Outcome outcome = read(service_name, object, dhcp.service_name, err);
  if (outcome == Outcome::taken) outcome = read(address_range, object, dhcp.address_range, err);
  if (outcome == Outcome::taken) outcome = read(dhcp_range, object, dhcp.dhcp_range, err);
  if (outcome != Outcome::taken) return outcome;

  const json_t* const leases = json_object_get(object, "static_leases");
  if (!json_is_array(leases)) {
    err_printf(err, "DHCP obj field static_leases either does not exist or is not an array");
    return Outcome::misshapen;
  }
  return read_leases(leases, dhcp, err);
}

}  // namespace

int32_t kestro_jrpc_utils_parse_service_dhcp(json_t* dhcp_obj, struct address_pool* dhcp, struct error* err) noexcept {
  if (dhcp == nullptr || err == nullptr) return refuse_null(here());
  *dhcp = {};
  return read(dhcp_obj, *dhcp, err) == Outcome::taken ? status::ok : status::parameter_error;
}
