#include "routerd/response.hpp"

#include <charconv>
#include <utility>

#include "kestro_jrpc/json.hpp"
#include "routerd/memory.hpp"

namespace kestro::routerd {

namespace {

constexpr const char* transaction_id_key = "transaction_id";

}  // namespace

std::string encoded(const json_t* value) {
  const Text text = encode_json(value, JSON_COMPACT | JSON_ENSURE_ASCII | JSON_ENCODE_ANY);
  require_memory(text != nullptr);
  return text.get();
}

void set_member(json_t* object, const char* key, std::string_view value) {
  Json parsed_value = parsed(std::string(value));
  require_memory(parsed_value && json_object_set_new(object, key, parsed_value.release()) == 0);
}

Response::Response(std::string text) : text_(std::move(text)), outline_(outline(text_)) {
  if (outline_) {
    read_plain();
  } else {
    read_odd();
  }
}

void Response::read_plain() {
  text_.resize(outline_->end);
  if (outline_->transaction_id) {
    const auto digits = outline_->transaction_id->value_in(text_);
    int64_t number = 0;
    const auto [end, failed] = std::from_chars(digits.begin(), digits.end(), number);
    if (failed == std::errc() && end == digits.end()) number_ = number;
  }
  if (!outline_->id) return;
  const auto id = outline_->id->value_in(text_);
  if (id.front() != '"') return;
  if (id.find('\\') == std::string_view::npos) {
    method_ = id.substr(1, id.size() - 2);
  } else {
    outline_.reset();
    read_odd();
  }
}

void Response::read_odd() {
  object_ = parsed(text_);
  if (!json_is_object(object_.get())) object_.reset();
  const json_t* const number = json_object_get(object_.get(), transaction_id_key);
  const json_t* const id = json_object_get(object_.get(), "id");
  number_ = json_is_integer(number) ? json_integer_value(number) : -1;
  method_ = json_is_string(id) ? json_string_value(id) : "";
}

std::string Response::change(std::string_view transaction_id, std::string_view id) {
  const bool has_places =
      outline_ && (transaction_id.empty() || outline_->transaction_id) && (id.empty() || outline_->id);
  return has_places ? splice(transaction_id, id) : rebuild(transaction_id, id);
}

std::string Response::splice(std::string_view transaction_id, std::string_view id) {
  const auto put = [this](Span place, std::string_view text) {
    text_.replace(place.begin, place.end - place.begin, text);
  };
  const auto put_id = [&] {
    if (!id.empty()) put(outline_->id->value, id);
  };
  // From the back, so that the places in front stay what they are.
  const auto& numbered = outline_->transaction_id;
  const bool id_is_last = numbered && outline_->id && outline_->id->value.begin > numbered->value.begin;
  if (id_is_last) put_id();
  if (numbered) put(transaction_id.empty() ? numbered->whole : numbered->value, transaction_id);
  if (!id_is_last) put_id();
  return std::move(text_);
}

std::string Response::rebuild(std::string_view transaction_id, std::string_view id) {
  if (!object_) object_ = parsed(text_);
  require_memory(object_ != nullptr);
  if (!transaction_id.empty()) {
    set_member(object_.get(), transaction_id_key, transaction_id);
  } else {
    json_object_del(object_.get(), transaction_id_key);
  }
  if (!id.empty()) set_member(object_.get(), "id", id);
  return encoded(object_.get());
}

}  // namespace kestro::routerd
