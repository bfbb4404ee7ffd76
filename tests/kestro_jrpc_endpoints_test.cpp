#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include "forge_utils.h"
#include "kestro_jrpc.h"
#include "kestro_jrpc/fd_locks.hpp"
#include "kestro_mq.h"
#include "kestro_socket.h"
#include "support/bus.hpp"
#include "support/captured_stderr.hpp"
#include "support/descriptors.hpp"
#include "support/faults.hpp"
#include "support/fd_lock.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/scripted_method.hpp"
#include "support/stream_peer.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* jrpc = "kestro_jrpc";

const std::string get_ports = R"({"jsonrpc":"2.0","method":"ports.Get","id":"reply"})";
const std::string notify_ports = R"({"jsonrpc":"2.0","method":"ports.Get"})";
const std::string got_ports = R"({"jsonrpc":"2.0","id":"ports.Get","result":["c1-1"]})";
const std::string no_answer = R"({"jsonrpc":"1.0","method":"ports.Get","id":"reply"})";

// What a call returned and logged at VERBOSE.
struct Outcome {
  int32_t status = 0;
  std::string log;
};

template <class Call>
Outcome outcome_of(Call&& call) {
  const LogLevel all(Verbose);
  Outcome seen;
  seen.log = stderr_of([&] { seen.status = call(); });
  return seen;
}

// A handle that bus sockets do not have.
constexpr int32_t no_socket = 100'000;

// The handle that the next bus socket gets.
int32_t next_bus_handle() {
  return BusSocket(KESTRO_MQ_SP_PUB).handle();
}

bool is_open(int32_t bus_handle) {
  const LogLevel quiet(0);
  int32_t timeout = 0;
  return kestro_mq_socket_get_timeout(bus_handle, &timeout) == 0;
}

// ---- Stream sockets ----

struct Kind {
  const char* name;
  int32_t (*run)(int32_t*, kestro_jrpc_mapping_t*);
  const char* null_pointer;
  const char* error_response;
};

class StreamEndpoint : public testing::TestWithParam<Kind> {
 protected:
  StreamEndpoint() : is_unix_(std::string_view(GetParam().name) == "Unix"), port_(is_unix_ ? 0 : free_port()) {
    const auto opened =
        is_unix_ ? kestro_unix_socket_init(path_.c_str(), &server_, 1) : kestro_tcp_socket_init(port_, &server_, 1);
    if (opened != 0) throw std::runtime_error("no server socket");
  }
  ~StreamEndpoint() override { kestro_socket_shutdown(&server_); }

  [[nodiscard]] StreamPeer connect() const {
    return is_unix_ ? StreamPeer::on_path(path_) : StreamPeer::on_port(port_);
  }
  Outcome run() {
    const auto before = open_descriptors();
    auto seen = outcome_of([&] { return GetParam().run(&server_, scripted_table()); });
    EXPECT_THAT(open_descriptors(), testing::IsSubsetOf(before)) << "the connection is still open";
    return seen;
  }

  bool is_unix_;
  int port_;
  TempDir dir_;
  std::string path_ = dir_.file("service");
  int32_t server_ = -1;
};

const Kind kinds[] = {
    {"Unix", kestro_jrpc_unix_socket_run, "[kestro_jrpc_unix_socket_run]: NULL pointer!\n",
     "[kestro_jrpc_unix_socket_run]: Error response!\n"},
    {"Tcp", kestro_jrpc_tcp_socket_run, "[kestro_jrpc_tcp_socket_run]: NULL pointer!\n",
     "[kestro_jrpc_socket_run]: Error response!\n"},
};
INSTANTIATE_TEST_SUITE_P(Endpoints, StreamEndpoint, testing::ValuesIn(kinds), name_of<Kind>);

TEST_P(StreamEndpoint, AnswersOneRequestAndCloses) {
  const ScriptedMethod method(0, R"(["c1-1"])");
  auto client = connect();
  client.send(get_ports);
  EXPECT_EQ(run().status, 0);
  EXPECT_EQ(client.receive_all(), got_ports);
  EXPECT_EQ(method.calls(), 1);
}

TEST_P(StreamEndpoint, ServesOneClientAfterTheOther) {
  const ScriptedMethod method(0, R"(["c1-1"])");
  auto first = connect();
  auto second = connect();
  second.send(get_ports);
  first.send(get_ports);
  EXPECT_EQ(run().status, 0);
  EXPECT_EQ(first.receive_all(), got_ports);
  EXPECT_EQ(method.calls(), 1);
  EXPECT_EQ(run().status, 0);
  EXPECT_EQ(second.receive_all(), got_ports);
}

TEST_P(StreamEndpoint, AnErrorObjectIsAResponseToo) {
  const ScriptedMethod method(-6);
  auto client = connect();
  client.send(get_ports);
  EXPECT_EQ(run().status, 0);
  EXPECT_THAT(client.receive_all(), HasSubstr(R"("code":-32030)"));
}

TEST_P(StreamEndpoint, ANotificationIsNotAnswered) {
  const ScriptedMethod method(0, "[1]");
  auto client = connect();
  client.send(notify_ports);
  EXPECT_EQ(run().status, 0);
  EXPECT_EQ(client.receive_all(), "");
  EXPECT_EQ(method.calls(), 1);
}

TEST_P(StreamEndpoint, WhatCannotBeAnsweredIsNot) {
  const ScriptedMethod method;
  for (const auto& request : {std::string("nonsense"), no_answer, std::string("\0", 1), std::string("[]")}) {
    auto client = connect();
    client.send(request);
    EXPECT_EQ(run().status, -1);
    EXPECT_EQ(client.receive_all(), "");
  }
  EXPECT_EQ(method.calls(), 0);
}

TEST_P(StreamEndpoint, NothingReceived) {
  connect().vanish();
  EXPECT_EQ(run().status, -1);
}

