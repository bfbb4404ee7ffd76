// The DHCP services of the unit.
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "common/log.hpp"
#include "configd/handlers.hpp"
#include "kestro_data.h"
#include "kestro_jrpc_utils.h"

namespace kestro::configd {

namespace {

struct Lease {
  std::string ip;
  std::string mac;
};

struct DhcpService {
  std::string name;
  std::string address_range;
  std::string dhcp_range;
  std::vector<Lease> leases;
};

// The leases are ours after success, and also after a value in a wrong format. After any other failure their address is
// one that was released, or was never one.
Allocated<static_lease> own_leases(const address_pool& pool, int32_t status, std::string_view why) {
  const bool ours = status == status::ok || why.ends_with("has invalid format");
  return Allocated<static_lease>(ours ? pool.static_leases : nullptr);
}

DhcpService read_service(const Request& request) {
  address_pool pool{};
  error why{};
  const int32_t status = kestro_jrpc_utils_parse_service_dhcp(request.params(), &pool, &why);
  const Allocated<static_lease> leases = own_leases(pool, status, why.msg);
  if (status != status::ok) throw Failure(status, why.msg);
  DhcpService service{pool.service_name, pool.address_range, pool.dhcp_range, {}};
  for (int32_t i = 0; i < pool.n_leases; ++i) service.leases.push_back({leases.get()[i].ip, leases.get()[i].mac});
  return service;
}

// A name is cut at 50 bytes, which may leave half a character at its end.
void require_name(const std::string& name) {
  if (name.empty() || Json(json_string(name.c_str())) == nullptr) {
    throw Failure(status::validation_failed, "service_name: 1 to 50 bytes are expected");
  }
}

void store(const Database& database, const DhcpService& service) {
  database.write("DELETE FROM dhcp_service WHERE name = ?1", service.name);
  database.write("INSERT INTO dhcp_service (name, address_range, dhcp_range) VALUES (?1, ?2, ?3)", service.name,
                 service.address_range, service.dhcp_range);
  Statement insert = database.prepare("INSERT INTO dhcp_lease VALUES (?1, ?2, ?3, ?4)");
  for (size_t i = 0; i < service.leases.size(); ++i) {
    insert.bind(service.name, static_cast<int64_t>(i), service.leases[i].ip, service.leases[i].mac).run();
  }
}

// The tables refuse an address that is leased twice.
void store_checked(const Database& database, const DhcpService& service) {
  try {
    store(database, service);
  } catch (const Failure& failure) {
    if (failure.status() != status::constraint_violated) throw;
    const bool by_mac = strstr(failure.what(), "dhcp_lease_mac") != nullptr;
    throw Failure(by_mac ? status::mac_exists : status::ip_in_use, by_mac
                                                                       ? "static_leases: a MAC address is given twice"
                                                                       : "static_leases: an IP address is given twice");
  }
}

Json load_leases(const Database& database, const std::string& name) {
  Statement rows = database.prepare("SELECT ip, mac FROM dhcp_lease WHERE service_name = ?1 ORDER BY position");
  rows.bind(name);
  Json list(json_array());
  while (rows.step()) {
    json_array_append_new(list.get(), json_pack("{s:s,s:s}", "ip", rows.text(0).c_str(), "mac", rows.text(1).c_str()));
  }
  return list;
}

json_t* encode(const Database& database, const Statement& row) {
  return json_pack("{s:s,s:s,s:s,s:o}", "service_name", row.text(0).c_str(), "address_range", row.text(1).c_str(),
                   "dhcp_range", row.text(2).c_str(), "static_leases", load_leases(database, row.text(0)).release());
}

Json load_service(const Database& database, const std::string& name) {
  Statement row = database.prepare("SELECT name, address_range, dhcp_range FROM dhcp_service WHERE name = ?1");
  if (!row.bind(name).step()) throw Failure(status::no_records, "there is no DHCP service " + name);
  return Json(encode(database, row));
}

}  // namespace

Json dhcp_set_service(Context& context, const Request& request) {
  const DhcpService service = read_service(request);
  require_name(service.name);
  Transaction transaction(context.database);
  store_checked(context.database, service);
  Json answer = load_service(context.database, service.name);  // nothing is stored that cannot be answered
  transaction.commit();
  daemons::log_info("DHCP service " + service.name + ": is now " + service.address_range + " with " +
                    std::to_string(service.leases.size()) + " static leases");
  return answer;
}

Json dhcp_get_service(Context& context, const Request& request) {
  return load_service(context.database, request.service_name("service_name"));
}

Json dhcp_list(Context& context, const Request& /*request*/) {
  Statement rows = context.database.prepare("SELECT name, address_range, dhcp_range FROM dhcp_service ORDER BY name");
  Json list(json_array());
  while (rows.step()) json_array_append_new(list.get(), encode(context.database, rows));
  return list;
}

Json dhcp_remove(Context& context, const Request& request) {
  const std::string name = request.service_name("service_name");
  Transaction transaction(context.database);
  load_service(context.database, name);
  context.database.write("DELETE FROM dhcp_service WHERE name = ?1", name);
  transaction.commit();
  daemons::log_info("DHCP service " + name + ": removed");
  return nullptr;
}

}  // namespace kestro::configd
