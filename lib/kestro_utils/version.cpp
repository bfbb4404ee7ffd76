#include <cstdlib>

#include "core/status.hpp"
#include "kestro_utils.h"

using namespace kestro;

namespace {

// One number of a version, "1.4.12".
struct Component {
  bool present;
  int32_t number;  // 0 where the version has no further component
};

// Takes the next number off a version, and the one character behind it, whatever that is; never the end of the text.
Component take_component(const char*& version) noexcept {
  char* end = nullptr;
  const unsigned long number = strtoul(version, &end, 10);
  const bool present = end != version;
  version = *end != '\0' ? end + 1 : end;
  return {present, static_cast<int32_t>(number)};
}

}  // namespace

int32_t kestro_utils_sw_version_strcmp(const char* version_new, const char* version_old) noexcept {
  if (kestro_check_for_null(2, version_new, version_old) != status::ok) return status::null_argument;
  for (;;) {
    const auto newer = take_component(version_new);
    const auto older = take_component(version_old);
    if (!older.present) return 0;
    if (newer.number != older.number) return newer.number < older.number ? -1 : 1;
  }
}