TEST_P(StreamEndpoint, NobodyThere) {
  const auto seen = run();
  EXPECT_EQ(seen.status, -1);
  EXPECT_EQ(seen.log, "");
}

TEST_P(StreamEndpoint, AFailedAcceptIsReturned) {
  int32_t closed = -1;
  const auto seen = outcome_of([&] { return GetParam().run(&closed, scripted_table()); });
  EXPECT_EQ(seen.status, -1);
}

// A request of this size, without an id in front of which nothing matters.
std::string request_of(size_t size) {
  const std::string head = R"({"jsonrpc":"2.0","method":"ports.Get","id":1,"params":{"fill":")";
  const std::string tail = "\"}}";
  return head + std::string(size - head.size() - tail.size(), 'x') + tail;
}

TEST_P(StreamEndpoint, ARequestOf1024BytesIsEvaluated) {
  const ScriptedMethod method(0, R"(["c1-1"])");
  auto client = connect();
  client.send(request_of(1024));
  EXPECT_EQ(run().status, 0);
  EXPECT_EQ(client.receive_all(), got_ports);
}

TEST_P(StreamEndpoint, ALongerRequestIsCut) {
  const ScriptedMethod method(0, R"(["c1-1"])");
  auto client = connect();
  client.send(request_of(1025));
  EXPECT_EQ(run().status, -1);
  EXPECT_EQ(method.calls(), 0);

  // What lies behind the first 1024 bytes is not looked at.
  auto other = connect();
  other.send(request_of(1024) + "}}}}");
  EXPECT_EQ(run().status, 0);
  EXPECT_EQ(method.calls(), 1);
}

TEST_P(StreamEndpoint, ThereIsOneReceive) {
  const ScriptedMethod method;
  auto client = connect();
  client.send(get_ports.substr(0, 20));
  EXPECT_EQ(run().status, -1) << "the rest was not waited for";
  EXPECT_EQ(client.receive_all(), "");
}

TEST_P(StreamEndpoint, EachRequestFindsAnEmptyBuffer) {
  const ScriptedMethod method(0, "[1]");
  auto longer = connect();
  longer.send(request_of(1024));
  EXPECT_EQ(run().status, 0);
  auto shorter = connect();
  shorter.send(get_ports.substr(0, get_ports.size() - 1));  // completed by nothing that was there before
  EXPECT_EQ(run().status, -1);
}

TEST_P(StreamEndpoint, AResponseLargerThanAnyBufferArrivesWhole) {
  const std::string megabyte(4'000'000, 'x');
  const ScriptedMethod method(0, "[\"" + megabyte + "\"]");
  auto client = connect();
  client.send(get_ports);
  std::string response;
  std::thread reader([&] { response = client.receive_all(); });
  EXPECT_EQ(outcome_of([&] { return GetParam().run(&server_, scripted_table()); }).status, 0);
  reader.join();
  EXPECT_EQ(response, R"({"jsonrpc":"2.0","id":"ports.Get","result":[")" + megabyte + "\"]}");
}

std::atomic<int> broken_pipes{0};

// Counts SIGPIPE, which would end the process otherwise.
class BrokenPipes {
 public:
  BrokenPipes() : before_(std::signal(SIGPIPE, [](int) { ++broken_pipes; })) { broken_pipes = 0; }
  BrokenPipes(const BrokenPipes&) = delete;
  BrokenPipes& operator=(const BrokenPipes&) = delete;
  ~BrokenPipes() { std::signal(SIGPIPE, before_); }

 private:
  void (*before_)(int);
};

TEST_P(StreamEndpoint, AClientThatVanishesHarmsNobody) {
  const BrokenPipes counted;
  ScriptedMethod method(0, R"(["c1-1"])");
  auto client = connect();
  client.send(get_ports);
  method.meanwhile([&] { client.vanish(); });
  const auto seen = run();
  EXPECT_EQ(seen.status, -1);
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, GetParam().error_response));
  EXPECT_EQ(broken_pipes, 0);
  EXPECT_TRUE(method.all_released());

  method.meanwhile([] {});
  auto next = connect();
  next.send(get_ports);
  EXPECT_EQ(run().status, 0);
  EXPECT_EQ(next.receive_all(), got_ports);
}

TEST_P(StreamEndpoint, AClientThatVanishedBeforeItWasAcceptedHarmsNobody) {
  const BrokenPipes counted;
  const ScriptedMethod method(0, R"(["c1-1"])");
  auto client = connect();
  client.send(get_ports);
  client.vanish();
  EXPECT_EQ(run().status, -1);
  EXPECT_EQ(broken_pipes, 0);
}

TEST_P(StreamEndpoint, AFailedSendIsReturnedAndTheConnectionClosed) {
  std::optional<Fault> fault;
  ScriptedMethod method(0, "[1]");
  method.meanwhile([&] { fault.emplace("send", ENOBUFS); });
  auto client = connect();
  client.send(get_ports);
  const auto seen = run();
  EXPECT_EQ(seen.status, -1);
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, GetParam().error_response));
  EXPECT_EQ(client.receive_all(), "");
}

TEST_P(StreamEndpoint, AFailedReceiveIsNothingReceived) {
  const ScriptedMethod method;
  auto client = connect();
  client.send(get_ports);
  const Fault fault("recv", EIO);
  EXPECT_EQ(run().status, -1);
  EXPECT_EQ(method.calls(), 0);
}

TEST_P(StreamEndpoint, AFailedCloseIsReturned) {
  int connection = -1;
  ScriptedMethod method;
  method.meanwhile([&] { EXPECT_EQ(close(connection), 0); });
  auto client = connect();
  client.send(notify_ports);
  const auto seen = outcome_of([&] {
    // The lowest free descriptor is the one that the connection gets.
    connection = dup(server_);
    close(connection);
    return GetParam().run(&server_, scripted_table());
  });
  EXPECT_EQ(seen.status, -1);
  EXPECT_THAT(seen.log, HasSubstr("kestro_socket_close: Bad file descriptor\n"));
  EXPECT_EQ(method.calls(), 1);
}

