// A service on the library. Usage: road_service PUBLISH SUBSCRIBE [CHANNEL]

#include <nanomsg/nn.h>
#include <nanomsg/tcp.h>

#include <cstdio>

#include "answer.hpp"
#include "kestro_jrpc.h"
#include "kestro_lsyslog.h"

namespace {

int32_t get(json_t* params, json_t** result, json_t** /*err_data*/) {
  *result = kestro::bench::result_for(params);
  return 0;
}

kestro_jrpc_mapping_t methods[] = {{"ports.Get", get}, {nullptr, nullptr}};

// A daemon's choice of its own handles: small messages leave at once, large ones find room.
void set_for_a_local_bus(int32_t socket) {
  const int enable = 1;
  const int interval_ms = 20;
  const int buffer = 4 << 20;
  nn_setsockopt(socket, NN_TCP, NN_TCP_NODELAY, &enable, sizeof enable);
  nn_setsockopt(socket, NN_SOL_SOCKET, NN_RECONNECT_IVL, &interval_ms, sizeof interval_ms);
  nn_setsockopt(socket, NN_SOL_SOCKET, NN_SNDBUF, &buffer, sizeof buffer);
  nn_setsockopt(socket, NN_SOL_SOCKET, NN_RCVBUF, &buffer, sizeof buffer);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const char* const channel = argc > 3 ? argv[3] : KESTRO_JRPC_CHANNEL_3A6F8F51;
  kestro_lsyslog_init("road_service");
  int32_t publisher = -1;
  int32_t subscriber = -1;
  if (kestro_jrpc_mq_pub_init(argv[1], &publisher) != 0 || kestro_jrpc_mq_sub_init(&subscriber, 0) != 0) return 1;
  set_for_a_local_bus(publisher);
  set_for_a_local_bus(subscriber);
  if (kestro_jrpc_mq_sub_set_channel(argv[2], channel, &subscriber) != 0) return 1;
  for (;;) kestro_jrpc_mq_run(&subscriber, &publisher, methods, 0);
}
