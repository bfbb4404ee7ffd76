// A client: sends one request to the router's Unix-domain socket and prints the answer.
//
//   call SOCKET_PATH REQUEST
//
// Exit status: 0 an answer came, 3 the connection was closed without one, 4 no connection, 2 usage.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

int connect_to(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (strlen(path) >= sizeof address.sun_path) return -1;
  strcpy(address.sun_path, path);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return fd;
  if (fd >= 0) close(fd);
  return -1;
}

bool send_all(int fd, const std::string& text) {
  for (size_t sent = 0; sent < text.size();) {
    const ssize_t count = send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return false;
    sent += static_cast<size_t>(count);
  }
  return true;
}

// The answer ends where the router closes the connection.
std::string receive_all(int fd) {
  std::string text;
  char piece[4096];
  for (ssize_t count = 0; (count = recv(fd, piece, sizeof piece, 0)) > 0;)
    text.append(piece, static_cast<size_t>(count));
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: %s SOCKET_PATH REQUEST\n", argv[0]);
    return 2;
  }
  const int fd = connect_to(argv[1]);
  if (fd < 0) {
    perror(argv[1]);
    return 4;
  }
  const bool sent = send_all(fd, std::string(argv[2]) + "\n");
  const std::string answer = sent ? receive_all(fd) : "";
  close(fd);
  if (answer.empty()) {
    fprintf(stderr, "%s: closed without an answer\n", argv[1]);
    return 3;
  }
  puts(answer.c_str());
  return 0;
}
