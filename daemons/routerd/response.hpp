// A response from the bus: what it says of itself, and the change that makes it a client's answer.
#ifndef KESTRO_ROUTERD_RESPONSE_HPP
#define KESTRO_ROUTERD_RESPONSE_HPP

#include <jansson.h>

#include <cstdint>
#include <optional>
#include <string>

#include "core/owned.hpp"
#include "routerd/splice.hpp"

namespace kestro::routerd {

// Both throw std::bad_alloc when memory runs out: half an answer, or one with the number of another request, must not
// leave. encoded() gives compact JSON text of ASCII characters.
std::string encoded(const json_t* value);
void set_member(json_t* object, const char* key, json_t* value);

class Response {
 public:
  explicit Response(std::string text);

  // Whether it is a JSON object.
  [[nodiscard]] bool is_sound() const noexcept { return outline_ || object_; }
  // Its "transaction_id", if that is an integer, or -1; its "id", if that is a string, or an empty one.
  [[nodiscard]] int64_t number() const noexcept { return number_; }
  [[nodiscard]] const std::string& method() const noexcept { return method_; }

  // The text of the object with another "transaction_id", or none for a null pointer, and with another "id", or the one
  // it has for a null pointer. Everything else keeps its bytes, unless the text is an odd one, which is encoded anew.
  // The response has no text afterwards.
  [[nodiscard]] std::string change(json_t* transaction_id, json_t* id);

 private:
  void read_plain();
  void read_odd();
  [[nodiscard]] std::string splice(json_t* transaction_id, json_t* id);
  [[nodiscard]] std::string rebuild(json_t* transaction_id, json_t* id);

  std::string text_;
  std::optional<Outline> outline_;
  Json object_;  // of a text without an outline
  int64_t number_ = -1;
  std::string method_;
};

}  // namespace kestro::routerd

#endif
