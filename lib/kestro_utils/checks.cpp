#include <cstdarg>

#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_utils.h"

using namespace kestro;

namespace {
constexpr auto here = site_of("kestro_utils");
}

int32_t kestro_check_for_null(int32_t num_of_args, ...) noexcept {
  va_list args;
  va_start(args, num_of_args);
  int32_t index = 0;
  while (index < num_of_args && va_arg(args, const void*) != nullptr) ++index;
  va_end(args);

  if (index >= num_of_args) return status::ok;
  return here().fail(Warning, status::general_error, "Found a null input parameter at varg index <%d>\n", index);
}

bool s_overflow_check(int32_t wbytes, int32_t sz) noexcept {
  if (static_cast<uint32_t>(wbytes) < static_cast<uint32_t>(sz)) return false;
  here().log(Error, "OVERFLOW: wbytes %d sz %d\n", wbytes, sz);
  print_stacktrace();
  return true;
}
