// What a service manager hears from the daemon.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstring>
#include <string>

#include "core/owned.hpp"
#include "support/bus.hpp"
#include "support/process.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using testing::HasSubstr;

// The manager's end: a datagram socket at a path.
class Manager {
 public:
  Manager() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path().c_str(), sizeof address.sun_path - 1);
    bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
  }
  [[nodiscard]] std::string path() const { return dir_.file("notify"); }
  // Everything that was said so far.
  const std::string& heard() {
    std::array<char, 4096> message;
    for (ssize_t size = 0; (size = recv(socket_.get(), message.data(), message.size(), MSG_DONTWAIT)) > 0;) {
      heard_.append(message.data(), static_cast<size_t>(size)).append("\n");
    }
    return heard_;
  }
  bool hears(const std::string& text) {
    return eventually([&] { return heard().find(text) != std::string::npos; });
  }

 private:
  TempDir dir_;
  Descriptor socket_{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  std::string heard_;
};

TEST(RouterdNotify, ReadinessStatusWatchdogAndEndAreTold) {
#ifndef KESTRO_HAVE_SYSTEMD
  GTEST_SKIP() << "built without it";
#endif
  Manager manager;
  const TempDir dir;
  Process router({KESTRO_ROUTERD, "--listen-unix", dir.file("router.sock"), "--bus-publish", free_bus_address(),
                  "--bus-subscribe", free_bus_address(), "--stats-name", "/" + dir.path().filename().string()},
                 {"NOTIFY_SOCKET=" + manager.path()});
  EXPECT_TRUE(manager.hears("READY=1"));
  EXPECT_TRUE(manager.hears("WATCHDOG=1\nSTATUS=0 clients, 0 requests in flight"));
  EXPECT_THAT(manager.heard(), testing::Not(HasSubstr("STOPPING=1")));
  EXPECT_EQ(router.terminate(), 0);
  EXPECT_THAT(manager.heard(), HasSubstr("STOPPING=1"));
}

}  // namespace
}  // namespace kestro::test
