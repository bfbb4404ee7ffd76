// How a caller finds its response among what arrives, and a daemon its notification; and which notifications a router
// handles itself.
#include <jansson.h>

#include <array>
#include <cstring>

#include "kestro_jrpc.h"
#include "kestro_jrpc/await.hpp"
#include "kestro_jrpc/router_request.hpp"
#include "support/fuzz.hpp"

using namespace kestro;
using namespace kestro::fuzz;

namespace {

bool is_text(const json_t* value, const char* text) {
  return json_is_string(value) && strcmp(json_string_value(value), text) == 0;
}

// Both matchings follow one rule, on different members.
void check_matching(int32_t (*match)(const char*, const char*, json_t**), const json_t* root, const char* member,
                    const char* name, const char* text) {
  const bool expected =
      is_text(json_object_get(root, "jsonrpc"), "2.0") && is_text(json_object_get(root, member), name);
  json_t* raw = nullptr;
  const int32_t status = match(name, text, &raw);
  const Json found(raw);
  require(status == (expected ? 0 : -1), "it matches when it speaks 2.0 and has the name");
  require((status == 0) == (found != nullptr), "an object comes with success only");
  require(!found || json_equal(found.get(), root), "the object is the whole text's");
}

int calls;

int32_t count(json_t* /*params*/, json_t** result, json_t** err_data) {
  ++calls;
  *result = json_object();
  *err_data = json_object();
  return 0;
}

void check_router_notification(const json_t* root) {
  std::array<kestro_jrpc_mapping_t, 2> table{{{"router.Set", count}, {nullptr, nullptr}}};
  calls = 0;
  const Json copy(json_deep_copy(root));
  const int32_t status = kestro_jrpc_router_eval_notification(copy.get(), table.data());
  require(calls == (status == 0 ? 1 : 0), "a handler is called when all is well, and only then");
  if (calls > 0) {
    require(json_object_get(root, "id") == nullptr, "a notification has no id");
    require(is_text(json_object_get(root, "method"), "router.Set"), "a handler is that of the method");
  }
}

void check_rewriting(const json_t* root, const char* text) {
  char* raw_request = nullptr;
  char* raw_channel = nullptr;
  const int32_t status = kestro_jrpc_router_process_msg(text, &raw_request, &raw_channel);
  const Text request(raw_request);
  const Text channel(raw_channel);
  require((status == 0) == (request != nullptr), "a request comes with success only");
  if (!request) return;
  require(channel != nullptr, "what is forwarded has a channel");
  const Json expected(json_copy(const_cast<json_t*>(root)));
  json_object_set_new(expected.get(), "id", json_string(KESTRO_JRPC_CHANNEL_ROUTER_REPLY));
  const Json sent(json_loads(request.get(), JSON_REJECT_DUPLICATES, nullptr));
  require(json_equal(sent.get(), expected.get()), "only the id is replaced");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  choose_log_level(input.byte());
  const Text name = exact(input.line());
  const Text text = exact(input.rest());
  const Json root(json_loads(text.get(), JSON_REJECT_DUPLICATES | JSON_DISABLE_EOF_CHECK | JSON_DECODE_ANY, nullptr));
  check_matching(kestro_jrpc_eval_method, root.get(), "id", name.get(), text.get());
  check_matching(kestro_jrpc_eval_notification, root.get(), "method", name.get(), text.get());
  check_router_notification(root.get());
  check_rewriting(root.get(), text.get());
  return 0;
}
