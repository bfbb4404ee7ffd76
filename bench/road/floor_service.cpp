// What a service costs at least: written straight on the JSON library and the bus, without a check.
// Usage: floor_service PUBLISH SUBSCRIBE

#include <nanomsg/nn.h>
#include <nanomsg/pubsub.h>
#include <nanomsg/tcp.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "answer.hpp"

namespace {

constexpr const char* channel = "3a6f8f51-502f-4238-9638-29764ff1a8a4";

int open_socket(int protocol) {
  const int socket = nn_socket(AF_SP, protocol);
  const int enable = 1;
  const int interval_ms = 20;
  const int buffer = 4 << 20;
  nn_setsockopt(socket, NN_TCP, NN_TCP_NODELAY, &enable, sizeof enable);
  nn_setsockopt(socket, NN_SOL_SOCKET, NN_RECONNECT_IVL, &interval_ms, sizeof interval_ms);
  nn_setsockopt(socket, NN_SOL_SOCKET, NN_SNDBUF, &buffer, sizeof buffer);
  nn_setsockopt(socket, NN_SOL_SOCKET, NN_RCVBUF, &buffer, sizeof buffer);
  return socket;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const int publisher = open_socket(NN_PUB);
  const int subscriber = open_socket(NN_SUB);
  nn_setsockopt(subscriber, NN_SUB, NN_SUB_SUBSCRIBE, channel, strlen(channel));
  if (nn_bind(publisher, argv[1]) < 0 || nn_connect(subscriber, argv[2]) < 0) return 1;

  for (;;) {
    char* frame = nullptr;
    const int length = nn_recv(subscriber, &frame, NN_MSG, 0);
    if (length < 0) return 1;
    const auto* const bar = static_cast<const char*>(memchr(frame, '|', static_cast<size_t>(length)));
    json_t* const request = json_loadb(bar + 1, static_cast<size_t>(frame + length - bar - 1), 0, nullptr);
    nn_freemsg(frame);

    json_t* const response = json_pack("{s:s,s:O,s:o,s:O}", "jsonrpc", "2.0", "id", json_object_get(request, "method"),
                                       "result", kestro::bench::result_for(json_object_get(request, "params")),
                                       "transaction_id", json_object_get(request, "transaction_id"));
    char* const text = json_dumps(response, JSON_COMPACT);
    std::string answer = json_string_value(json_object_get(request, "id"));
    answer.append("|").append(text);
    nn_send(publisher, answer.data(), answer.size(), 0);
    free(text);
    json_decref(response);
    json_decref(request);
  }
}
