// Records and arrays as JSON.
#include <cstring>

#include "core/owned.hpp"
#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/site.hpp"
#include "kestro_utils.h"

using namespace kestro;
using namespace kestro::jrpc_utils;

namespace {

json_t* text_of(const mac_str& mac) noexcept {
  return json_stringn(mac, strnlen(mac, sizeof(mac)));
}

Json array_of(const port_macs& port) noexcept {
  if (port.macs == nullptr && port.n_macs > 0) return nullptr;
  Json array(json_array());
  for (int32_t i = 0; i < port.n_macs; ++i) {
    if (json_array_append_new(array.get(), text_of(port.macs[i])) != 0) return nullptr;
  }
  return array;
}

}  // namespace

int32_t kestro_jrpc_utils_populate_json_mac_addresses_array(json_t** json_macs, mac_str* mac_addresses,
                                                            int32_t count) noexcept {
  if (json_macs == nullptr) return here().fail(Debug, status::null_argument, "NULL pointer!\n");
  *json_macs = nullptr;
  if (mac_addresses == nullptr && count != 0) return here().fail(Debug, status::null_argument, "NULL pointer!\n");

  Json array(json_array());
  if (!array) return here().fail(Error, status::out_of_memory, "Unable to create JSON array for MAC addresses\n");
  const int32_t listed = kestro_get_num_macs_to_list(count);
  for (int32_t i = 0; i < listed; ++i) {
    json_t* const text = text_of(mac_addresses[i]);
    if (text == nullptr) {
      here().log(Warning, "Failed to create JSON object for MAC address %d\n", i);
      break;  // some addresses are better than none
    }
    if (json_array_append_new(array.get(), text) != 0) {
      return here().fail(Error, status::general_error, "Failed to append MAC address %d to array\n", i);
    }
  }
  *json_macs = array.release();
  return status::ok;
}

json_t* kestro_jrpc_utils_populate_vid_array(const int32_t* vids, int32_t n_vids) noexcept {
  if (vids == nullptr && n_vids > 0) {
    here().log(Debug, "NULL pointer!\n");
    return nullptr;
  }
  Json array(json_array());
  if (!array) {
    here().log(Error, "Failed allocation\n");
    return nullptr;
  }
  for (int32_t i = 0; i < n_vids; ++i) {
    if (json_array_append_new(array.get(), json_integer(vids[i])) != 0) {
      here().log(Error, "Unable to append VID to VID json array\n");
      return nullptr;
    }
  }
  return array.release();
}

int32_t kestro_jrpc_utils_json_obj_set_vid_array(json_t* json_root, const char* name, const int32_t* vids,
                                                 const int32_t n_vids) noexcept {
  json_t* const array = kestro_jrpc_utils_populate_vid_array(vids, n_vids);
  if (array == nullptr) return status::response_not_formed;
  if (json_object_set_new(json_root, name, array) != 0) {  // which has released the array
    return here().fail(Debug, status::response_not_formed, "Unable to append VID json array to object\n");
  }
  return status::ok;
}

int32_t kestro_jrpc_utils_append_string_array(json_t* json_array, const char* str) noexcept {
  json_t* const text = json_string(str);
  if (text == nullptr) return here().fail(Error, status::response_not_formed, "json_string\n");
  if (json_array_append_new(json_array, text) != 0) {  // which has released the text
    return here().fail(Error, status::response_not_formed, "append new\n");
  }
  return status::ok;
}

json_t* kestro_jrpc_utils_encode_olt_counter_strings(struct kestro_counter_strings* counters) noexcept {
  if (counters == nullptr) return nullptr;
  return json_pack("{s:s,s:s,s:s,s:s,s:s,s:s,s:s,s:s,s:s,s:s,s:s,s:s}",   //
                   "tx_frames", counters->tx_frames,                      //
                   "rx_frames", counters->rx_frames,                      //
                   "tx_bytes", counters->tx_bytes,                        //
                   "rx_bytes", counters->rx_bytes,                        //
                   "rx_error_frames", counters->rx_error_frames,          //
                   "rx_discard_frames", counters->rx_discard_frames,      //
                   "tx_unicast_frames", counters->tx_unicast_frames,      //
                   "rx_unicast_frames", counters->rx_unicast_frames,      //
                   "tx_multicast_frames", counters->tx_multicast_frames,  //
                   "rx_multicast_frames", counters->rx_multicast_frames,  //
                   "tx_broadcast_frames", counters->tx_broadcast_frames,  //
                   "rx_broadcast_frames", counters->rx_broadcast_frames);
}

json_t* kestro_jrpc_utils_encode_all_mac_addresses_connected(int32_t nmemb, const struct port_macs* macs) noexcept {
  if (macs == nullptr) return nullptr;
  Json ports(json_array());
  if (!ports) return nullptr;
  for (int32_t i = 0; i < nmemb; ++i) {
    if (json_array_append_new(ports.get(), array_of(macs[i]).release()) != 0) return nullptr;
  }
  return ports.release();
}