TEST_P(StreamEndpoint, NullArguments) {
  const auto no_server = outcome_of([] { return GetParam().run(nullptr, scripted_table()); });
  EXPECT_EQ(no_server.status, -20);
  EXPECT_THAT(no_server.log, HasLog(Debug, jrpc, GetParam().null_pointer));
  const auto no_table = outcome_of([&] { return GetParam().run(&server_, nullptr); });
  EXPECT_EQ(no_table.status, -20);
  EXPECT_THAT(no_table.log, HasLog(Debug, jrpc, GetParam().null_pointer));
}

TEST(UnixSocketInit, OpensTheSocket) {
  const TempDir dir;
  const std::string path = dir.file("service");
  int32_t server = -1;
  const auto seen = outcome_of([&] { return kestro_jrpc_unix_socket_init(path.c_str(), &server, 1); });
  EXPECT_EQ(seen.status, 0);
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_unix_socket_init]: unix socket initialized!\n"));
  EXPECT_NE(fcntl(server, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(fcntl(server, F_GETFD) & FD_CLOEXEC, 0);

  const ScriptedMethod method(0, R"(["c1-1"])");
  auto client = StreamPeer::on_path(path);
  client.send(get_ports);
  EXPECT_EQ(kestro_jrpc_unix_socket_run(&server, scripted_table()), 0);
  EXPECT_EQ(client.receive_all(), got_ports);
  kestro_socket_shutdown(&server);
}

TEST(UnixSocketInit, WaitsForClientsUnlessToldOtherwise) {
  const TempDir dir;
  int32_t server = -1;
  outcome_of([&] { return kestro_jrpc_unix_socket_init(dir.file("service").c_str(), &server, 0); });
  EXPECT_EQ(fcntl(server, F_GETFL) & O_NONBLOCK, 0);
  kestro_socket_shutdown(&server);
}

TEST(UnixSocketInit, AFailureIsSuccessWithTheHandleZero) {
  const TempDir dir;
  for (const std::string& path : {dir.file("no/such/directory"), std::string()}) {
    int32_t server = 77;
    const auto seen =
        outcome_of([&] { return kestro_jrpc_unix_socket_init(path.empty() ? nullptr : path.c_str(), &server, 0); });
    EXPECT_EQ(seen.status, 0);
    EXPECT_EQ(server, 0);
    EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_unix_socket_init]: cannot init unix socket!\n"));
    EXPECT_THAT(seen.log, Not(HasSubstr("initialized!")));
  }
}

TEST(UnixSocketInit, NullHandle) {
  const TempDir dir;
  const auto seen = outcome_of([&] { return kestro_jrpc_unix_socket_init(dir.file("a").c_str(), nullptr, 0); });
  EXPECT_EQ(seen.status, -20);
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_unix_socket_init]: NULL pointer!\n"));
}

// ---- Pull sockets ----

class PullEndpoint : public testing::Test {
 protected:
  PullEndpoint() : pusher_(KESTRO_MQ_SP_PUSH) {
    kestro_jrpc_pull_socket_init(address_.c_str(), &pull_);
    kestro_mq_socket_set_timeout(pull_, 10'000);
    pusher_.connect(address_);
  }
  ~PullEndpoint() override { kestro_mq_socket_close(pull_); }

  void push(const std::string& text) { ASSERT_EQ(kestro_mq_socket_send(pusher_.handle(), text.c_str()), 0); }

  std::string address_ = free_bus_address();
  BusSocket pusher_;
  int32_t pull_ = -1;
};

TEST_F(PullEndpoint, EvaluatesABareRequest) {
  const ScriptedMethod method(0, "[1]");
  push(get_ports);
  EXPECT_EQ(outcome_of([&] { return kestro_jrpc_pull_socket_run(pull_, scripted_table()); }).status, 0);
  EXPECT_EQ(method.calls(), 1);
  EXPECT_TRUE(method.all_released());
}

TEST_F(PullEndpoint, ReturnsTheStatusOfTheEvaluation) {
  const ScriptedMethod failing(-6);
  const struct {
    std::string request;
    int32_t status;
  } cases[] = {{notify_ports, -1}, {get_ports, 0}, {no_answer, -1},
               {"nonsense", -1},   {"", -1},       {"reply|" + get_ports, -1}};
  for (const auto& it : cases) {
    push(it.request);
    EXPECT_EQ(outcome_of([&] { return kestro_jrpc_pull_socket_run(pull_, scripted_table()); }).status, it.status)
        << it.request;
  }
  EXPECT_EQ(failing.calls(), 2);
}

TEST_F(PullEndpoint, AFailedReceiveIsMinusOne) {
  const auto runs = {kestro_jrpc_pull_socket_run, kestro_jrpc_pull_socket_run_encrypted};
  for (const auto run : runs) {
    const Fault nothing_there("nn_recv", EAGAIN);
    EXPECT_EQ(outcome_of([&] { return run(pull_, scripted_table()); }).status, -1);
    EXPECT_EQ(outcome_of([&] { return run(no_socket, scripted_table()); }).status, -1);
  }
}

TEST_F(PullEndpoint, NullTable) {
  for (const auto run : {kestro_jrpc_pull_socket_run, kestro_jrpc_pull_socket_run_encrypted}) {
    const auto seen = outcome_of([&] { return run(pull_, nullptr); });
    EXPECT_EQ(seen.status, -20);
    EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_pull_socket_run]: NULL pointer!\n"));
  }
}

