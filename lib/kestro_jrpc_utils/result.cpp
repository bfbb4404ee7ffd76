#include "core/owned.hpp"
#include "core/site.hpp"
#include "kestro_jrpc/json.hpp"
#include "kestro_jrpc_utils.h"
#include "kestro_utils.h"

using namespace kestro;

namespace {
constexpr auto here = site_of("kestro_jrpc_utils");
}

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
