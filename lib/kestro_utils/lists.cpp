// Lists of ports and of VLANs.
#undef NDEBUG  // the assertion below is part of the interface
#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstring>

#include "cli_mw_port_struct.h"
#include "core/status.hpp"
#include "kestro_data.h"
#include "kestro_utils.h"
#include "kestro_utils/text_input.hpp"

using namespace kestro;

namespace {

constexpr int32_t line_size = 128;
constexpr size_t csv_size = 5UL * KESTRO_DATA_MAX_VLANS_PER_PORT;  // four digits and a comma each

// One port as it stands in the list: a blank before it unless it opens the line, a comma behind it unless it is last.
int32_t print_port(char (&out)[32], const cli_mw_vlan_struct& list, int32_t index, bool opens_line) noexcept {
  const auto oec = static_cast<uint16_t>(list.oec[index]);
  const auto port = static_cast<uint16_t>(list.port[index]);
  const char* const blank = opens_line ? "" : " ";
  const char* const comma = index + 1 < list.num_ports ? "," : "";
  if (oec != 0) return snprintf(out, sizeof out, "%sc%hu-%hu%s", blank, oec, port, comma);
  return snprintf(out, sizeof out, "%sd%hu%s", blank, port, comma);
}

}  // namespace

int32_t kestro_port_str_create(const struct cli_mw_vlan_struct* vlan_info, int32_t* idx, char* string,
                               int32_t usable_char) noexcept {
  if (kestro_check_for_null(3, vlan_info, idx, string) != status::ok) return status::null_argument;
  if (*idx < 0 || usable_char >= line_size) return status::parameter_error;

  char* end = string;
  const int32_t start_idx = *idx;
  const int32_t num_ports = std::min<int32_t>(vlan_info->num_ports, CLI_MW_MAX_PORTS);
  while (*idx < num_ports) {
    char entry[32];
    const int32_t length = print_port(entry, *vlan_info, *idx, *idx == start_idx);
    ++*idx;
    if (end - string + length > usable_char) break;
    end = std::copy_n(entry, length, end);
  }
  if (end - string < usable_char) end = std::fill_n(end, usable_char - (end - string), ' ');
  *end = '\0';
  return status::ok;
}

int32_t vlan_csv_to_array(char* s, int32_t* vids, int16_t* n_vids) noexcept {
  assert(s != NULL && vids != NULL);  // NOLINT(modernize-use-nullptr): the text that is shown
  if (kestro_check_for_null(1, n_vids) != status::ok) return status::null_argument;
  *n_vids = 0;
  char* rest = nullptr;
  for (char* token = strtok_r(s, ",", &rest); token != nullptr && *n_vids < KESTRO_DATA_MAX_VLANS_PER_PORT;
       token = strtok_r(nullptr, ",", &rest)) {
    vids[(*n_vids)++] = leading_number(token);
  }
  return status::ok;
}

str_t* vlan_array_to_csv(const int32_t* vids, int32_t n_vids) noexcept {
  str_t* const csv = str_init(csv_size);
  for (int32_t i = 0; i < n_vids; ++i) {
    if (str_printf(csv, i == 0 ? "%d" : ",%d", vids[i]) != status::ok) {
      str_free(csv);
      return nullptr;
    }
  }
  return csv;
}

bool int32_in_array(int32_t val, const int32_t* a, size_t a_sz) noexcept {
  return std::find(a, a + a_sz, val) != a + a_sz;
}
