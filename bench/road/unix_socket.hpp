// Unix-domain stream sockets. A program of these measurements that cannot have one has nothing left to do.
#ifndef KESTRO_BENCH_ROAD_UNIX_SOCKET_HPP
#define KESTRO_BENCH_ROAD_UNIX_SOCKET_HPP

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace kestro::bench {

inline sockaddr_un address_of(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  return address;
}

// Does not block.
inline int listen_at(const char* path) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const sockaddr_un address = address_of(path);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(fd, 4096) != 0) exit(1);
  return fd;
}

inline int connect_to(const char* path) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = address_of(path);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) exit(1);
  return fd;
}

inline void send_whole(int fd, std::string_view text) {
  if (send(fd, text.data(), text.size(), MSG_NOSIGNAL) < 0) exit(1);
}

}  // namespace kestro::bench

#endif
