#include "support/stream.hpp"

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "kestro_socket.h"

namespace kestro::test {

StreamServer::StreamServer() {
  if (kestro_unix_socket_init(path_.c_str(), &handle_, 1) != 0) throw std::runtime_error("cannot listen on " + path_);
}

StreamServer::~StreamServer() {
  kestro_socket_shutdown(&handle_);
}

StreamClient::StreamClient(const StreamServer& server) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, server.path().c_str(), sizeof address.sun_path - 1);
  if (connect(fd(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("cannot connect to " + server.path());
  }
}

StreamClient& StreamClient::send(std::string_view text) {
  while (!text.empty()) {
    const ssize_t sent = ::send(fd(), text.data(), text.size(), MSG_NOSIGNAL);
    if (sent < 0) throw std::runtime_error("cannot send");
    text.remove_prefix(static_cast<size_t>(sent));
  }
  return *this;
}

bool StreamClient::reserve(int bytes) {
  return setsockopt(fd(), SOL_SOCKET, SO_SNDBUFFORCE, &bytes, sizeof bytes) == 0;
}

StreamClient& StreamClient::finish() {
  shutdown(fd(), SHUT_WR);
  return *this;
}

std::string StreamClient::received() {
  std::string text;
  std::array<char, 4096> piece{};
  for (;;) {
    const ssize_t count = recv(fd(), piece.data(), piece.size(), MSG_DONTWAIT);
    if (count <= 0) return text;
    text.append(piece.data(), static_cast<size_t>(count));
  }
}

bool StreamClient::closed() {
  received();
  char byte = 0;
  const ssize_t count = recv(fd(), &byte, 1, MSG_DONTWAIT);
  // A server that closes with a request unread resets the connection.
  return count == 0 || (count < 0 && errno == ECONNRESET);
}

}  // namespace kestro::test
