#include "routerd/request.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>

#include "kestro_jrpc.h"
#include "kestro_jrpc/json.hpp"
#include "routerd/splice.hpp"

namespace kestro::routerd {

namespace {

constexpr const char* transaction_id = "transaction_id";

// The scanner of the JSON library (2.14) runs past its buffer when it cannot enlarge it. So a text that is being parsed
// never sees memory run out: a reserve takes over until the end of the text, whose value is then thrown away. Where
// even that does not last, the process ends.
class JsonMemory {
 public:
  static void* allocate(size_t size) noexcept {
    void* const block = malloc(size);
    return block != nullptr || !parsing_ ? block : take_from_reserve(size);
  }
  static void release(void* block) noexcept {
    if (!is_reserve(block)) free(block);
  }

  // While a text is parsed. One loop, one thread.
  class Parsing {
   public:
    Parsing() noexcept {
      parsing_ = true;
      used_ = 0;
    }
    Parsing(const Parsing&) = delete;
    Parsing& operator=(const Parsing&) = delete;
    ~Parsing() { parsing_ = false; }
    [[nodiscard]] static bool ran_out() noexcept { return used_ > 0; }
  };

 private:
  static void* take_from_reserve(size_t size) noexcept {
    const size_t aligned = (std::max<size_t>(size, 1) + alignof(max_align_t) - 1) & ~(alignof(max_align_t) - 1);
    if (aligned < size || aligned > reserve_.size() - used_) {
      fputs("kestro-routerd: out of memory\n", stderr);
      _exit(1);
    }
    void* const block = reserve_.data() + used_;
    used_ += aligned;
    return block;
  }
  static bool is_reserve(const void* block) noexcept {
    return !std::less<>()(block, reserve_.data()) && std::less<>()(block, reserve_.data() + reserve_.size());
  }

  alignas(max_align_t) static inline std::array<char, 262'144> reserve_;
  static inline size_t used_ = 0;
  static inline bool parsing_ = false;
};

Json parse(const char* text) {
  const JsonMemory::Parsing parsing;
  json_error_t error;
  Json value = parse_json(text, &error);
  if (parsing.ran_out()) throw std::bad_alloc();
  return value;
}

Json another_reference(json_t* value) noexcept {
  return Json(json_incref(value));
}

// The JSON library tells of a lack of memory; here it is thrown, as everywhere in the daemon. Half an answer, or one
// with the number of another request, must not leave.
void require_memory(bool had) {
  if (!had) throw std::bad_alloc();
}

std::string encoded(const json_t* value) {
  const Text text = encode_json(value, JSON_COMPACT | JSON_ENSURE_ASCII | JSON_ENCODE_ANY);
  require_memory(text != nullptr);
  return text.get();
}

void set(json_t* object, const char* key, json_t* value) {
  require_memory(json_object_set(object, key, value) == 0);
}

}  // namespace

Request::Request(const std::string& text) {
  object_ = parse(text.c_str());
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

  return finish(parse(answer.c_str()), strict_id);  // a key is written with escapes
}

std::string Request::finish(Json response, bool strict_id) const {
  require_memory(response != nullptr);
  if (transaction_id_) {
    set(response.get(), transaction_id, transaction_id_.get());
  } else {
    json_object_del(response.get(), transaction_id);
  }
  if (strict_id) set(response.get(), "id", id_.get());
  return encoded(response.get());
}

std::string Request::busy(bool strict_id) const {
  const Json refused(json_pack("{s:s}", "id", id_text().c_str()));
  require_memory(refused != nullptr);
  if (transaction_id_) set(refused.get(), transaction_id, transaction_id_.get());
  json_t* response = nullptr;
  kestro_jrpc_router_create_system_lock_response(refused.get(), &response);
  return finish(Json(response), strict_id);
}

std::string Request::timed_out(bool strict_id) const {
  json_t* response = nullptr;
  kestro_jrpc_router_create_system_timeout_response(id_text().c_str(), 0, &response);
  return finish(Json(response), strict_id);
}

void guard_json_memory() noexcept {
  json_set_alloc_funcs(JsonMemory::allocate, JsonMemory::release);
}

ResponseHead read_response_head(const char* text) {
  const Json object = parse(text);
  if (!json_is_object(object.get())) return {};
  const json_t* const number = json_object_get(object.get(), transaction_id);
  const json_t* const id = json_object_get(object.get(), "id");
  return {.sound = true,
          .number = json_is_integer(number) ? json_integer_value(number) : -1,
          .method = json_is_string(id) ? json_string_value(id) : ""};
}

}  // namespace kestro::routerd
