#include "kestro_jrpc_utils/error_data.hpp"

#include <cstdarg>
#include <cstdio>

#include "core/owned.hpp"
#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/site.hpp"

namespace kestro {

using namespace jrpc_utils;

namespace {

// A text as it goes into an explanation, cut to 99 characters.
class Message {
 public:
  Message(const char* format, va_list args) noexcept { vsnprintf(text_, sizeof(text_), format, args); }
  [[nodiscard]] const char* text() const noexcept { return text_; }

 private:
  char text_[100] = {};
};

int32_t explain(json_t** err_data, const char* format, ...) noexcept KESTRO_PRINTF(2, 3);

int32_t explain(json_t** err_data, const char* format, ...) noexcept {
  if (err_data == nullptr) return here().fail(Debug, status::null_argument, "NULL pointer!\n");
  va_list args;
  va_start(args, format);
  const Message message(format, args);
  va_end(args);
  here().log(Debug, "Sending debug message: %s\n", message.text());
  return offer_error_data(err_data, message.text());
}

}  // namespace

int32_t kestro_jrpc_utils_generate_error_debug_message_missing_param(json_t** err_data,
                                                                     const char* param_name) noexcept {
  return explain(err_data, "Missing expected parameter: '%s'", param_name);
}

int32_t kestro_jrpc_utils_generate_error_debug_message_incorrect_type(json_t** err_data, const char* param_name,
                                                                      const char* expected_type) noexcept {
  return explain(err_data, "Parameter '%s' is not of type '%s'.", param_name, expected_type);
}

int32_t offer_error_data(json_t** err_data, const char* message) noexcept {
  if (err_data == nullptr) return status::null_argument;
  if (*err_data != nullptr) return status::ok;
  *err_data = kestro_jrpc_utils_simple_error_obj(message);
  return *err_data != nullptr ? status::ok : status::response_not_formed;
}

void replace_error_data(json_t** err_data, const char* format, ...) noexcept {
  if (err_data == nullptr) return;
  va_list args;
  va_start(args, format);
  const Message message(format, args);
  va_end(args);
  json_t* const replacement = kestro_jrpc_utils_simple_error_obj(message.text());
  if (replacement == nullptr) return;
  const Json replaced(std::exchange(*err_data, replacement));
}

}  // namespace kestro

json_t* kestro_jrpc_utils_simple_error_obj(const char* errmsg) noexcept {
  return json_pack("{s:s}", "message", errmsg);
}
