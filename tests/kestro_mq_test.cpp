#include "kestro_mq.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pubsub.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "core/owned.hpp"
#include "kestro_lsyslog.h"
#include "kestro_mq.hpp"
#include "support/bus.hpp"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using namespace std::string_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr int32_t untouched = -77;
constexpr int32_t no_socket = 500'000;
constexpr const char* module = "kestro_mq";

auto has_debug(const std::string& message) {
  return HasLog(Debug, module, message);
}

std::string number(int32_t value) {
  return std::to_string(value);
}

// An address inside the process that nobody else has.
std::string inproc_address() {
  static std::atomic<int> next{0};
  return "inproc://kestro-" + std::to_string(getpid()) + "-" + std::to_string(next++);
}

// Two ends that talk to each other and lose nothing.
struct Pair {
  Pair() {
    int32_t eid = 0;
    EXPECT_EQ(kestro_mq_socket_bind(one.handle(), KESTRO_MQ_TRANSPORT_INPROC, address.c_str(), &eid), 0);
    EXPECT_EQ(kestro_mq_socket_connect(other.handle(), KESTRO_MQ_TRANSPORT_INPROC, address.c_str(), &eid), 0);
    one.timeout(10'000);
    other.timeout(10'000);
  }
  std::string address = inproc_address();
  BusSocket one{KESTRO_MQ_SP_PAIR};
  BusSocket other{KESTRO_MQ_SP_PAIR};
};

struct Received {
  int32_t status = untouched;
  Text block;
  int32_t length = untouched;

  [[nodiscard]] std::string text() const {
    return block ? std::string(block.get(), static_cast<size_t>(length)) : "nothing";
  }
};

Received receive(int32_t socket, int32_t nonblock_enable = 0) {
  Received received;
  char* raw = nullptr;
  received.status = kestro_mq_socket_recv(socket, &raw, &received.length, nonblock_enable);
  received.block.reset(raw);
  return received;
}

int option(int32_t socket, int name) {
  int value = untouched;
  size_t size = sizeof value;
  EXPECT_EQ(nn_getsockopt(socket, NN_SOL_SOCKET, name, &value, &size), 0);
  return value;
}

TEST(Mq, Numbers) {
  EXPECT_EQ(KESTRO_MQ_TRANSPORT_INPROC, 1);
  EXPECT_EQ(KESTRO_MQ_TRANSPORT_IPC, 2);
  EXPECT_EQ(KESTRO_MQ_TRANSPORT_TCP, 3);
  EXPECT_EQ(KESTRO_MQ_SP_ADDR_MAX_LEN, 128);
}

// ---- Opening ----

TEST(MqInit, EveryKindOpensItsProtocol) {
  const struct {
    int32_t sp_type, value;
    int protocol;
  } kinds[] = {{KESTRO_MQ_SP_PAIR, 1, 16}, {KESTRO_MQ_SP_REP, 2, 49},      {KESTRO_MQ_SP_REQ, 3, 48},
               {KESTRO_MQ_SP_PUB, 4, 32},  {KESTRO_MQ_SP_SUB, 5, 33},      {KESTRO_MQ_SP_PULL, 6, 81},
               {KESTRO_MQ_SP_PUSH, 7, 80}, {KESTRO_MQ_SP_SURVEYOR, 8, 98}, {KESTRO_MQ_SP_RESPONDENT, 9, 99},
               {KESTRO_MQ_SP_BUS, 10, 112}};
  for (const auto& kind : kinds) {
    EXPECT_EQ(kind.sp_type, kind.value);
    int32_t socket = untouched;
    const auto log = stderr_of([&] { ASSERT_EQ(kestro_mq_socket_init(kind.sp_type, &socket), 0); });
    EXPECT_EQ(option(socket, NN_PROTOCOL), kind.protocol) << kind.sp_type;
    EXPECT_EQ(option(socket, NN_DOMAIN), 1);
    EXPECT_THAT(log, has_debug("Validating SP type: " + number(kind.sp_type) + "\n"));
    EXPECT_EQ(kestro_mq_socket_close(socket), 0);
  }
}

TEST(MqInit, KindsOutsideTheRangeOpenNothing) {
  for (const int32_t sp_type : {0, 11, -1, 16, INT32_MAX, INT32_MIN}) {
    int32_t socket = untouched;
    const Fault opening("nn_socket", EMFILE);
    const auto log = stderr_of([&] { EXPECT_EQ(kestro_mq_socket_init(sp_type, &socket), -34); });
    EXPECT_EQ(socket, untouched);
    EXPECT_FALSE(opening.fired());
    EXPECT_THAT(log, AllOf(has_debug("Validating SP type: " + number(sp_type) + "\n"),
                           has_debug("FAIL: SP type outside acceptable range [1, 10]\n")));
  }
}

TEST(MqInit, RefusalOfTheBusIsReported) {
  int32_t socket = untouched;
  const auto log = stderr_of([&] {
    const Fault fault("nn_socket", EMFILE);
    EXPECT_EQ(kestro_mq_socket_init(KESTRO_MQ_SP_PUB, &socket), -1);
  });
  EXPECT_EQ(socket, untouched);
  EXPECT_THAT(log, has_debug("nn_socket failed for SP type [4]: Too many open files\n"));
}

TEST(MqInit, OptionsKeepTheirDefaults) {
  const int raw = nn_socket(AF_SP, NN_SUB);
  const BusSocket ours(KESTRO_MQ_SP_SUB);
  for (const int name : {NN_LINGER, NN_SNDBUF, NN_RCVBUF, NN_SNDTIMEO, NN_RCVTIMEO, NN_RECONNECT_IVL,
                         NN_RECONNECT_IVL_MAX, NN_SNDPRIO, NN_RCVPRIO, NN_IPV4ONLY, NN_RCVMAXSIZE, NN_MAXTTL}) {
    EXPECT_EQ(option(ours.handle(), name), option(raw, name)) << name;
  }
  nn_close(raw);
}

// ---- Null arguments ----

TEST(MqArguments, NullIsRefusedAndTold) {
  const BusSocket socket(KESTRO_MQ_SP_SUB);
  const int32_t s = socket.handle();
  const std::string address = inproc_address();
  char* message = nullptr;
  int32_t eid = untouched;
  int32_t length = untouched;
  const struct {
    const char* name;
    std::function<int32_t()> call;
  } calls[] = {
      {"init", [] { return kestro_mq_socket_init(KESTRO_MQ_SP_PUB, nullptr); }},
      {"bind address", [&] { return kestro_mq_socket_bind(s, 1, nullptr, &eid); }},
      {"bind eid", [&] { return kestro_mq_socket_bind(s, 1, address.c_str(), nullptr); }},
      {"connect address", [&] { return kestro_mq_socket_connect(s, 1, nullptr, &eid); }},
      {"connect eid", [&] { return kestro_mq_socket_connect(s, 1, address.c_str(), nullptr); }},
      {"validation", [] { return kestro_mq_validate_tm_type(1, nullptr); }},
      {"recv message", [&] { return kestro_mq_socket_recv(s, nullptr, &length, 1); }},
      {"recv length", [&] { return kestro_mq_socket_recv(s, &message, nullptr, 1); }},
      {"send", [&] { return kestro_mq_socket_send(s, nullptr); }},
      {"send_nonblock", [&] { return kestro_mq_socket_send_nonblock(s, nullptr); }},
      {"freemsg", [] { return kestro_mq_socket_freemsg(nullptr); }},
      {"recvfd", [&] { return kestro_mq_socket_recvfd(s, nullptr); }},
      {"sendfd", [&] { return kestro_mq_socket_sendfd(s, nullptr); }},
      {"subscribe", [&] { return kestro_mq_socket_subscribe(s, nullptr); }},
      {"unsubscribe", [&] { return kestro_mq_socket_unsubscribe(s, nullptr); }},
      {"get_timeout", [&] { return kestro_mq_socket_get_timeout(s, nullptr); }},
  };
  for (const auto& row : calls) {
    const auto log = stderr_of([&] { EXPECT_EQ(row.call(), -20) << row.name; });
    EXPECT_EQ(count_log_lines(log, Debug, module, "NULL pointer!\n"), 1) << row.name;
    EXPECT_THAT(log, Not(HasSubstr("failed"))) << row.name;
  }
  EXPECT_EQ(eid, untouched);
  EXPECT_EQ(length, untouched);
  EXPECT_EQ(message, nullptr);
}

// ---- Addresses ----

struct AddressRow {
  const char* name;
  int32_t transport;
  std::string address;
  int32_t status;
  std::string line;  // empty: none but the first
};

std::string address_of(std::string_view scheme, size_t length) {
  return std::string(scheme) + std::string(length - scheme.size(), 'a');
}

TEST(MqAddress, IsValidatedBeforeTheBusSeesIt) {
  const std::string out_of_range = "FAIL: Transport type outside acceptable range [1, 3]\n";
  const std::string too_long = "FAIL: SP address is too long [129] v/s max 128\n";
  const AddressRow rows[] = {
      {"inproc", 1, "inproc://x", 0, ""},
      {"ipc", 2, "ipc:///tmp/x", 0, ""},
      {"tcp", 3, "tcp://127.0.0.1:1", 0, ""},
      {"scheme alone", 3, "tcp://", 0, ""},
      {"scheme behind other characters", 2, "xxipc://x", 0, ""},
      {"scheme at the end", 1, "tcp://x?inproc://", 0, ""},
      {"another scheme", 3, "ipc:///tmp/x", -34, ""},
      {"inproc for ipc", 2, "inproc://x", -34, ""},
      {"ipc for inproc", 1, "ipc:///tmp/x", -34, ""},
      {"tcp for ipc", 2, "tcp://127.0.0.1:1", -34, ""},
      {"other case", 3, "TCP://127.0.0.1:1", -34, ""},
      {"part of the scheme", 3, "tcp:/", -34, ""},
      {"empty", 1, "", -34, ""},
      {"128 characters", 2, address_of("ipc://", 128), 0, ""},
      {"129 characters", 2, address_of("ipc://", 129), -34, too_long},
      {"129 characters, no transport", 0, address_of("ipc://", 129), -34, too_long},
      {"1000 characters", 1, address_of("inproc://", 1000), -34, "FAIL: SP address is too long [1000] v/s max 128\n"},
      {"transport 0", 0, "inproc://x", -34, out_of_range},
      {"transport 4", 4, "tcp://127.0.0.1:1", -34, out_of_range},
      {"transport -1", -1, "inproc://x", -34, out_of_range},
  };
  for (const auto& row : rows) {
    const auto log =
        stderr_of([&] { EXPECT_EQ(kestro_mq_validate_tm_type(row.transport, row.address.c_str()), row.status); });
    EXPECT_THAT(
        log, has_debug("Validating transport type: " + number(row.transport) + " with sp_addr: " + row.address + "\n"))
        << row.name;
    const auto lines = std::count(log.begin(), log.end(), '\n');
    EXPECT_EQ(lines, row.line.empty() ? 1 : 2) << row.name << "\n" << log;
    if (!row.line.empty()) {
      EXPECT_THAT(log, has_debug(row.line)) << row.name;
    }
  }
}

using AddEndpoint = int32_t (*)(int32_t, int32_t, const char*, int32_t*);

struct Endpoint {
  const char* name;
  AddEndpoint add;

  friend void PrintTo(const Endpoint& row, std::ostream* out) { *out << row.name; }
};

class MqEndpoint : public testing::TestWithParam<Endpoint> {
 protected:
  int32_t add(int32_t transport, const std::string& address) {
    return GetParam().add(socket_.handle(), transport, address.c_str(), &eid_);
  }
  BusSocket socket_{KESTRO_MQ_SP_PAIR};
  int32_t eid_ = untouched;
};

TEST_P(MqEndpoint, RefusedAddressIsNoEndpoint) {
  stderr_of([&] {
    EXPECT_EQ(add(0, inproc_address()), -34);
    EXPECT_EQ(add(4, inproc_address()), -34);
    EXPECT_EQ(add(3, inproc_address()), -34);
    EXPECT_EQ(add(1, address_of("inproc://", 129)), -34);
  });
  EXPECT_EQ(eid_, untouched);
}

TEST_P(MqEndpoint, AddressOf128CharactersReachesTheBus) {
  const auto longest = address_of(inproc_address(), 127);
  const auto one_more = address_of(inproc_address(), 128);
  const auto log = stderr_of([&] {
    EXPECT_EQ(add(1, one_more), -1);
    EXPECT_EQ(eid_, untouched);
    EXPECT_EQ(add(1, longest), 0);
  });
  EXPECT_GT(eid_, 0);
  // It is the bus that refuses it.
  EXPECT_THAT(log, has_debug("nn_bind failed for SP addr [" + one_more + "]: File name too long\n"));
}

TEST_P(MqEndpoint, RefusalOfTheBusIsReportedAsOneOfBind) {
  // The text of the transport is there, but not in front.
  const std::string address = "xxipc:///tmp/x";
  const auto log = stderr_of([&] { EXPECT_EQ(add(2, address), -1); });
  EXPECT_EQ(eid_, untouched);
  EXPECT_THAT(log, has_debug("nn_bind failed for SP addr [" + address + "]: Protocol not supported\n"));
}

TEST_P(MqEndpoint, SocketStaysOpenAfterARefusal) {
  stderr_of([&] {
    EXPECT_EQ(add(2, "xxipc:///tmp/x"), -1);
    EXPECT_EQ(add(1, inproc_address()), 0);
  });
}

TEST_P(MqEndpoint, ClosedSocketIsReported) {
  const std::string address = inproc_address();
  const auto log =
      stderr_of([&] { EXPECT_EQ(GetParam().add(no_socket, KESTRO_MQ_TRANSPORT_INPROC, address.c_str(), &eid_), -1); });
  EXPECT_EQ(eid_, untouched);
  EXPECT_THAT(log, has_debug("nn_bind failed for SP addr [" + address + "]: Bad file descriptor\n"));
}

INSTANTIATE_TEST_SUITE_P(Add, MqEndpoint,
                         testing::Values(Endpoint{"Bind", kestro_mq_socket_bind},
                                         Endpoint{"Connect", kestro_mq_socket_connect}),
                         [](const auto& instance) { return instance.param.name; });

TEST(MqBind, TellsTheEndpoint) {
  const BusSocket socket(KESTRO_MQ_SP_PAIR);
  const auto address = inproc_address();
  int32_t eid = untouched;
  const auto log = stderr_of([&] { ASSERT_EQ(kestro_mq_socket_bind(socket.handle(), 1, address.c_str(), &eid), 0); });
  EXPECT_GT(eid, 0);
  EXPECT_THAT(log, has_debug("nn_bind eid for SP addr [" + address + "]: " + number(eid) + "\n"));
}

TEST(MqConnect, TellsNothingButTheValidation) {
  const BusSocket socket(KESTRO_MQ_SP_PAIR);
  const auto address = inproc_address();
  int32_t eid = untouched;
  const auto log =
      stderr_of([&] { ASSERT_EQ(kestro_mq_socket_connect(socket.handle(), 1, address.c_str(), &eid), 0); });
  EXPECT_GT(eid, 0);
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

// ---- Receiving ----

TEST(MqRecv, MessageIsATextWithAZeroByteBehindIt) {
  const Pair pair;
  ASSERT_EQ(kestro_mq_socket_send(pair.one.handle(), "{\"id\":1}"), 0);
  const auto received = receive(pair.other.handle());
  EXPECT_EQ(received.status, 0);
  EXPECT_EQ(received.length, 8);
  EXPECT_STREQ(received.block.get(), "{\"id\":1}");
}

TEST(MqRecv, ZeroBytesOfTheMessageArrive) {
  const Pair pair;
  const std::string bytes("a\0b\0", 4);
  ASSERT_EQ(nn_send(pair.one.handle(), bytes.data(), bytes.size(), 0), 4);
  const auto received = receive(pair.other.handle());
  EXPECT_EQ(received.status, 0);
  EXPECT_EQ(received.text(), bytes);
  EXPECT_EQ(received.block.get()[4], '\0');
}

TEST(MqRecv, EmptySocketWithoutWaitingIsNoMessage) {
  const BusSocket socket(KESTRO_MQ_SP_PAIR);
  const LogLevel verbose(KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE);
  for (const int32_t nonblock_enable : {1, 2, INT32_MAX}) {
    char old[] = "old";
    char* message = old;
    int32_t length = untouched;
    const auto log =
        stderr_of([&] { EXPECT_EQ(kestro_mq_socket_recv(socket.handle(), &message, &length, nonblock_enable), -46); });
    EXPECT_EQ(message, old);
    EXPECT_EQ(length, untouched);
    EXPECT_THAT(log, HasLog(Verbose, module,
                            "nn_recv no data in mq_socket [" + number(socket.handle()) +
                                "]: Resource temporarily unavailable\n"));
  }
}

TEST(MqRecv, WaitsUpToTheTimeOutOtherwise) {
  BusSocket socket(KESTRO_MQ_SP_PAIR);
  socket.timeout(1);
  for (const int32_t nonblock_enable : {0, -1, INT32_MIN}) {
    Received received;
    const auto log = stderr_of([&] { received = receive(socket.handle(), nonblock_enable); });
    EXPECT_EQ(received.status, -1);
    EXPECT_EQ(received.length, untouched);
    EXPECT_THAT(log, has_debug("nn_recv failed for mq_socket [" + number(socket.handle()) +
                               "]: " + nn_strerror(ETIMEDOUT) + "\n"));
  }
}

TEST(MqRecv, OnlyEagainIsNoMessage) {
  const struct {
    int error;
    int32_t status;
  } rows[] = {{EAGAIN, -46}, {ETIMEDOUT, -1}, {EBADF, -1}, {EINTR, -1}, {ENOTSUP, -1}};
  const BusSocket socket(KESTRO_MQ_SP_PAIR);
  const LogLevel verbose(KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE);
  for (const auto& row : rows) {
    Received received;
    const auto log = stderr_of([&] {
      const Fault fault("nn_recv", row.error);
      received = receive(socket.handle());
    });
    EXPECT_EQ(received.status, row.status) << row.error;
    EXPECT_EQ(received.block, nullptr);
    const bool none = row.status == -46;
    EXPECT_THAT(log, HasLog(none ? Verbose : Debug, module,
                            (none ? "nn_recv no data in mq_socket [" : "nn_recv failed for mq_socket [") +
                                number(socket.handle()) + "]: " + nn_strerror(row.error) + "\n"));
  }
}

TEST(MqRecv, NoMessageIsSilentAtDebug) {
  const BusSocket socket(KESTRO_MQ_SP_PAIR);
  EXPECT_EQ(stderr_of([&] { receive(socket.handle(), 1); }), "");
}

TEST(MqRecv, FailedReleaseOfTheBufferGivesNothing) {
  const Pair pair;
  ASSERT_EQ(kestro_mq_socket_send(pair.one.handle(), "text"), 0);
  Received received;
  const auto log = stderr_of([&] {
    const Fault fault("nn_freemsg", EFAULT);
    received = receive(pair.other.handle());
  });
  EXPECT_EQ(received.status, -1);
  EXPECT_EQ(received.block, nullptr);
  EXPECT_EQ(received.length, untouched);
  EXPECT_THAT(log, has_debug("nn_freemsg failed to free received message: Bad address\n"));
}

TEST(MqRecv, WithoutMemoryForTheCopyNothingIsGiven) {
  const Pair pair;
  ASSERT_EQ(kestro_mq_socket_send(pair.one.handle(), "text"), 0);
  Received received;
  const auto log = stderr_of([&] {
    const Fault malloc_fault("malloc", ENOMEM);
    const Fault calloc_fault("calloc", ENOMEM);
    received = receive(pair.other.handle());
  });
  EXPECT_EQ(received.status, -1);
  EXPECT_EQ(received.block, nullptr);
  EXPECT_EQ(received.length, untouched);
  EXPECT_THAT(
      log, has_debug("nn_recv failed for mq_socket [" + number(pair.other.handle()) + "]: Cannot allocate memory\n"));
}

// ---- Sending ----

struct Sender {
  const char* name;
  int32_t (*send)(int32_t, const char*);
  int refusal;  // of a socket that cannot take a message

  friend void PrintTo(const Sender& row, std::ostream* out) { *out << row.name; }
};

class MqSend : public testing::TestWithParam<Sender> {};

TEST_P(MqSend, TextGoesWithoutItsZeroByte) {
  const Pair pair;
  const LogLevel verbose(KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE);
  // The other end is there only once something has come from it.
  ASSERT_EQ(kestro_mq_socket_send(pair.other.handle(), "hello"), 0);
  ASSERT_EQ(receive(pair.one.handle()).text(), "hello");

  const auto log = stderr_of([&] { EXPECT_EQ(GetParam().send(pair.one.handle(), "a|text"), 0); });
  const auto received = receive(pair.other.handle());
  EXPECT_EQ(received.length, 6);
  EXPECT_EQ(received.text(), "a|text");
  EXPECT_THAT(log, AllOf(HasLog(Verbose, module, "[kestro_mq_socket_send]: message[6]: a|text\n"),
                         HasLog(Verbose, module, "[kestro_mq_socket_send]: sent: 6 out of 6\n")));
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2) << log;
}

TEST_P(MqSend, EmptyTextIsAMessageOfNoBytes) {
  const Pair pair;
  ASSERT_EQ(kestro_mq_socket_send(pair.other.handle(), "hello"), 0);
  ASSERT_EQ(receive(pair.one.handle()).text(), "hello");

  ASSERT_EQ(GetParam().send(pair.one.handle(), ""), 0);
  const auto received = receive(pair.other.handle());
  EXPECT_EQ(received.status, 0);
  EXPECT_EQ(received.length, 0);
  EXPECT_STREQ(received.block.get(), "");
}

TEST_P(MqSend, WithoutABufferNothingIsSent) {
  const BusSocket publisher(KESTRO_MQ_SP_PUB);
  const auto log = stderr_of([&] {
    const Fault fault("nn_allocmsg", ENOMEM);
    const Fault sending("nn_send", EIO);
    EXPECT_EQ(GetParam().send(publisher.handle(), "text"), -1);
    EXPECT_FALSE(sending.fired());
  });
  EXPECT_THAT(log, has_debug("nn_allocmsg failed to allocate buffer for message: Cannot allocate memory\n"));
}

TEST_P(MqSend, FailureIsReportedAndTheBufferReleased) {
  const BusSocket publisher(KESTRO_MQ_SP_PUB);
  const auto log = stderr_of([&] {
    const Fault fault("nn_send", EINTR);
    const Fault release("nn_freemsg", EFAULT);
    EXPECT_EQ(GetParam().send(publisher.handle(), "text"), -1);
    EXPECT_TRUE(release.fired());
  });
  EXPECT_THAT(
      log, has_debug("nn_send failed for mq_socket [" + number(publisher.handle()) + "]: Interrupted system call\n"));
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

TEST_P(MqSend, WaitsOrNotForASocketThatCannotTakeIt) {
  const BusSocket alone(KESTRO_MQ_SP_PUSH);
  const int limit = 1;
  ASSERT_EQ(nn_setsockopt(alone.handle(), NN_SOL_SOCKET, NN_SNDTIMEO, &limit, sizeof limit), 0);
  const auto log = stderr_of([&] { EXPECT_EQ(GetParam().send(alone.handle(), "text"), -1); });
  EXPECT_THAT(log, has_debug("nn_send failed for mq_socket [" + number(alone.handle()) +
                             "]: " + nn_strerror(GetParam().refusal) + "\n"));
}

TEST_P(MqSend, PublisherWithoutSubscribersDropsTheMessage) {
  const BusSocket publisher(KESTRO_MQ_SP_PUB);
  EXPECT_EQ(GetParam().send(publisher.handle(), "text"), 0);
}

INSTANTIATE_TEST_SUITE_P(By, MqSend,
                         testing::Values(Sender{"Send", kestro_mq_socket_send, ETIMEDOUT},
                                         Sender{"SendNonblock", kestro_mq_socket_send_nonblock, EAGAIN}),
                         [](const auto& instance) { return instance.param.name; });

// ---- Endpoints and sockets end ----

TEST(MqShutdown, RemovesOneEndpoint) {
  const BusSocket socket(KESTRO_MQ_SP_PAIR);
  const BusSocket other(KESTRO_MQ_SP_PAIR);
  const auto address = inproc_address();
  int32_t eid = 0;
  int32_t other_eid = 0;
  ASSERT_EQ(kestro_mq_socket_bind(socket.handle(), 1, address.c_str(), &eid), 0);
  EXPECT_EQ(kestro_mq_socket_shutdown(socket.handle(), eid), 0);
  // The address is free again.
  EXPECT_EQ(kestro_mq_socket_bind(other.handle(), 1, address.c_str(), &other_eid), 0);
}

TEST(MqShutdown, UnknownEndpointIsReported) {
  const BusSocket socket(KESTRO_MQ_SP_PAIR);
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_mq_socket_shutdown(socket.handle(), 4711), -1); });
  EXPECT_THAT(log, has_debug("nn_shutdown failed for mq_eid [4711]: Invalid argument\n"));
}

