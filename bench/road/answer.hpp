// What every service of these measurements does: one small object in, one out, or an array of them of about so many
// bytes.
#ifndef KESTRO_BENCH_ROAD_ANSWER_HPP
#define KESTRO_BENCH_ROAD_ANSWER_HPP

#include <jansson.h>

#include <map>
#include <string>

namespace kestro::bench {

inline json_t* port(const char* name) {
  return json_pack("{s:s,s:b,s:s,s:i,s:[i,i],s:f,s:s}", "port", name, "enabled", 1, "link", "up", "speed", 1000,
                   "vlans", 1, 2000, "power", 12.5, "comment", "uplink of building \"7\"");
}

// A new reference. Large results are made once: their making is not what is measured.
inline json_t* result_for(const json_t* params) {
  const auto size = json_integer_value(json_object_get(params, "size"));
  if (size == 0) return port(json_string_value(json_object_get(params, "port")));
  static std::map<json_int_t, json_t*> made;
  json_t*& list = made[size];
  if (list == nullptr) {
    constexpr json_int_t one_port = 112;
    list = json_array();
    for (json_int_t i = 0; i * one_port < size; ++i) {
      json_array_append_new(list, port(("c" + std::to_string(i) + "-1").c_str()));
    }
  }
  return json_incref(list);
}

// A new reference. For services that do by themselves what the library does for the others.
inline json_t* response_to(const json_t* request) {
  return json_pack("{s:s,s:O,s:o,s:O}", "jsonrpc", "2.0", "id", json_object_get(request, "method"), "result",
                   result_for(json_object_get(request, "params")), "transaction_id",
                   json_object_get(request, "transaction_id"));
}

}  // namespace kestro::bench

#endif
