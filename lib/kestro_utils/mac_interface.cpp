#include <array>
#include <cstring>

#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_utils.h"
#include "kestro_utils/command.hpp"

using namespace kestro;

namespace {
constexpr auto here = site_of("kestro_utils");
constexpr size_t text_length = 17;
}  // namespace

int32_t get_nc_mac_addr(const char* iface, char* mac) noexcept {
  if (kestro_check_for_null(2, iface, mac) != status::ok) return status::null_argument;
  mac[0] = '\0';
  CommandLine<128> command;
  if (!command.append("cat /sys/class/net/%s/address", iface).fits()) return status::general_error;
  const Pipe output = command.run();
  if (output == nullptr) {
    kestro_panic("could not open pipe");
    return status::general_error;
  }

  std::array<char, 128> line{};
  if (!read_line(output, line)) {
    return here().fail(Error, status::general_error, "No output from cmd %s\n", command.text());
  }
  if (strlen(line.data()) != text_length + 1) {
    return here().fail(Error, status::general_error, "Str %s does not look like a MAC\n", line.data());
  }
  line[text_length] = '\0';
  kestro_str_to_upper(line.data());
  memcpy(mac, line.data(), text_length + 1);
  return status::ok;
}
