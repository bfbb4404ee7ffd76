#include "kestro_socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <iterator>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "core/owned.hpp"
#include "kestro_lsyslog.h"
#include "support/captured_stderr.hpp"
#include "support/descriptors.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"
#include "support/temp_dir.hpp"

namespace {
socklen_t bound_length = 0;
int backlog = 0;
}  // namespace

// Take the place of the C library's: note what they are given and hand it on.
extern "C" int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
  bound_length = length;
  return static_cast<int>(syscall(SYS_bind, fd, address, length));
}
extern "C" int listen(int fd, int connections) noexcept {
  backlog = connections;
  return static_cast<int>(syscall(SYS_listen, fd, connections));
}

namespace kestro::test {
namespace {

using namespace std::string_literals;

constexpr const char* module = "kestro_socket";
constexpr int32_t untouched = -77;
constexpr int32_t no_descriptor = 500'000;

bool is_nonblocking(int fd) {
  return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0;
}
bool closes_on_exec(int fd) {
  return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}
int socket_option(int fd, int name) {
  int value = untouched;
  socklen_t size = sizeof value;
  EXPECT_EQ(getsockopt(fd, SOL_SOCKET, name, &value, &size), 0);
  return value;
}
sockaddr_in local_address(int fd) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
  return address;
}
int port_of(int fd) {
  return ntohs(local_address(fd).sin_port);
}

Descriptor connected_to(const std::string& path) {
  Descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(connect(client.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return client;
}

struct Ends {
  explicit Ends(int type = SOCK_STREAM) {
    std::array<int, 2> fds{};
    EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, fds.data()), 0);
    ours = fds[0];
    peer = Descriptor(fds[1]);
  }
  Ends(const Ends&) = delete;
  Ends& operator=(const Ends&) = delete;
  ~Ends() { close(ours); }

  void peer_sends(std::string_view text) const {
    EXPECT_EQ(write(peer.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  void peer_closes() { peer = Descriptor(); }

  int32_t ours = -1;
  Descriptor peer;
};

// What an action leaves open; closed again here.
size_t left_open_by(const std::function<void()>& action) {
  const auto before = open_descriptors();
  action();
  const auto after = open_descriptors();
  std::vector<int> left;
  std::ranges::set_difference(after, before, std::back_inserter(left));
  for (const int fd : left) close(fd);
  return left.size();
}

// ---- Null arguments ----

TEST(SocketArguments, NullIsRefusedAndTold) {
  int32_t fd = untouched;
  int32_t other = untouched;
  char message[8] = "old";
  const struct {
    const char* name;
    std::function<int32_t()> call;
    int32_t result;
    const char* told_as;
  } calls[] = {
      {"unix path", [&] { return kestro_unix_socket_init(nullptr, &fd, 0); }, -1, "kestro_unix_socket_init"},
      {"unix out", [] { return kestro_unix_socket_init("/no/such/path", nullptr, 0); }, -1, "kestro_unix_socket_init"},
      {"tcp out", [] { return kestro_tcp_socket_init(0, nullptr, 0); }, -1, "kestro_tcp_socket_init"},
      {"accept server", [&] { return kestro_socket_accept(nullptr, &fd); }, -1, "kestro_socket_accept"},
      {"accept out", [&] { return kestro_socket_accept(&fd, nullptr); }, -1, "kestro_socket_accept"},
      {"tcp accept server", [&] { return kestro_tcp_socket_accept(nullptr, &fd); }, -1, "kestro_tcp_socket_accept"},
      {"tcp accept out", [&] { return kestro_tcp_socket_accept(&fd, nullptr); }, -1, "kestro_tcp_socket_accept"},
      {"connect", [&] { return kestro_tcp_socket_connect(nullptr, 1, &fd); }, -1, "kestro_tcp_socket_connect"},
      {"recv fd", [&] { return kestro_socket_recv(nullptr, message, 8); }, 0, "kestro_socket_recv"},
      {"recv message", [&] { return kestro_socket_recv(&other, nullptr, 8); }, 0, "kestro_socket_recv"},
      {"line fd", [&] { return kestro_socket_recv_read_to_newline(nullptr, message, 8); }, 0, "kestro_socket_recv"},
      {"line message", [&] { return kestro_socket_recv_read_to_newline(&other, nullptr, 8); }, 0, "kestro_socket_recv"},
      {"send fd", [] { return kestro_socket_send(nullptr, "text"); }, -1, "kestro_socket_send"},
      {"send message", [&] { return kestro_socket_send(&other, nullptr); }, -1, "kestro_socket_send"},
      {"close", [] { return kestro_socket_close(nullptr); }, -1, "kestro_socket_close"},
  };
  for (const auto& row : calls) {
    const auto log = stderr_of([&] { EXPECT_EQ(row.call(), row.result) << row.name; });
    EXPECT_EQ(count_log_lines(log, Debug, module, "["s + row.told_as + "]: Null Pointer!\n"), 1) << row.name << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << row.name << log;
  }
  EXPECT_EQ(fd, untouched);
  EXPECT_STREQ(message, "old");
}

// ---- Unix-domain servers ----

class UnixServer : public testing::Test {
 protected:
  int32_t init(const std::string& path, int32_t nonblock_enable = 0) {
    return kestro_unix_socket_init(path.c_str(), &server_, nonblock_enable);
  }
  void TearDown() override {
    if (server_ >= 0) close(server_);
  }
  // A path of so many characters.
  [[nodiscard]] std::string path_of(size_t length) const {
    const std::string start = dir_.file("s");
    return start + std::string(length - start.size(), 's');
  }
  static mode_t mode_of(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode;
  }

  TempDir dir_;
  std::string path_ = dir_.file("socket");
  int32_t server_ = untouched;
};

TEST_F(UnixServer, ListensForEverybody) {
  const mode_t mask = umask(0077);
  const auto opened = init(path_);
  umask(mask);
  ASSERT_EQ(opened, 0);
  EXPECT_EQ(socket_option(server_, SO_ACCEPTCONN), 1);
  EXPECT_EQ(socket_option(server_, SO_TYPE), SOCK_STREAM);
  EXPECT_EQ(socket_option(server_, SO_DOMAIN), AF_UNIX);
  EXPECT_EQ(mode_of(path_), static_cast<mode_t>(S_IFSOCK | 0666));
  EXPECT_TRUE(closes_on_exec(server_));
  EXPECT_EQ(bound_length, 110U);
  EXPECT_EQ(backlog, 10);
  connected_to(path_);
}

TEST_F(UnixServer, BlocksUnlessToldOtherwise) {
  for (const int32_t nonblock_enable : {0, 1, 2, -1}) {
    ASSERT_EQ(init(path_, nonblock_enable), 0);
    EXPECT_EQ(is_nonblocking(server_), nonblock_enable != 0) << nonblock_enable;
    EXPECT_EQ(fcntl(server_, F_GETFL) & O_ACCMODE, O_RDWR);
    kestro_socket_shutdown(&server_);
  }
}

TEST_F(UnixServer, StaleSocketDoesNotBlockTheBind) {
  ASSERT_EQ(init(path_), 0);
  kestro_socket_shutdown(&server_);
  EXPECT_EQ(server_, -1);
  EXPECT_TRUE(S_ISSOCK(mode_of(path_)));  // the file stays behind
  ASSERT_EQ(init(path_), 0);
  connected_to(path_);
}

TEST_F(UnixServer, AnyFileInTheWayIsRemoved) {
  dir_.write("socket", "text");
  ASSERT_EQ(init(path_), 0);
  EXPECT_TRUE(S_ISSOCK(mode_of(path_)));
}

TEST_F(UnixServer, PathOf107CharactersIsTakenWhole) {
  const auto path = path_of(107);
  ASSERT_EQ(init(path), 0);
  EXPECT_EQ(mode_of(path), static_cast<mode_t>(S_IFSOCK | 0666));
}

TEST_F(UnixServer, LongerPathIsCutForTheSocketButNotForTheMode) {
  const auto path = path_of(120);
  const auto cut = path.substr(0, 107);
  dir_.write(cut.substr(dir_.path().string().size() + 1), "in the way");
  std::string report;
  EXPECT_EQ(left_open_by([&] { report = stderr_of([&] { EXPECT_EQ(init(path), -1); }); }), 1U);
  EXPECT_EQ(report, "chmod: No such file or directory\n");
  EXPECT_EQ(server_, untouched);
  EXPECT_TRUE(S_ISSOCK(mode_of(cut)));
}

TEST_F(UnixServer, FileAtTheUncutPathGetsTheMode) {
  const auto path = path_of(120);
  dir_.write(path.substr(dir_.path().string().size() + 1), "text");
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  ASSERT_EQ(init(path), 0);
  EXPECT_EQ(mode_of(path), static_cast<mode_t>(S_IFREG | 0666));
  connected_to(path.substr(0, 107));
}

TEST_F(UnixServer, SocketFailureIsReported) {
  EXPECT_EQ(stderr_of([&] {
              const Fault fault("socket", EMFILE);
              EXPECT_EQ(init(path_), -1);
            }),
            "kestro_unix_socket_init: Too many open files\n");
  EXPECT_EQ(server_, untouched);
}

TEST_F(UnixServer, BindFailureIsReportedAndLeavesTheDescriptorOpen) {
  std::string report;
  EXPECT_EQ(left_open_by([&] { report = stderr_of([&] { EXPECT_EQ(init(dir_.file("no/socket")), -1); }); }), 1U);
  EXPECT_EQ(report, "bind: No such file or directory\n");
  EXPECT_EQ(server_, untouched);
}

TEST_F(UnixServer, ListenFailureIsReportedAndLeavesTheDescriptorOpen) {
  std::string report;
  EXPECT_EQ(left_open_by([&] {
              report = stderr_of([&] {
                const Fault fault("listen", EADDRINUSE);
                EXPECT_EQ(init(path_), -1);
              });
            }),
            1U);
  EXPECT_EQ(report, "listen: Address already in use\n");
  EXPECT_EQ(server_, untouched);
}

// ---- TCP servers ----

class TcpServer : public testing::Test {
 protected:
  int32_t init(int32_t port = 0, int32_t nonblock_enable = 0) {
    return kestro_tcp_socket_init(port, &server_, nonblock_enable);
  }
  void TearDown() override {
    if (server_ >= 0) close(server_);
  }
  int32_t server_ = untouched;
};

TEST_F(TcpServer, ListensOnTheLoopbackAddress) {
  ASSERT_EQ(init(), 0);
  EXPECT_EQ(socket_option(server_, SO_ACCEPTCONN), 1);
  EXPECT_EQ(socket_option(server_, SO_TYPE), SOCK_STREAM);
  EXPECT_EQ(socket_option(server_, SO_REUSEPORT), 1);
  EXPECT_EQ(local_address(server_).sin_family, AF_INET);
  EXPECT_EQ(local_address(server_).sin_addr.s_addr, inet_addr("127.0.0.1"));
  EXPECT_TRUE(closes_on_exec(server_));
  EXPECT_EQ(bound_length, 110U);
  EXPECT_EQ(backlog, 10);
}

TEST_F(TcpServer, SeveralMayListenOnOnePort) {
  ASSERT_EQ(init(), 0);
  int32_t second = untouched;
  ASSERT_EQ(kestro_tcp_socket_init(port_of(server_), &second, 0), 0);
  EXPECT_EQ(port_of(second), port_of(server_));
  close(second);
}

TEST_F(TcpServer, BlocksUnlessToldOtherwise) {
  for (const int32_t nonblock_enable : {0, 1, 2, -1}) {
    ASSERT_EQ(init(0, nonblock_enable), 0);
    EXPECT_EQ(is_nonblocking(server_), nonblock_enable != 0) << nonblock_enable;
    kestro_socket_shutdown(&server_);
  }
}

TEST_F(TcpServer, SocketFailureIsReported) {
  EXPECT_EQ(stderr_of([&] {
              const Fault fault("socket", EMFILE);
              EXPECT_EQ(init(), -1);
            }),
            "kestro_tcp_socket_init: Too many open files\n");
  EXPECT_EQ(server_, untouched);
}

TEST_F(TcpServer, OptionFailureIsAnErrorAndLeavesTheDescriptorOpen) {
  std::string log;
  EXPECT_EQ(left_open_by([&] {
              log = stderr_of([&] {
                const Fault fault("setsockopt", ENOPROTOOPT);
                EXPECT_EQ(init(), -1);
              });
            }),
            1U);
  EXPECT_THAT(log, HasLog(Error, module, "[kestro_tcp_socket_init]: Unable to set socket options!\n"));
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
  EXPECT_EQ(server_, untouched);
}

TEST_F(TcpServer, BindFailureIsReportedAndLeavesTheDescriptorOpen) {
  // Somebody who does not share the port.
  const Descriptor owner(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(owner.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(owner.get(), 1), 0);

  std::string report;
  EXPECT_EQ(left_open_by([&] { report = stderr_of([&] { EXPECT_EQ(init(port_of(owner.get())), -1); }); }), 1U);
  EXPECT_EQ(report, "bind: Address already in use\n");
  EXPECT_EQ(server_, untouched);
}

TEST_F(TcpServer, ListenFailureIsReportedAndLeavesTheDescriptorOpen) {
  std::string report;
  EXPECT_EQ(left_open_by([&] {
              report = stderr_of([&] {
                const Fault fault("listen", EADDRINUSE);
                EXPECT_EQ(init(), -1);
              });
            }),
            1U);
  EXPECT_EQ(report, "listen: Address already in use\n");
  EXPECT_EQ(server_, untouched);
}

// ---- Accepting ----

struct Acceptor {
  const char* name;
  int32_t (*accept)(int32_t* server, int32_t* accepted);
  int32_t (*open)(const std::string& path, int32_t* server, int32_t nonblock_enable);

  friend void PrintTo(const Acceptor& row, std::ostream* out) { *out << row.name; }
};

class Accept : public testing::TestWithParam<Acceptor> {
 protected:
  void open(int32_t nonblock_enable) { ASSERT_EQ(GetParam().open(path_, &server_, nonblock_enable), 0); }
  Descriptor client() const {
    if (local_address(server_).sin_family == AF_UNIX) return connected_to(path_);
    int32_t fd = -1;
    EXPECT_EQ(kestro_tcp_socket_connect("127.0.0.1", port_of(server_), &fd), 0);
    return Descriptor(fd);
  }
  void TearDown() override {
    if (server_ >= 0) close(server_);
  }

  TempDir dir_;
  std::string path_ = dir_.file("socket");
  int32_t server_ = -1;
  int32_t accepted_ = untouched;
};

TEST_P(Accept, GivesOneConnection) {
  for (const int32_t nonblock_enable : {0, 1}) {
    open(nonblock_enable);
    const auto client_end = client();
    pollfd waiting{.fd = server_, .events = POLLIN, .revents = 0};
    ASSERT_EQ(poll(&waiting, 1, 10'000), 1);
    ASSERT_EQ(GetParam().accept(&server_, &accepted_), 0);
    const Descriptor connection(accepted_);
    EXPECT_FALSE(is_nonblocking(accepted_));
    EXPECT_TRUE(closes_on_exec(accepted_));
    ASSERT_EQ(write(client_end.get(), "hello", 5), 5);
    char text[8] = "";
    EXPECT_EQ(kestro_socket_recv(&accepted_, text, sizeof text), 5);
    EXPECT_STREQ(text, "hello");
    kestro_socket_shutdown(&server_);
  }
}

TEST_P(Accept, NothingPendingIsSilent) {
  const LogLevel verbose(KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE);
  open(1);
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(GetParam().accept(&server_, &accepted_), -1); }), "");
  EXPECT_EQ(accepted_, -1);
}

TEST_P(Accept, FailureIsReportedUnderItsName) {
  int32_t none = -1;
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(GetParam().accept(&none, &accepted_), -1); }),
            GetParam().name + ": Bad file descriptor\n"s);
  EXPECT_EQ(accepted_, -1);
}

TEST_P(Accept, InterruptedCallIsNotMadeAgain) {
  open(0);
  EXPECT_EQ(stderr_of([&] {
              const Fault fault("accept4", EINTR);
              EXPECT_EQ(GetParam().accept(&server_, &accepted_), -1);
            }),
            GetParam().name + ": Interrupted system call\n"s);
  EXPECT_EQ(accepted_, -1);
}

const Acceptor acceptors[] = {
    {"kestro_socket_accept", kestro_socket_accept,
     [](const std::string& path, int32_t* server, int32_t nonblock_enable) {
       return kestro_unix_socket_init(path.c_str(), server, nonblock_enable);
     }},
    {"kestro_tcp_socket_accept", kestro_tcp_socket_accept,
     [](const std::string& /*path*/, int32_t* server, int32_t nonblock_enable) {
       return kestro_tcp_socket_init(0, server, nonblock_enable);
     }},
};
INSTANTIATE_TEST_SUITE_P(By, Accept, testing::ValuesIn(acceptors),
                         [](const auto& instance) { return instance.param.name; });

// ---- Connecting ----

class TcpConnect : public TcpServer {
 protected:
  int32_t connect_to(const char* host, int32_t port) { return kestro_tcp_socket_connect(host, port, &client_); }
  int32_t client_ = untouched;
};

TEST_F(TcpConnect, GivesAConnectedDescriptor) {
  ASSERT_EQ(init(), 0);
  ASSERT_EQ(connect_to("127.0.0.1", port_of(server_)), 0);
  const Descriptor client(client_);
  EXPECT_FALSE(is_nonblocking(client_));
  EXPECT_TRUE(closes_on_exec(client_));
  int32_t accepted = untouched;
  ASSERT_EQ(kestro_tcp_socket_accept(&server_, &accepted), 0);
  EXPECT_EQ(kestro_socket_send(&client_, "hello"), 0);
  char text[8] = "";
  EXPECT_EQ(kestro_socket_recv(&accepted, text, sizeof text), 5);
  close(accepted);
}

TEST_F(TcpConnect, OnlyDottedAddressesAreTaken) {
  for (const char* host : {"localhost", "", "127.0.0.1.1", "127.0.0", "256.0.0.1", "::1", "127.0.0.1 "}) {
    std::string report;
    EXPECT_EQ(left_open_by([&] { report = stderr_of([&] { EXPECT_EQ(connect_to(host, 1), -1) << host; }); }), 0U);
    EXPECT_EQ(report, "inet_pton: Invalid argument\n") << host;
  }
  EXPECT_EQ(client_, untouched);
}

TEST_F(TcpConnect, SocketFailureIsReported) {
  EXPECT_EQ(stderr_of([&] {
              const Fault fault("socket", EMFILE);
              EXPECT_EQ(connect_to("127.0.0.1", 1), -1);
            }),
            "kestro_tcp_socket_connect: Too many open files\n");
  EXPECT_EQ(client_, untouched);
}

TEST_F(TcpConnect, TimeOutHasAStatusOfItsOwnAndOthersAreSilentToo) {
  const struct {
    int error;
    int32_t status;
  } rows[] = {{ETIMEDOUT, -51}, {ECONNREFUSED, -1}, {EHOSTUNREACH, -1}, {EINTR, -1}, {EAGAIN, -1}};
  for (const auto& row : rows) {
    std::string report;
    EXPECT_EQ(left_open_by([&] {
                report = stderr_of([&] {
                  const Fault fault("connect", row.error);
                  EXPECT_EQ(connect_to("127.0.0.1", 1), row.status) << row.error;
                });
              }),
              0U);
    EXPECT_EQ(report, "");
  }
  EXPECT_EQ(client_, untouched);
}

// ---- Receiving ----

TEST(SocketRecv, GivesWhatIsThereUpToTheLengthWithoutAZeroByte) {
  Ends ends;
  ends.peer_sends("0123456789");
  char message[16] = "###############";
  EXPECT_EQ(kestro_socket_recv(&ends.ours, message, 4), 4);
  EXPECT_STREQ(message, "0123###########");
  EXPECT_EQ(kestro_socket_recv(&ends.ours, message, 15), 6);
  EXPECT_STREQ(message, "456789#########");
}

TEST(SocketRecv, ClosedPeerIsToldAndGivesZero) {
  Ends ends;
  ends.peer_closes();
  char message[8] = "old";
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_socket_recv(&ends.ours, message, 8), 0); });
  EXPECT_THAT(log, HasLog(Debug, module, "[kestro_socket_recv]: zero bytes received!\n"));
  EXPECT_STREQ(message, "old");
}

