// Sockets, timers and shared memory while system calls fail.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "faults/calls.hpp"
#include "kestro_jrpc.h"
#include "kestro_shm.h"
#include "kestro_socket.h"
#include "kestro_timer.h"
#include "kestro_utils.h"
#include "routerd/stats.hpp"
#include "support/bus.hpp"
#include "support/descriptors.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/shm_name.hpp"
#include "support/stream.hpp"

namespace kestro::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

// A server that fails after its socket was made leaves the socket open: its caller exits.
void expect_one_left_open(const std::set<int>& before, bool left_open) {
  int count = 0;
  for (const int fd : open_descriptors()) {
    if (before.contains(fd)) continue;
    ++count;
    close(fd);
  }
  EXPECT_EQ(count, left_open ? 1 : 0);
}

void open_a_unix_server(Trial& trial) {
  const auto before = open_descriptors();
  const std::string path = trial.directory() + "/server";
  int32_t server = -1;
  const auto status = operate(trial, [&] { return kestro_unix_socket_init(path.c_str(), &server, 1); });
  EXPECT_EQ(server >= 0, status == 0);
  expect_one_left_open(before, !failed(trial, "socket"));
}

void open_a_tcp_server(Trial& trial) {
  const auto before = open_descriptors();
  int32_t server = -1;
  const auto status = operate(trial, [&] { return kestro_tcp_socket_init(0, &server, 1); });
  EXPECT_EQ(server >= 0, status == 0);
  if (failed(trial, "setsockopt")) {
    EXPECT_THAT(trial.said(),
                HasLog(Error, "kestro_socket", "[kestro_tcp_socket_init]: Unable to set socket options!\n"));
  }
  expect_one_left_open(before, !failed(trial, "socket"));
}

// Two connections wait; both are taken one day.
void accept_connections(Trial& trial) {
  StreamServer server;
  const StreamClient first(server);
  const StreamClient second(server);
  int accepted = 0;
  for (int tries = 0; accepted < 2 && tries < 3; ++tries) {
    int32_t connection = -2;
    const auto status = operate(trial, [&] { return kestro_socket_accept(server.handle(), &connection); });
    EXPECT_EQ(connection >= 0, status == 0);
    if (status == 0) {
      ++accepted;
      kestro_socket_shutdown(&connection);
    } else {
      EXPECT_EQ(connection, -1);
      if (failed_with(trial, "accept4", EAGAIN)) {
        EXPECT_THAT(trial.said(), IsEmpty());
      } else {
        EXPECT_EQ(trial.said(), std::string("kestro_socket_accept: ") + strerror(current_fault().error) + "\n");
      }
    }
  }
  EXPECT_EQ(accepted, 2);
}

void connect_by_tcp(Trial& trial) {
  const int port = free_port();
  int32_t server = -1;
  ASSERT_EQ(kestro_tcp_socket_init(port, &server, 1), 0);
  int32_t connection = -2;
  const auto status = operate(trial, [&] { return kestro_tcp_socket_connect("127.0.0.1", port, &connection); });
  if (failed(trial, "connect")) {
    EXPECT_EQ(status, current_fault().error == ETIMEDOUT ? -51 : -1);
    EXPECT_THAT(trial.said(), IsEmpty());
  }
  EXPECT_EQ(connection >= 0, status == 0);
  if (connection >= 0) kestro_socket_shutdown(&connection);
  kestro_socket_shutdown(&server);
}

