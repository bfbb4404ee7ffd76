// Text fields that need more than a validator.
#include <cstring>

#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/error_data.hpp"
#include "kestro_jrpc_utils/fields.hpp"
#include "kestro_jrpc_utils/site.hpp"
#include "kestro_utils.h"
#include "kestro_validation.h"

using namespace kestro;
using namespace kestro::jrpc_utils;

namespace {

constexpr size_t max_alias_length = 8;
constexpr const char* retrieving_mac_address = "Retrieving mac address...\n";

int32_t normalise_mac_address(char* mac) noexcept {
  return as_status(kestro_validate_and_format_mac_addr_string(mac));
}

int32_t normalise_alias(char* alias, json_t** err_data) noexcept {
  if (strlen(alias) > max_alias_length) {
    replace_error_data(err_data, "Alias must be 8 characters or fewer.");
    return status::validation_failed;
  }
  kestro_str_to_upper(alias);
  return status::ok;
}

// Browsers name the second download of a file so that the name is no longer one of an image.
int32_t check_unit_sw_upgrade_filename(const char* name, json_t** err_data) noexcept {
  const int32_t result = as_status(validate_unit_sw_upgrade_filename(name));
  if (result != status::ok) {
    offer_error_data(err_data,
                     "Invalid filename. If you accidentally downloaded multiple copies, only the first will work.");
  }
  return result;
}

bool is_all(const char* id) noexcept {
  return strcmp(id, "all") == 0;
}

}  // namespace

int32_t kestro_jrpc_utils_retrieve_input_mac_address(const json_t* params, json_t** err_data, const char* param_name,
                                                     char* out, const int32_t length) noexcept {
  const int32_t result = extract(retrieving_mac_address, {params, err_data, param_name}, {out, length});
  if (result != status::ok) return result;
  return conclude(normalise_mac_address(out), "Retrieved and validated mac address: %s\n", {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_macaddr_allowed(const json_t* params, json_t** err_data,
                                                         const char* param_name, char* out,
                                                         const int32_t length) noexcept {
  const int32_t result = extract(retrieving_mac_address, {params, err_data, param_name}, {out, length});
  if (result != status::ok || strcmp(out, "none") == 0) return result;
  return conclude(normalise_mac_address(out), "Retrieved and validated mac address allowed: %s\n", {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_alias(const json_t* params, json_t** err_data, const char* param_name,
                                               char* out, const int32_t length) noexcept {
  const int32_t result = extract("Retrieving alias\n", {params, err_data, param_name}, {out, length});
  if (result != status::ok) return result;
  return conclude(normalise_alias(out, err_data), "Retrieved and validated alias: %s\n", {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_unit_sw_upgrade_filename(const json_t* params, json_t** err_data,
                                                                  const char* param_name, char* out,
                                                                  const int32_t length) noexcept {
  const int32_t result =
      extract("Retrieving unit sw upgrade filename...\n", {params, err_data, param_name}, {out, length});
  if (result != status::ok) return result;
  return conclude(check_unit_sw_upgrade_filename(out, err_data),
                  "Retrieved and validated unit sw upgrade filename: %s\n", {out, length});
}

int32_t kestro_jrpc_utils_retrieve_input_oec_id(const json_t* params, json_t** err_data, const char* param_name,
                                                char* oec_id, const int32_t length, int8_t include_all) noexcept {
  auto result = extract("Retrieving oec id...\n", {params, err_data, param_name}, {oec_id, length});
  if (result != status::ok) return result;
  if (include_all == 0 || !is_all(oec_id)) result = as_status(validate_oec_id(oec_id));
  return conclude(result, "Retrieved and validated oec id: %s\n", {oec_id, length});
}
