// Reading numbers out of texts.
#ifndef KESTRO_UTILS_TEXT_INPUT_HPP
#define KESTRO_UTILS_TEXT_INPUT_HPP

#include <cstdint>
#include <cstdlib>

namespace kestro {

// The decimal number at the start of a text, 0 if there is none. Defined for any text, unlike atoi().
inline int32_t leading_number(const char* text) noexcept {
  return static_cast<int32_t>(strtol(text, nullptr, 10));
}

}  // namespace kestro

#endif
