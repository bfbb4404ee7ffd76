// What the fuzz targets share: how they take an input apart, and how they say that a rule was broken.
#ifndef KESTRO_FUZZ_FUZZ_HPP
#define KESTRO_FUZZ_FUZZ_HPP

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/owned.hpp"

// Every target defines it. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace kestro::fuzz {

// A copy in memory of exactly its size and a zero byte, so that reading past its end is seen.
Text exact(std::string_view text);

// An input, taken apart from its front. Whatever is taken from an empty one is empty or 0.
class Input {
 public:
  Input(const uint8_t* data, size_t size) noexcept : left_(reinterpret_cast<const char*>(data), size) {}

  uint8_t byte() noexcept;
  // Up to the next line feed, which is taken away, or up to the end.
  std::string_view line() noexcept;
  std::string_view rest() noexcept { return std::exchange(left_, {}); }
  [[nodiscard]] bool done() const noexcept { return left_.empty(); }

 private:
  std::string_view left_;
};

// The first byte of most inputs: even ('v') for a log that writes everything, odd ('q') for a quiet one. Writing lines
// is in reach of whoever sends a request, and slow.
void choose_log_level(uint8_t choice) noexcept;

// Ends the program, and with it the search, when a rule does not hold. Says which on standard output: standard error
// is where the log goes.
void require(bool holds, const char* rule, int line = __builtin_LINE(), const char* file = __builtin_FILE()) noexcept;

}  // namespace kestro::fuzz

#endif
