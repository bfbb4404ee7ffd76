// Formatting into buffers whose sizes arrive as signed numbers.
#ifndef KESTRO_UTILS_TEXT_OUTPUT_HPP
#define KESTRO_UTILS_TEXT_OUTPUT_HPP

#include <cstddef>
#include <cstdint>
#include <span>

#include "kestro_general.h"

namespace kestro {

// The caller's buffer; a size below 0 leaves nothing to write to.
inline std::span<char> output(char* text, int32_t length) noexcept {
  return {text, length > 0 ? static_cast<size_t>(length) : 0};
}

// Fills the buffer with zero bytes.
void clear(std::span<char> out) noexcept;

// Clears the buffer and writes formatted text to it, cut to fit.
void print(std::span<char> out, const char* format, ...) noexcept KESTRO_PRINTF(2, 3);

}  // namespace kestro

#endif
