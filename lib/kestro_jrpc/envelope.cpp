#include "kestro_jrpc/envelope.hpp"

#include <cstdlib>
#include <cstring>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_jrpc.h"
#include "kestro_jrpc/json.hpp"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_jrpc");

constexpr char separator = '|';

// Which methods belong to which channel, by their first letters. Anything else belongs to the default channel.
struct ServiceRow {
  const char* prefix;
  const char* channel;
};
constexpr ServiceRow services[] = {
    {"ca", KESTRO_JRPC_CHANNEL_B4469F46}, {"i", KESTRO_JRPC_CHANNEL_B4469F46},  {"cl", KESTRO_JRPC_CHANNEL_3A6F8F51},
    {"d", KESTRO_JRPC_CHANNEL_3A6F8F51},  {"l", KESTRO_JRPC_CHANNEL_3A6F8F51},  {"n", KESTRO_JRPC_CHANNEL_3A6F8F51},
    {"p", KESTRO_JRPC_CHANNEL_3A6F8F51},  {"en", KESTRO_JRPC_CHANNEL_3A6F8F51}, {"oe", KESTRO_JRPC_CHANNEL_3A6F8F51},
    {"ol", KESTRO_JRPC_CHANNEL_3A6F8F51}, {"ro", KESTRO_JRPC_CHANNEL_3A6F8F51}, {"ev", KESTRO_JRPC_CHANNEL_505A5451},
};

// A new text of these bytes, or null.
Text copy_bytes(const char* bytes, size_t length) noexcept {
  Text copy(static_cast<char*>(calloc(length + 1, 1)));
  if (copy) memcpy(copy.get(), bytes, length);
  return copy;
}

}  // namespace

const char* kestro::service_channel(const char* method) noexcept {
  for (const auto& row : services) {
    if (strncmp(method, row.prefix, strlen(row.prefix)) == 0) return row.channel;
  }
  return KESTRO_JRPC_CHANNEL_DEFAULT;
}

char* kestro::kestro_jrpc_add_channel(const char* channel, const char* json) noexcept {
  if (channel == nullptr || json == nullptr) {
    here().log(Debug, "[kestro_api_router_json_add_channel]: Null Pointer!\n");
    return nullptr;
  }
  auto* const frame = static_cast<char*>(calloc(strlen(channel) + strlen(json) + 2, 1));
  if (frame == nullptr) {
    here().log(Debug, "[kestro_api_router_json_add_channel]: Failed to allocate memory\n");
    return nullptr;
  }
  char* const end_of_channel = stpcpy(frame, channel);
  *end_of_channel = separator;
  stpcpy(end_of_channel + 1, json);
  return frame;
}

char* kestro::kestro_jrpc_router_extract_channel(const char* method) noexcept {
  if (method == nullptr) {
    here().log(Debug, "[kestro_api_router_json_parse_channel]: Null Pointer!\n");
    return nullptr;
  }
  const char* const channel = service_channel(method);
  return copy_bytes(channel, strlen(channel)).release();
}

int32_t kestro_jrpc_parse_msg(const char* msg, int32_t length, char** json_msg) noexcept {
  if (json_msg != nullptr) *json_msg = nullptr;
  if (msg == nullptr || json_msg == nullptr) {
    return here().fail(Debug, status::null_argument, "[kestro_connect_parse_msg]: Null Pointer!\n");
  }
  const char* const end = msg + (length > 0 ? length : 0);
  const auto* const bar = static_cast<const char*>(memchr(msg, separator, static_cast<size_t>(end - msg)));
  if (bar == nullptr) {
    return here().fail(Debug, status::general_error, "[kestro_connect_parse_msg]: Failed to parse JSON message\n");
  }
  *json_msg = copy_bytes(bar + 1, static_cast<size_t>(end - bar - 1)).release();
  if (*json_msg == nullptr) {
    return here().fail(Debug, status::general_error, "[kestro_connect_parse_msg]: Failed to allocate memory\n");
  }
  return status::ok;
}

Json kestro::parse_addressed(const char* json) noexcept {
  json_error_t error;
  Json root = parse_json(json, &error);
  if (!root) {
    here().log(Debug, "[kestro_jrpc_parse_channel]: Cannot parse JSON message.\n");
    here().log(Debug, "Error on line[%d]: %s\n", error.line, error.text);
    return nullptr;
  }
  if (!json_is_object(root.get())) {
    here().log(Debug, "[kestro_jrpc_parse_channel]: Invalid JSON\n");
    return nullptr;
  }
  return root;
}

int32_t kestro::channel_of(const json_t* root, char** channel) noexcept {
  const json_t* const id = json_object_get(root, "id");
  if (id == nullptr) {
    return here().fail(Verbose, status::no_request_id, "[kestro_jrpc_parse_channel]: No ID\n");
  }
  if (!json_is_string(id)) {
    return here().fail(Debug, status::general_error, "[kestro_jrpc_parse_channel]: Invalid ID\n");
  }
  *channel = copy_bytes(json_string_value(id), json_string_length(id)).release();
  if (*channel == nullptr) {
    return here().fail(Debug, status::general_error, "[kestro_jrpc_parse_channel]: Failed to allocate memory\n");
  }
  return status::ok;
}

int32_t kestro_jrpc_parse_channel(const char* json, char** channel) noexcept {
  if (channel != nullptr) *channel = nullptr;
  if (json == nullptr || channel == nullptr) {
    return here().fail(Debug, status::null_argument, "[kestro_jrpc_parse_channel]: Null Pointer!\n");
  }
  const Json root = parse_addressed(json);
  return root ? channel_of(root.get(), channel) : status::general_error;
}