// This program does not link the library that deciphers.
TEST_F(PullEndpoint, EncipheredRequestsAreReceivedAndRefused) {
  ASSERT_TRUE(ksto_decrypt_str == nullptr);
  const ScriptedMethod method;
  push("enciphered");
  const auto seen = outcome_of([&] { return kestro_jrpc_pull_socket_run_encrypted(pull_, scripted_table()); });
  EXPECT_EQ(seen.status, -1);
  EXPECT_THAT(seen.log, HasLog(Error, jrpc,
                               "[kestro_jrpc_pull_socket_run_encrypted]: the library that deciphers requests is not "
                               "linked\n"));
  EXPECT_EQ(method.calls(), 0);

  push(get_ports);  // the enciphered frame is gone: this one is next
  outcome_of([&] { return kestro_jrpc_pull_socket_run(pull_, scripted_table()); });
  EXPECT_EQ(method.calls(), 1);
}

TEST(PullSocketInit, TellsWhatItOpened) {
  int32_t pull = -1;
  const auto seen = outcome_of([&] { return kestro_jrpc_pull_socket_init(free_bus_address().c_str(), &pull); });
  EXPECT_EQ(seen.status, 0);
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_tcp_socket_init]: pull socket initialized!\n"));
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_mq_pub_init]: mq_pull: " + std::to_string(pull) + "\n"));
  EXPECT_EQ(kestro_mq_socket_close(pull), 0);
}

TEST(PullSocketInit, AFailedBindIsReturned) {
  const struct {
    const char* address;
    int32_t status;
  } cases[] = {{"ipc:///tmp/never", -34}, {"tcp://", -1}};
  for (const auto& it : cases) {
    int32_t pull = 77;
    const int32_t handle = next_bus_handle();
    const auto seen = outcome_of([&] { return kestro_jrpc_pull_socket_init(it.address, &pull); });
    EXPECT_EQ(seen.status, it.status);
    EXPECT_EQ(pull, 77);
    EXPECT_THAT(
        seen.log,
        HasLog(Error, jrpc,
               "[kestro_jrpc_mq_pub_init]: Error mq_socket_bind for pull, rc = " + std::to_string(it.status) + "\n"));
    EXPECT_THAT(seen.log, Not(HasSubstr("initialized!")));
    EXPECT_FALSE(is_open(handle));
  }
}

TEST(PullSocketInit, WithoutASocketTheBindIsStillTried) {
  int32_t pull = 77;
  const auto init = [&](const std::string& address) {
    const Fault no_socket_left("nn_socket", EMFILE);
    return outcome_of([&] { return kestro_jrpc_pull_socket_init(address.c_str(), &pull); });
  };
  const auto seen = init(free_bus_address());
  EXPECT_EQ(seen.status, -1);
  EXPECT_EQ(pull, 77);
  EXPECT_THAT(seen.log, HasLog(Error, jrpc, "[kestro_jrpc_tcp_socket_init]: cannot init pull socket!\n"));
  EXPECT_THAT(seen.log, HasLog(Error, jrpc, "[kestro_jrpc_mq_pub_init]: Error mq_socket_bind for pull, rc = -1\n"));

  // The bind's own status counts, also here.
  EXPECT_EQ(init("ipc:///tmp/never").status, -34);
}

TEST(PullSocketInit, NullArguments) {
  int32_t pull = -1;
  const auto seen = outcome_of([&] {
    EXPECT_EQ(kestro_jrpc_pull_socket_init("tcp://127.0.0.1:1", nullptr), -20);
    return kestro_jrpc_pull_socket_init(nullptr, &pull);
  });
  EXPECT_EQ(seen.status, -20);
  EXPECT_EQ(count_log_lines(seen.log, Debug, jrpc, "[kestro_jrpc_tcp_socket_init]: NULL pointer!\n"), 2);
}

// ---- Opening bus sockets ----

TEST(PubInit, OpensAPublisher) {
  const std::string address = free_bus_address();
  int32_t publisher = -1;
  const auto seen = outcome_of([&] { return kestro_jrpc_mq_pub_init(address.c_str(), &publisher); });
  EXPECT_EQ(seen.status, 0);
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_mq_pub_init]: mq_socket for pub initialized.\n"));

  BusSocket subscriber(KESTRO_MQ_SP_SUB);
  subscriber.connect(address);
  await_link(publisher, subscriber.handle());
  EXPECT_EQ(kestro_mq_socket_close(publisher), 0);
}

TEST(PubInit, AFailedBindIsReturnedAndLeavesTheSocketOpen) {
  const BusSocket taken(KESTRO_MQ_SP_PUB);
  const struct {
    const char* address;
    int32_t status;
  } cases[] = {{"inproc://never", -34}, {"tcp://127.0.0.1:none", -1}};
  for (const auto& it : cases) {
    int32_t publisher = 77;
    const int32_t handle = next_bus_handle();
    const auto seen = outcome_of([&] { return kestro_jrpc_mq_pub_init(it.address, &publisher); });
    EXPECT_EQ(seen.status, it.status);
    EXPECT_EQ(publisher, 77);
    EXPECT_THAT(
        seen.log,
        HasLog(Debug, jrpc,
               "[kestro_jrpc_mq_pub_init]: Error mq_socket_bind for pub, rc = " + std::to_string(it.status) + "\n"));
    EXPECT_TRUE(is_open(handle));
    kestro_mq_socket_close(handle);
  }
}

TEST(PubInit, AFailedSocket) {
  int32_t publisher = 77;
  const Fault no_socket_left("nn_socket", EMFILE);
  const auto seen = outcome_of([&] { return kestro_jrpc_mq_pub_init(free_bus_address().c_str(), &publisher); });
  EXPECT_EQ(seen.status, -1);
  EXPECT_EQ(publisher, 77);
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_mq_pub_init]: Error mq_socket_init for pub, rc = -1\n"));
}

TEST(PubInit, NullArguments) {
  int32_t publisher = -1;
  const auto seen = outcome_of([&] {
    EXPECT_EQ(kestro_jrpc_mq_pub_init("tcp://127.0.0.1:1", nullptr), -20);
    return kestro_jrpc_mq_pub_init(nullptr, &publisher);
  });
  EXPECT_EQ(seen.status, -20);
  EXPECT_EQ(count_log_lines(seen.log, Debug, jrpc, "[kestro_jrpc_mq_pub_init]: NULL pointer!\n"), 2);
}

