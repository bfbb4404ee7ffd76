#include "core/owned.hpp"
#include "kestro_jrpc/json.hpp"
#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/site.hpp"
#include "kestro_utils.h"

using namespace kestro;
using namespace kestro::jrpc_utils;

char* kestro_jrpc_utils_dumps_validate(json_t* json) noexcept {
  if (json == nullptr) {
    here().log(Error, "NULL\n");
    return nullptr;
  }
  Text text = encode_json(json);
  json_decref(json);
  if (!text) kestro_panic("could not dump out JSON");
  return text.release();
}
