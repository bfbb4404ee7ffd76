// What a router costs at least: written straight on the JSON library, the bus and epoll, without a check.
// Usage: floor_router SOCKET PUBLISH SUBSCRIBE...

#include <jansson.h>
#include <nanomsg/nn.h>
#include <nanomsg/pubsub.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_map>

#include "local_bus.hpp"
#include "unix_socket.hpp"

namespace {

constexpr const char* service_channel = "3a6f8f51-502f-4238-9638-29764ff1a8a4";
constexpr const char* reply_channel = "2524546b-ca99-4868-a062-359cefacff7c";

struct Waiting {
  int fd;
  json_t* transaction_id;
};
std::unordered_map<json_int_t, Waiting> waiting;
json_int_t next_number = 1;
int publisher = -1;
int subscriber = -1;
int epoll = -1;

void watch(int fd) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = fd;
  epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
}

void forward(int client) {
  static std::array<char, 65'536> buffer;
  const ssize_t count = read(client, buffer.data(), buffer.size());
  json_t* const request = json_loadb(buffer.data(), static_cast<size_t>(count > 0 ? count : 0), 0, nullptr);
  if (request == nullptr) {
    close(client);
    return;
  }
  epoll_ctl(epoll, EPOLL_CTL_DEL, client, nullptr);
  waiting[next_number] = {client, json_incref(json_object_get(request, "transaction_id"))};
  json_object_set_new(request, "transaction_id", json_integer(next_number++));
  json_object_set_new(request, "id", json_string(reply_channel));
  char* const text = json_dumps(request, JSON_COMPACT);
  const std::string frame = std::string(service_channel) + "|" + text;
  nn_send(publisher, frame.data(), frame.size(), 0);
  free(text);
  json_decref(request);
}

void answer(const char* frame, size_t length) {
  const auto* const bar = static_cast<const char*>(memchr(frame, '|', length));
  json_t* const response = json_loadb(bar + 1, static_cast<size_t>(frame + length - bar - 1), 0, nullptr);
  const auto found = waiting.find(json_integer_value(json_object_get(response, "transaction_id")));
  if (found != waiting.end()) {
    json_object_set_new(response, "transaction_id", found->second.transaction_id);
    char* const text = json_dumps(response, JSON_COMPACT);
    const size_t size = strlen(text);
    for (size_t sent = 0; sent < size;) {
      const ssize_t count = write(found->second.fd, text + sent, size - sent);
      if (count <= 0) break;
      sent += static_cast<size_t>(count);
    }
    close(found->second.fd);
    free(text);
    waiting.erase(found);
  }
  json_decref(response);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  signal(SIGPIPE, SIG_IGN);
  epoll = epoll_create1(0);
  const int listener = kestro::bench::listen_at(argv[1]);
  publisher = kestro::bench::open_socket(NN_PUB);
  subscriber = kestro::bench::open_socket(NN_SUB);
  const int any_size = -1;
  nn_setsockopt(subscriber, NN_SOL_SOCKET, NN_RCVMAXSIZE, &any_size, sizeof any_size);
  nn_setsockopt(subscriber, NN_SUB, NN_SUB_SUBSCRIBE, reply_channel, strlen(reply_channel));
  if (nn_bind(publisher, argv[2]) < 0) return 1;
  for (int i = 3; i < argc; ++i) nn_connect(subscriber, argv[i]);
  int readable = -1;
  size_t size = sizeof readable;
  nn_getsockopt(subscriber, NN_SOL_SOCKET, NN_RCVFD, &readable, &size);
  watch(listener);
  watch(readable);

  std::array<epoll_event, 64> events{};
  for (;;) {
    const int count = epoll_wait(epoll, events.data(), events.size(), -1);
    for (int i = 0; i < count; ++i) {
      const int fd = events[static_cast<size_t>(i)].data.fd;
      if (fd == listener) {
        // The client's descriptor blocks: a large answer is written whole.
        if (const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC); client >= 0) watch(client);
      } else if (fd == readable) {
        char* frame = nullptr;
        if (const int length = nn_recv(subscriber, &frame, NN_MSG, NN_DONTWAIT); length >= 0) {
          answer(frame, static_cast<size_t>(length));
          nn_freemsg(frame);
        }
      } else {
        forward(fd);
      }
    }
  }
}
