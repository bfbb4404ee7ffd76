#include "common/bus_sockets.hpp"

#include <nanomsg/nn.h>
#include <nanomsg/pubsub.h>
#include <nanomsg/tcp.h>

#include <stdexcept>

#include "kestro_jrpc.h"
#include "kestro_mq.h"

namespace kestro::daemons {

namespace {

constexpr int reconnect_ms = 20;

void require(int32_t status, const std::string& what) {
  if (status != 0) throw std::runtime_error(what);
}

// Arguments are evaluated in any order: the cause is asked for once the call was made.
std::string cause() {
  return nn_strerror(nn_errno());
}

void set(int32_t socket, int level, int option, int value) {
  const int failed = nn_setsockopt(socket, level, option, &value, sizeof value);
  require(failed, "nn_setsockopt: option " + std::to_string(option) + ": " + cause());
}

void set_for_a_local_bus(int32_t socket) {
  set(socket, NN_TCP, NN_TCP_NODELAY, 1);
  set(socket, NN_SOL_SOCKET, NN_RECONNECT_IVL, reconnect_ms);
}

}  // namespace

int32_t open_publisher(const std::string& address) {
  int32_t handle = -1;
  require(kestro_mq_socket_init(KESTRO_MQ_SP_PUB, &handle), "cannot open a publish socket");
  BusSocket socket(handle);
  set_for_a_local_bus(handle);
  set(handle, NN_SOL_SOCKET, NN_SNDBUF, wanted_buffer);
  int32_t eid = 0;
  const int32_t bound = kestro_mq_socket_bind(handle, KESTRO_MQ_TRANSPORT_TCP, address.c_str(), &eid);
  require(bound, "cannot publish at " + address + ": " + cause());
  return socket.release();
}

int32_t open_subscriber(const std::vector<std::string>& addresses, const std::string& channel, int wait_ms) {
  int32_t handle = -1;
  require(kestro_jrpc_mq_sub_init(&handle, 0), "cannot open a subscribe socket");
  BusSocket socket(handle);
  set_for_a_local_bus(handle);
  set(handle, NN_SOL_SOCKET, NN_RCVBUF, wanted_buffer);
  set(handle, NN_SOL_SOCKET, NN_RCVTIMEO, wait_ms);
  // A message above the limit would end all receiving from its sender; no message is too long for the daemons.
  set(handle, NN_SOL_SOCKET, NN_RCVMAXSIZE, -1);
  for (const auto& address : addresses) {
    const int32_t connected = kestro_jrpc_mq_sub_set_channel(address.c_str(), channel.c_str(), &handle);
    if (connected != 0) socket.release();  // it is closed already
    require(connected, "cannot subscribe at " + address + ": " + cause());
  }
  return socket.release();
}

int receive_descriptor(int32_t subscriber) {
  int32_t fd = -1;
  require(kestro_mq_socket_recvfd(subscriber, &fd), "no descriptor to wait on");
  return fd;
}

BusSocket::~BusSocket() {
  if (handle_ >= 0) kestro_mq_socket_close(handle_);
}

}  // namespace kestro::daemons
