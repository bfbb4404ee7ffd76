// What the router handles or answers itself.

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_jrpc.h"
#include "kestro_jrpc/error_codes.hpp"
#include "kestro_jrpc/json.hpp"
#include "kestro_jrpc/methods.hpp"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_jrpc");

// What keeps a request from being run as a notification, as a line for the log; null when nothing does.
const char* objection_to_notification(const json_t* request) noexcept {
  if (json_object_get(request, "id") != nullptr) return "[%s]: Invalid Request id found in notification\n";
  const json_t* const jsonrpc = json_object_get(request, "jsonrpc");
  if (jsonrpc == nullptr) return "[%s]: Empty jsonrpc\n";
  if (!json_is_string(jsonrpc)) return "[%s]: Invalid Request jsonrpc\n";
  if (!is_version_2(jsonrpc)) return "[%s]: Invalid Request jsonrpc version\n";
  const json_t* const params = json_object_get(request, "params");
  if (params != nullptr && !json_is_object(params)) return "[%s]: Invalid Request params\n";
  const json_t* const method = json_object_get(request, "method");
  if (method == nullptr) return "[%s]: No JSON method\n";
  if (!json_is_string(method)) return "[%s]: Invalid Request method\n";
  return nullptr;
}

bool set_error(json_t* response, int32_t code) noexcept {
  return json_object_set_new(response, "error", make_error(code, nullptr).release()) == 0;
}

int32_t null_pointer(Site site, Severity severity, const char* function) noexcept {
  return site.fail(severity, status::general_error, "[%s]: NULL pointer!\n", function);
}

}  // namespace

int32_t kestro_jrpc_router_eval_notification(json_t* request, kestro_jrpc_mapping_t* table) noexcept {
  if (request == nullptr || table == nullptr) return null_pointer(here(), Error, __func__);
  if (const char* const objection = objection_to_notification(request)) {
    return here().fail(Error, status::general_error, objection, __func__);
  }
  const auto* const row = find_method(table, json_string_value(json_object_get(request, "method")));
  if (row == nullptr) return here().fail(Warning, status::general_error, "[%s]: No method handler found\n", __func__);

  json_t* result = nullptr;
  json_t* err_data = nullptr;
  const int32_t handled = row->methodHandler(json_object_get(request, "params"), &result, &err_data);
  const Json dropped_result(result);
  const Json dropped_err_data(err_data);
  if (handled != status::ok) here().log(Error, "[%s]: Failed method handler, rc = %d\n", __func__, handled);
  return handled;
}

int32_t kestro_jrpc_router_create_system_lock_response(json_t* request, json_t** response) noexcept {
  if (response != nullptr) *response = nullptr;
  if (request == nullptr || response == nullptr) return null_pointer(here(), Debug, __func__);

  const json_t* const id = json_object_get(request, "id");
  if (id == nullptr) return here().fail(Debug, status::general_error, "[%s]: No JSON id\n", __func__);
  if (!json_is_string(id)) return here().fail(Debug, status::general_error, "[%s]: Invalid JSON id\n", __func__);

  // A client that is refused gets its own id back.
  Json object(json_pack("{s:s,s:s}", "jsonrpc", "2.0", "id", json_string_value(id)));
  if (!object || !set_error(object.get(), jrpc_code::busy)) return status::general_error;
  if (!add_transaction_id(object.get(), json_object_get(request, "transaction_id"))) return status::general_error;
  *response = object.release();
  return status::ok;
}

int32_t kestro_jrpc_router_create_system_timeout_response(const char* id, const int32_t transaction_id,
                                                          json_t** response) noexcept {
  if (response != nullptr) *response = nullptr;
  if (id == nullptr || response == nullptr) return null_pointer(here(), Debug, __func__);

  Json object(json_pack("{s:s,s:i,s:s}", "jsonrpc", "2.0", "transaction_id", transaction_id, "id", id));
  if (!object || !set_error(object.get(), jrpc_code::timed_out)) return status::general_error;
  *response = object.release();
  return status::ok;
}
