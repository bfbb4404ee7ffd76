// Any request text against a table of handlers that do all that handlers may do. Whatever is answered has to be a sound
// response, and to fit the request and what its handler returned.
#include <jansson.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "kestro_jrpc/error_codes.hpp"
#include "kestro_jrpc/evaluate.hpp"
#include "support/fuzz.hpp"

using namespace kestro;
using namespace kestro::fuzz;

namespace {

constexpr size_t flags = JSON_REJECT_DUPLICATES | JSON_DISABLE_EOF_CHECK | JSON_DECODE_ANY;

int calls;
int32_t returned;

// What the request asks its handler for.
json_t* wanted(const json_t* params, const char* name) {
  return json_incref(json_object_get(params, name));
}

int32_t conclude(int32_t status) {
  ++calls;
  returned = status;
  return status;
}

int32_t succeed(json_t* /*params*/, json_t** /*result*/, json_t** /*err_data*/) {
  return conclude(0);
}

int32_t echo(json_t* params, json_t** result, json_t** /*err_data*/) {
  *result = json_incref(params);
  return conclude(0);
}

// Everything as the request says, also what no good handler would do: a result beside a failure, error data beside a
// success, any number as status.
int32_t obey(json_t* params, json_t** result, json_t** err_data) {
  *result = wanted(params, "result");
  *err_data = wanted(params, "data");
  return conclude(static_cast<int32_t>(json_integer_value(json_object_get(params, "status"))));
}

// Results and error data that no text can hold.
int32_t spoil(json_t* params, json_t** result, json_t** err_data) {
  *result = json_string_nocheck("\xff");
  *err_data = json_is_true(json_object_get(params, "spoil_data")) ? json_string_nocheck("\xff") : nullptr;
  return conclude(static_cast<int32_t>(json_integer_value(json_object_get(params, "status"))));
}

std::array<kestro_jrpc_mapping_t, 6> table{
    {{"ok", succeed}, {"echo", echo}, {"ports.Get", obey}, {"spoil", spoil}, {"", succeed}, {nullptr, nullptr}}};

bool is_compact_ascii(std::string_view text) {
  return std::ranges::all_of(text, [](unsigned char c) { return c >= ' ' && c < 0x80; });
}

void check_error(const json_t* error) {
  const auto code = static_cast<int32_t>(json_integer_value(json_object_get(error, "code")));
  require(json_object_size(error) == 3 && json_object_get(error, "data") != nullptr,
          "an error has code, message, data");
  require(json_is_integer(json_object_get(error, "code")), "the code is an integer");
  require(strcmp(json_string_value(json_object_get(error, "message")), kestro_jrpc_error_decode(code)) == 0,
          "the message is that of the code");
  if (calls == 0) {
    require(code == jrpc_code::method_not_found, "without a handler it is the method that is wrong");
  } else if (returned < 0) {
    require(code == convert_status_to_jrpc_error(returned), "the code is that of the handler's status");
  } else {
    require(code == jrpc_code::internal_error, "a success becomes an error only where its result cannot be encoded");
  }
}

void check_response(const json_t* request, const char* text) {
  require(is_compact_ascii(text), "a response is one line of ASCII");
  const Json response(json_loads(text, JSON_REJECT_DUPLICATES, nullptr));
  require(json_is_object(response.get()), "a response is an object, and nothing behind it");
  const char* const version = json_string_value(json_object_get(response.get(), "jsonrpc"));
  require(version != nullptr && strcmp(version, "2.0") == 0, "a response speaks 2.0");
  require(json_object_get(request, "id") != nullptr, "only who has an id is answered");
  require(json_equal(json_object_get(response.get(), "id"), json_object_get(request, "method")),
          "the id of a response is the method");

  const json_t* const transaction_id = json_object_get(request, "transaction_id");
  const json_t* const echoed = json_object_get(response.get(), "transaction_id");
  require((transaction_id == nullptr) == (echoed == nullptr), "a transaction_id comes back where there was one");
  require(transaction_id == nullptr || json_equal(transaction_id, echoed),
          "a transaction_id comes back as it was sent");

  const json_t* const error = json_object_get(response.get(), "error");
  const bool has_result = json_object_get(response.get(), "result") != nullptr;
  require(has_result != (error != nullptr), "either result or error");
  require(json_object_size(response.get()) == (transaction_id == nullptr ? 3U : 4U), "and no other member");
  if (error != nullptr) check_error(error);
  if (has_result) require(calls == 1 && returned >= 0, "a result comes from a handler that succeeded");
}

bool is_text_or_number(const json_t* id) {
  return json_is_string(id) || json_is_number(id);
}

// Whether a request is sound enough that its sender is told anything.
bool is_answerable(const json_t* request) {
  const json_t* const id = json_object_get(request, "id");
  const json_t* const transaction_id = json_object_get(request, "transaction_id");
  const json_t* const params = json_object_get(request, "params");
  const char* const version = json_string_value(json_object_get(request, "jsonrpc"));
  return (id == nullptr || is_text_or_number(id)) && (transaction_id == nullptr || json_is_number(transaction_id)) &&
         (params == nullptr || json_is_object(params)) && version != nullptr && strcmp(version, "2.0") == 0 &&
         json_object_get(request, "method") != nullptr;
}

// Handlers whose error data cannot be encoded leave nothing to send.
bool may_be_spoilt(const json_t* request) {
  const char* const method = json_string_value(json_object_get(request, "method"));
  return method != nullptr && strcmp(method, "spoil") == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  choose_log_level(input.byte());
  const Text request = exact(input.rest());
  const Json parsed(json_loads(request.get(), flags, nullptr));

  calls = 0;
  char* raw = nullptr;
  const int32_t status = kestro_jrpc_eval_request(request.get(), table.data(), &raw);
  const Text response(raw);
  require(status == 0 || status == -1, "0 or -1");
  require(status == 0 || response == nullptr, "nothing to send after -1");
  require(calls <= 1, "a handler is called once");
  const bool answerable = is_answerable(parsed.get());
  require(answerable || (status == -1 && calls == 0), "what is not sound has no effect");
  if (answerable && json_object_get(parsed.get(), "id") != nullptr && !may_be_spoilt(parsed.get())) {
    require(response != nullptr, "who has an id is answered");
  }
  if (response) check_response(parsed.get(), response.get());
  if (status == 0 && !response) {
    require(json_object_get(parsed.get(), "id") == nullptr, "who has an id is not met with silence");
    require(calls == 1 && returned >= 0, "silence is for a notification that succeeded");
  }
  return 0;
}
