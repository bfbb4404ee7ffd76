// Any file for the reader of configuration files, against a second reading of the same rules.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string>

#include "kestro_conf_parser.h"
#include "support/fuzz.hpp"

using namespace kestro;
using namespace kestro::fuzz;

namespace {

constexpr int32_t not_found = -35;
constexpr int32_t too_long = -41;
constexpr char untouched = '#';
constexpr size_t max_section = 49;
constexpr size_t max_key = 50;

// A file that lives in memory, with a path by which the reader opens it.
class MemoryFile {
 public:
  const char* hold(std::string_view bytes) {
    const bool written = ftruncate(file_.get(), 0) == 0 &&
                         pwrite(file_.get(), bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
    require(written, "the file can be written");
    return path_.c_str();
  }

 private:
  Descriptor file_{memfd_create("conf", MFD_CLOEXEC)};
  std::string path_ = "/proc/self/fd/" + std::to_string(file_.get());
};

// A line ends for its reader at a zero byte, and has then no end of line.
std::optional<std::string_view> model_value(Input file, std::string_view section, std::string_view field) {
  bool inside = false;
  while (!file.done()) {
    Input ahead = file;
    auto line = file.line();
    const bool complete = ahead.rest().size() > line.size() && line.find('\0') == std::string_view::npos;
    line = line.substr(0, line.find('\0'));
    if (line.starts_with('#')) continue;
    if (line.starts_with('[')) {
      if (inside) return std::nullopt;
      const size_t end = line.find(']');
      inside = end != std::string_view::npos && end <= max_section + 1 && line.substr(1, end - 1) == section;
      continue;
    }
    const size_t equals = line.find('=');
    const bool is_key = equals != std::string_view::npos && equals <= max_key && line.substr(0, equals) == field;
    if (inside && is_key && complete) return line.substr(equals + 1);
  }
  return std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static MemoryFile file;
  Input input(data, size);
  const size_t capacity = std::max<size_t>(input.byte(), 1);
  const Text section = exact(input.line());
  const Text field = exact(input.line());
  const auto contents = input.rest();

  const Text output = exact(std::string(capacity, untouched));
  const int32_t status = kestro_conf_parser_parse(file.hold(contents), section.get(), field.get(), output.get(),
                                                  static_cast<int32_t>(capacity));
  require(output.get()[capacity] == '\0', "nothing is written behind the buffer");
  const std::string_view found(output.get(), capacity);

  const auto* const bytes = reinterpret_cast<const uint8_t*>(contents.data());
  const auto value = model_value(Input(bytes, contents.size()), section.get(), field.get());
  if (value && value->size() <= capacity) {
    require(status == 0, "a value that is there and fits is found");
    require(found == std::string(*value) + std::string(capacity - value->size(), '\0'), "it is what the file says");
  } else {
    require(status == (value ? too_long : not_found), "the status says why there is no value");
    require(std::ranges::count(found, untouched) == static_cast<ptrdiff_t>(capacity), "the buffer is as it was");
  }
  return 0;
}
