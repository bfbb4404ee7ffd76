// The service manager's end of what daemons tell it.
#ifndef KESTRO_TESTS_SERVICE_MANAGER_HPP
#define KESTRO_TESTS_SERVICE_MANAGER_HPP

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstring>
#include <string>

#include "core/owned.hpp"
#include "support/process.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {

// A datagram socket at a path.
class ServiceManager {
 public:
  ServiceManager() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path().c_str(), sizeof address.sun_path - 1);
    bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
  }
  [[nodiscard]] std::string path() const { return dir_.file("notify"); }
  // Leads a process here.
  [[nodiscard]] std::string environment() const { return "NOTIFY_SOCKET=" + path(); }
  // Everything that was said so far.
  const std::string& heard() {
    std::array<char, 4096> message;
    for (ssize_t size = 0; (size = recv(socket_.get(), message.data(), message.size(), MSG_DONTWAIT)) > 0;) {
      heard_.append(message.data(), static_cast<size_t>(size)).append("\n");
    }
    return heard_;
  }
  void forget() {
    static_cast<void>(heard());
    heard_.clear();
  }
  bool hears(const std::string& text) {
    return eventually([&] { return heard().find(text) != std::string::npos; });
  }

 private:
  TempDir dir_;
  Descriptor socket_{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  std::string heard_;
};

}  // namespace kestro::test

#endif
