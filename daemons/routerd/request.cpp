#include "routerd/request.hpp"

#include <utility>

#include "kestro_jrpc.h"
#include "kestro_jrpc/json.hpp"
#include "routerd/memory.hpp"

namespace kestro::routerd {

namespace {

constexpr const char* transaction_id = "transaction_id";

Json another_reference(json_t* value) noexcept {
  return Json(json_incref(value));
}

}  // namespace

Request::Request(const std::string& text) : object_(parsed(text)) {
  objection_ = examine();
}

const char* Request::examine() {
  if (!object_) return "no_json";
  if (!json_is_object(object_.get())) return "no_object";
  id_ = another_reference(json_object_get(object_.get(), "id"));
  transaction_id_ = another_reference(json_object_get(object_.get(), transaction_id));
  if (is_notification()) return nullptr;

  const json_t* const method = json_object_get(object_.get(), "method");
  if (!json_is_string(method)) return "no_method";
  method_ = json_string_value(method);
  if (!is_valid_id(id_.get())) return "bad_id";
  if (transaction_id_ && !json_is_number(transaction_id_.get())) return "bad_transaction_id";
  return nullptr;
}

Text Request::addressed(int32_t number) const noexcept {
  json_t* const object = object_.get();
  if (json_object_set_new(object, transaction_id, json_integer(number)) != 0) return nullptr;
  if (json_object_set_new(object, "id", json_string(KESTRO_JRPC_CHANNEL_ROUTER_REPLY)) != 0) return nullptr;
  return encode_json(object);
}

std::string Request::id_text() const {
  return json_is_string(id_.get()) ? json_string_value(id_.get()) : encoded(id_.get());
}

std::string Request::restore(Response answer, bool strict_id) const {
  return answer.change(transaction_id_.get(), strict_id ? id_.get() : nullptr);
}

std::string Request::finish(Json response, bool strict_id) const {
  require_memory(response != nullptr);
  if (transaction_id_) {
    set_member(response.get(), transaction_id, transaction_id_.get());
  } else {
    json_object_del(response.get(), transaction_id);
  }
  if (strict_id) set_member(response.get(), "id", id_.get());
  return encoded(response.get());
}

std::string Request::busy(bool strict_id) const {
  const Json refused(json_pack("{s:s}", "id", id_text().c_str()));
  require_memory(refused != nullptr);
  if (transaction_id_) set_member(refused.get(), transaction_id, transaction_id_.get());
  json_t* response = nullptr;
  kestro_jrpc_router_create_system_lock_response(refused.get(), &response);
  return finish(Json(response), strict_id);
}

std::string Request::timed_out(bool strict_id) const {
  json_t* response = nullptr;
  kestro_jrpc_router_create_system_timeout_response(id_text().c_str(), 0, &response);
  return finish(Json(response), strict_id);
}

}  // namespace kestro::routerd
