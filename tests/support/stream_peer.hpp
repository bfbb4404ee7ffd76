// The other end of a stream socket: a plain client, and what it makes of the connection.
#ifndef KESTRO_TESTS_STREAM_PEER_HPP
#define KESTRO_TESTS_STREAM_PEER_HPP

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

#include "core/owned.hpp"

namespace kestro::test {

// A connected client. What it sends waits in the socket, also before the server accepts.
class StreamPeer {
 public:
  static StreamPeer on_path(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return StreamPeer(AF_UNIX, address);
  }
  static StreamPeer on_port(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return StreamPeer(AF_INET, address);
  }

  // Sends everything, or throws.
  StreamPeer& send(std::string_view text) {
    while (!text.empty()) {
      const ssize_t sent = ::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL);
      if (sent < 0) throw std::runtime_error("cannot send");
      text.remove_prefix(static_cast<size_t>(sent));
    }
    return *this;
  }

  // Everything up to the end of the connection, for which it waits.
  std::string receive_all() {
    std::string text;
    std::array<char, 4096> piece{};
    for (;;) {
      const ssize_t count = recv(socket_.get(), piece.data(), piece.size(), 0);
      if (count <= 0) return text;
      text.append(piece.data(), static_cast<size_t>(count));
    }
  }

  // Gone at once, with whatever was on its way.
  void vanish() {
    const linger at_once{.l_onoff = 1, .l_linger = 0};
    setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    socket_ = Descriptor();
  }

 private:
  template <class Address>
  StreamPeer(int family, const Address& address) : socket_(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("cannot connect");
    }
  }

  Descriptor socket_;
};

}  // namespace kestro::test

#endif
