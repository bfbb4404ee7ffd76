#include <cstdlib>

#include "core/status.hpp"
#include "kestro_utils.h"

using namespace kestro;

namespace {

// Walks the numbers of a version, "1.4.12".
class Version {
 public:
  explicit Version(const char* text) noexcept : at_(text) {}

  struct Component {
    bool present;
    int32_t number;  // 0 where the version has no further component
  };
  // Whatever stands between two numbers is skipped, but never the end of the text.
  Component next() noexcept {
    const char* const start = started_ && *at_ != '\0' ? at_ + 1 : at_;
    char* end = nullptr;
    const unsigned long number = strtoul(start, &end, 10);
    at_ = end;
    started_ = true;
    return {end != start, static_cast<int32_t>(number)};
  }

 private:
  const char* at_;
  bool started_ = false;
};

}  // namespace

int32_t kestro_utils_sw_version_strcmp(const char* version_new, const char* version_old) noexcept {
  if (kestro_check_for_null(2, version_new, version_old) != status::ok) return status::null_argument;
  Version new_version(version_new);
  Version old_version(version_old);
  for (;;) {
    const auto new_component = new_version.next();
    const auto old_component = old_version.next();
    if (!old_component.present) return 0;
    if (new_component.number != old_component.number) return new_component.number < old_component.number ? -1 : 1;
  }
}
