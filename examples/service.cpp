// A service on the message bus: a method table, two sockets and a loop.
//
//   service PUBLISH_ADDRESS SUBSCRIBE_ADDRESS...
//
// It publishes its answers at the first address and takes requests from the publishers at the others (the router, other
// daemons). It serves the methods of the "3a6f8f51" channel: names that begin with "p" or "l", among others.

#include <jansson.h>
#include <kestro.h>

#include <cstdio>
#include <map>
#include <string>

#include "handler.hpp"
#include "stop.hpp"

namespace {

constexpr int32_t invalid_port = -6;  // numbers and texts: kestro_error.h
constexpr int32_t missing_parameter = -35;

struct Port {
  bool enabled = true;
  int reads = 0;
};
std::map<std::string, Port> ports = {{"c1-1", {}}, {"c1-2", {}}, {"d1", {}}};

// What a client finds as "data" in the error object: an explanation of this one failure.
int32_t refuse(json_t** err_data, int32_t status, const std::string& why) {
  *err_data = json_pack("{s:s}", "message", why.c_str());
  return status;
}

// The port that a request is about; null, with the explanation left for the client, when there is none.
Port* find_port(json_t* params, json_t** err_data, int32_t* status) {
  const char* id = nullptr;
  if (json_unpack(params, "{s:s}", "port_id", &id) != 0) {
    *status = refuse(err_data, missing_parameter, "port_id: a text is expected");
    return nullptr;
  }
  const auto found = ports.find(id);
  if (found == ports.end()) {
    *status = refuse(err_data, invalid_port, std::string(id) + " is no port of this unit");
    return nullptr;
  }
  return &found->second;
}

// {"port_id": "c1-1"}  ->  {"port_id": "c1-1", "enabled": true}
int32_t ports_get(json_t* params, json_t** result, json_t** err_data) {
  int32_t status = 0;
  Port* const port = find_port(params, err_data, &status);
  if (port == nullptr) return status;
  ++port->reads;
  *result = json_pack("{s:O,s:b}", "port_id", json_object_get(params, "port_id"), "enabled", port->enabled);
  return 0;
}

// {"port_id": "c1-1", "enabled": false}  ->  0, which is what a client gets when a handler leaves no result
int32_t ports_set_enabled(json_t* params, json_t** /*result*/, json_t** err_data) {
  int32_t status = 0;
  Port* const port = find_port(params, err_data, &status);
  if (port == nullptr) return status;
  int enabled = 0;
  if (json_unpack(params, "{s:b}", "enabled", &enabled) != 0) {
    return refuse(err_data, missing_parameter, "enabled: true or false is expected");
  }
  port->enabled = enabled != 0;
  return 0;
}

// Meant to be sent without "id": a notification, which nobody is answered.
int32_t ports_clear_counters(json_t* /*params*/, json_t** /*result*/, json_t** /*err_data*/) {
  for (auto& [id, port] : ports) port.reads = 0;
  return 0;
}

// -> {"c1-1": 3, ...}
int32_t ports_get_counters(json_t* /*params*/, json_t** result, json_t** /*err_data*/) {
  *result = json_object();
  for (const auto& [id, port] : ports) json_object_set_new(*result, id.c_str(), json_integer(port.reads));
  return 0;
}

kestro_jrpc_mapping_t methods[] = {
    {"ports.Get", ports_get},
    {"ports.SetEnabled", ports_set_enabled},
    {"ports.ClearCounters", ports_clear_counters},
    {"ports.GetCounters", ports_get_counters},
    {"oec.Provision", provision},
    {"logger.ReloadConf", kestro_lsyslog_reload_conf_api},
    {nullptr, nullptr},
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: %s PUBLISH_ADDRESS SUBSCRIBE_ADDRESS...\n", argv[0]);
    return 2;
  }
  kestro_lsyslog_init("service");
  stop_on_signals();

  int32_t out = -1;
  if (kestro_jrpc_mq_pub_init(argv[1], &out) != 0) return 1;
  int32_t in = -1;
  if (kestro_jrpc_mq_sub_init(&in, 1) != 0) return 1;
  for (int i = 2; i < argc; ++i) {
    if (kestro_jrpc_mq_sub_set_channel(argv[i], KESTRO_JRPC_CHANNEL_3A6F8F51, &in) != 0) return 1;
  }

  // Each call serves one request, or returns after a second without one.
  while (running()) kestro_jrpc_mq_run(&in, &out, methods, 0);

  kestro_mq_socket_close(in);
  kestro_mq_socket_close(out);
  return 0;
}
