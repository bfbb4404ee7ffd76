// A service on the library. Usage: road_service PUBLISH SUBSCRIBE [CHANNEL]

#include <cstdint>

#include "answer.hpp"
#include "kestro_jrpc.h"
#include "kestro_lsyslog.h"
#include "local_bus.hpp"

namespace {

int32_t get(json_t* params, json_t** result, json_t** /*err_data*/) {
  *result = kestro::bench::result_for(params);
  return 0;
}

kestro_jrpc_mapping_t methods[] = {{"ports.Get", get}, {nullptr, nullptr}};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const char* const channel = argc > 3 ? argv[3] : KESTRO_JRPC_CHANNEL_3A6F8F51;
  kestro_lsyslog_init("road_service");
  int32_t publisher = -1;
  int32_t subscriber = -1;
  if (kestro_jrpc_mq_pub_init(argv[1], &publisher) != 0 || kestro_jrpc_mq_sub_init(&subscriber, 0) != 0) return 1;
  // A daemon's choice of its own handles.
  kestro::bench::set_for_a_local_bus(publisher);
  kestro::bench::set_for_a_local_bus(subscriber);
  if (kestro_jrpc_mq_sub_set_channel(argv[2], channel, &subscriber) != 0) return 1;
  for (;;) kestro_jrpc_mq_run(&subscriber, &publisher, methods, 0);
}
