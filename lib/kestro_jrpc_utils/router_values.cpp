// The identity of the core router.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "core/owned.hpp"
#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/site.hpp"

using namespace kestro;
using namespace kestro::jrpc_utils;

namespace {

// Half an identity is worse than none, and whoever stored a longer one has broken the store: nothing goes on from
// there.
void copy_whole(const char* name, const char* text, std::span<char> out) noexcept {
  const size_t length = strlen(text);
  if (length >= out.size()) {
    fprintf(stderr, "buffer overflow detected: %s has %zu characters, %zu bytes are there\n", name, length, out.size());
    abort();
  }
  memcpy(out.data(), text, length + 1);
}

void read(const json_t* object, const char* name, std::span<char> out) noexcept {
  const char* const text = json_string_value(json_object_get(object, name));
  if (text != nullptr) copy_whole(name, text, out);
}

}  // namespace

int32_t kestro_json_parse_rcfg_init_vals(struct router_cfg* rcfg, json_t* obj) noexcept {
  if (!json_is_object(obj)) return here().fail(Error, status::general_error, "not an object\n");
  if (rcfg == nullptr) return here().fail(Debug, status::general_error, "NULL pointer!\n");
  read(obj, "mac_addr", rcfg->mac_addr);
  read(obj, "sw_version", rcfg->sw_version);
  read(obj, "credentials", rcfg->credentials);
  read(obj, "model", rcfg->model);
  return status::ok;
}

int32_t kestro_json_parse_rcfg_init_vals_from_str(struct router_cfg* rcfg, const char* json) noexcept {
  json_error_t error;
  const Json object(json_loads(json, 0, &error));
  if (json == nullptr) {
    return here().fail(Error, status::general_error, "Parse error: %s; source: %s\n", error.text, error.source);
  }
  return kestro_json_parse_rcfg_init_vals(rcfg, object.get());
}
