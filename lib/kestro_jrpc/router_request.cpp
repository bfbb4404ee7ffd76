#include "kestro_jrpc/router_request.hpp"

#include "core/status.hpp"
#include "kestro_jrpc.h"
#include "kestro_jrpc/envelope.hpp"
#include "kestro_jrpc/json.hpp"

namespace kestro {

namespace {

constexpr auto here = site_of("kestro_jrpc");
constexpr const char* process_msg = "kestro_jrpc_router_process_msg";

// The client's id as the log shows it: a string by its text, a number in decimal.
void show_id(const json_t* id) noexcept {
  if (!log_admits(Verbose)) return;
  const Text number = json_is_string(id) ? nullptr : encode_json(id, JSON_ENCODE_ANY);
  here().log(Verbose, "JSON ID: %s\n", json_is_string(id) ? json_string_value(id) : printable(number.get()));
}

}  // namespace

Json router_parse(const char* function, const char* text) noexcept {
  json_error_t error;
  Json root = parse_json(text, &error);
  if (!root) {
    here().log(Debug, "[%s]: line: %d, text: %s\n", function, error.line, error.text);
    return nullptr;
  }
  if (!json_is_object(root.get())) {
    here().log(Debug, "[%s]: Invalid JSON message\n", function);
    return nullptr;
  }
  return root;
}

bool router_show(const char* function, const json_t* request) noexcept {
  if (show_received(here(), request)) return true;
  here().log(Debug, "[%s]: Cannot print JSON message\n", function);
  return false;
}

const char* router_method(const char* function, const json_t* request) noexcept {
  const json_t* const method = json_object_get(request, "method");
  if (method == nullptr) {
    here().log(Debug, "[%s]: No JSON method\n", function);
  } else if (!json_is_string(method)) {
    here().log(Debug, "[%s]: Invalid JSON method\n", function);
  }
  return json_string_value(method);
}

bool router_check_id(const char* function, const json_t* request) noexcept {
  const json_t* const id = json_object_get(request, "id");
  if (is_valid_id(id)) return true;
  here().log(Debug, id == nullptr ? "[%s]: No JSON ID\n" : "[%s]: Invalid JSON ID\n", function);
  return false;
}

bool router_replace_id(const char* function, json_t* request) noexcept {
  if (json_object_del(request, "id") != 0) {
    here().log(Debug, "[%s]: Cannot delete JSON ID\n", function);
    return false;
  }
  if (json_object_set_new(request, "id", json_string(KESTRO_JRPC_CHANNEL_ROUTER_REPLY)) != 0) {
    here().log(Debug, "[%s]: Cannot update JSON ID\n", function);
    return false;
  }
  return true;
}

Text router_encode(const char* function, const json_t* request) noexcept {
  Text text = encode_json(request);
  if (!text) here().log(Debug, "[%s]: Cannot re-encode JSON message\n", function);
  return text;
}

int32_t kestro_jrpc_router_process_msg(const char* message, char** request, char** channel) noexcept {
  if (message == nullptr || request == nullptr || channel == nullptr) {
    return here().fail(Debug, status::general_error, "[%s]: NULL pointer!\n", process_msg);
  }
  *request = nullptr;
  *channel = nullptr;
  const Json root = router_parse(process_msg, message);
  if (!root) return status::general_error;
  here().log(Verbose, "[%s]: [Recv]: %s\n", process_msg, message);
  if (!router_show(process_msg, root.get())) return status::general_error;

  const char* const method = router_method(process_msg, root.get());
  if (method == nullptr) return status::general_error;
  here().log(Verbose, "JSON Method: %s\n", method);
  *channel = kestro_jrpc_router_extract_channel(method);
  here().log(Verbose, "channel: %s\n", printable(*channel));

  if (!router_check_id(process_msg, root.get())) return status::general_error;
  show_id(json_object_get(root.get(), "id"));
  if (!router_replace_id(process_msg, root.get())) return status::general_error;
  Text text = router_encode(process_msg, root.get());
  if (!text) return status::general_error;
  here().log(Verbose, "JSON request sent, of string length %d\n", length_of(text.get()));
  here().log(Verbose, "The JSON Request was:\n%s\n", text.get());
  *request = text.release();
  return status::ok;
}

}  // namespace kestro