TEST(SubInit, WaitsForASecondWhereItShallNotBlock) {
  for (const int32_t nonblock : {0, 1, -1}) {
    int32_t subscriber = -1;
    const auto seen = outcome_of([&] { return kestro_jrpc_mq_sub_init(&subscriber, nonblock); });
    EXPECT_EQ(seen.status, 0);
    EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_mq_sub_init]: mq_socket for sub initialized.\n"));
    int32_t timeout = 0;
    EXPECT_EQ(kestro_mq_socket_get_timeout(subscriber, &timeout), 0);
    EXPECT_EQ(timeout, nonblock != 0 ? 1000 : -1);
    EXPECT_EQ(kestro_mq_socket_close(subscriber), 0);
  }
}

TEST(SubInit, AFailedSocket) {
  int32_t subscriber = 77;
  const Fault no_socket_left("nn_socket", EMFILE);
  const auto seen = outcome_of([&] { return kestro_jrpc_mq_sub_init(&subscriber, 1); });
  EXPECT_EQ(seen.status, -1);
  EXPECT_EQ(subscriber, 77);
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_mq_sub_init]: Error mq_socket_init for sub, rc = -1\n"));
}

TEST(SubInit, AFailedTimeout) {
  int32_t subscriber = 77;
  const int32_t handle = next_bus_handle();
  const Fault fault("nn_setsockopt", EINVAL);
  const auto seen = outcome_of([&] { return kestro_jrpc_mq_sub_init(&subscriber, 1); });
  EXPECT_EQ(seen.status, -1);
  EXPECT_EQ(subscriber, 77);
  EXPECT_FALSE(is_open(handle));
  EXPECT_THAT(seen.log,
              HasLog(Debug, jrpc, "[kestro_jrpc_mq_sub_init]: Error kestro_mq_socket_set_timeout for sub, rc = -1\n"));
}

TEST(SubInit, NullArgument) {
  const auto seen = outcome_of([] { return kestro_jrpc_mq_sub_init(nullptr, 1); });
  EXPECT_EQ(seen.status, -20);
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_mq_sub_init]: NULL pointer!\n"));
}

std::string receive(const BusSocket& socket) {
  char* message = nullptr;
  int32_t length = 0;
  if (kestro_mq_socket_recv(socket.handle(), &message, &length, 0) != 0) return "(nothing)";
  const Text owned(message);
  return {message, static_cast<size_t>(length)};
}

TEST(SubSetChannel, SubscribesToAPrefixAndMayBeCalledAgain) {
  BusSocket one(KESTRO_MQ_SP_PUB);
  BusSocket other(KESTRO_MQ_SP_PUB);
  const std::string one_address = free_bus_address();
  const std::string other_address = free_bus_address();
  one.bind(one_address);
  other.bind(other_address);

  BusSocket subscriber(KESTRO_MQ_SP_SUB);
  subscriber.timeout(10'000);
  EXPECT_EQ(kestro_jrpc_mq_sub_set_channel(one_address.c_str(), "abc", subscriber.address_of_handle()), 0);
  EXPECT_EQ(kestro_jrpc_mq_sub_set_channel(other_address.c_str(), "xyz", subscriber.address_of_handle()), 0);
  await_link(one.handle(), subscriber.handle());
  await_link(other.handle(), subscriber.handle());

  EXPECT_EQ(kestro_mq_socket_send(one.handle(), "ab|lost"), 0);
  EXPECT_EQ(kestro_mq_socket_send(one.handle(), "abcd|1"), 0);
  EXPECT_EQ(receive(subscriber), "abcd|1");
  EXPECT_EQ(kestro_mq_socket_send(other.handle(), "lost|xyz"), 0);
  EXPECT_EQ(kestro_mq_socket_send(other.handle(), "xyz|2"), 0);
  EXPECT_EQ(receive(subscriber), "xyz|2");
}

TEST(SubSetChannel, AFailedConnectClosesTheSocket) {
  for (const char* const address : {"tcp://", "ipc:///tmp/never"}) {
    int32_t subscriber = -1;
    ASSERT_EQ(kestro_mq_socket_init(KESTRO_MQ_SP_SUB, &subscriber), 0);
    const auto seen = outcome_of([&] { return kestro_jrpc_mq_sub_set_channel(address, "abc", &subscriber); });
    EXPECT_EQ(seen.status, -1);
    EXPECT_FALSE(is_open(subscriber));
    const int inner = std::string_view(address) == "tcp://" ? -1 : -34;
    EXPECT_THAT(seen.log, HasLog(Debug, jrpc,
                                 "[kestro_jrpc_mq_sub_set_channel]: Error mq_socket_connect for sub, rc = " +
                                     std::to_string(inner) + "\n"));
  }
}

TEST(SubSetChannel, AFailedSubscriptionClosesTheSocket) {
  int32_t publisher = -1;
  ASSERT_EQ(kestro_mq_socket_init(KESTRO_MQ_SP_PUB, &publisher), 0);
  const std::string address = free_bus_address();
  const auto seen = outcome_of([&] { return kestro_jrpc_mq_sub_set_channel(address.c_str(), "abc", &publisher); });
  EXPECT_EQ(seen.status, -1);
  EXPECT_FALSE(is_open(publisher));
  EXPECT_THAT(seen.log,
              HasLog(Debug, jrpc, "[kestro_jrpc_mq_sub_set_channel]: Error mq_socket_subscribe for sub, rc = -1\n"));
}

TEST(SubSetChannel, NullArguments) {
  BusSocket subscriber(KESTRO_MQ_SP_SUB);
  const auto seen = outcome_of([&] {
    EXPECT_EQ(kestro_jrpc_mq_sub_set_channel(nullptr, "abc", subscriber.address_of_handle()), -20);
    EXPECT_EQ(kestro_jrpc_mq_sub_set_channel("tcp://127.0.0.1:1", "abc", nullptr), -20);
    return kestro_jrpc_mq_sub_set_channel("tcp://127.0.0.1:1", nullptr, subscriber.address_of_handle());
  });
  EXPECT_EQ(seen.status, -20);
  EXPECT_EQ(count_log_lines(seen.log, Debug, jrpc, "[kestro_jrpc_mq_sub_set_channel]: NULL pointer!\n"), 3);
  EXPECT_TRUE(is_open(subscriber.handle()));
}

// ---- Publishing ----

class Publish : public testing::Test {
 protected:
  int32_t* out() { return bus_.publisher.address_of_handle(); }
  BusPair bus_;
  FdLock lock_{bus_.subscriber.handle()};
};

TEST_F(Publish, PutsTheChannelInFront) {
  const auto seen = outcome_of([&] { return kestro_jrpc_mq_pub(out(), "abc", R"({"a":"|"})"); });
  EXPECT_EQ(seen.status, 0);
  EXPECT_EQ(receive(bus_.subscriber), R"(abc|{"a":"|"})");
  EXPECT_THAT(seen.log, HasLog(Verbose, jrpc, "[kestro_jrpc_mq_pub]: Prefixing channel with response...\n"));
  EXPECT_THAT(seen.log, HasLog(Verbose, jrpc, "[kestro_jrpc_mq_pub]: Sending message over mq_pub...\n"));
  EXPECT_THAT(seen.log, HasLog(Verbose, jrpc, "[kestro_jrpc_mq_pub]: mq_send msg[13]: abc|{\"a\":\"|\"}\n"));
  EXPECT_TRUE(lock_.is_free());
}

TEST_F(Publish, TakesNoLock) {
  ASSERT_TRUE(lock_.take());
  EXPECT_EQ(kestro_jrpc_mq_pub(out(), "abc", "1"), 0);
  EXPECT_EQ(receive(bus_.subscriber), "abc|1");
  unlock_fd(bus_.subscriber.handle());
}

TEST_F(Publish, WithoutMemory) {
  for (const bool locks : {false, true}) {
    const Fault no_memory("calloc", ENOMEM);
    const auto seen = outcome_of([&] {
      return locks ? kestro_jrpc_mq_pub_lock(out(), "abc", "1", bus_.subscriber.handle())
                   : kestro_jrpc_mq_pub(out(), "abc", "1");
    });
    EXPECT_EQ(seen.status, -1);
    EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_mq_pub]: add_channel failed\n"));
    EXPECT_TRUE(lock_.is_free());
  }
}

