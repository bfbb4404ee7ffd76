// The parameters of a request that configures a port.
#include <benchmark/benchmark.h>
#include <jansson.h>

#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "core/owned.hpp"
#include "kestro_jrpc_utils.h"
#include "kestro_validation.h"
#include "work.hpp"

namespace kestro::bench {

namespace {

struct Port {
  std::array<char, 16> id;
  std::array<char, 16> status;
  std::array<char, 52> description;
  std::array<char, 16> vlan_mode;
  int32_t vlan_id;
  int32_t enable;
};

template <size_t Size>
constexpr int32_t size_of(const std::array<char, Size>& /*buffer*/) {
  return static_cast<int32_t>(Size);
}

bool retrieve(const json_t* params, Port& port) {
  json_t* why = nullptr;
  return kestro_jrpc_utils_retrieve_input_port_id(params, &why, "port_id", port.id.data(), size_of(port.id), 0, 0, 1,
                                                  1) == 0 &&
         kestro_jrpc_utils_retrieve_input_status(params, &why, "status", port.status.data(), size_of(port.status)) ==
             0 &&
         kestro_jrpc_utils_retrieve_input_description(params, &why, "description", port.description.data(),
                                                      size_of(port.description)) == 0 &&
         kestro_jrpc_utils_retrieve_input_vlan_mode(params, &why, "vlan_mode", port.vlan_mode.data(),
                                                    size_of(port.vlan_mode)) == 0 &&
         kestro_jrpc_utils_retrieve_input_vlan_id(params, &why, "vlan_id", &port.vlan_id) == 0 &&
         kestro_jrpc_utils_retrieve_input_enable(params, &why, "enable", &port.enable) == 0;
}

template <size_t Size>
const char* copy_member(const json_t* params, const char* name, std::array<char, Size>& buffer) {
  snprintf(buffer.data(), Size, "%s", json_string_value(json_object_get(params, name)));
  return buffer.data();
}

int32_t number_member(const json_t* params, const char* name) {
  return static_cast<int32_t>(json_integer_value(json_object_get(params, name)));
}

bool look_up(const json_t* params, Port& port) {
  const bool valid = validate_port_id(copy_member(params, "port_id", port.id)) == 0 &&
                     validate_status(copy_member(params, "status", port.status)) == 0 &&
                     validate_description(copy_member(params, "description", port.description)) == 0 &&
                     validate_vlan_mode(copy_member(params, "vlan_mode", port.vlan_mode)) == 0;
  port.vlan_id = number_member(params, "vlan_id");
  port.enable = number_member(params, "enable");
  return valid && validate_vlan_id(port.vlan_id) == 0;
}

Repeat reading(std::shared_ptr<json_t> params, bool (*read)(const json_t*, Port&)) {
  return repeat([params = std::move(params), read] {
    Port port;
    if (!read(params.get(), port)) throw std::logic_error("the request is not as it should be");
    benchmark::DoNotOptimize(port);
  });
}

Pair port_request() {
  const std::shared_ptr<json_t> params(
      json_pack("{s:s,s:s,s:s,s:s,s:i,s:i}", "port_id", "c12-3", "status", "enable", "description",
                "printer in the lobby", "vlan_mode", "access", "vlan_id", 100, "enable", 1),
      JsonRelease());
  return {reading(params, retrieve), reading(params, look_up)};
}

}  // namespace

std::vector<Work> retrieval_work() {
  return {{.name = "retrieve: port request, 6 members", .target = 1.15, .prepare = port_request}};
}

}  // namespace kestro::bench
