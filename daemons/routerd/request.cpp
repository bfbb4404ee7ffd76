#include "routerd/request.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "kestro_jrpc.h"
#include "kestro_jrpc/json.hpp"
#include "routerd/memory.hpp"

namespace kestro::routerd {

namespace {

constexpr const char* transaction_id = "transaction_id";

bool is_plain_text(std::string_view value) noexcept {
  return value.front() == '"' && value.find('\\') == std::string_view::npos;
}

std::string_view unquoted(std::string_view value) noexcept {
  return value.substr(1, value.size() - 2);
}

// Whether it is written as the JSON library would write it.
bool is_plain_integer(std::string_view value) noexcept {
  json_int_t number = 0;
  const auto [end, failed] = std::from_chars(value.begin(), value.end(), number);
  return failed == std::errc() && end == value.end() && value != "-0";
}

}  // namespace

Request::Request(std::string text) : text_(std::move(text)) {
  if (read_plain()) return;
  object_ = parsed(text_);
  release(text_);
  objection_ = examine();
}

// Most clients send a text as the router would encode it: no object is needed to change two of its members.
bool Request::read_plain() {
  const auto found = outline(text_);
  if (!found || !found->compact || !found->id || !found->method) return false;
  const auto method = found->method->value_in(text_);
  const auto id = found->id->value_in(text_);
  if (!is_plain_text(method) || !(is_plain_text(id) || is_plain_integer(id))) return false;
  if (found->transaction_id) {
    const auto number = found->transaction_id->value_in(text_);
    if (!is_plain_integer(number)) return false;
    transaction_id_ = number;
  }
  id_ = id;
  method_ = unquoted(method);
  outline_ = found;
  return true;
}

const char* Request::examine() {
  if (!object_) return "no_json";
  if (!json_is_object(object_.get())) return "no_object";
  const json_t* const id = json_object_get(object_.get(), "id");
  const json_t* const number = json_object_get(object_.get(), transaction_id);
  if (id == nullptr) return nullptr;

  const json_t* const method = json_object_get(object_.get(), "method");
  if (!json_is_string(method)) return "no_method";
  method_ = json_string_value(method);
  if (!is_valid_id(id)) return "bad_id";
  if (number != nullptr && !json_is_number(number)) return "bad_transaction_id";
  id_ = encoded(id);
  if (number != nullptr) transaction_id_ = encoded(number);
  return nullptr;
}

Text Request::addressed(int32_t number) const noexcept {
  if (outline_) return spliced(number);
  json_t* const object = object_.get();
  if (json_object_set_new(object, transaction_id, json_integer(number)) != 0) return nullptr;
  if (json_object_set_new(object, "id", json_string(KESTRO_JRPC_CHANNEL_ROUTER_REPLY)) != 0) return nullptr;
  return encode_json(object);
}

Text Request::spliced(int32_t number) const noexcept {
  constexpr std::string_view own_id = "\"" KESTRO_JRPC_CHANNEL_ROUTER_REPLY "\"";
  constexpr std::string_view key = ",\"transaction_id\":";
  std::array<char, key.size() + 16> member;
  char* const digits = std::ranges::copy(key, member.begin()).out;
  const char* const digits_end = std::to_chars(digits, member.end(), number).ptr;

  struct Change {
    Span place;
    std::string_view text;
  };
  const size_t last = outline_->end - 1;  // the closing brace
  const auto& numbered = outline_->transaction_id;
  std::array<Change, 2> changes{
      Change{outline_->id->value, own_id},
      numbered ? Change{numbered->value, {digits, digits_end}} : Change{{last, last}, {member.begin(), digits_end}}};
  if (changes[1].place.begin < changes[0].place.begin) std::swap(changes[0], changes[1]);

  Text result(static_cast<char*>(malloc(outline_->end + own_id.size() + member.size() + 1)));
  if (!result) return nullptr;
  const std::string_view text(text_);
  char* at = result.get();
  size_t from = 0;
  const auto append = [&at](std::string_view piece) {
    at = static_cast<char*>(mempcpy(at, piece.data(), piece.size()));
  };
  for (const auto& [place, new_text] : changes) {
    append(text.substr(from, place.begin - from));
    append(new_text);
    from = place.end;
  }
  append(text.substr(from, outline_->end - from));
  *at = '\0';
  return result;
}

std::string Request::id_text() const {
  const Json id = parsed(id_);
  require_memory(id != nullptr);
  return json_is_string(id.get()) ? json_string_value(id.get()) : id_;
}

std::string Request::restore(Response answer, bool strict_id) const {
  return answer.change(transaction_id_, strict_id ? id_ : std::string_view());
}

std::string Request::finish(Json response, bool strict_id) const {
  require_memory(response != nullptr);
  if (!transaction_id_.empty()) {
    set_member(response.get(), transaction_id, transaction_id_);
  } else {
    json_object_del(response.get(), transaction_id);
  }
  if (strict_id) set_member(response.get(), "id", id_);
  return encoded(response.get());
}

std::string Request::busy(bool strict_id) const {
  const Json refused(json_pack("{s:s}", "id", id_text().c_str()));
  require_memory(refused != nullptr);
  if (!transaction_id_.empty()) set_member(refused.get(), transaction_id, transaction_id_);
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