TEST_F(Publish, AFailedSendIsReturned) {
  int32_t closed = no_socket;
  const char* const line = "[kestro_jrpc_mq_pub]: Error mq_send, rc = -1\n";
  const auto plain = outcome_of([&] { return kestro_jrpc_mq_pub(&closed, "abc", "1"); });
  EXPECT_EQ(plain.status, -1);
  EXPECT_THAT(plain.log, HasLog(Debug, jrpc, line));

  const auto locked =
      outcome_of([&] { return kestro_jrpc_mq_pub_lock(&closed, "abc", "1", bus_.subscriber.handle()); });
  EXPECT_EQ(locked.status, -1);
  EXPECT_THAT(locked.log, HasLog(Error, jrpc, line));
  EXPECT_TRUE(lock_.is_free());
}

TEST_F(Publish, NullArguments) {
  const auto seen = outcome_of([&] {
    const int32_t in = bus_.subscriber.handle();
    EXPECT_EQ(kestro_jrpc_mq_pub(out(), nullptr, "1"), -20);
    EXPECT_EQ(kestro_jrpc_mq_pub(out(), "abc", nullptr), -20);
    EXPECT_EQ(kestro_jrpc_mq_pub(nullptr, "abc", "1"), -20);
    EXPECT_EQ(kestro_jrpc_mq_pub_lock(out(), nullptr, "1", in), -20);
    EXPECT_EQ(kestro_jrpc_mq_pub_lock(out(), "abc", nullptr, in), -20);
    return kestro_jrpc_mq_pub_lock(nullptr, "abc", "1", in);
  });
  EXPECT_EQ(seen.status, -20);
  EXPECT_EQ(count_log_lines(seen.log, Debug, jrpc, "[kestro_jrpc_mq_pub]: Null Pointer!\n"), 6);
  EXPECT_TRUE(lock_.is_free());
}

TEST_F(Publish, TheLockStaysTakenAfterASend) {
  const auto seen = outcome_of([&] { return kestro_jrpc_mq_pub_lock(out(), "abc", "1", bus_.subscriber.handle()); });
  EXPECT_EQ(seen.status, 0);
  EXPECT_EQ(receive(bus_.subscriber), "abc|1");
  EXPECT_THAT(seen.log, HasLog(Verbose, jrpc, "[kestro_jrpc_mq_pub]: mq_send msg[5]: abc|1\n"));
  EXPECT_FALSE(lock_.is_free());
  unlock_fd(bus_.subscriber.handle());
  EXPECT_TRUE(lock_.is_free());
}

TEST_F(Publish, WithoutARegisteredLockThereIsNone) {
  EXPECT_EQ(kestro_jrpc_mq_pub_lock(out(), "abc", "1", no_socket), 0);
  EXPECT_EQ(receive(bus_.subscriber), "abc|1");
  EXPECT_TRUE(lock_.is_free());
}

