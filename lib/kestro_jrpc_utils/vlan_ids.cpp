// The VLAN list of a port.
#include "kestro_data.h"
#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/site.hpp"
#include "kestro_utils.h"
#include "kestro_validation.h"

using namespace kestro;
using namespace kestro::jrpc_utils;

namespace {

// Puts an element behind the `count` numbers that were taken before it.
int32_t append(const json_t* element, int32_t* vlan_ids, size_t count) noexcept {
  const auto vlan_id = static_cast<int32_t>(json_integer_value(element));
  if (validate_vlan_id(vlan_id) != status::ok) return status::invalid_request_parameter;
  if (int32_in_array(vlan_id, vlan_ids, count)) {
    return here().fail(Error, status::not_unique, "Received duplicate Vlan id's.\n");
  }
  vlan_ids[count] = vlan_id;
  return status::ok;
}

}  // namespace

int32_t kestro_jrpc_utils_retrieve_input_vlan_ids(const json_t* params, json_t** /*err_data*/, const char* param_name,
                                                  int32_t* vlan_ids, int32_t* num_of_vlans) noexcept {
  if (param_name == nullptr || vlan_ids == nullptr || num_of_vlans == nullptr) return refuse_null(here());
  *num_of_vlans = 0;
  const json_t* const list = json_object_get(params, param_name);
  if (list == nullptr) return here().fail(Error, status::not_found, "Failed, vlan ID is null.\n");

  const size_t count = json_array_size(list);
  *num_of_vlans = static_cast<int32_t>(count);
  if (count > KESTRO_DATA_MAX_VLANS_PER_PORT) return status::too_many_vlans;
  for (size_t i = 0; i < count; ++i) {
    if (const auto result = append(json_array_get(list, i), vlan_ids, i); result != status::ok) return result;
  }
  return status::ok;
}
