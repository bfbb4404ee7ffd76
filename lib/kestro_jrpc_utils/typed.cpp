#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/error_data.hpp"
#include "kestro_jrpc_utils/site.hpp"
#include "kestro_utils.h"
#include "kestro_utils/text_output.hpp"

using namespace kestro;
using namespace kestro::jrpc_utils;

namespace {

// ---- Types of members, and what is said of them.

struct MemberType {
  const char* word;  // as the explanation calls it
  bool (*matches)(const json_t*) noexcept;
  const char* announcement;
  Severity absent_severity;  // a missing flag or text is often meant, a missing number or list is not
  const char* absent;
  const char* mismatch;
};

constexpr MemberType bool_type{"bool",
                               [](const json_t* value) noexcept -> bool { return json_is_boolean(value); },
                               "Parsing input bool for parameter: %s\n",
                               Warning,
                               "No parameter <%s> found\n",
                               "parameter <%s> is not a bool\n"};
constexpr MemberType string_type{"string",
                                 [](const json_t* value) noexcept -> bool { return json_is_string(value); },
                                 "Parsing input string for parameter: %s\n",
                                 Warning,
                                 "No parameter by the name <%s> found\n",
                                 "Given parameter <%s> is not a string\n"};
constexpr MemberType integer_type{"integer",
                                  [](const json_t* value) noexcept -> bool { return json_is_integer(value); },
                                  "Parsing input integer for parameter: %s\n",
                                  Error,
                                  "No parameter by the name <%s> found\n",
                                  "Given parameter <%s> is not an integer\n"};
constexpr MemberType array_type{"array",
                                [](const json_t* value) noexcept -> bool { return json_is_array(value); },
                                "Parsing input array for parameter: %s\n",
                                Error,
                                "No parameter by the name <%s> found\n",
                                "The given parameter <%s> is supposed to be an array.\n"};

// Looks a member up and checks its type. `*member` is what was found, of whatever type.
int32_t find(const MemberType& type, const json_t* params, json_t** err_data, const char* name,
             json_t** member) noexcept {
  here().log(Verbose, type.announcement, name);
  *member = json_object_get(params, name);
  if (*member == nullptr) {
    here().log(type.absent_severity, type.absent, name);
    kestro_jrpc_utils_generate_error_debug_message_missing_param(err_data, name);
    return status::not_found;
  }
  if (!type.matches(*member)) {
    here().log(Error, type.mismatch, name);
    kestro_jrpc_utils_generate_error_debug_message_incorrect_type(err_data, name, type.word);
    return status::invalid_request_parameter;
  }
  return status::ok;
}

// ---- Texts

int32_t as_int32(size_t size) noexcept {
  return static_cast<int32_t>(std::min<size_t>(size, INT32_MAX));
}

// Copies what fits. Whether that is all of it, no matter how long the text is and how odd the length.
bool copy(const char* text, char* out, int32_t length) noexcept {
  print(output(out, length), "%.*s", std::max(length, 0), text);
  return !s_overflow_check(as_int32(strlen(text)), std::max(length, 0));
}

// A number that travels as text.
using NumberText = std::array<char, 100>;

template <class Number, class Convert>
int32_t parse_number_text(const json_t* params, json_t** err_data, const char* name, Number* number,
                          Convert convert) noexcept {
  if (name == nullptr || number == nullptr) return refuse_null(here());
  *number = 0;
  NumberText text;
  const int32_t result =
      kestro_jrpc_utils_parse_input_string(params, err_data, name, text.data(), static_cast<int32_t>(text.size()));
  if (result == status::ok) *number = convert(text.data());
  return result;
}

}  // namespace

int32_t kestro_jrpc_utils_parse_input_bool(const json_t* params, json_t** err_data, const char* param_name,
                                           json_t** param_output) noexcept {
  if (param_name == nullptr || param_output == nullptr) return refuse_null(here());
  return find(bool_type, params, err_data, param_name, param_output);
}

int32_t kestro_jrpc_utils_parse_input_bool_val(const json_t* params, json_t** err_data, const char* param_name,
                                               bool* param_output) noexcept {
  if (param_name == nullptr || param_output == nullptr) return refuse_null(here());
  json_t* member = nullptr;
  const int32_t result = find(bool_type, params, err_data, param_name, &member);
  *param_output = json_is_true(member);
  return result;
}

int32_t kestro_jrpc_utils_parse_input_string(const json_t* params, json_t** err_data, const char* param_name,
                                             char* param_output, const int32_t length) noexcept {
  if (param_name == nullptr || param_output == nullptr) return refuse_null(here());
  clear(output(param_output, length));
  json_t* member = nullptr;
  if (const auto result = find(string_type, params, err_data, param_name, &member); result != status::ok) return result;

  const char* const value = json_string_value(member);
  if (!copy(value, param_output, length)) {
    replace_error_data(err_data, "%s: overflow detected: %zu characters written, %d characters allowed.", param_name,
                       strlen(value), length);
    return status::invalid_request_parameter;
  }
  here().log(Verbose, "Parsed %s: %s\n", param_name, param_output);
  return status::ok;
}

int32_t kestro_jrpc_utils_parse_input_integer(const json_t* params, json_t** err_data, const char* param_name,
                                              int32_t* param_output) noexcept {
  if (param_name == nullptr || param_output == nullptr) return refuse_null(here());
  *param_output = 0;
  json_t* member = nullptr;
  if (const auto result = find(integer_type, params, err_data, param_name, &member); result != status::ok) {
    return result;
  }
  *param_output = static_cast<int32_t>(json_integer_value(member));
  here().log(Verbose, "Parsed %s: %d\n", param_name, *param_output);
  return status::ok;
}

int32_t kestro_jrpc_utils_parse_input_array(const json_t* params, json_t** err_data, const char* param_name,
                                            json_t** param_output) noexcept {
  if (param_name == nullptr) return refuse_null(here());
  return find(array_type, params, err_data, param_name, param_output);
}

int32_t kestro_jrpc_utils_parse_input_uint64_t(const json_t* params, json_t** err_data, const char* param_name,
                                               uint64_t* param_output) noexcept {
  return parse_number_text(params, err_data, param_name, param_output,
                           [](const char* text) noexcept -> uint64_t { return strtoull(text, nullptr, 0); });
}

int32_t kestro_jrpc_utils_parse_input_float(const json_t* params, json_t** err_data, const char* param_name,
                                            float* param_output) noexcept {
  return parse_number_text(params, err_data, param_name, param_output,
                           [](const char* text) noexcept { return static_cast<float>(strtod(text, nullptr)); });
}
