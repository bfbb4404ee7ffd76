// The router's reading and changing of a response, against the JSON library's. The first byte chooses the change.
#include <jansson.h>

#include <string>

#include "routerd/response.hpp"
#include "support/fuzz.hpp"

using namespace kestro;
using namespace kestro::fuzz;

namespace {

std::string dumped(const json_t* object) {
  const Text text(json_dumps(object, JSON_COMPACT | JSON_ENSURE_ASCII));
  require(text != nullptr, "an object can be encoded");
  return text.get();
}

// Parse, replace, dump.
std::string changed_by_the_library(json_t* object, json_t* transaction_id, json_t* id) {
  if (transaction_id != nullptr) {
    json_object_set(object, "transaction_id", transaction_id);
  } else {
    json_object_del(object, "transaction_id");
  }
  if (id != nullptr) json_object_set(object, "id", id);
  return dumped(object);
}

void check(const std::string& text, json_t* transaction_id, json_t* id) {
  routerd::Response response(text);
  const Json object(
      json_loads(text.c_str(), JSON_REJECT_DUPLICATES | JSON_DISABLE_EOF_CHECK | JSON_DECODE_ANY, nullptr));
  require(response.is_sound() == json_is_object(object.get()), "what the library takes for an object is sound");
  if (!response.is_sound()) return;

  const json_t* const number = json_object_get(object.get(), "transaction_id");
  const json_t* const method = json_object_get(object.get(), "id");
  require(response.number() == (json_is_integer(number) ? json_integer_value(number) : -1),
          "the number is the transaction_id");
  require(response.method() == (json_is_string(method) ? json_string_value(method) : ""), "the method is the id");

  const std::string text_of_change = response.change(transaction_id != nullptr ? routerd::encoded(transaction_id) : "",
                                                     id != nullptr ? routerd::encoded(id) : "");
  const Json changed(json_loads(text_of_change.c_str(), JSON_REJECT_DUPLICATES, nullptr));
  require(changed != nullptr, "what was changed is JSON, and nothing stands behind it");
  require(dumped(changed.get()) == changed_by_the_library(object.get(), transaction_id, id),
          "nothing else than what was to be replaced is another");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const uint8_t change = input.byte();
  const Json transaction_id((change & 1) != 0 ? json_real(12.5) : nullptr);
  const Json id((change & 2) != 0 ? json_string("mine \xe2\x82\xac") : nullptr);
  check(std::string(input.rest()), transaction_id.get(), id.get());
  return 0;
}
