#include "kestro_jrpc/evaluate.hpp"

#include <jansson.h>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_jrpc/error_codes.hpp"
#include "kestro_jrpc/json.hpp"
#include "kestro_jrpc/methods.hpp"

namespace kestro {

namespace {

constexpr auto here = site_of("kestro_jrpc");

// The members of a request, borrowed from its root; null where absent.
struct Request {
  explicit Request(const json_t* root) noexcept
      : id(json_object_get(root, "id")),
        transaction_id(json_object_get(root, "transaction_id")),
        jsonrpc(json_object_get(root, "jsonrpc")),
        params(json_object_get(root, "params")),
        method(json_object_get(root, "method")) {}

  json_t* id;
  json_t* transaction_id;
  json_t* jsonrpc;
  json_t* params;
  json_t* method;
};

Json load_request(const char* text) noexcept {
  Json root = parse_received(text);
  if (!root) return nullptr;
  if (!json_is_object(root.get())) {
    here().log(Error, "kestro_jrpc_eval_request: Invalid JSON\n");
    return nullptr;
  }
  return root;
}

// Whether the request is sound enough to be answered at all.
bool is_answerable(const Request& request) noexcept {
  if (request.id != nullptr && !is_valid_id(request.id)) {
    here().log(Error, "kestro_jrpc_eval_request: Invalid Request ID\n");
    return false;
  }
  if (request.transaction_id != nullptr && !json_is_number(request.transaction_id)) {
    here().log(Error, "kestro_jrpc_eval_request: Invalid Transaction ID\n");
    return false;
  }
  if (!is_version_2(request.jsonrpc)) return false;
  if (request.params != nullptr && !json_is_object(request.params)) return false;
  return request.method != nullptr;
}

int32_t stop_without_response(const Request& request, char** response) noexcept {
  if (request.id == nullptr) return status::general_error;
  here().log(Debug, "[kestro_jrpc_create_error]: NULL pointer!\n");
  *response = nullptr;
  return status::general_error;
}

// "id" carries the method, on which the matching of responses on the bus depends.
Text success_text(const Request& request, Json result) noexcept {
  if (!result) result.reset(json_integer(0));
  const Json object(json_pack("{s:s,s:O,s:O}", "jsonrpc", "2.0", "id", request.method, "result", result.get()));
  if (!object) return nullptr;
  if (!add_transaction_id(object.get(), request.transaction_id)) {
    here().log(Error, "kestro_jrpc_create_response: Failed to create JRPC response\n");
    return nullptr;
  }
  return encode_json(object.get());
}

Text error_text(const Request& request, int32_t code, json_t* data) noexcept {
  const Json object(json_pack("{s:s,s:O}", "jsonrpc", "2.0", "id", request.method));
  if (!object || !add_transaction_id(object.get(), request.transaction_id)) return nullptr;
  Json error = make_error(code, data);
  if (!error || json_object_set_new(object.get(), "error", error.release()) != 0) return nullptr;
  return encode_json(object.get());
}

int32_t respond_with_error(const Request& request, int32_t code, json_t* data, char** response) noexcept {
  if (request.id == nullptr) return status::general_error;
  Text text = error_text(request, code, data);
  *response = text.release();
  if (*response == nullptr) {
    return here().fail(Error, status::general_error, "kestro_jrpc_create_error: Failed to create JRPC response\n");
  }
  here().log(Warning, "JSON Response: %s\n", *response);
  return status::ok;
}

int32_t respond_with_result(const Request& request, Json result, json_t* data, char** response) noexcept {
  here().log(Verbose, "creating response\n");
  Text text = success_text(request, std::move(result));
  if (!text) return respond_with_error(request, jrpc_code::internal_error, data, response);
  here().log(Debug, "JSON response sent, of string length %d\n", length_of(text.get()));
  here().log(Verbose, "The JSON Response was:\n%s\n", text.get());
  *response = text.release();
  return status::ok;
}

int32_t call_handler(const Request& request, const kestro_jrpc_mapping_t& row, char** response) noexcept {
  json_t* result = nullptr;
  json_t* err_data = nullptr;
  const int32_t handled = row.methodHandler(request.params, &result, &err_data);
  Json owned_result(result);
  const Json owned_err_data(err_data);

  if (handled < 0) {
    const auto code = convert_status_to_jrpc_error(handled);
    return respond_with_error(request, code, err_data, response);
  }
  if (request.id == nullptr) {
    *response = nullptr;
    return status::ok;
  }
  return respond_with_result(request, std::move(owned_result), err_data, response);
}

}  // namespace

int32_t evaluate(const json_t* request, kestro_jrpc_mapping_t* table, char** response) noexcept {
  if (!show_received(here(), request)) {
    return here().fail(Error, status::general_error, "kestro_jrpc_eval_request: Could not print JSON\n");
  }
  const Request parts(request);
  if (!is_answerable(parts)) return stop_without_response(parts, response);
  if (!json_is_string(parts.method)) {
    return respond_with_error(parts, jrpc_code::method_not_found, nullptr, response);
  }
  const char* const method = json_string_value(parts.method);
  const auto* const row = find_method(table, method);
  if (row == nullptr) {
    here().log(Error, "invalid method occurred <%s>\n", method);
    return respond_with_error(parts, jrpc_code::method_not_found, nullptr, response);
  }
  return call_handler(parts, *row, response);
}

int32_t kestro_jrpc_eval_request(char* request, kestro_jrpc_mapping_t* table, char** response) noexcept {
  if (request == nullptr || table == nullptr || response == nullptr) {
    return here().fail(Error, status::general_error, "kestro_jrpc_eval_request: NULL pointer!\n");
  }
  const Json root = load_request(request);
  return root ? evaluate(root.get(), table, response) : status::general_error;
}

}  // namespace kestro
