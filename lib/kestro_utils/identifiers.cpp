// Texts that name edge switches and ports: "c12", "c12-4", "d5", "dports".
#include <cstring>

#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_data.h"
#include "kestro_utils.h"
#include "kestro_utils/text_input.hpp"
#include "kestro_utils/text_output.hpp"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_utils");
constexpr int32_t head_end = KESTRO_DATA_OEC_NUMBER_HEAD_END;
constexpr size_t max_id_length = 8;
// The ports named "x1", "x2" ... come behind the first eight of the head-end unit.
constexpr int32_t ports_before_x = 8;

struct Port {
  int32_t& oec;
  int32_t& number;
};

int32_t parse_head_end_port(Port port, const char* id) noexcept {
  if (strcmp(id, "dports") == 0) {
    port.oec = head_end;
    return status::ok;
  }
  port.number = leading_number(id + 1);
  if (port.number == 0) {
    return here().fail(Debug, status::parameter_error, "Could not parse port number from %s\n", id);
  }
  port.oec = head_end;
  return status::ok;
}

int32_t parse_x_port(Port port, const char* id) noexcept {
  const int32_t number = leading_number(id + 1);
  if (number == 0) return here().fail(Error, status::parameter_error, "Could not parse port number from %s\n", id);
  port.number = number + ports_before_x;
  port.oec = head_end;
  return status::ok;
}

int32_t parse_edge_switch_or_port(Port port, const char* id) noexcept {
  // Only what stands before the dash, which would otherwise be taken for a sign in "c-4".
  char digits[max_id_length + 1] = {};
  const char* const dash = strchr(id, '-');
  memcpy(digits, id + 1, dash != nullptr ? static_cast<size_t>(dash - id - 1) : strlen(id + 1));
  port.oec = leading_number(digits);
  if (port.oec != 0 && dash != nullptr) port.number = leading_number(dash + 1);
  if (port.oec != 0 && (dash == nullptr || port.number != 0)) return status::ok;
  return here().fail(Error, status::parameter_error, "Could not parse port number from %s\n", id);
}

}  // namespace

int32_t kestro_create_port_id_str(char* string_id, int32_t string_length, int32_t oec_number,
                                  int32_t port_number) noexcept {
  if (kestro_check_for_null(1, string_id) != status::ok) return status::parameter_error;
  const auto out = output(string_id, string_length);
  clear(out);
  if (oec_number < 1) {
    return here().fail(Debug, status::general_error,
                       "Unable to create port id string due to oec number being less than 0\n");
  }
  if (oec_number >= head_end) {
    print(out, "d%d", port_number);
  } else {
    print(out, "c%d-%d", oec_number, port_number);
  }
  return status::ok;
}

int32_t kestro_create_oec_id_str(char* string_id, int32_t string_length, int32_t oec_number) noexcept {
  if (kestro_check_for_null(1, string_id) != status::ok) return status::parameter_error;
  print(output(string_id, string_length), "c%d", oec_number);
  return status::ok;
}

int32_t kestro_parse_oec_port_id(int32_t* oec_number, int32_t* port_number, const char* string_id) noexcept {
  if (kestro_check_for_null(3, oec_number, port_number, string_id) != status::ok) {
    return here().fail(Error, status::null_argument, "NULL input\n");
  }
  *oec_number = 0;
  *port_number = 0;
  if (strnlen(string_id, max_id_length + 1) > max_id_length) return status::parameter_error;

  switch (string_id[0]) {
    case 'd':
    case 'D':
      return parse_head_end_port({*oec_number, *port_number}, string_id);
    case 'x':
    case 'X':
      return parse_x_port({*oec_number, *port_number}, string_id);
    case 'c':
    case 'C':
      return parse_edge_switch_or_port({*oec_number, *port_number}, string_id);
    default:
      return here().fail(Debug, status::parameter_error, "Could not parse oec/port number from %s\n", string_id);
  }
}
