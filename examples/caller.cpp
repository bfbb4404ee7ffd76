// A daemon that calls another service over the bus, from several threads that share one subscribe socket.
//
//   caller PUBLISH_ADDRESS SERVICE_ADDRESS PORT_ID...
//
// Asks the service for each port on a thread of its own and prints what it learns.

#include <jansson.h>
#include <kestro.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

int32_t out = -1;  // publishes requests
int32_t in = -1;   // receives responses
pthread_mutex_t in_lock = PTHREAD_MUTEX_INITIALIZER;

// The channel on which this process receives responses. It travels as the "id" of the request.
const std::string reply_channel = "caller-" + std::to_string(getpid());

std::string request_for(const char* method, const char* port_id) {
  json_t* const request = json_pack("{s:s,s:s,s:{s:s},s:s}", "jsonrpc", "2.0", "method", method, "params", "port_id",
                                    port_id, "id", reply_channel.c_str());
  char* const text = json_dumps(request, JSON_COMPACT);
  std::string result = text;
  free(text);
  json_decref(request);
  return result;
}

// One call: publish with the lock of the shared socket, wait for the response, which releases it.
int32_t call(const char* method, const char* port_id, json_t** response) {
  kestro_jrpc_clear_logic_sub_sock(in);  // what came too late for an earlier call
  const auto published =
      kestro_jrpc_mq_pub_lock(&out, KESTRO_JRPC_CHANNEL_3A6F8F51, request_for(method, port_id).c_str(), in);
  if (published != 0) return published;
  return kestro_jrpc_mq_sub_for_method(in, method, response);
}

void show_port(const char* port_id) {
  json_t* response = nullptr;
  if (const auto called = call("ports.Get", port_id, &response); called != 0) {
    printf("%s: %s\n", port_id, kestro_error_decode(called));
    return;
  }
  const char* message = nullptr;
  int enabled = 0;
  if (json_unpack(response, "{s:{s:b}}", "result", "enabled", &enabled) == 0) {
    printf("%s: %s\n", port_id, enabled != 0 ? "enabled" : "disabled");
  } else if (json_unpack(response, "{s:{s:{s:s}}}", "error", "data", "message", &message) == 0) {
    printf("%s: refused, %s\n", port_id, message);
  }
  json_decref(response);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    fprintf(stderr, "usage: %s PUBLISH_ADDRESS SERVICE_ADDRESS PORT_ID...\n", argv[0]);
    return 2;
  }
  kestro_lsyslog_init("caller");
  if (kestro_jrpc_mq_pub_init(argv[1], &out) != 0 || kestro_jrpc_mq_sub_init(&in, 1) != 0) return 1;
  if (kestro_jrpc_mq_sub_set_channel(argv[2], reply_channel.c_str(), &in) != 0) return 1;
  kestro_jrpc_add_fd_lock(in, &in_lock);
  kestro_lsyslog_set_socket(out);  // half a second for the service to find our publish socket

  std::vector<std::thread> threads;
  for (int i = 3; i < argc; ++i) threads.emplace_back(show_port, argv[i]);
  for (auto& thread : threads) thread.join();

  kestro_mq_socket_close(in);
  kestro_mq_socket_close(out);
  return 0;
}