TEST(MqClose, SecondCloseIsAWarningThatAlsoInfoShows) {
  const LogLevel info(KESTRO_LSYSLOG_LOGGING_LEVEL_INFO);
  int32_t socket = 0;
  ASSERT_EQ(kestro_mq_socket_init(KESTRO_MQ_SP_PAIR, &socket), 0);
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(kestro_mq_socket_close(socket), 0); }), "");
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_mq_socket_close(socket), -1); });
  EXPECT_THAT(log,
              HasLog(Warning, module, "nn_close failed for mq_socket [" + number(socket) + "]: Bad file descriptor\n"));
}

TEST(MqTerminate, LeavesSocketsUsable) {
  const Pair pair;
  kestro_mq_socket_terminate();
  ASSERT_EQ(kestro_mq_socket_send(pair.one.handle(), "text"), 0);
  EXPECT_EQ(receive(pair.other.handle()).text(), "text");
}

TEST(MqFreemsg, ReleasesWhatTheBusAllocated) {
  EXPECT_EQ(kestro_mq_socket_freemsg(nn_allocmsg(16, 0)), 0);
}

TEST(MqFreemsg, FailureIsReported) {
  void* const message = nn_allocmsg(16, 0);
  const auto log = stderr_of([&] {
    const Fault fault("nn_freemsg", EFAULT);
    EXPECT_EQ(kestro_mq_socket_freemsg(message), -1);
  });
  EXPECT_THAT(log, has_debug("nn_freemsg failed to free message: Bad address\n"));
}

