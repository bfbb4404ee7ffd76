// What the validators are made of: three engines, and the results that they share.
#ifndef KESTRO_VALIDATION_ENGINES_HPP
#define KESTRO_VALIDATION_ENGINES_HPP

#include <cstdint>
#include <string_view>

namespace kestro {

namespace validation {
inline constexpr int32_t acceptable = 0;
inline constexpr int32_t internal_error = -1;
inline constexpr int32_t no_match = -2;
inline constexpr int32_t not_an_option = -3;
inline constexpr int32_t too_long = -4;
inline constexpr int32_t too_short = -5;
inline constexpr int32_t out_of_range = -6;
}  // namespace validation

// A value ends in a zero byte beyond its length: log lines show it.

// Whether the value is one of the options: 0 or -3. `value_name` is the label of the field in log lines.
int32_t validate_options(const char* value, const char* const* options, int32_t num_of_options,
                         const char* value_name) noexcept;

// Whether the pattern matches the value: 0, -1 or -2.
int32_t check_regex(const char* regex, std::string_view value, const char* value_name) noexcept;

// Whether the value has a length within the bounds, and then whether the pattern matches: 0, -1, -2, -4 or -5.
int32_t validate_length_and_format(std::string_view value, int32_t min_length, int32_t max_length, const char* regex,
                                   const char* value_name) noexcept;

// Whether the value has a length within the bounds: 0, -4 or -5.
int32_t check_length(std::string_view value, int32_t min_length, int32_t max_length, const char* value_name) noexcept;

}  // namespace kestro

#endif