TEST(SocketRecv, FailureIsReportedAndNotTriedAgain) {
  Ends ends;
  ends.peer_sends("text");
  char message[8] = "old";
  EXPECT_EQ(stderr_of([&] {
              const Fault fault("recv", EINTR);
              EXPECT_EQ(kestro_socket_recv(&ends.ours, message, 8), -1);
            }),
            "kestro_socket_recv: Interrupted system call\n");
  int32_t none = -1;
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(kestro_socket_recv(&none, message, 8), -1); }),
            "kestro_socket_recv: Bad file descriptor\n");
  EXPECT_STREQ(message, "old");
}

// ---- Receiving a line ----

struct Line {
  const char* name;
  std::vector<std::string> pieces;  // as they arrive; then the peer closes
  int32_t length;
  int32_t result;
  std::string buffer;  // up to its zero byte
  bool overflows = false;
  bool closed = false;  // the reading met the end

  friend void PrintTo(const Line& row, std::ostream* out) { *out << row.name; }
};

class SocketRecvLine : public testing::TestWithParam<Line> {};

TEST_P(SocketRecvLine, ReadsToTheLineFeed) {
  const auto& row = GetParam();
  Ends ends(SOCK_SEQPACKET);  // keeps the pieces apart
  for (const auto& piece : row.pieces) ends.peer_sends(piece);
  ends.peer_closes();

  std::array<char, 64> buffer{};
  buffer.fill('#');
  const auto log = stderr_of(
      [&] { EXPECT_EQ(kestro_socket_recv_read_to_newline(&ends.ours, buffer.data(), row.length), row.result); });
  EXPECT_EQ(std::string(buffer.data(), row.buffer.size() + 1), row.buffer + '\0');
  EXPECT_EQ(buffer[static_cast<size_t>(row.length)], '#');
  EXPECT_EQ(count_log_lines(log, Error, module, "overflowed socket read buffer\n"), row.overflows ? 1 : 0);
  EXPECT_EQ(count_log_lines(log, Debug, module, "[kestro_socket_recv]: zero bytes received!\n"), row.closed ? 1 : 0);
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), row.overflows || row.closed ? 1 : 0) << log;
}

