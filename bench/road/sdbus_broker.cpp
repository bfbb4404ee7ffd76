// Starts dbus-broker without a service manager: one listener, everybody may do everything. Tells the broker's process
// number and stays until it ends. Usage: sdbus_broker SOCKET

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <systemd/sd-bus.h>

#include "unix_socket.hpp"

namespace {

void append_batch(sd_bus_message* call) {
  const auto traffic = [call] {
    sd_bus_message_append(call, "a(btssssuutt)", 1, 1, uint64_t{1}, "", "", "", "", 0, 0, uint64_t{0}, UINT64_MAX);
  };
  sd_bus_message_open_container(call, 'r', "bta(btbs)a(btssssuutt)a(btssssuutt)");
  sd_bus_message_append(call, "bta(btbs)", 1, uint64_t{1}, 1, 1, uint64_t{1}, 1, "");
  traffic();
  traffic();
  sd_bus_message_close_container(call);
}

void append_policy(sd_bus_message* call) {
  constexpr const char* batch = "(bta(btbs)a(btssssuutt)a(btssssuutt))";
  const std::string users = std::string("(u") + batch + ")";
  const std::string groups = std::string("(buu") + batch + ")";
  const std::string policy = "a" + users + "a" + groups + "a(ss)bs";
  sd_bus_message_open_container(call, 'v', ("(" + policy + ")").c_str());
  sd_bus_message_open_container(call, 'r', policy.c_str());
  sd_bus_message_open_container(call, 'a', users.c_str());
  sd_bus_message_open_container(call, 'r', users.substr(1, users.size() - 2).c_str());
  sd_bus_message_append(call, "u", UINT32_MAX);
  append_batch(call);
  sd_bus_message_close_container(call);
  sd_bus_message_close_container(call);
  sd_bus_message_open_container(call, 'a', groups.c_str());
  sd_bus_message_close_container(call);
  sd_bus_message_append(call, "a(ss)bs", 0, 0, "user");
  sd_bus_message_close_container(call);
  sd_bus_message_close_container(call);
}

pid_t start_broker(int controller) {
  const pid_t child = fork();
  if (child != 0) return child;
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  fcntl(controller, F_SETFD, 0);
  const std::string number = std::to_string(controller);
  execlp("dbus-broker", "dbus-broker", "--controller", number.c_str(), "--machine-id",
         "0123456789abcdef0123456789abcdef", "--max-bytes", "100000000", "--max-fds", "100000", "--max-matches",
         "100000", nullptr);
  _exit(127);
}

}  // namespace

int main(int argc, char** argv) {
  std::array<int, 2> ends{};
  if (argc < 2 || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return 2;
  const int listener = kestro::bench::listen_at(argv[1]);
  const pid_t broker = start_broker(ends[1]);
  close(ends[1]);

  sd_bus* bus = nullptr;
  sd_bus_message* call = nullptr;
  if (sd_bus_new(&bus) < 0 || sd_bus_set_fd(bus, ends[0], ends[0]) < 0 || sd_bus_start(bus) < 0) return 1;
  if (sd_bus_message_new_method_call(bus, &call, nullptr, "/org/bus1/DBus/Broker", "org.bus1.DBus.Broker",
                                     "AddListener") < 0) {
    return 1;
  }
  sd_bus_message_append(call, "oh", "/org/bus1/DBus/Listener/0", listener);
  append_policy(call);
  sd_bus_error error = SD_BUS_ERROR_NULL;
  if (const int failed = sd_bus_call(bus, call, 0, &error, nullptr); failed < 0) {
    fprintf(stderr, "sdbus_broker: %s\n", error.message != nullptr ? error.message : strerror(-failed));
    return 1;
  }
  printf("%d\n", broker);
  fflush(stdout);
  for (;;) {
    const int done = sd_bus_process(bus, nullptr);
    if (done < 0) return 1;
    if (done == 0) sd_bus_wait(bus, UINT64_MAX);
  }
}
