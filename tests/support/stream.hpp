// Unix-domain stream sockets for tests: a listening one of the library and plain clients.
#ifndef KESTRO_TESTS_STREAM_HPP
#define KESTRO_TESTS_STREAM_HPP

#include <cstdint>
#include <string>
#include <string_view>

#include "core/owned.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {

// Listens, non-blocking, in a directory of its own.
class StreamServer {
 public:
  StreamServer();
  StreamServer(const StreamServer&) = delete;
  StreamServer& operator=(const StreamServer&) = delete;
  ~StreamServer();

  [[nodiscard]] const std::string& path() const { return path_; }
  int32_t* handle() { return &handle_; }

 private:
  TempDir dir_;
  std::string path_ = dir_.file("server.sock");
  int32_t handle_ = -1;
};

// A connected client. What it sends waits in the socket, also before the server accepts.
class StreamClient {
 public:
  explicit StreamClient(const StreamServer& server);

  [[nodiscard]] int fd() const { return socket_.get(); }
  // Sends everything, or throws.
  StreamClient& send(std::string_view text);
  // Room for this much unread data; false where the system does not allow it.
  [[nodiscard]] bool reserve(int bytes);
  // No more will be sent.
  StreamClient& finish();
  // What has arrived so far.
  std::string received();
  // Whether the server has closed the connection; what arrived before is dropped.
  bool closed();

 private:
  Descriptor socket_;
};

}  // namespace kestro::test

#endif