// A connection, and the client at its other end.
struct Line {
  explicit Line(bool nonblocking = false) {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (nonblocking ? SOCK_NONBLOCK : 0), 0, ends), 0);
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;
  ~Line() {
    close(ends[0]);
    close(ends[1]);
  }
  void write(const std::string& text) const {
    EXPECT_EQ(::send(ends[1], text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  }
  int32_t ends[2] = {-1, -1};
};

void receive_once(Trial& trial) {
  Line line;
  line.write("text");
  std::array<char, 16> message{};
  int32_t count = 0;
  trial.make([&] { count = kestro_socket_recv(line.ends, message.data(), message.size()); });
  if (!trial.excused()) {
    EXPECT_EQ(count, 4);
  } else if (current_fault().error == shortened) {
    EXPECT_EQ(count, 1);
  } else {
    EXPECT_EQ(count, -1);
    EXPECT_EQ(trial.said(), std::string("kestro_socket_recv: ") + strerror(current_fault().error) + "\n");
  }
}

// What came before a failed receive is told by the count; a short one is followed by another.
void receive_a_line(Trial& trial) {
  Line line;
  line.write("three words here\n");
  std::array<char, 32> message{};
  int32_t count = -1;
  trial.make([&] { count = kestro_socket_recv_read_to_newline(line.ends, message.data(), message.size()); });
  if (!trial.excused() || current_fault().error == shortened) {
    EXPECT_STREQ(message.data(), "three words here\n");
    EXPECT_EQ(count, 17);
  } else {
    EXPECT_EQ(count, 0);
    EXPECT_THAT(trial.said(), HasSubstr("kestro_socket_recv: "));
  }
}

void send_a_text(Trial& trial) {
  Line line;
  const auto status = operate(trial, [&] { return kestro_socket_send(line.ends, "a text"); });
  std::array<char, 16> received{};
  const ssize_t count = recv(line.ends[1], received.data(), received.size(), MSG_DONTWAIT);
  const bool cut = failed_with(trial, "sendto", shortened);
  EXPECT_EQ(count, status != 0 ? -1 : cut ? 1 : 6);
}

void close_a_connection(Trial& trial) {
  int32_t fd = dup(0);
  const int32_t number = fd;
  const auto status = operate(trial, [&] { return kestro_socket_close(&fd); });
  EXPECT_EQ(fd, status == 0 ? -1 : number);
  fd = dup(0);
  trial.make([&] { kestro_socket_shutdown(&fd); });
  EXPECT_EQ(fd, -1);
}

void serve_a_connection(Trial& trial) {
  const LogLevel level(Verbose);
  static kestro_jrpc_mapping_t table[] = {
      {"ports.Get", [](json_t* /*params*/, json_t** /*result*/, json_t** /*err_data*/) { return 0; }},
      {nullptr, nullptr}};
  StreamServer server;
  StreamClient client(server);
  client.send(R"({"jsonrpc":"2.0","method":"ports.Get","id":1})");
  operate(trial, [&] { return kestro_jrpc_unix_socket_run(server.handle(), table); });
  if (failed(trial, "accept4")) return;
  EXPECT_TRUE(client.closed());
}

void take_a_request_in(Trial& trial) {
  const LogLevel level(Verbose);
  StreamServer server;
  StreamClient client(server);
  client.send("{\"jsonrpc\":\"2.0\",\"method\":\"ports.Get\",\"id\":1}\n");
  int32_t connection = -2;
  json_t* raw = nullptr;
  const auto status =
      operate(trial, [&] { return kestro_jrpc_router_socket_extract_request(server.handle(), &connection, &raw); });
  const Json request(raw);
  EXPECT_EQ(request != nullptr, status == 0);
  EXPECT_EQ(connection >= 0, status == 0);
  if (connection >= 0) kestro_socket_shutdown(&connection);
}

void send_a_response_out(Trial& trial) {
  const LogLevel level(Verbose);
  Line line;
  const Json response = json_of(R"({"a":1})");
  operate(trial, [&] { return kestro_jrpc_router_socket_dispatch_response(line.ends, response.get()); });
}

// Accepting is tried again; what cannot be received or sent is logged, and the connection is closed.
void validate_a_user(Trial& trial) {
  const LogLevel level(Verbose);
  const int port = free_port();
  int32_t server = -1;
  trial.make([&] { kestro_user_validate_init_socket(&server, port); });
  ASSERT_GE(server, 0);
  int32_t client = -1;
  ASSERT_EQ(kestro_tcp_socket_connect("127.0.0.1", port, &client), 0);
  ASSERT_EQ(kestro_socket_send(&client, "someone"), 0);
  std::array<char, 1025> message{};
  int32_t connection = -1;
  trial.make([&] { kestro_user_validate_listen_socket(&server, &connection, message.data()); });
  EXPECT_GE(connection, 0);
  if (failed(trial, "recvfrom") && current_fault().error != shortened) {
    EXPECT_THAT(trial.said(), HasLog(Error, "kestro_utils", "User Validate socket: read error\n"));
  }
  trial.make([&] { kestro_user_validate_write_socket(&connection, message.data()); });
  if (failed(trial, "sendto") && current_fault().error != shortened) {
    EXPECT_THAT(trial.said(), HasLog(Error, "kestro_utils", "User Validate socket: write error\n"));
  }
  if (failed(trial, "close")) {
    EXPECT_THAT(trial.said(), HasLog(Error, "kestro_utils", "User Validate socket: unable to close socket\n"));
  }
  kestro_socket_shutdown(&client);
  if (!failed(trial, "socket")) kestro_socket_shutdown(&server);
}

void make_a_timer(Trial& trial) {
  int32_t timer = -2;
  const auto status = operate(trial, [&] { return kestro_timer_init(&timer, 1); });
  EXPECT_EQ(timer >= 0, status == 0);
  if (status != 0) {
    EXPECT_EQ(timer, -1);
  } else {
    EXPECT_EQ(kestro_timer_free(&timer), 0);
  }
}

void set_a_timer(Trial& trial) {
  int32_t timer = -1;
  ASSERT_EQ(kestro_timer_init(&timer, 1), 0);
  operate(trial, [&] { return kestro_timer_set(timer, 100, 0); });
  operate(trial, [&] { return kestro_timer_nsec_set(timer, 100, 0); });
  EXPECT_EQ(kestro_timer_free(&timer), 0);
}

// An interrupted read loses no expiry: the next one has it.
void read_a_timer(Trial& trial) {
  int32_t timer = -1;
  ASSERT_EQ(kestro_timer_init(&timer, 0), 0);
  ASSERT_EQ(kestro_timer_nsec_set(timer, 1e-6F, 0), 0);
  int32_t status = operate(trial, [&] { return kestro_timer_read(timer); });
  if (trial.excused()) {
    const int error = current_fault().error;
    EXPECT_EQ(status, error == EAGAIN ? -25 : -1);
    if (error == EAGAIN) {
      EXPECT_THAT(trial.said(), IsEmpty());
    } else {
      EXPECT_THAT(trial.said(),
                  HasLog(Error, "kestro_timer",
                         "Bad errno value (" + std::to_string(error) + " = '" + strerror(error) + "')!\n"));
    }
    EXPECT_EQ(kestro_timer_read(timer), 0);
  }
  EXPECT_EQ(kestro_timer_free(&timer), 0);
}

void free_a_timer(Trial& trial) {
  int32_t timer = -1;
  ASSERT_EQ(kestro_timer_init(&timer, 1), 0);
  operate(trial, [&] { return kestro_timer_free(&timer); });
  EXPECT_EQ(timer, 0);
}

// What is told when an object cannot be opened, cut to its size, or mapped.
void expect_told(const Trial& trial, const ShmName& name, int32_t status) {
  if (status == 0) return;
  const char* const text = failed(trial, "openat") ? "Shm_open error with " : "Mmap error with ";
  EXPECT_THAT(trial.said(), HasLog(Error, "kestro_shm", text + name.str() + ".\n"));
}

void create_a_variable(Trial& trial) {
  const ShmName name;
  const auto status = operate(trial, [&] { return kestro_shm_create(name.c_str(), 16); });
  expect_told(trial, name, status);
  if (failed(trial, "ftruncate")) {
    EXPECT_THAT(trial.said(), HasLog(Error, "kestro_shm", "ftruncate failed\n"));
  }
}

void use_a_variable(Trial& trial) {
  const ShmName name;
  ASSERT_EQ(kestro_shm_create(name.c_str(), 16), 0);
  std::array<char, 16> text = {'w', 'a', 's'};
  expect_told(trial, name, operate(trial, [&] { return kestro_shm_set_string(name.c_str(), 16, "a text"); }));
  const bool stored = !trial.excused();
  const auto got = operate(trial, [&] { return kestro_shm_get_string(name.c_str(), 16, text.data()); });
  expect_told(trial, name, got);
  if (stored) {
    EXPECT_STREQ(text.data(), got == 0 ? "a text" : "");
  }
  int32_t number = 7;
  expect_told(trial, name, operate(trial, [&] { return kestro_shm_set_int(name.c_str(), &number); }));
  const bool set = !trial.excused();
  number = -2;
  const auto read = operate(trial, [&] { return kestro_shm_get_int(name.c_str(), &number); });
  if (set) {
    EXPECT_EQ(number, read == 0 ? 7 : -2);
  }
  expect_told(trial, name, operate(trial, [&] { return kestro_shm_clear(name.c_str(), 16); }));
}

// The daemon runs without its counters rather than not at all.
void publish_counters(Trial& trial) {
  const ShmName name;
  trial.make([&] {
    const routerd::StatsVariable variable(name.str());
    variable.publish({});
    variable.publish({});
  });
}

const CallRow opening_an_object = {"openat", SYS_openat, {EACCES, EMFILE, ENFILE, ENOENT, ENOSPC, EINTR}, -1};
const CallRow mapping = {"mmap", SYS_mmap, {ENOMEM, EACCES, ENODEV, EAGAIN}, -1};
const CallRow asking_for_pages = {"madvise", SYS_madvise, {EFAULT, ENOMEM, EHWPOISON}, -1};
const CallRow old_kernel = {"madvise", SYS_madvise, {EINVAL}, 0};
const CallRow closing_an_object = {"close", SYS_close, {EINTR, EIO}, 0};

INSTANTIATE_TEST_SUITE_P(
    Transport, CallCampaign,
    testing::ValuesIn(std::vector<CallScenario>{
        {"OpenAUnixServer",
         open_a_unix_server,
         {{"socket", SYS_socket, {EMFILE, ENFILE, ENOBUFS, ENOMEM, EACCES}, -1, "kestro_unix_socket_init"},
          {"unlink", SYS_unlink, {ENOENT, EACCES, EBUSY, EROFS}, 0},
          {"bind", SYS_bind, {EADDRINUSE, EACCES, ENOMEM, EROFS, EINTR}, -1, "bind"},
          {"listen", SYS_listen, {EADDRINUSE, EOPNOTSUPP}, -1, "listen"},
          {"chmod", SYS_chmod, {EPERM, ENOENT, EROFS, EIO, EINTR}, -1, "chmod"}}},
        {"OpenATcpServer",
         open_a_tcp_server,
         {{"socket", SYS_socket, {EMFILE, ENFILE, ENOBUFS, ENOMEM, EACCES}, -1, "kestro_tcp_socket_init"},
          {"setsockopt", SYS_setsockopt, {ENOPROTOOPT, ENOMEM, EPERM}, -1},
          {"bind", SYS_bind, {EADDRINUSE, EACCES, EADDRNOTAVAIL}, -1, "bind"},
          {"listen", SYS_listen, {EADDRINUSE, EOPNOTSUPP}, -1, "listen"}}},
        {"Accept",
         accept_connections,
         {{"accept4", SYS_accept4, {EAGAIN, EINTR, ECONNABORTED, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPERM, EPROTO}, -1}}},
        {"ConnectByTcp",
         connect_by_tcp,
         {{"socket", SYS_socket, {EMFILE, ENFILE, ENOBUFS, ENOMEM}, -1, "kestro_tcp_socket_connect"},
          {"connect",
           SYS_connect,
           {ETIMEDOUT, ECONNREFUSED, EINTR, ENETUNREACH, EHOSTUNREACH, EADDRNOTAVAIL, ECONNRESET},
           std::nullopt}}},
        {"ReceiveOnce",
         receive_once,
         {{"recvfrom", SYS_recvfrom, {shortened, EINTR, EAGAIN, ECONNRESET, ENOMEM, ETIMEDOUT}, std::nullopt}}},
        {"ReceiveALine",
         receive_a_line,
         {{"recvfrom", SYS_recvfrom, {shortened, EINTR, EAGAIN, ECONNRESET, ENOMEM, ETIMEDOUT}, std::nullopt}}},
        {"Send",
         send_a_text,
         {{"sendto", SYS_sendto, {EPIPE, ECONNRESET, EINTR, EAGAIN, ENOBUFS, ENOMEM}, -1},
          {"sendto", SYS_sendto, {shortened}, 0}}},
        {"Close", close_a_connection, {{"close", SYS_close, {EINTR, EIO, EBADF}, std::nullopt}}},
        {"ServeAConnection",
         serve_a_connection,
         {{"accept4", SYS_accept4, {EAGAIN, EINTR, ECONNABORTED, EMFILE, ENOMEM}, -1},
          {"recvfrom", SYS_recvfrom, {EINTR, EAGAIN, ECONNRESET, ENOMEM}, -1},
          {"recvfrom", SYS_recvfrom, {shortened}, -1},
          {"sendto", SYS_sendto, {EPIPE, ECONNRESET, EINTR, EAGAIN}, -1},
          {"sendto", SYS_sendto, {shortened}, 0},
          {"close", SYS_close, {EINTR, EIO}, -1}}},
        {"TakeARequestIn",
         take_a_request_in,
         {{"accept4", SYS_accept4, {EAGAIN, EINTR, ECONNABORTED, EMFILE, ENOMEM}, -1},
          {"recvfrom", SYS_recvfrom, {EINTR, EAGAIN, ECONNRESET, ENOMEM}, -1},
          {"recvfrom", SYS_recvfrom, {shortened}, 0}}},
        {"SendAResponseOut",
         send_a_response_out,
         {{"sendto", SYS_sendto, {EPIPE, ECONNRESET, EINTR, EAGAIN}, -1}, {"sendto", SYS_sendto, {shortened}, 0}}},
        {"ValidateAUser",
         validate_a_user,
         {{"accept4", SYS_accept4, {EINTR, ECONNABORTED, EMFILE, ENOMEM}, 0},
          {"recvfrom", SYS_recvfrom, {shortened, EINTR, ECONNRESET}, 0},
          {"sendto", SYS_sendto, {shortened, EPIPE, ECONNRESET, EINTR}, 0},
          {"close", SYS_close, {EINTR, EIO}, 0}}},
        {"MakeATimer",
         make_a_timer,
         {{"timerfd_create", SYS_timerfd_create, {EMFILE, ENFILE, ENODEV, ENOMEM}, -1, "kestro_timer_init"}}},
        {"SetATimer",
         set_a_timer,
         {{"timerfd_settime", SYS_timerfd_settime, {EINVAL, EFAULT, EBADF}, -1, "kestro_timer_set"}}},
        {"ReadATimer", read_a_timer, {{"read", SYS_read, {EAGAIN, EINTR, EIO, ECANCELED}, std::nullopt}}},
        {"FreeATimer", free_a_timer, {{"close", SYS_close, {EINTR, EIO}, 0}}},
        {"CreateAVariable",
         create_a_variable,
         {opening_an_object,
          {"ftruncate", SYS_ftruncate, {EINTR, ENOSPC, EIO, EFBIG, EINVAL}, -1, "ftruncate"},
          mapping,
          asking_for_pages,
          old_kernel,
          closing_an_object}},
        {"UseAVariable", use_a_variable, {opening_an_object, mapping, asking_for_pages, old_kernel, closing_an_object}},
        {"PublishCounters",
         publish_counters,
         {opening_an_object, {"ftruncate", SYS_ftruncate, {EINTR, ENOSPC, EIO}, 0}, mapping, asking_for_pages}},
    }),
    name_of<CallScenario>);

}  // namespace
}  // namespace kestro::test
