// The bus as the floor and the service on the library have it alike: small messages leave at once, large ones find room.
#ifndef KESTRO_BENCH_ROAD_LOCAL_BUS_HPP
#define KESTRO_BENCH_ROAD_LOCAL_BUS_HPP

#include <nanomsg/nn.h>
#include <nanomsg/tcp.h>

namespace kestro::bench {

inline void set_for_a_local_bus(int socket) {
  const int enable = 1;
  const int interval_ms = 20;
  const int buffer = 4 << 20;
  nn_setsockopt(socket, NN_TCP, NN_TCP_NODELAY, &enable, sizeof enable);
  nn_setsockopt(socket, NN_SOL_SOCKET, NN_RECONNECT_IVL, &interval_ms, sizeof interval_ms);
  nn_setsockopt(socket, NN_SOL_SOCKET, NN_SNDBUF, &buffer, sizeof buffer);
  nn_setsockopt(socket, NN_SOL_SOCKET, NN_RCVBUF, &buffer, sizeof buffer);
}

// What the floor's programs begin with.
inline int open_socket(int protocol) {
  const int socket = nn_socket(AF_SP, protocol);
  set_for_a_local_bus(socket);
  return socket;
}

}  // namespace kestro::bench

#endif
