// What a service costs at least: written straight on the JSON library and the bus, without a check.
// Usage: floor_service PUBLISH SUBSCRIBE

#include <nanomsg/nn.h>
#include <nanomsg/pubsub.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "answer.hpp"
#include "local_bus.hpp"

namespace {

constexpr const char* channel = "3a6f8f51-502f-4238-9638-29764ff1a8a4";

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const int publisher = kestro::bench::open_socket(NN_PUB);
  const int subscriber = kestro::bench::open_socket(NN_SUB);
  nn_setsockopt(subscriber, NN_SUB, NN_SUB_SUBSCRIBE, channel, strlen(channel));
  if (nn_bind(publisher, argv[1]) < 0 || nn_connect(subscriber, argv[2]) < 0) return 1;

  for (;;) {
    char* frame = nullptr;
    const int length = nn_recv(subscriber, &frame, NN_MSG, 0);
    if (length < 0) return 1;
    const auto* const bar = static_cast<const char*>(memchr(frame, '|', static_cast<size_t>(length)));
    json_t* const request = json_loadb(bar + 1, static_cast<size_t>(frame + length - bar - 1), 0, nullptr);
    nn_freemsg(frame);

    json_t* const response = kestro::bench::response_to(request);
    char* const text = json_dumps(response, JSON_COMPACT);
    std::string answer = json_string_value(json_object_get(request, "id"));
    answer.append("|").append(text);
    nn_send(publisher, answer.data(), answer.size(), 0);
    free(text);
    json_decref(response);
    json_decref(request);
  }
}
