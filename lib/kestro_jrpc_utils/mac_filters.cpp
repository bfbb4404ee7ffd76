// The MAC addresses that a port admits, and what is asked of a secure port.
#include <algorithm>
#include <array>
#include <cstdlib>

#include "core/owned.hpp"
#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/fields.hpp"
#include "kestro_jrpc_utils/site.hpp"
#include "kestro_utils.h"

using namespace kestro;
using namespace kestro::jrpc_utils;

namespace {

using Filters = Owned<kestro_mac_filter, std::free>;

int32_t read_mac(const json_t* element, json_t** err_data, const char* name, mac_str& mac) noexcept {
  return kestro_jrpc_utils_retrieve_input_mac_address(element, err_data, name, mac, sizeof(mac));
}

int32_t read(const json_t* element, json_t** err_data, kestro_mac_filter& filter) noexcept {
  if (element == nullptr) return status::invalid_request_parameter;
  if (const auto result = read_mac(element, err_data, "mac", filter.mac); result != status::ok) return result;
  return read_mac(element, err_data, "mask", filter.mask);
}

}  // namespace

int32_t kestro_jrpc_utils_retrieve_input_mac_filters(const json_t* params, json_t** err_data, const char* param_name,
                                                     struct kestro_mac_filter** filters, int32_t* n_filters,
                                                     const int32_t oec_num, const int32_t port_num) noexcept {
  if (kestro_check_for_null(5, params, err_data, param_name, filters, n_filters) != status::ok) {
    return status::null_argument;
  }
  *filters = nullptr;
  *n_filters = 0;
  here().log(Verbose, "jrpc utils input mac filters\n");
  json_t* list = nullptr;
  int32_t result = kestro_jrpc_utils_parse_input_array(params, err_data, param_name, &list);
  if (result != status::ok) return result;

  const size_t count = json_array_size(list);
  *n_filters = static_cast<int32_t>(count);
  const size_t records = std::max<size_t>(count, 1);
  Filters array(static_cast<kestro_mac_filter*>(calloc(records, sizeof(kestro_mac_filter))));
  if (!array) return status::out_of_memory;
  *filters = array.get();  // stays there when the array is released: callers have to look at the status
  for (size_t i = 0; i < records; ++i) {
    kestro_mac_filter& filter = array.get()[i];
    if (i < count) result = read(json_array_get(list, i), err_data, filter);
    if (result != status::ok) return result;
    filter.oec_num = oec_num;
    filter.port_num = port_num;
  }
  *filters = array.release();
  return status::ok;
}

int32_t kestro_jrpc_utils_parse_input_secure_option(const json_t* params, json_t** err_data, const char* param_name,
                                                    kestro_data_secure_options* option) noexcept {
  constexpr int32_t refused = status::invalid_request_parameter;
  if (param_name == nullptr || option == nullptr) {
    return here().fail(Error, refused, "kestro_jrpc_utils_parse_input_secure_option received NULL input");
  }
  *option = KESTRO_DATA_SECURE_CURRENT;
  std::array<char, 100> text;
  if (kestro_jrpc_utils_parse_input_string(params, err_data, param_name, text.data(), text.size()) != status::ok) {
    return refused;
  }
  here().log(Config, "SealGuard - %s: <%s>\n", param_name, text.data());  // who asks to open a port is always on record
  int32_t value = 0;
  if (kestro_str_to_enum(&value, text.data(), kestro_data_secure_options_str) != status::ok) {
    return here().fail(Error, refused, "Invalid parameter <%s> for field: <%s>\n", text.data(), param_name);
  }
  *option = static_cast<kestro_data_secure_options>(value);
  return status::ok;
}
