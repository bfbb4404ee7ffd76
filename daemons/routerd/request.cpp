#include "routerd/request.hpp"

#include "kestro_jrpc.h"
#include "kestro_jrpc/json.hpp"
#include "routerd/splice.hpp"

namespace kestro::routerd {

namespace {

constexpr const char* transaction_id = "transaction_id";

Json another_reference(json_t* value) noexcept {
  return Json(json_incref(value));
}

std::string encoded(const json_t* value) {
  const Text text = encode_json(value, JSON_COMPACT | JSON_ENSURE_ASCII | JSON_ENCODE_ANY);
  return text ? text.get() : "";
}

Json parsed(const std::string& text) {
  json_error_t error;
  return parse_json(text.c_str(), &error);
}

}  // namespace

Request::Request(const std::string& text) : object_(parsed(text)) {
  objection_ = examine();
}

const char* Request::examine() noexcept {
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

size_t Request::address(int32_t number) noexcept {
  json_t* const object = object_.get();
  if (json_object_set_new(object, transaction_id, json_integer(number)) != 0) return 0;
  if (json_object_set_new(object, "id", json_string(KESTRO_JRPC_CHANNEL_ROUTER_REPLY)) != 0) return 0;
  return json_dumpb(object, nullptr, 0, JSON_COMPACT | JSON_ENSURE_ASCII);
}

std::string Request::id_text() const {
  return json_is_string(id_.get()) ? json_string_value(id_.get()) : encoded(id_.get());
}

std::string Request::restore(std::string answer, bool strict_id) const {
  const bool restored = transaction_id_ ? replace_member(answer, transaction_id, encoded(transaction_id_.get()))
                                        : remove_member(answer, transaction_id);
  const bool named = !strict_id || replace_member(answer, "id", encoded(id_.get()));
  if (restored && named) return answer;

  json_error_t error;  // a key is written with escapes
  return finish(parse_json(answer.c_str(), &error), strict_id);
}

std::string Request::finish(Json response, bool strict_id) const {
  if (!response) return {};
  if (transaction_id_) {
    json_object_set(response.get(), transaction_id, transaction_id_.get());
  } else {
    json_object_del(response.get(), transaction_id);
  }
  if (strict_id) json_object_set(response.get(), "id", id_.get());
  return encoded(response.get());
}

std::string Request::busy(bool strict_id) const {
  const Json refused(json_pack("{s:s}", "id", id_text().c_str()));
  if (transaction_id_) json_object_set(refused.get(), transaction_id, transaction_id_.get());
  json_t* response = nullptr;
  kestro_jrpc_router_create_system_lock_response(refused.get(), &response);
  return finish(Json(response), strict_id);
}

std::string Request::timed_out(bool strict_id) const {
  json_t* response = nullptr;
  kestro_jrpc_router_create_system_timeout_response(id_text().c_str(), 0, &response);
  return finish(Json(response), strict_id);
}

ResponseHead read_response_head(const char* text) {
  json_error_t error;
  const Json object = parse_json(text, &error);
  if (!json_is_object(object.get())) return {};
  const json_t* const number = json_object_get(object.get(), transaction_id);
  const json_t* const id = json_object_get(object.get(), "id");
  return {.sound = true,
          .number = json_is_integer(number) ? json_integer_value(number) : -1,
          .method = json_is_string(id) ? json_string_value(id) : ""};
}

}  // namespace kestro::routerd
