#include <cstring>

#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_utils.h"
#include "kestro_utils/text_output.hpp"

using namespace kestro;

namespace {
constexpr auto here = site_of("kestro_utils");
}

int32_t kestro_enum_to_str(char* enum_str, int32_t str_length, int32_t enum_int,
                           const char* const* enum_mapping) noexcept {
  if (kestro_check_for_null(2, enum_str, enum_mapping) != status::ok) return status::parameter_error;
  const char* const text = enum_mapping[enum_int];
  print(output(enum_str, str_length), "%s", text);
  here().log(Verbose, "Mapped enum value <%d> to string <%s>\n", enum_int, text);
  return status::ok;
}

int32_t kestro_str_to_enum(int32_t* enum_int, const char* enum_str, const char* const* enum_mapping) noexcept {
  if (kestro_check_for_null(3, enum_int, enum_str, enum_mapping) != status::ok) return status::parameter_error;
  for (int32_t value = 0; enum_mapping[value] != nullptr; ++value) {
    if (strcmp(enum_mapping[value], enum_str) == 0) {
      *enum_int = value;
      here().log(Verbose, "Mapped string <%s> to enum value <%d>\n", enum_str, value);
      return status::ok;
    }
  }
  return here().fail(Verbose, status::general_error, "Unable to map string <%s> to enum value\n", enum_str);
}
