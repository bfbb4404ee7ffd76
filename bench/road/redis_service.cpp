// The same small answer by a service on a publish/subscribe server. Usage: redis_service SOCKET

#include <hiredis/hiredis.h>
#include <jansson.h>

#include <cstdlib>
#include <cstring>

#include "answer.hpp"

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  redisContext* const in = redisConnectUnix(argv[1]);
  redisContext* const out = redisConnectUnix(argv[1]);
  if (in == nullptr || in->err != 0 || out == nullptr || out->err != 0) return 1;
  // What is published is not acknowledged: nothing waits for it.
  redisAppendCommand(out, "CLIENT REPLY OFF");
  freeReplyObject(redisCommand(in, "SUBSCRIBE ports"));
  for (;;) {
    void* taken = nullptr;
    if (redisGetReply(in, &taken) != REDIS_OK) return 1;
    auto* const message = static_cast<redisReply*>(taken);
    json_t* const request = json_loads(message->element[2]->str, 0, nullptr);
    json_t* const response = kestro::bench::response_to(request);
    char* const text = json_dumps(response, JSON_COMPACT);
    redisAppendCommand(out, "PUBLISH %s %b", json_string_value(json_object_get(request, "id")), text, strlen(text));
    int all_written = 0;
    while (all_written == 0) {
      if (redisBufferWrite(out, &all_written) != REDIS_OK) return 1;
    }
    free(text);
    json_decref(response);
    json_decref(request);
    freeReplyObject(message);
  }
}