const Line lines[] = {
    {.name = "OnePiece", .pieces = {"abc\n"}, .length = 32, .result = 4, .buffer = "abc\n"},
    {.name = "LineFeedAlone", .pieces = {"\n"}, .length = 32, .result = 1, .buffer = "\n"},
    {.name = "Pieces", .pieces = {"ab", "c", "d\n"}, .length = 32, .result = 5, .buffer = "abcd\n"},
    {.name = "RestOfThePieceStays", .pieces = {"ab", "c\nrest"}, .length = 32, .result = 8, .buffer = "abc\nrest"},
    {.name = "LaterPiecesAreNotRead", .pieces = {"abc\n", "next\n"}, .length = 32, .result = 4, .buffer = "abc\n"},
    {.name = "PeerCloses", .pieces = {"abc"}, .length = 32, .result = 3, .buffer = "abc", .closed = true},
    {.name = "PeerClosesLater", .pieces = {"ab", "cd"}, .length = 32, .result = 4, .buffer = "abcd", .closed = true},
    {.name = "FillsAllButOne", .pieces = {"123456\n"}, .length = 8, .result = 7, .buffer = "123456\n"},
    {.name = "LineFeedInTheLastByte",
     .pieces = {"1234567\n"},
     .length = 8,
     .result = 8,
     .buffer = "1234567",
     .overflows = true},
    {.name = "TooLong", .pieces = {"12345678\n"}, .length = 8, .result = 8, .buffer = "1234567", .overflows = true},
    {.name = "TooLongInPieces",
     .pieces = {"1234", "5678"},
     .length = 8,
     .result = 8,
     .buffer = "1234567",
     .overflows = true},
    {.name = "LastPieceLargerThanTheRoom",
     .pieces = {"1234", "56789abc"},
     .length = 8,
     .result = 8,
     .buffer = "1234567",
     .overflows = true},
    {.name = "LineFeedBeforeTheOverflow",
     .pieces = {"12\n45678"},
     .length = 8,
     .result = 8,
     .buffer = "12\n4567",
     .overflows = true},
    {.name = "LengthOne", .pieces = {"\n"}, .length = 1, .result = 1, .buffer = "", .overflows = true},
    {.name = "ZeroBytesAreBytes", .pieces = {"a\0b"s, "\0\n"s}, .length = 32, .result = 5, .buffer = "a\0b\0\n"s},
};
INSTANTIATE_TEST_SUITE_P(Rows, SocketRecvLine, testing::ValuesIn(lines),
                         [](const auto& instance) { return instance.param.name; });

