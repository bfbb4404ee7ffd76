// A service that describes its methods, as those of the unit do.
//
//   described_service PUBLISH_ADDRESS SUBSCRIBE_ADDRESS CHANNEL

#include <jansson.h>
#include <kestro.h>

#include <cstdio>
#include <cstring>

#include "common/bus_sockets.hpp"
#include "common/loop.hpp"
#include "common/methods.hpp"

namespace {

using namespace kestro::daemons;

int32_t out = -1;
Methods* described = nullptr;

int32_t ports_get(json_t* params, json_t** result, json_t** err_data) {
  const char* const id = json_string_value(json_object_get(params, "port_id"));
  if (id == nullptr) {
    *err_data = json_pack("{s:s}", "message", "port_id: a text is expected");
    return -35;
  }
  if (strcmp(id, "c1-1") != 0) {
    *err_data = json_pack("{s:[s,s],s:s}", "ports", "c1-1", "d1", "asked", id);
    return -6;
  }
  *result = json_pack("{s:s,s:b,s:f}", "port_id", id, "enabled", 1, "watts", 5.1);
  return 0;
}

// Publishes the event that it is asked for, with what else it is given.
int32_t ports_announce(json_t* params, json_t** /*result*/, json_t** /*err_data*/) {
  json_t* const event =
      json_pack("{s:s,s:O,s:O}", "jsonrpc", "2.0", "method", json_object_get(params, "event"), "params", params);
  char* const text = json_dumps(event, JSON_COMPACT);
  kestro_jrpc_mq_pub(&out, KESTRO_JRPC_CHANNEL_505A5451, text);
  free(text);
  json_decref(event);
  return 0;
}

int32_t ports_login(json_t* params, json_t** result, json_t** /*err_data*/) {
  *result = json_pack("{s:O}", "session_secret", json_object_get(params, "password"));
  return 0;
}

int32_t publish_junk(json_t* /*params*/, json_t** /*result*/, json_t** /*err_data*/) {
  return kestro_jrpc_mq_pub(&out, KESTRO_JRPC_CHANNEL_505A5451, "{\"password\":\"hunter2\"");
}

int32_t discover(json_t* /*params*/, json_t** result, json_t** /*err_data*/) {
  *result = described->describe();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  kestro_lsyslog_init("described");
  Loop loop;
  const bool is_default = strcmp(argv[3], KESTRO_JRPC_CHANNEL_DEFAULT) == 0;
  Methods methods(is_default ? "board" : "ports",
                  {{"ports.Get",
                    ports_get,
                    "One port.",
                    {{"port_id", "string", "which"}, {"brief", "boolean", "less of it", optional}}},
                   {"ports.Announce", ports_announce, "Publishes an event.", {{"event", "string", "its name"}}},
                   {"ports.Login", ports_login, "Takes a password.", {{"password", "string", "secret"}}},
                   {"ports.Junk", publish_junk, "Publishes what is no JSON.", {}},
                   {"emac.service.CoreSwitchGetTemps", ports_announce, "Temperatures.", {}},
                   {"logger.ReloadConf", kestro_lsyslog_reload_conf_api, "Reads the log levels.", {}},
                   {is_default ? "rpc.discover" : "network.service.Discover", discover, "The methods.", {}}});
  described = &methods;
  out = open_publisher(argv[1]);
  BusSocket in(open_subscriber({argv[2]}, argv[3]));
  int32_t in_handle = in.get();
  loop.watch(receive_descriptor(in.get()), [&] { kestro_jrpc_mq_run(&in_handle, &out, methods.table(), 1); });
  loop.run();
  kestro_mq_socket_close(out);
  return 0;
}
