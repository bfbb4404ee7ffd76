// The smallest router: clients on a Unix-domain socket, services on the bus, one request at a time.
//
//   router SOCKET_PATH PUBLISH_ADDRESS SUBSCRIBE_ADDRESS...
//
// It publishes requests at the first address and takes responses from the services at the others. A request that no
// service answers within a second gets no answer: its connection is closed.

#include <kestro.h>
#include <unistd.h>

#include <cstdio>

#include "stop.hpp"

int main(int argc, char** argv) {
  if (argc < 4) {
    fprintf(stderr, "usage: %s SOCKET_PATH PUBLISH_ADDRESS SUBSCRIBE_ADDRESS...\n", argv[0]);
    return 2;
  }
  kestro_lsyslog_init("router");
  stop_on_signals();

  int32_t out = -1;
  if (kestro_jrpc_mq_pub_init(argv[2], &out) != 0) return 1;
  int32_t in = -1;
  if (kestro_jrpc_mq_sub_init(&in, 1) != 0) return 1;
  for (int i = 3; i < argc; ++i) {
    if (kestro_jrpc_mq_sub_set_channel(argv[i], KESTRO_JRPC_CHANNEL_ROUTER_REPLY, &in) != 0) return 1;
  }
  int32_t server = -1;
  if (kestro_unix_socket_init(argv[1], &server, 0) != 0) return 1;

  // Responses carry no mark of the client that waits: one that comes after its second must not reach the next client. A
  // registered mutex lets the library drain what is late.
  static pthread_mutex_t in_lock = PTHREAD_MUTEX_INITIALIZER;
  kestro_jrpc_add_fd_lock(in, &in_lock);

  while (running()) {
    int32_t client = -1;
    kestro_jrpc_clear_logic_sub_sock(in);
    const int32_t forwarded = kestro_jrpc_router_socket_to_mq(&server, &out, &client);
    if (forwarded == 0) {
      kestro_jrpc_router_mq_to_socket(&in, &client);  // closes the connection, whatever happens
    } else if (client >= 0) {
      kestro_socket_close(&client);  // the request was too long: the library leaves the connection to us
    }
  }

  kestro_socket_shutdown(&server);
  unlink(argv[1]);
  kestro_mq_socket_close(in);
  kestro_mq_socket_close(out);
  return 0;
}
