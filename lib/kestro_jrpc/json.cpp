#include "kestro_jrpc/json.hpp"

#include <cstdlib>

#include "kestro_jrpc/error_codes.hpp"

namespace kestro {

namespace {

constexpr auto here = site_of("kestro_jrpc");

}  // namespace

Text encode_json(const json_t* value, size_t flags) noexcept {
  const size_t length = json_dumpb(value, nullptr, 0, flags);
  if (length == 0) return nullptr;
  Text text(static_cast<char*>(malloc(length + 1)));
  if (!text || json_dumpb(value, text.get(), length, flags) != length) return nullptr;
  text.get()[length] = '\0';
  return text;
}

Json parse_received(const char* text) noexcept {
  json_error_t error;
  Json root = parse_json(text, &error);
  if (!root) {
    here().log(Error, "kestro_jrpc_eval_request: Cannot parse JSON data\n");
    here().log(Error, "error: on line %d: %s\n", error.line, error.text);
  }
  return root;
}

bool show_received(Site site, const json_t* value) noexcept {
  if (!log_admits(Verbose)) return true;
  const Text text = encode_json(value, JSON_INDENT(4) | JSON_ENCODE_ANY);
  if (!text) return false;
  site.log(Verbose, "Valid JSON received, of length %d\n", length_of(text.get()));
  site.log(Verbose, "JSON Data:\n%s\n", text.get());
  return true;
}

Json make_error(int32_t code, json_t* data) noexcept {
  const char* const message = kestro_jrpc_error_decode(code);
  if (data != nullptr) {
    return Json(json_pack("{s:i,s:s,s:O}", "code", code, "message", message, "data", data));
  }
  return Json(json_pack("{s:i,s:s,s:o}", "code", code, "message", message, "data", json_null()));
}

bool add_transaction_id(json_t* response, json_t* transaction_id) noexcept {
  if (transaction_id == nullptr || json_object_set(response, "transaction_id", transaction_id) == 0) return true;
  here().log(Error, "kestro_jrpc_eval_request: Failed to add Transaction ID to response\n");
  return false;
}

}  // namespace kestro
