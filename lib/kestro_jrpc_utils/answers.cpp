// What a daemon reads from the answers of others.
#include <cstring>

#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/site.hpp"
#include "kestro_utils.h"
#include "kestro_utils/text_output.hpp"

using namespace kestro;
using namespace kestro::jrpc_utils;

int32_t kestro_jrpc_utils_api_decode_api_result(json_t* result_in, int32_t* api_return_code_out) noexcept {
  constexpr const char* function = "kestro_jrpc_utils_api_decode_api_result";
  if (result_in == nullptr || api_return_code_out == nullptr) {
    return here().fail(Debug, status::parameter_error, "[%s]: NULL pointer!\n", function);
  }
  *api_return_code_out = 0;
  const json_t* const result = json_object_get(result_in, "result");
  if (result == nullptr) {
    return here().fail(Debug, status::invalid_request_parameter, "[%s] No JSON result\n", function);
  }
  if (!json_is_integer(result)) {
    return here().fail(Debug, status::invalid_request_parameter,
                       "[%s]: Return result was expected to be an integer but was not.\n", function);
  }
  *api_return_code_out = static_cast<int32_t>(json_integer_value(result));
  here().log(Verbose, "Parsed %s: %d\n", "result", *api_return_code_out);
  return status::ok;
}

int32_t kestro_jrpc_utils_api_get_string_from_array(json_t* json_array, const int32_t idx, char* buf,
                                                    int32_t sz) noexcept {
  constexpr int32_t refused = status::invalid_request_parameter;
  const auto out = output(buf, buf != nullptr ? sz : 0);
  clear(out);
  if (json_array == nullptr || buf == nullptr) return here().fail(Error, status::null_argument, "NULL input\n");
  if (!json_is_array(json_array)) return here().fail(Error, refused, "JSON is not array\n");
  const json_t* const member = json_array_get(json_array, static_cast<size_t>(idx));
  if (member == nullptr) return here().fail(Error, refused, "Index did not exist\n");
  if (!json_is_string(member)) return here().fail(Error, refused, "Member is not string\n");

  const char* const text = json_string_value(member);
  print(out, "%s", text);
  if (strlen(text) >= out.size()) {
    here().log(Warning, "kestro_jrpc_utils_api_get_string_from_array: output truncated!\n");
  }
  return status::ok;
}

int32_t kestro_jrpc_utils_retrieve_string_array(json_t* result, const char* name, char** bufs, const int32_t nmemb,
                                                const int32_t szmemb) noexcept {
  if (kestro_check_for_null(3, result, name, bufs) != status::ok) {
    return here().fail(Error, status::null_argument, "NULL\n");
  }
  if (!json_is_object(result)) return status::response_not_formed;
  json_t* const array = json_object_get(result, name);
  for (int32_t i = 0; i < nmemb; ++i) {
    const int32_t read = kestro_jrpc_utils_api_get_string_from_array(array, i, bufs[i], szmemb);
    if (read != status::ok) return read;
  }
  return status::ok;
}
