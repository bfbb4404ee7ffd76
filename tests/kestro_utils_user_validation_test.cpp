#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "core/owned.hpp"
#include "kestro_socket.h"
#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;

constexpr const char* module = "kestro_utils";

int32_t port_of(int32_t server) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  EXPECT_EQ(getsockname(server, reinterpret_cast<sockaddr*>(&address), &length), 0);
  EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  return ntohs(address.sin_port);
}

// A server on a port of the system's choice, and a client that has connected to it.
class UserValidation : public testing::Test {
 protected:
  void SetUp() override {
    kestro_user_validate_init_socket(&server_, 0);
    ASSERT_EQ(kestro_tcp_socket_connect("127.0.0.1", port_of(server_), &client_), 0);
  }
  void TearDown() override {
    for (const int32_t fd : {server_, client_, accepted_}) {
      if (fd >= 0) close(fd);
    }
  }
  void accept() { ASSERT_EQ(kestro_tcp_socket_accept(&server_, &accepted_), 0); }

  // What the client receives until its peer closes.
  [[nodiscard]] std::string heard() const {
    std::string text;
    std::array<char, 64> piece;
    for (ssize_t count = 0; (count = recv(client_, piece.data(), piece.size(), 0)) > 0;) {
      text.append(piece.data(), static_cast<size_t>(count));
    }
    return text;
  }

  int32_t server_ = -1;
  int32_t client_ = -1;
  int32_t accepted_ = -1;
};

TEST_F(UserValidation, OneRequestOneAnswerThenClose) {
  ASSERT_EQ(kestro_socket_send(&client_, "user password"), 0);
  std::array<char, 1025> request{};
  kestro_user_validate_listen_socket(&server_, &accepted_, request.data());
  EXPECT_STREQ(request.data(), "user password");
  EXPECT_GE(accepted_, 0);

  // Room for the text, "\r\n" and the zero byte, and no more.
  const auto answer = std::make_unique<char[]>(5);
  memcpy(answer.get(), "ok", 3);
  kestro_user_validate_write_socket(&accepted_, answer.get());
  EXPECT_STREQ(answer.get(), "ok\r\n");
  EXPECT_EQ(accepted_, -1);
  EXPECT_EQ(heard(), "ok\r\n");
}

TEST_F(UserValidation, EmptyAnswerIsALineEnd) {
  accept();
  std::array<char, 3> answer{};
  kestro_user_validate_write_socket(&accepted_, answer.data());
  EXPECT_EQ(heard(), "\r\n");
}

TEST_F(UserValidation, RequestIsCutAt1024BytesAndNotTerminated) {
  ASSERT_EQ(kestro_socket_send(&client_, std::string(1500, 'r').c_str()), 0);
  const auto request = std::make_unique<char[]>(1025);
  kestro_user_validate_listen_socket(&server_, &accepted_, request.get());
  EXPECT_EQ(std::string(request.get(), 1025), std::string(1024, 'r') + '\0');
}

TEST_F(UserValidation, NothingIsWrittenBehindAShortRequest) {
  ASSERT_EQ(kestro_socket_send(&client_, "ab"), 0);
  std::array<char, 1025> request;
  request.fill('x');
  kestro_user_validate_listen_socket(&server_, &accepted_, request.data());
  EXPECT_EQ(std::string(request.data(), 4), "abxx");
}

TEST_F(UserValidation, FailedAcceptIsTriedAgain) {
  ASSERT_EQ(kestro_socket_send(&client_, "request"), 0);
  std::array<char, 1025> request{};
  const auto log = stderr_of([&] {
    const Fault once("accept4", EMFILE);
    kestro_user_validate_listen_socket(&server_, &accepted_, request.data());
  });
  EXPECT_STREQ(request.data(), "request");
  EXPECT_THAT(log, HasSubstr("kestro_tcp_socket_accept: Too many open files\n"));
}

TEST_F(UserValidation, FailedReceiveIsLogged) {
  const linger reset = {.l_onoff = 1, .l_linger = 0};
  ASSERT_EQ(setsockopt(client_, SOL_SOCKET, SO_LINGER, &reset, sizeof reset), 0);
  ASSERT_EQ(kestro_socket_close(&client_), 0);
  std::array<char, 1025> request{};
  const auto log = stderr_of([&] { kestro_user_validate_listen_socket(&server_, &accepted_, request.data()); });
  EXPECT_THAT(log, HasLog(Error, module, "User Validate socket: read error\n"));
  EXPECT_STREQ(request.data(), "");
}

