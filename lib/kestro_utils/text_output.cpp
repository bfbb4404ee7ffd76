#include "kestro_utils/text_output.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace kestro {

void clear(std::span<char> out) noexcept {
  std::ranges::fill(out, '\0');
}

void print(std::span<char> out, const char* format, ...) noexcept {
  clear(out);
  va_list args;
  va_start(args, format);
  vsnprintf(out.data(), out.size(), format, args);
  va_end(args);
}

}  // namespace kestro