// ---- Options ----

bool readable(int32_t fd, int limit) {
  pollfd state{.fd = fd, .events = POLLIN, .revents = 0};
  return poll(&state, 1, limit) == 1 && (state.revents & POLLIN) != 0;
}

TEST(MqDescriptors, PollReadableWhenSomethingCanBeReceivedOrSent) {
  const Pair pair;
  int32_t receiving = untouched;
  int32_t sending = untouched;
  ASSERT_EQ(kestro_mq_socket_recvfd(pair.other.handle(), &receiving), 0);
  ASSERT_EQ(kestro_mq_socket_sendfd(pair.one.handle(), &sending), 0);
  EXPECT_EQ(receiving, option(pair.other.handle(), NN_RCVFD));
  EXPECT_EQ(sending, option(pair.one.handle(), NN_SNDFD));

  EXPECT_TRUE(readable(sending, 10'000));
  EXPECT_FALSE(readable(receiving, 0));
  ASSERT_EQ(kestro_mq_socket_send(pair.one.handle(), "text"), 0);
  EXPECT_TRUE(readable(receiving, 10'000));
  EXPECT_EQ(receive(pair.other.handle()).text(), "text");
  EXPECT_FALSE(readable(receiving, 0));
}

TEST(MqTimeout, IsWaitForEverUntilSet) {
  const BusSocket socket(KESTRO_MQ_SP_SUB);
  int32_t timeout = untouched;
  EXPECT_EQ(kestro_mq_socket_get_timeout(socket.handle(), &timeout), 0);
  EXPECT_EQ(timeout, -1);
  for (const int32_t value : {1000, 0, -1, INT32_MAX}) {
    EXPECT_EQ(kestro_mq_socket_set_timeout(socket.handle(), value), 0);
    EXPECT_EQ(kestro_mq_socket_get_timeout(socket.handle(), &timeout), 0);
    EXPECT_EQ(timeout, value);
    EXPECT_EQ(option(socket.handle(), NN_RCVTIMEO), value);
    EXPECT_EQ(option(socket.handle(), NN_SNDTIMEO), -1);
  }
}

// What the subscriber gets of these messages. A publisher drops what it cannot hand on at once: each message is
// followed by marks until one has arrived, and comes again with a mark of its own in case that it was dropped.
class Reception {
 public:
  explicit Reception(const BusPair& bus) : bus_(bus) {}

  std::vector<std::string> of(std::initializer_list<const char*> messages) {
    EXPECT_EQ(kestro_mq_socket_subscribe(bus_.subscriber.handle(), "mark"), 0);
    std::vector<std::string> all;
    for (const char* message : messages) {
      bool arrived = false;
      for (int tries = 0; tries < 20 && !arrived; ++tries) arrived = arrives(message);
      if (arrived) all.emplace_back(message);
    }
    EXPECT_EQ(kestro_mq_socket_unsubscribe(bus_.subscriber.handle(), "mark"), 0);
    return all;
  }

 private:
  bool arrives(const char* message) {
    const std::string mark = "mark" + std::to_string(++marks_);
    bool arrived = false;
    kestro_mq_socket_send(bus_.publisher.handle(), message);
    for (;;) {
      kestro_mq_socket_send(bus_.publisher.handle(), mark.c_str());
      if (!readable(option(bus_.subscriber.handle(), NN_RCVFD), 5)) continue;
      for (auto got = receive(bus_.subscriber.handle(), 1); got.status == 0;
           got = receive(bus_.subscriber.handle(), 1)) {
        if (got.text() == mark) return arrived;
        arrived = arrived || got.text() == message;
      }
    }
  }

  const BusPair& bus_;
  int marks_ = 0;
};

TEST(MqSubscribe, ChannelIsTheBeginningOfAMessage) {
  const LogLevel quiet(KESTRO_LSYSLOG_LOGGING_LEVEL_OFF);
  const BusPair bus;
  Reception reception(bus);
  const int32_t subscriber = bus.subscriber.handle();
  EXPECT_THAT(reception.of({"ch1|a", "ch2|b", "c", ""}), ElementsAre("ch1|a", "ch2|b", "c", ""));  // subscribed to ""

  EXPECT_EQ(kestro_mq_socket_subscribe(subscriber, "ch1"), 0);
  EXPECT_EQ(kestro_mq_socket_unsubscribe(subscriber, ""), 0);
  EXPECT_THAT(reception.of({"ch1|a", "ch2|b", "ch1", "ch10|c", "ch", "xch1|d", "Ch1"}),
              ElementsAre("ch1|a", "ch1", "ch10|c"));

  EXPECT_EQ(kestro_mq_socket_subscribe(subscriber, "ch2"), 0);
  EXPECT_EQ(kestro_mq_socket_unsubscribe(subscriber, "ch1"), 0);
  EXPECT_THAT(reception.of({"ch1|a", "ch2|b"}), ElementsAre("ch2|b"));
}

struct OptionCall {
  const char* name;
  const char* nn_call;
  int32_t (*call)(int32_t socket, int32_t* output);

  friend void PrintTo(const OptionCall& row, std::ostream* out) { *out << row.name; }
};

class MqOption : public testing::TestWithParam<OptionCall> {};

TEST_P(MqOption, FailureIsReportedAndTheOutputUntouched) {
  const auto& row = GetParam();
  const BusSocket socket(KESTRO_MQ_SP_SUB);
  int32_t output = untouched;
  const auto log = stderr_of([&] {
    const Fault fault(row.nn_call, ENOPROTOOPT);
    EXPECT_EQ(row.call(socket.handle(), &output), -1);
  });
  EXPECT_EQ(output, untouched);
  EXPECT_THAT(log, has_debug(row.nn_call + " failed for mq_socket ["s + number(socket.handle()) +
                             "]: Protocol not available\n"));

  const auto closed = stderr_of([&] { EXPECT_EQ(row.call(no_socket, &output), -1); });
  EXPECT_EQ(output, untouched);
  EXPECT_THAT(closed, has_debug(row.nn_call + " failed for mq_socket [500000]: Bad file descriptor\n"s));
}

const OptionCall option_calls[] = {
    {"Recvfd", "nn_getsockopt", kestro_mq_socket_recvfd},
    {"Sendfd", "nn_getsockopt", kestro_mq_socket_sendfd},
    {"GetTimeout", "nn_getsockopt", kestro_mq_socket_get_timeout},
    {"SetTimeout", "nn_setsockopt", [](int32_t socket, int32_t*) { return kestro_mq_socket_set_timeout(socket, 1); }},
    {"Subscribe", "nn_setsockopt", [](int32_t socket, int32_t*) { return kestro_mq_socket_subscribe(socket, "c"); }},
    {"Unsubscribe", "nn_setsockopt",
     [](int32_t socket, int32_t*) { return kestro_mq_socket_unsubscribe(socket, "c"); }},
};

INSTANTIATE_TEST_SUITE_P(Calls, MqOption, testing::ValuesIn(option_calls),
                         [](const auto& instance) { return instance.param.name; });

// ---- Levels ----

TEST(Mq, FailuresAreSilentAtInfo) {
  const LogLevel info(KESTRO_LSYSLOG_LOGGING_LEVEL_INFO);
  const BusSocket socket(KESTRO_MQ_SP_PUB);
  int32_t output = 0;
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_mq_socket_init(0, &output), -34);
    EXPECT_EQ(kestro_mq_socket_bind(socket.handle(), 2, "xxipc://x", &output), -1);
    EXPECT_EQ(kestro_mq_socket_connect(socket.handle(), 0, "ipc://x", &output), -34);
    EXPECT_EQ(receive(socket.handle()).status, -1);
    EXPECT_EQ(kestro_mq_socket_send(no_socket, "text"), -1);
    EXPECT_EQ(kestro_mq_socket_shutdown(socket.handle(), 4711), -1);
    EXPECT_EQ(kestro_mq_socket_freemsg(nullptr), -20);
    EXPECT_EQ(kestro_mq_socket_recvfd(no_socket, &output), -1);
    EXPECT_EQ(kestro_mq_socket_subscribe(socket.handle(), "c"), -1);
  });
  EXPECT_EQ(log, "");
}

}  // namespace
}  // namespace kestro::test
