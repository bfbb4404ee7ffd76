// What the router daemon does to a client's request, and to the answer for it.
#include "routerd/request.hpp"

#include <jansson.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "kestro_jrpc.h"
#include "kestro_jrpc/error_codes.hpp"
#include "kestro_jrpc/json.hpp"
#include "support/fuzz.hpp"

using namespace kestro;
using namespace kestro::fuzz;
using routerd::Request;
using routerd::Response;

namespace {

constexpr int32_t number = 77;

Json parse(const std::string& text) {
  return Json(json_loads(text.c_str(), JSON_REJECT_DUPLICATES | JSON_DISABLE_EOF_CHECK | JSON_DECODE_ANY, nullptr));
}

// What any answer has to look like once it is on its way to the client.
void check_restored(const Json& answer, const json_t* sent, bool strict_id, json_t* answered) {
  require(json_is_object(answer.get()), "an answer is an object");
  const Json expected(json_copy(answered));
  json_t* const transaction_id = json_object_get(sent, "transaction_id");
  if (transaction_id != nullptr) {
    json_object_set(expected.get(), "transaction_id", transaction_id);
  } else {
    json_object_del(expected.get(), "transaction_id");
  }
  if (strict_id) json_object_set(expected.get(), "id", json_object_get(sent, "id"));
  require(json_equal(answer.get(), expected.get()), "only the client's own members are put back");
}

void check_canned(const std::string& text, int32_t code, const json_t* sent, bool strict_id) {
  const Json answer = parse(text);
  const json_t* const error = json_object_get(answer.get(), "error");
  require(json_integer_value(json_object_get(error, "code")) == code, "a canned answer has its code");
  const json_t* const id = json_object_get(sent, "id");
  const json_t* const echoed = json_object_get(answer.get(), "id");
  require(strict_id ? json_equal(echoed, id) : json_is_string(echoed), "its id is the client's, or the text of it");
  if (!strict_id && json_is_string(id)) require(json_equal(echoed, id), "the text of a string is that string");
  const json_t* const transaction_id = json_object_get(sent, "transaction_id");
  require(transaction_id == nullptr || json_equal(json_object_get(answer.get(), "transaction_id"), transaction_id),
          "its transaction_id is the client's");
  require((json_object_get(answer.get(), "transaction_id") == nullptr) == (transaction_id == nullptr),
          "and is there only for a client that sent one");
}

void check_answers(const Request& request, const json_t* sent, const std::string& answer_text) {
  const Json answer = parse(answer_text);
  const Response head(answer_text);
  require(head.is_sound() == json_is_object(answer.get()), "an object is sound");
  for (const bool strict_id : {false, true}) {
    check_canned(request.busy(strict_id), jrpc_code::busy, sent, strict_id);
    check_canned(request.timed_out(strict_id), jrpc_code::timed_out, sent, strict_id);
    // Only answers under the router's own number, and with the method as id, find their request.
    const bool delivered = head.is_sound() && head.number() >= 0 && json_is_string(json_object_get(answer.get(), "id"));
    if (delivered)
      check_restored(parse(request.restore(Response(answer_text), strict_id)), sent, strict_id, answer.get());
  }
}

// The request as it goes onto the bus.
void check_addressed(const Request& request, const json_t* sent) {
  const Text published = request.addressed(number);
  require(published != nullptr, "what is sound can be encoded");
  const std::string_view bytes(published.get());
  require(std::ranges::none_of(bytes, [](signed char c) { return c < ' '; }), "it is ASCII on one line");
  const Json expected(json_copy(const_cast<json_t*>(sent)));
  json_object_set_new(expected.get(), "id", json_string(KESTRO_JRPC_CHANNEL_ROUTER_REPLY));
  json_object_set_new(expected.get(), "transaction_id", json_integer(number));
  require(json_equal(parse(published.get()).get(), expected.get()), "only id and transaction_id change");
}

void check_objection(const Request& request, const json_t* sent) {
  static constexpr std::array<std::string_view, 5> words{"no_json", "no_object", "no_method", "bad_id",
                                                         "bad_transaction_id"};
  const char* const objection = request.objection();
  require(objection == nullptr || std::ranges::count(words, objection) == 1, "an objection has a counter");
  require((sent == nullptr) == (objection != nullptr && words[0] == objection), "what is no JSON is objected to");
  if (objection == nullptr && !request.is_notification()) {
    require(json_is_string(json_object_get(sent, "method")), "what is forwarded has a method");
    require(request.method() == json_string_value(json_object_get(sent, "method")), "the method is the request's");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  choose_log_level(input.byte());
  const std::string text(input.line());
  const std::string answer(input.rest());
  const Json sent = parse(text);

  Request request(text);
  check_objection(request, sent.get());
  if (request.objection() != nullptr || request.is_notification()) return 0;
  check_addressed(request, sent.get());
  request.forget_object();
  check_answers(request, sent.get(), answer);
  return 0;
}
