#include "kestro_validation/engines.hpp"

#include <pcre.h>

#include <array>
#include <climits>
#include <cstring>
#include <span>
#include <string_view>

#include "core/owned.hpp"
#include "core/site.hpp"

using namespace kestro;
using namespace kestro::validation;

namespace {

constexpr auto here = site_of("kestro_validation");

// The matcher recurses on the caller's stack, some 500 bytes a level. No pattern here repeats a group without bound, so
// the deepest needs 14 levels whatever the value; the limit keeps a pattern that broke that rule off a small stack.
constexpr unsigned long match_depth_limit = 64;
// The matcher's own default, said here: the work for a hostile value ends in an error.
constexpr unsigned long match_step_limit = 10'000'000;

void release_pattern(void* pattern) noexcept {
  pcre_free(pattern);
}
using Pattern = Owned<pcre, release_pattern>;
using Study = Owned<pcre_extra, pcre_free_study>;

// The matcher counts in int; it refuses a negative length as an error, and a longer value is given that.
int subject_length(std::string_view value) noexcept {
  return value.size() <= INT_MAX ? static_cast<int>(value.size()) : -1;
}

int match(const pcre* pattern, pcre_extra* study, std::string_view value) noexcept {
  pcre_extra unstudied{};
  pcre_extra& extra = study != nullptr ? *study : unstudied;
  extra.flags |= PCRE_EXTRA_MATCH_LIMIT | PCRE_EXTRA_MATCH_LIMIT_RECURSION;
  extra.match_limit = match_step_limit;
  extra.match_limit_recursion = match_depth_limit;
  std::array<int, 10> offsets;
  return pcre_exec(pattern, &extra, value.data(), subject_length(value), 0, 0, offsets.data(), offsets.size());
}

}  // namespace

namespace kestro {

int32_t validate_options(const char* value, const char* const* options, int32_t num_of_options,
                         const char* value_name) noexcept {
  for (const char* const option : std::span(options, static_cast<size_t>(num_of_options))) {
    if (strcmp(value, option) == 0) {
      here().log(Verbose, "[%s] value <%s> matches option <%s>\n", value_name, value, option);
      return acceptable;
    }
    here().log(Verbose, "[%s] value <%s> did not match option <%s>\n", value_name, value, option);
  }
  return here().fail(Debug, not_an_option,
                     "Validation failed: Given [%s] value <%s> is not one of the available options\n", value_name,
                     value);
}

int32_t check_regex(const char* regex, std::string_view value, const char* value_name) noexcept {
  here().log(Verbose, "Testing [%s] value <%s> against regex: %s\n", value_name, value.data(), regex);
  const char* error = nullptr;
  int error_offset = 0;
  const Pattern pattern(pcre_compile(regex, 0, &error, &error_offset, nullptr));
  if (pattern == nullptr) {
    here().log_unchecked(Error, "ERROR: Could not compile '%s': %s\n", regex, error);
    return internal_error;
  }
  const Study study(pcre_study(pattern.get(), 0, &error));
  if (error != nullptr) {
    here().log_unchecked(Error, "ERROR: Could not study '%s': %s\n", regex, error);
    return internal_error;
  }
  const int result = match(pattern.get(), study.get(), value);
  if (result == PCRE_ERROR_NOMATCH) {
    return here().fail(Debug, no_match, "Validation failed: [%s] value <%s> did not return a regex match.\n",
                       value_name, value.data());
  }
  if (result < 0) {
    here().log_unchecked(Error, "Error code received from pcre_exec: %d\n", result);
    return internal_error;
  }
  here().log(Verbose, "Regex test passed.\n");
  return acceptable;
}

int32_t check_length(std::string_view value, int32_t min_length, int32_t max_length, const char* value_name) noexcept {
  const auto length = static_cast<int64_t>(value.size());
  if (length < min_length) {
    return here().fail(Debug, too_short, "Validation failed: [%s] value <%s> is too short (<%d)\n", value_name,
                       value.data(), min_length);
  }
  if (length > max_length) {
    return here().fail(Debug, too_long, "Validation failed: [%s] value <%s> is too long (>%d)\n", value_name,
                       value.data(), max_length);
  }
  return acceptable;
}

int32_t validate_length_and_format(std::string_view value, int32_t min_length, int32_t max_length, const char* regex,
                                   const char* value_name) noexcept {
  if (const auto result = check_length(value, min_length, max_length, value_name); result != acceptable) return result;
  return check_regex(regex, value, value_name);
}

}  // namespace kestro