TEST_F(UserValidation, ClientThatSaysNothingIsNoReadError) {
  ASSERT_EQ(kestro_socket_close(&client_), 0);
  std::array<char, 1025> request{};
  const auto log = stderr_of([&] { kestro_user_validate_listen_socket(&server_, &accepted_, request.data()); });
  EXPECT_THAT(log, Not(HasSubstr("read error")));
}

TEST_F(UserValidation, FailedSendIsLoggedAndTheConnectionClosed) {
  accept();
  const int32_t connection = accepted_;
  ASSERT_EQ(shutdown(accepted_, SHUT_WR), 0);
  std::array<char, 16> answer{"ok"};
  const auto log = stderr_of([&] { kestro_user_validate_write_socket(&accepted_, answer.data()); });
  EXPECT_THAT(log, HasLog(Error, module, "User Validate socket: write error\n"));
  EXPECT_THAT(log, Not(HasSubstr("unable to close")));
  EXPECT_EQ(accepted_, -1);
  EXPECT_EQ(fcntl(connection, F_GETFD), -1);
}

TEST_F(UserValidation, FailedCloseIsLogged) {
  int32_t closed = -1;
  std::array<char, 16> answer{"ok"};
  const auto log = stderr_of([&] { kestro_user_validate_write_socket(&closed, answer.data()); });
  EXPECT_THAT(log, HasLog(Error, module, "User Validate socket: write error\n"));
  EXPECT_THAT(log, HasLog(Error, module, "User Validate socket: unable to close socket\n"));
}

TEST_F(UserValidation, DescriptorsAreClosedOnExec) {
  accept();
  for (const int32_t fd : {server_, accepted_}) EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST(UserValidationInit, FailedInitIsTriedAgain) {
  int32_t server = -1;
  const auto log = stderr_of([&] {
    const Fault once("socket", EMFILE);
    kestro_user_validate_init_socket(&server, 0);
  });
  const Descriptor owner(server);
  EXPECT_GE(server, 0);
  EXPECT_THAT(log, HasSubstr("kestro_tcp_socket_init: Too many open files\n"));
}

TEST(UserValidationInit, ListensOnTheGivenPort) {
  int32_t chosen = -1;
  kestro_user_validate_init_socket(&chosen, 0);
  const Descriptor first(chosen);
  // Servers may share a port.
  int32_t given = -1;
  kestro_user_validate_init_socket(&given, port_of(chosen));
  const Descriptor second(given);
  EXPECT_EQ(port_of(given), port_of(chosen));
}

TEST(UserValidationNull, IsLoggedAndNothingIsDone) {
  int32_t fd = -1;
  std::array<char, 4> text{};
  const auto log = stderr_of([&] {
    kestro_user_validate_init_socket(nullptr, 0);
    kestro_user_validate_listen_socket(nullptr, &fd, text.data());
    kestro_user_validate_listen_socket(&fd, nullptr, text.data());
    kestro_user_validate_listen_socket(&fd, &fd, nullptr);
    kestro_user_validate_write_socket(nullptr, text.data());
    kestro_user_validate_write_socket(&fd, nullptr);
  });
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 6);
  EXPECT_EQ(count_log_lines(log, Warning, module, "Found a null input parameter at varg index <0>\n"), 3);
  EXPECT_EQ(count_log_lines(log, Warning, module, "Found a null input parameter at varg index <1>\n"), 2);
  EXPECT_EQ(count_log_lines(log, Warning, module, "Found a null input parameter at varg index <2>\n"), 1);
}

int32_t exiting_server = -1;
int32_t exiting_descriptor = -1;

void exit_with_server() {
  kestro_user_validate_init_socket(&exiting_server, 0);
  exiting_descriptor = exiting_server;
  std::atexit([] {
    const bool open = fcntl(exiting_descriptor, F_GETFD) >= 0;
    fprintf(stderr, "server %d, descriptor %s\n", exiting_server, open ? "open" : "closed");
  });
  kestro_cleanup_process();
}

// Each in a process of its own, in which no other test has opened a server.
class CleanupProcessDeathTest : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(CleanupProcessDeathTest, ShutsTheServerDownAndExitsWith0) {
  EXPECT_EXIT(exit_with_server(), ExitedWithCode(0), "server -1, descriptor closed\n");
}

TEST_F(CleanupProcessDeathTest, ExitsWith0WithoutAServer) {
  EXPECT_EXIT(kestro_cleanup_process(), ExitedWithCode(0), "^$");
}

}  // namespace
}  // namespace kestro::test
