#include "kestro_conf_parser.hpp"

#include <sys/types.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

#include "core/owned.hpp"
#include "core/status.hpp"
#include "kestro_conf_parser.h"

using namespace kestro;

namespace {

constexpr int64_t max_name = 50;

// The lines of a file, of any length; the line returned is valid until the next one is read.
class LineReader {
 public:
  explicit LineReader(FILE* file) noexcept : file_(file) {}
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  ~LineReader() { std::free(line_); }

  const char* next() noexcept { return getline(&line_, &capacity_, file_) >= 0 ? line_ : nullptr; }

 private:
  FILE* file_;
  char* line_ = nullptr;
  size_t capacity_ = 0;
};

// Whether the line is "[section]"; what follows the bracket is ignored.
bool opens_section(const char* line, std::string_view section) noexcept {
  if (line[0] != '[') return false;
  const auto end = kestro_conf_parser_index_of(line, ']');
  if (end < 0 || end > max_name) return false;
  return std::string_view(line + 1, static_cast<size_t>(end - 1)) == section;
}

// The text behind "key=", when that is how the line begins and the line is complete.
std::optional<std::string_view> value_of(const char* line, std::string_view key) noexcept {
  const auto equals = kestro_conf_parser_index_of(line, '=');
  if (equals < 0 || equals > max_name) return std::nullopt;
  if (std::string_view(line, static_cast<size_t>(equals)) != key) return std::nullopt;

  const char* const value = line + equals + 1;
  const auto length = kestro_conf_parser_index_of(value, '\n');
  if (length < 0) return std::nullopt;
  return std::string_view(value, static_cast<size_t>(length));
}

int32_t copy_value(std::string_view value, char* output, size_t capacity) noexcept {
  if (value.size() > capacity) return status::value_too_long;
  std::fill_n(output, capacity, '\0');
  std::copy(value.begin(), value.end(), output);
  return status::ok;
}

}  // namespace

int64_t kestro::kestro_conf_parser_index_of(const char* string, char search_for) noexcept {
  const char* const found = strchr(string, search_for);
  return found != nullptr ? found - string : -1;
}

int32_t kestro_conf_parser_parse(const char* file_name, const char* section_name, const char* field_name,
                                 char* output_field_value, int32_t output_field_value_length) noexcept {
  if (file_name == nullptr || section_name == nullptr || field_name == nullptr || output_field_value == nullptr) {
    return status::null_argument;
  }
  if (output_field_value_length < 1) return status::parameter_error;

  const File file(fopen(file_name, "re"));
  if (!file) return status::cannot_open_file;

  LineReader lines(file.get());
  bool inside = false;
  while (const char* line = lines.next()) {
    if (line[0] == '#') continue;
    if (!inside) {
      inside = opens_section(line, section_name);
      continue;
    }
    if (line[0] == '[') break;
    if (const auto value = value_of(line, field_name)) {
      return copy_value(*value, output_field_value, static_cast<size_t>(output_field_value_length));
    }
  }
  return status::not_found;
}