TEST(SocketRecvLineOnAStream, OverflowLeavesTheRestUnread) {
  Ends ends;
  ends.peer_sends("12345678\n");
  char buffer[16] = "###############";
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_socket_recv_read_to_newline(&ends.ours, buffer, 8), 8); });
  EXPECT_THAT(log, HasLog(Error, module, "overflowed socket read buffer\n"));
  EXPECT_EQ(std::string(buffer, 9), "1234567\0#"s);
  EXPECT_EQ(kestro_socket_recv(&ends.ours, buffer, 8), 1);
  EXPECT_EQ(buffer[0], '\n');
}

TEST(SocketRecvLineOnAStream, PeerThatClosesWithoutSendingLeavesTheBuffer) {
  Ends ends;
  ends.peer_closes();
  char buffer[8] = "old";
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_socket_recv_read_to_newline(&ends.ours, buffer, 8), 0); });
  EXPECT_THAT(log, HasLog(Debug, module, "[kestro_socket_recv]: zero bytes received!\n"));
  EXPECT_STREQ(buffer, "old");
}

TEST(SocketRecvLineOnAStream, FailureIsReportedAndGivesWhatCameBefore) {
  for (const int nth : {1, 2}) {
    Ends ends(SOCK_SEQPACKET);
    ends.peer_sends("ab");
    ends.peer_sends("c\n");
    char buffer[8] = "";
    EXPECT_EQ(stderr_of([&] {
                const Fault fault("recv", ECONNRESET, nth);
                EXPECT_EQ(kestro_socket_recv_read_to_newline(&ends.ours, buffer, 8), (nth - 1) * 2);
              }),
              "kestro_socket_recv: Connection reset by peer\n");
    EXPECT_STREQ(buffer, nth == 1 ? "" : "ab");
  }
}

