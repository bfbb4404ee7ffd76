// The two forms of a MAC address: a text, and six bytes.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_data.h"
#include "kestro_utils.h"
#include "kestro_validation.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_utils");
constexpr int32_t text_length = 17;
constexpr int32_t group_width = 3;  // two digits and a delimiter
constexpr size_t byte_count = 6;

void replace_delimiters(char* mac) noexcept {
  for (int32_t i = group_width - 1; i < text_length; i += group_width) mac[i] = ':';
}

}  // namespace

int32_t kestro_validate_and_format_mac_addr_string(char* mac) noexcept {
  if (kestro_check_for_null(1, mac) != status::ok) return status::null_argument;
  here().log(Debug, "Validating and reformatting given mac address string <%s>\n", mac);
  if (strnlen(mac, text_length + 1) != text_length) {
    return here().fail(Debug, status::parameter_error,
                       "Incorrect mac address length, aborting reformation and validation\n");
  }
  if (validate_mac_address(mac) != status::ok) return status::parameter_error;

  here().log(Verbose, "Converting all characters to uppercase\n");
  kestro_to_upper(mac, text_length);
  here().log(Verbose, "Replacing delimiters with ':'\n");
  replace_delimiters(mac);
  return status::ok;
}

int32_t kestro_str_to_mac_address(char* mac_address_str, uint8_t* mac_address) noexcept {
  if (kestro_check_for_null(2, mac_address_str, mac_address) != status::ok) return status::null_argument;
  const int32_t result = kestro_validate_and_format_mac_addr_string(mac_address_str);
  if (result != status::ok) return result;

  here().log(Debug, "[%s]: Parsing MAC address <%s>\n", "kestro_str_to_mac_address", mac_address_str);
  for (size_t i = 0; i < byte_count; ++i) {
    mac_address[i] = static_cast<uint8_t>(strtol(mac_address_str + group_width * i, nullptr, 16));
    here().log(Verbose, "Byte <%d>: <%02X>\n", static_cast<int>(i), mac_address[i]);
  }
  return status::ok;
}

int32_t kestro_mac_address_to_char_array(const char* mac, uint8_t* a) noexcept {
  if (kestro_check_for_null(2, mac, a) != status::ok) return status::null_argument;
  uint8_t b[byte_count] = {};
  // NOLINTNEXTLINE(cert-err34-c): groups beyond a byte are wanted to wrap, as the scanner does
  const int groups = sscanf(mac, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5]);
  if (groups != static_cast<int>(byte_count)) return status::parameter_error;
  memcpy(a, b, sizeof b);
  return status::ok;
}

void kestro_bytes_to_mac_address_string(char* mac_addr, const uint8_t* bytes) noexcept {
  snprintf(mac_addr, sizeof(mac_str), "%02hhX:%02hhX:%02hhX:%02hhX:%02hhX:%02hhX", bytes[0], bytes[1], bytes[2],
           bytes[3], bytes[4], bytes[5]);
}

int32_t kestro_mac_last_4_bytes_to_uint32_t(const uint8_t* mac_bytes, uint32_t* num) noexcept {
  *num = static_cast<uint32_t>(mac_bytes[2]) << 24 | static_cast<uint32_t>(mac_bytes[3]) << 16 |
         static_cast<uint32_t>(mac_bytes[4]) << 8 | static_cast<uint32_t>(mac_bytes[5]);
  return status::ok;
}
