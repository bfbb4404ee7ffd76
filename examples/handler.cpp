// A method handler that reads a whole request and answers with encoded results.
//
//   {"oec_id": "c12",                                                       the edge switch
//    "ports": [{"port_number": 1, "port_status": 1, "poe_status": 0, "link_status": 0, "link_speed": 0,
//               "vlan_mode": 3, "vlan_ids": [10, 20]}],
//    "secure_port": 1, "mac_filters": [{"mac": "02-00-00-00-00-01", "mask": "FF:FF:FF:FF:FF:FF"}],
//    "dhcp": {"service_name": "lobby", "address_range": "10.0.0.0/24", "dhcp_range": "10.0.0.10-10.0.0.20",
//             "static_leases": [{"ip": "10.0.0.2", "mac": "02:00:00:00:00:01"}]}}
//
//   ->  {"oec_id": "c12", "vlans": {"c12-1": [10, 20]}, "allowed": ["02:00:00:00:00:01"], "leases": ["10.0.0.2"]}
//
// Each member is read by the function that knows its form. The first one that fails ends the handler with its status,
// from which "code" and "message" of the error object follow. "data" is what stands in `*err_data` by then: most
// functions leave an explanation themselves, and a handler adds its own where they do not.

#include "handler.hpp"

#include <kestro.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr int32_t ok = 0;
constexpr int32_t no_response = -30;  // numbers and texts: kestro_error.h

constexpr int32_t max_ports = 48;

struct Free {
  void operator()(void* p) const noexcept { free(p); }
};
struct Release {
  void operator()(json_t* json) const noexcept { json_decref(json); }
};
using Json = std::unique_ptr<json_t, Release>;
using Filters = std::unique_ptr<kestro_mac_filter, Free>;
using Leases = std::unique_ptr<static_lease, Free>;

// Everything that is asked for, checked. What it owns is released with it, also half read.
struct Request {
  char oec_id[8];
  int32_t oec_number;
  kestro_data_port ports[max_ports];
  int32_t port_count;
  int32_t secure_port;
  Filters filters;
  int32_t filter_count;
  address_pool dhcp;
  Leases leases;
};

// The one explanation of a request: the first one stays.
void explain(json_t** err_data, const char* why) {
  if (*err_data == nullptr) *err_data = kestro_jrpc_utils_simple_error_obj(why);
}

int32_t read_switch(const json_t* params, json_t** err_data, Request& request) {
  const int32_t status =
      kestro_jrpc_utils_retrieve_input_oec_id(params, err_data, "oec_id", request.oec_id, sizeof(request.oec_id), 0);
  if (status != ok) {
    explain(err_data, "oec_id: an edge switch is expected, like c12");  // for a text that was read and then refused
    return status;
  }
  int32_t no_port = 0;
  return kestro_parse_oec_port_id(&request.oec_number, &no_port, request.oec_id);
}

int32_t read_ports(const json_t* params, json_t** err_data, Request& request) {
  return kestro_jrpc_utils_retrieve_input_ports(params, err_data, "ports", request.ports, &request.port_count,
                                                max_ports);
}

// The filters are ours after success only: until then the pointer is not to be touched.
int32_t read_filters(const json_t* params, json_t** err_data, Request& request) {
  int32_t status = kestro_jrpc_utils_retrieve_input_port_number(params, err_data, "secure_port", &request.secure_port);
  if (status != ok) return status;
  kestro_mac_filter* filters = nullptr;
  status = kestro_jrpc_utils_retrieve_input_mac_filters(params, err_data, "mac_filters", &filters,
                                                        &request.filter_count, request.oec_number, request.secure_port);
  if (status == ok) request.filters.reset(filters);
  return status;
}

// The DHCP reader explains itself in a record of its own. The leases are ours after success, and also after a value in
// a wrong format; after any other failure their address is not to be touched.
int32_t read_dhcp(const json_t* params, json_t** err_data, Request& request) {
  error why{};
  const int32_t status = kestro_jrpc_utils_parse_service_dhcp(json_object_get(params, "dhcp"), &request.dhcp, &why);
  if (status == ok || strstr(why.msg, "has invalid format") != nullptr) {
    request.leases.reset(request.dhcp.static_leases);
  }
  if (status != ok) explain(err_data, why.msg);
  return status;
}

int32_t read(const json_t* params, json_t** err_data, Request& request) {
  int32_t status = read_switch(params, err_data, request);
  if (status == ok) status = read_ports(params, err_data, request);
  if (status == ok) status = read_filters(params, err_data, request);
  if (status == ok) status = read_dhcp(params, err_data, request);
  return status;
}

// {"c12-1": [10, 20], ...}
Json encode_vlans(const Request& request) {
  Json vlans(json_object());
  for (int32_t i = 0; i < request.port_count; ++i) {
    const kestro_data_port& port = request.ports[i];
    char id[16];
    if (kestro_create_port_id_str(id, sizeof(id), request.oec_number, port.port_number) != ok ||
        kestro_jrpc_utils_json_obj_set_vid_array(vlans.get(), id, port.vlan_id, port.num_of_vlan_ids) != ok) {
      return nullptr;
    }
  }
  return vlans;
}

Json encode_allowed(const Request& request) {
  Json allowed(json_array());
  for (int32_t i = 0; i < request.filter_count; ++i) {
    if (kestro_jrpc_utils_append_string_array(allowed.get(), request.filters.get()[i].mac) != ok) return nullptr;
  }
  return allowed;
}

Json encode_leases(const Request& request) {
  Json leases(json_array());
  for (int32_t i = 0; i < request.dhcp.n_leases; ++i) {
    if (kestro_jrpc_utils_append_string_array(leases.get(), request.leases.get()[i].ip) != ok) return nullptr;
  }
  return leases;
}

}  // namespace

int32_t provision(json_t* params, json_t** result, json_t** err_data) {
  Request request{};
  if (const int32_t status = read(params, err_data, request); status != ok) return status;

  // ... here a daemon configures the edge switch ...

  Json answer(json_pack("{s:s}", "oec_id", request.oec_id));
  if (json_object_set_new(answer.get(), "vlans", encode_vlans(request).release()) != 0 ||
      json_object_set_new(answer.get(), "allowed", encode_allowed(request).release()) != 0 ||
      json_object_set_new(answer.get(), "leases", encode_leases(request).release()) != 0) {
    return no_response;
  }
  *result = answer.release();
  return ok;
}