// ---- Sending ----

TEST(SocketSend, TextGoesWithoutItsZeroByte) {
  Ends ends;
  EXPECT_EQ(kestro_socket_send(&ends.ours, "text"), 0);
  EXPECT_EQ(kestro_socket_send(&ends.ours, ""), 0);
  std::array<char, 16> buffer{};
  EXPECT_EQ(recv(ends.peer.get(), buffer.data(), buffer.size(), MSG_DONTWAIT), 4);
  EXPECT_STREQ(buffer.data(), "text");
}

TEST(SocketSend, VanishedPeerIsASilentFailureWithoutASignal) {
  const LogLevel verbose(KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE);
  Ends ends;
  ends.peer_closes();
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(kestro_socket_send(&ends.ours, "text"), -1); }), "");
}

TEST(SocketSend, InterruptedCallIsNotMadeAgain) {
  Ends ends;
  const Fault fault("send", EINTR);
  EXPECT_EQ(kestro_socket_send(&ends.ours, "text"), -1);
  char byte = 0;
  EXPECT_EQ(recv(ends.peer.get(), &byte, 1, MSG_DONTWAIT), -1);
}

TEST(SocketSend, PartCountsAsSuccessAndTheRestIsNotSent) {
  Ends ends;
  ASSERT_EQ(fcntl(ends.ours, F_SETFL, O_NONBLOCK), 0);
  const std::string text(8'000'000, 'x');
  EXPECT_EQ(kestro_socket_send(&ends.ours, text.c_str()), 0);
  shutdown(ends.ours, SHUT_WR);
  std::vector<char> buffer(text.size());
  size_t total = 0;
  for (ssize_t count = 1; count > 0; total += static_cast<size_t>(count)) {
    count = recv(ends.peer.get(), buffer.data(), buffer.size(), 0);
    ASSERT_GE(count, 0);
  }
  EXPECT_GT(total, 0U);
  EXPECT_LT(total, text.size());
}

// ---- Closing ----

TEST(SocketClose, SetsTheDescriptorAndFailsTheSecondTime) {
  int32_t fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int32_t was = fd;
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(kestro_socket_close(&fd), 0); }), "");
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(fcntl(was, F_GETFD), -1);
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(kestro_socket_close(&fd), -1); }), "kestro_socket_close: Bad file descriptor\n");
}

TEST(SocketClose, FailureLeavesTheDescriptor) {
  int32_t fd = no_descriptor;
  stderr_of([&] { EXPECT_EQ(kestro_socket_close(&fd), -1); });
  EXPECT_EQ(fd, no_descriptor);
}

TEST(SocketShutdown, ClosesWithoutCheckOrReport) {
  int32_t fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int32_t was = fd;
  kestro_socket_shutdown(&fd);
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(fcntl(was, F_GETFD), -1);
  int32_t none = no_descriptor;
  EXPECT_EQ(stderr_of([&] { kestro_socket_shutdown(&none); }), "");
  EXPECT_EQ(none, -1);
}

}  // namespace
}  // namespace kestro::test