TEST_F(Publish, NothingIsSentBeforeTheLockIsFree) {
  ASSERT_TRUE(lock_.take());
  std::thread other([&] {
    kestro_jrpc_mq_pub_lock(out(), "abc", "other", bus_.subscriber.handle());
    unlock_fd(bus_.subscriber.handle());
  });
  const LogLevel quiet(0);
  bus_.subscriber.timeout(100);
  EXPECT_EQ(receive(bus_.subscriber), "(nothing)");
  bus_.subscriber.timeout(10'000);
  unlock_fd(bus_.subscriber.handle());
  EXPECT_EQ(receive(bus_.subscriber), "abc|other");
  other.join();
}

// ---- Serving from the bus ----

class BusService : public testing::Test {
 protected:
  Outcome run(int32_t nonblock = 0) {
    return outcome_of([&] {
      return kestro_jrpc_mq_run(requests_.subscriber.address_of_handle(), responses_.publisher.address_of_handle(),
                                scripted_table(), nonblock);
    });
  }
  Outcome serve(const std::string& frame) {
    EXPECT_EQ(kestro_mq_socket_send(requests_.publisher.handle(), frame.c_str()), 0);
    return run();
  }
  // The next frame that was published, or nothing if there was none.
  std::string published() {
    EXPECT_EQ(kestro_mq_socket_send(responses_.publisher.handle(), "end"), 0);
    const std::string frame = receive(responses_.subscriber);
    if (frame == "end") return "nothing";
    EXPECT_EQ(receive(responses_.subscriber), "end");
    return frame;
  }

  BusPair requests_;
  BusPair responses_;
};

TEST_F(BusService, AnswersOnTheChannelOfTheId) {
  const ScriptedMethod method(0, R"(["c1-1"])");
  const auto seen = serve("service|" + get_ports);
  EXPECT_EQ(seen.status, 0);
  EXPECT_EQ(published(), "reply|" + got_ports);
  EXPECT_TRUE(method.all_released());
  EXPECT_THAT(seen.log, HasLog(Verbose, jrpc, "[kestro_jrpc_mq_run]: waiting to receive... \n"));
  EXPECT_THAT(seen.log, HasLog(Verbose, jrpc,
                               "[kestro_jrpc_mq_run]: mq_recv msg[" + std::to_string(8 + get_ports.size()) +
                                   "]: service|" + get_ports + "\n"));
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_mq_run]: Sending response over mq_pub ...\n"));
}

TEST_F(BusService, PublishesErrorObjectsToo) {
  const ScriptedMethod method(-20);
  EXPECT_EQ(serve("service|" + get_ports).status, 0);
  EXPECT_EQ(
      published(),
      R"(reply|{"jsonrpc":"2.0","id":"ports.Get","error":{"code":-32001,"message":"Unknown Error","data":null}})");
}

TEST_F(BusService, OnlyTheFirstBarSeparates) {
  const ScriptedMethod method;
  serve(R"(service|{"jsonrpc":"2.0","method":"ports.Get","id":"reply","params":{"a":"b|c"}})");
  EXPECT_EQ(method.params(), R"({"a":"b|c"})");
  EXPECT_THAT(published(), testing::StartsWith("reply|"));
}

TEST_F(BusService, ANotificationIsEvaluatedAndNotAnswered) {
  const ScriptedMethod method(0, "[1]");
  const auto seen = serve("service|" + notify_ports);
  EXPECT_EQ(seen.status, 0);
  EXPECT_EQ(method.calls(), 1);
  EXPECT_EQ(published(), "nothing");
  EXPECT_THAT(seen.log, Not(HasSubstr("Sending response")));
}

struct Unserved {
  const char* name;
  std::string frame;
  const char* line;
  int32_t handled = 0;
};

class UnservedFrames : public BusService, public testing::WithParamInterface<Unserved> {};

TEST_P(UnservedFrames, AreNotAnswered) {
  const ScriptedMethod method(GetParam().handled);
  const auto seen = serve(GetParam().frame);
  EXPECT_EQ(seen.status, -1);
  EXPECT_EQ(published(), "nothing");
  EXPECT_EQ(method.calls(), GetParam().handled != 0 ? 1 : 0);
  if (GetParam().line != nullptr) {
    EXPECT_THAT(seen.log, HasLog(Debug, jrpc, GetParam().line));
  }

  const ScriptedMethod working(0, R"(["c1-1"])");
  EXPECT_EQ(serve("service|" + get_ports).status, 0);
  EXPECT_EQ(published(), "reply|" + got_ports);
}

constexpr const char* parse_msg_failed = "[kestro_jrpc_mq_run]: Error parse_msg, rc = -1\n";
constexpr const char* parse_channel_failed = "[kestro_jrpc_mq_run]: Error parse_channel, rc = -1\n";

const Unserved unserved[] = {
    {"Empty", "", nullptr},
    {"NoBar", get_ports, parse_msg_failed},
    {"NothingBehindTheBar", "service|", parse_channel_failed},
    {"NoJson", "service|nonsense", parse_channel_failed},
    {"NoObject", "service|[1]", parse_channel_failed},
    {"NumericId", R"(service|{"jsonrpc":"2.0","method":"ports.Get","id":5})", parse_channel_failed},
    {"WrongVersion", "service|" + no_answer, nullptr},
    {"FailedNotification", "service|" + notify_ports, nullptr, -6},
};
INSTANTIATE_TEST_SUITE_P(BusService, UnservedFrames, testing::ValuesIn(unserved), name_of<Unserved>);

TEST_F(BusService, ReturnsTheStatusOfAFailedReceive) {
  EXPECT_EQ(run(1).status, -46);

  requests_.subscriber.timeout(10);
  const LogLevel quiet(0);
  char* message = nullptr;
  int32_t length = 0;
  EXPECT_EQ(run(0).status, kestro_mq_socket_recv(requests_.subscriber.handle(), &message, &length, 0));
}

