#include <algorithm>
#include <cctype>
#include <cstring>

#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_utils.h"
#include "kestro_utils/text_output.hpp"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_utils");

char lower(char c) noexcept {
  return static_cast<char>(tolower(static_cast<unsigned char>(c)));
}

char upper(char c) noexcept {
  return static_cast<char>(toupper(static_cast<unsigned char>(c)));
}

int32_t convert(char* text, int32_t length, char (*letter)(char) noexcept) noexcept {
  if (text == nullptr) return here().fail(Verbose, status::parameter_error, "NULL\n");
  const size_t used = strnlen(text, output(text, length).size());
  std::transform(text, text + used, text, letter);
  return status::ok;
}

}  // namespace

int32_t kestro_to_lower(char* str, int32_t length) noexcept {
  return convert(str, length, lower);
}

int32_t kestro_to_upper(char* str, int32_t length) noexcept {
  return convert(str, length, upper);
}

void kestro_str_to_upper(char* s) noexcept {
  std::transform(s, s + strlen(s), s, upper);
}
