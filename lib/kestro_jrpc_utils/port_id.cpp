// Identifiers of ports, of the kinds that a method takes.
#include <cstring>
#include <string_view>

#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/fields.hpp"
#include "kestro_jrpc_utils/site.hpp"
#include "kestro_validation.h"

using namespace kestro;
using namespace kestro::jrpc_utils;

namespace {

struct Kinds {
  bool all;
  bool oec_id;
  bool c_ports;
  bool d_ports;
};

// The validator of the ports that are taken, and what tells the requester which these are.
struct PortRule {
  int32_t (*validate)(const char*);
  int32_t refusal;
};

// By whether C-ports are taken, and then D-ports.
constexpr PortRule port_rules[2][2] = {
    {{nullptr, status::validation_failed}, {validate_d_port_id, status::not_a_d_port}},
    {{validate_c_port_id, status::not_a_c_port}, {validate_port_id, status::validation_failed}},
};

// Whether this is meant for a port of the head-end unit, whose second half goes by "x1", "x2" and so on.
bool names_head_end_port(std::string_view id) noexcept {
  return !id.empty() && std::string_view("dDxX").find(id.front()) != std::string_view::npos;
}

int32_t check_port_id(const char* id, const Kinds& kinds) noexcept {
  if (kinds.all && strcmp(id, "all") == 0) return status::ok;
  const PortRule& rule = port_rules[kinds.c_ports][kinds.d_ports];
  if (rule.validate != nullptr && rule.validate(id) == status::ok) return status::ok;
  if (kinds.oec_id && validate_oec_id(id) == status::ok) return status::ok;
  if (kinds.d_ports && names_head_end_port(id)) return status::no_such_port;
  return kinds.oec_id ? status::not_an_oec : rule.refusal;
}

}  // namespace

int32_t kestro_jrpc_utils_retrieve_input_port_id(const json_t* params, json_t** err_data, const char* param_name,
                                                 char* port_id, const int32_t length, int8_t include_all,
                                                 int8_t include_oec_id, int8_t include_c_ports,
                                                 int8_t include_d_ports) noexcept {
  const int32_t result = extract("Retrieving port id...\n", {params, err_data, param_name}, {port_id, length});
  if (result != status::ok) return result;
  const Kinds kinds{include_all != 0, include_oec_id != 0, include_c_ports != 0, include_d_ports != 0};
  return conclude(check_port_id(port_id, kinds), "Retrieved and validated port id: %s\n", {port_id, length});
}