TEST_F(BusService, DoesNotWaitWhenToldSo) {
  const ScriptedMethod method;
  EXPECT_EQ(kestro_mq_socket_send(requests_.publisher.handle(), ("service|" + notify_ports).c_str()), 0);
  int32_t readable = -1;
  ASSERT_EQ(kestro_mq_socket_recvfd(requests_.subscriber.handle(), &readable), 0);
  pollfd arrival{.fd = readable, .events = POLLIN, .revents = 0};
  ASSERT_EQ(poll(&arrival, 1, 60'000), 1);
  EXPECT_EQ(run(1).status, 0);
  EXPECT_EQ(method.calls(), 1);
  EXPECT_EQ(run(1).status, -46);
}

TEST_F(BusService, AFailedPublishIsReturned) {
  std::optional<Fault> fault;
  ScriptedMethod method(0, "[1]");
  method.meanwhile([&] { fault.emplace("nn_send", EAGAIN); });
  const auto seen = serve("service|" + get_ports);
  EXPECT_EQ(seen.status, -1);
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_mq_run]: Error mq_send, rc = -1\n"));
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "[kestro_jrpc_mq_pub]: Error mq_send, rc = -1\n"));
  EXPECT_TRUE(method.all_released());
}

TEST_F(BusService, WithoutMemoryForAFrame) {
  const ScriptedMethod method(0, "[1]");
  // The stripped text, the channel and the frame of the answer, in turn.
  const struct {
    int nth;
    const char* line;
    int calls;
  } cases[] = {
      {1, parse_msg_failed, 0}, {2, parse_channel_failed, 0}, {3, "[kestro_jrpc_mq_run]: Error mq_send, rc = -1\n", 1}};
  for (const auto& it : cases) {
    const int before = method.calls();
    EXPECT_EQ(kestro_mq_socket_send(requests_.publisher.handle(), ("service|" + get_ports).c_str()), 0);
    const Fault no_memory("calloc", ENOMEM, it.nth);
    const auto seen = run();
    EXPECT_EQ(seen.status, -1);
    EXPECT_THAT(seen.log, HasLog(Debug, jrpc, it.line));
    EXPECT_EQ(method.calls() - before, it.calls);
  }
  EXPECT_EQ(published(), "nothing");
  EXPECT_TRUE(method.all_released());
}

TEST_F(BusService, NullArguments) {
  int32_t* const in = requests_.subscriber.address_of_handle();
  int32_t* const out = responses_.publisher.address_of_handle();
  const auto seen = outcome_of([&] {
    EXPECT_EQ(kestro_jrpc_mq_run(nullptr, out, scripted_table(), 1), -20);
    EXPECT_EQ(kestro_jrpc_mq_run(in, nullptr, scripted_table(), 1), -20);
    return kestro_jrpc_mq_run(in, out, nullptr, 1);
  });
  EXPECT_EQ(seen.status, -20);
  EXPECT_EQ(count_log_lines(seen.log, Debug, jrpc, "[kestro_jrpc_mq_run]: Null Pointer!\n"), 3);
}

// ---- Stale frames ----

constexpr const char* skipped = "socket busy, skip clear\n";

class Clear : public testing::Test {
 protected:
  // Returns once a frame waits on the subscriber.
  void publish_and_await(const char* frame) {
    EXPECT_EQ(kestro_mq_socket_send(bus_.publisher.handle(), frame), 0);
    int32_t readable = -1;
    ASSERT_EQ(kestro_mq_socket_recvfd(in(), &readable), 0);
    pollfd arrival{.fd = readable, .events = POLLIN, .revents = 0};
    ASSERT_EQ(poll(&arrival, 1, 60'000), 1);
  }
  Outcome clear(int32_t handle) {
    return outcome_of([&] {
      kestro_jrpc_clear_logic_sub_sock(handle);
      return 0;
    });
  }
  [[nodiscard]] int32_t in() const { return bus_.subscriber.handle(); }
  BusPair bus_;
};

TEST_F(Clear, ThrowsAwayWhatWaits) {
  const FdLock lock(in());
  publish_and_await("stale");
  EXPECT_THAT(clear(in()).log, Not(HasLog(Debug, jrpc, skipped)));
  EXPECT_TRUE(lock.is_free());
  EXPECT_EQ(kestro_mq_socket_send(bus_.publisher.handle(), "fresh"), 0);
  EXPECT_EQ(receive(bus_.subscriber), "fresh");
}

TEST_F(Clear, ReceivesTenTimesWithoutWaiting) {
  const FdLock lock(in());
  bus_.subscriber.timeout(-1);  // a receive that waited would not return
  {
    const Fault tenth("nn_recv", EAGAIN, 10);
    clear(in());
    EXPECT_TRUE(tenth.fired());
  }
  const Fault eleventh("nn_recv", EAGAIN, 11);
  clear(in());
  EXPECT_FALSE(eleventh.fired());
}

TEST_F(Clear, AFailedReceiveIsOneOfTheTen) {
  const FdLock lock(in());
  const Fault broken("nn_recv", EBADF, 1);
  publish_and_await("stale");
  clear(in());
  EXPECT_EQ(kestro_mq_socket_send(bus_.publisher.handle(), "fresh"), 0);
  EXPECT_EQ(receive(bus_.subscriber), "fresh");
  EXPECT_TRUE(lock.is_free());
}

TEST_F(Clear, DoesNothingWhileTheLockIsHeld) {
  const FdLock lock(in());
  publish_and_await("kept");
  ASSERT_TRUE(lock.take());
  EXPECT_THAT(clear(in()).log, HasLog(Debug, jrpc, skipped));
  std::thread([&] { EXPECT_THAT(clear(in()).log, HasLog(Debug, jrpc, skipped)); }).join();
  EXPECT_FALSE(lock.is_free()) << "somebody else's lock was released";
  unlock_fd(in());
  EXPECT_EQ(receive(bus_.subscriber), "kept");
}

TEST_F(Clear, DoesNothingWithoutALock) {
  const Fault untouched("nn_recv", EAGAIN);
  EXPECT_THAT(clear(no_socket).log, HasLog(Debug, jrpc, skipped));
  EXPECT_FALSE(untouched.fired());
}

}  // namespace
}  // namespace kestro::test
