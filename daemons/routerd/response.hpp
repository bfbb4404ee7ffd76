// A response from the bus: what it says of itself, and the change that makes it a client's answer.
#ifndef KESTRO_ROUTERD_RESPONSE_HPP
#define KESTRO_ROUTERD_RESPONSE_HPP

#include <jansson.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/owned.hpp"
#include "routerd/splice.hpp"

namespace kestro::routerd {

// Both throw std::bad_alloc when memory runs out: half an answer, or one with the number of another request, must not
// leave. encoded() gives compact JSON text of ASCII characters; set_member() takes such a text of the value.
std::string encoded(const json_t* value);
void set_member(json_t* object, const char* key, std::string_view value);

class Response {
 public:
  explicit Response(std::string text);

  // Whether it is a JSON object.
  [[nodiscard]] bool is_sound() const noexcept { return outline_ || object_; }
  // Its "transaction_id", if that is an integer, or -1; its "id", if that is a string, or an empty one.
  [[nodiscard]] int64_t number() const noexcept { return number_; }
  [[nodiscard]] const std::string& method() const noexcept { return method_; }

  // The text of the object with another "transaction_id", or none where that is empty, and with another "id", or the one
  // it has where that is empty. Both are JSON texts, as encoded() makes them. Everything else keeps its bytes, unless
  // the text is an odd one, which is encoded anew. The response has no text afterwards.
  [[nodiscard]] std::string change(std::string_view transaction_id, std::string_view id);

 private:
  void read_plain();
  void read_odd();
  [[nodiscard]] std::string splice(std::string_view transaction_id, std::string_view id);
  [[nodiscard]] std::string rebuild(std::string_view transaction_id, std::string_view id);

  std::string text_;
  std::optional<Outline> outline_;
  Json object_;  // of a text without an outline
  int64_t number_ = -1;
  std::string method_;
};

}  // namespace kestro::routerd

#endif
