// The router's rewriting of requests and its two ready-made operations.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "kestro_jrpc.h"
#include "kestro_jrpc/router_request.hpp"
#include "kestro_mq.h"
#include "support/bus.hpp"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"
#include "support/router.hpp"
#include "support/stream.hpp"

namespace kestro::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* module = "kestro_jrpc";

TEST(Channels, HaveTheirNames) {
  EXPECT_EQ(KESTRO_JRPC_CHANNEL_ROUTER_REPLY, reply_channel);
  EXPECT_EQ(KESTRO_JRPC_CHANNEL_3A6F8F51, ports_channel);
  EXPECT_EQ(KESTRO_JRPC_CHANNEL_505A5451, events_channel);
  EXPECT_EQ(KESTRO_JRPC_CHANNEL_DEFAULT, default_channel);
  EXPECT_STREQ(KESTRO_JRPC_CHANNEL_B4469F46, "b4469f46-e963-42ef-9fd2-f978e73adc76");
}

// ---- Rewriting ----

const std::string process = "[kestro_jrpc_router_process_msg]: ";

struct Rewriting {
  explicit Rewriting(const char* message) {
    char garbage = 0;
    char* raw_request = &garbage;
    char* raw_channel = &garbage;
    log = stderr_of([&] { status = kestro_jrpc_router_process_msg(message, &raw_request, &raw_channel); });
    request.reset(raw_request);
    channel.reset(raw_channel);
  }
  int32_t status = 1;
  Text request;
  Text channel;
  std::string log;
};

struct Rewritten {
  const char* name;
  const char* message;
  std::string request;
};
void PrintTo(const Rewritten& row, std::ostream* out) {
  *out << row.name;
}
const std::string new_id = "\"id\":\"" + reply_channel + "\"}";
const Rewritten rewritten[] = {
    {"TextId", R"({"id":"mine","method":"ports.Get"})", R"({"method":"ports.Get",)" + new_id},
    {"IntegerId", R"({"id":7,"method":"ports.Get"})", R"({"method":"ports.Get",)" + new_id},
    {"RealId", R"({"id":7.25,"method":"ports.Get"})", R"({"method":"ports.Get",)" + new_id},
    {"TheReplyChannelItself", R"({"method":"ports.Get","id":"2524546b-ca99-4868-a062-359cefacff7c"})",
     R"({"method":"ports.Get",)" + new_id},
    {"IntegerTransaction", R"({"jsonrpc":"2.0","id":1,"method":"ports.Get","params":{"a":[1, 2]},"transaction_id":12})",
     R"({"jsonrpc":"2.0","method":"ports.Get","params":{"a":[1,2]},"transaction_id":12,)" + new_id},
    {"RealTransaction", R"({"transaction_id":12.5,"method":"ports.Get","id":1})",
     R"({"transaction_id":12.5,"method":"ports.Get",)" + new_id},
    {"NotJudgedHere", R"({"jsonrpc":1,"method":"ports.Get","params":[],"id":1,"transaction_id":"x"})",
     R"({"jsonrpc":1,"method":"ports.Get","params":[],"transaction_id":"x",)" + new_id},
    {"Escaped", "{\"method\":\"ports.Get\",\"id\":1,\"text\":\"\u00e4\"}",
     R"({"method":"ports.Get","text":"\u00E4",)" + new_id},
    {"TextBehind", "{\"method\":\"ports.Get\",\"id\":1}\n{}", R"({"method":"ports.Get",)" + new_id},
};

class RewrittenRequest : public testing::TestWithParam<Rewritten> {};
INSTANTIATE_TEST_SUITE_P(Requests, RewrittenRequest, testing::ValuesIn(rewritten),
                         [](const auto& row) { return row.param.name; });

TEST_P(RewrittenRequest, CarriesTheReplyChannelAsItsId) {
  const Rewriting done(GetParam().message);
  EXPECT_EQ(done.status, 0);
  ASSERT_TRUE(done.request);
  EXPECT_EQ(done.request.get(), GetParam().request);
  EXPECT_STREQ(done.channel.get(), ports_channel.c_str());
  EXPECT_THAT(log_of(done.log, module), IsEmpty());
}

TEST(RewrittenRequestLog, TellsEveryStepAtVerbose) {
  const LogLevel verbose(Verbose);
  const struct {
    const char* id;
    const char* shown;
  } ids[] = {{"\"mine\"", "mine"}, {"7", "7"}, {"7.25", "7.25"}};
  for (const auto& [id, shown] : ids) {
    const std::string message = std::string(R"({"method":"emac.Get","id":)") + id + "}";
    const std::string indented = std::string("{\n    \"method\": \"emac.Get\",\n    \"id\": ") + id + "\n}";
    const std::string request = R"({"method":"emac.Get",)" + new_id;
    const Rewriting done(message.c_str());
    EXPECT_EQ(done.status, 0);
    EXPECT_THAT(log_of(done.log, module),
                ElementsAre("VERB " + process + "[Recv]: " + message + "\n",
                            "VERB Valid JSON received, of length " + std::to_string(indented.size()) + "\n",
                            "VERB JSON Data:\n" + indented + "\n", "VERB JSON Method: emac.Get\n",
                            "VERB channel: " + default_channel + "\n", std::string("VERB JSON ID: ") + shown + "\n",
                            "VERB JSON request sent, of string length " + std::to_string(request.size()) + "\n",
                            "VERB The JSON Request was:\n" + request + "\n"));
  }
}

struct Refused {
  const char* name;
  const char* message;
  bool channel_known;
  std::string log;
};
void PrintTo(const Refused& row, std::ostream* out) {
  *out << row.name;
}
const Refused refused[] = {
    {"NoJson", "\n[1", false, "line: 2, text: ']' expected near end of file\n"},
    {"DuplicateKey", R"({"id":1,"id":2})", false, "line: 1, text: duplicate object key near '\"id\"'\n"},
    {"Array", "[]", false, "Invalid JSON message\n"},
    {"Text", "\"x\"", false, "Invalid JSON message\n"},
    {"NoMethod", R"({"id":1})", false, "No JSON method\n"},
    {"NoMethodNoId", "{}", false, "No JSON method\n"},
    {"NumericMethod", R"({"method":1})", false, "Invalid JSON method\n"},
    {"NullMethod", R"({"method":null,"id":1})", false, "Invalid JSON method\n"},
    {"NoId", R"({"method":"ports.Get"})", true, "No JSON ID\n"},
    {"NullId", R"({"method":"ports.Get","id":null})", true, "Invalid JSON ID\n"},
    {"TrueId", R"({"method":"ports.Get","id":true})", true, "Invalid JSON ID\n"},
    {"ArrayId", R"({"method":"ports.Get","id":[]})", true, "Invalid JSON ID\n"},
};

class RefusedRequest : public testing::TestWithParam<Refused> {};
INSTANTIATE_TEST_SUITE_P(Requests, RefusedRequest, testing::ValuesIn(refused),
                         [](const auto& row) { return row.param.name; });

TEST_P(RefusedRequest, IsToldOnceAtDebug) {
  const Rewriting done(GetParam().message);
  EXPECT_EQ(done.status, -1);
  EXPECT_FALSE(done.request);
  if (GetParam().channel_known) {
    EXPECT_STREQ(done.channel.get(), ports_channel.c_str());
  } else {
    EXPECT_FALSE(done.channel);
  }
  EXPECT_THAT(log_of(done.log, module), ElementsAre("DEBG " + process + GetParam().log));
}

TEST(RefusedRequestArguments, NullsAreRefused) {
  char* text = nullptr;
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_router_process_msg(nullptr, &text, &text), -1);
    EXPECT_EQ(kestro_jrpc_router_process_msg("{}", nullptr, &text), -1);
    EXPECT_EQ(kestro_jrpc_router_process_msg("{}", &text, nullptr), -1);
  });
  const std::string line = "DEBG " + process + "NULL pointer!\n";
  EXPECT_THAT(log_of(log, module), ElementsAre(line, line, line));
}

// ---- Client to bus ----

class Router : public RouterTest {
 protected:
  int32_t socket_to_mq() { return kestro_jrpc_router_socket_to_mq(server.handle(), bus_out(), &connection); }
  int32_t mq_to_socket() { return kestro_jrpc_router_mq_to_socket(bus_in(), &connection); }
};

const std::string publishing = "DEBG [kestro_jrpc_router_socket_to_mq]: Sending response over mq_pub ...\n";

TEST_F(Router, ForwardsARequestAndKeepsTheConnection) {
  StreamClient client(server);
  client.send(R"({"jsonrpc":"2.0","method":"ports.Get","params":{},"id":"mine","transaction_id":4})");
  const auto log = stderr_of([&] { EXPECT_EQ(socket_to_mq(), 0); });
  EXPECT_EQ(next_frame(),
            ports_channel + R"(|{"jsonrpc":"2.0","method":"ports.Get","params":{},"transaction_id":4,)" + new_id);
  EXPECT_GE(connection, 0);
  EXPECT_FALSE(client.closed());
  EXPECT_THAT(log_of(log, module), ElementsAre(publishing));
}

TEST_F(Router, ChoosesTheChannelByTheMethod) {
  const struct {
    const char* method;
    const std::string& channel;
  } rows[] = {{"events.List", events_channel},
              {"ev", events_channel},
              {"ports.Get", ports_channel},
              {"emac.service.CoreSwitchGetTemps", default_channel},
              {"", default_channel}};
  for (const auto& [method, channel] : rows) {
    StreamClient client(server);
    client.send(std::string("{\"method\":\"") + method + "\",\"id\":1}");
    stderr_of([&] { EXPECT_EQ(socket_to_mq(), 0); });
    EXPECT_EQ(next_frame(), channel + "|{\"method\":\"" + method + "\"," + new_id);
    kestro_socket_shutdown(&connection);
  }
}

TEST_F(Router, ReceivesOnce) {
  StreamClient client(server);
  client.send(R"({"method":"ports.Get",)").send("\n\"id\":1}\n");
  stderr_of([&] { EXPECT_EQ(socket_to_mq(), 0); });
  EXPECT_EQ(next_frame(), ports_channel + R"(|{"method":"ports.Get",)" + new_id);

  StreamClient halting(server);
  halting.send(R"({"method":"ports.Get",)");
  const auto log = stderr_of([&] { EXPECT_EQ(socket_to_mq(), -1); });
  EXPECT_THAT(log, HasLog(Debug, module, "[kestro_jrpc_router_socket_to_mq]: router_process_msg: failed\n"));
}

TEST_F(Router, WithoutAClientThereIsNothingToForward) {
  const auto log = stderr_of([&] { EXPECT_EQ(socket_to_mq(), -1); });
  EXPECT_EQ(log, "");
  EXPECT_EQ(connection, -1);
}

TEST_F(Router, AClientThatSendsNothingIsClosed) {
  StreamClient client(server);
  client.finish();
  const auto log = stderr_of([&] { EXPECT_EQ(socket_to_mq(), -1); });
  EXPECT_THAT(log, HasLog(Debug, "kestro_socket", "[kestro_socket_recv]: zero bytes received!\n"));
  EXPECT_THAT(log_of(log, module), IsEmpty());
  EXPECT_TRUE(client.closed());
  EXPECT_EQ(connection, -1);
  EXPECT_TRUE(nothing_published());
}

TEST_F(Router, ARequestThatCannotBeRewrittenIsNotForwarded) {
  for (const auto& each : refused) {
    StreamClient client(server);
    client.send(each.message);
    const auto log = stderr_of([&] { EXPECT_EQ(socket_to_mq(), -1) << each.name; });
    EXPECT_THAT(log_of(log, module),
                ElementsAre("DEBG " + process + each.log,
                            "DEBG [kestro_jrpc_router_socket_to_mq]: router_process_msg: failed\n"));
    EXPECT_TRUE(client.closed()) << each.name;
    EXPECT_EQ(connection, -1) << each.name;
  }
  EXPECT_TRUE(nothing_published());
}

TEST_F(Router, AFailedPublishClosesTheConnection) {
  StreamClient client(server);
  client.send(R"({"method":"ports.Get","id":1})");
  int32_t no_socket = -1;
  const auto log =
      stderr_of([&] { EXPECT_EQ(kestro_jrpc_router_socket_to_mq(server.handle(), &no_socket, &connection), -1); });
  EXPECT_THAT(log_of(log, module), ElementsAre(publishing, "DEBG [kestro_jrpc_mq_pub]: Error mq_send, rc = -1\n",
                                               "DEBG [kestro_jrpc_router_socket_to_mq]: Error mq_pub, rc = -1\n"));
  EXPECT_TRUE(client.closed());
  EXPECT_EQ(connection, -1);
}

TEST_F(Router, NullArgumentsOfTheWayInAreRefused) {
  const StreamClient client(server);
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_router_socket_to_mq(nullptr, bus_out(), &connection), -20);
    EXPECT_EQ(kestro_jrpc_router_socket_to_mq(server.handle(), nullptr, &connection), -20);
    EXPECT_EQ(kestro_jrpc_router_socket_to_mq(server.handle(), bus_out(), nullptr), -20);
  });
  const std::string line = "DEBG [kestro_jrpc_router_socket_to_mq]: NULL pointer!\n";
  EXPECT_THAT(log_of(log, module), ElementsAre(line, line, line));
  // The client still waits to be accepted.
  accept_client();
}

// A request that is blown up with blanks behind it.
std::string request_of(size_t size) {
  std::string request = R"({"method":"ports.Get","id":1})";
  request.resize(size, ' ');
  return request;
}
constexpr size_t buffer_size = 10'000'000;
constexpr int enough = 100'000'000;

TEST_F(Router, AFullBufferIsRefusedAndTheConnectionLeftOpen) {
  StreamClient client(server);
  if (!client.reserve(enough)) GTEST_SKIP() << "a socket may not hold that much here";
  client.send(request_of(buffer_size));
  const auto log = stderr_of([&] { EXPECT_EQ(socket_to_mq(), -21); });
  EXPECT_THAT(log_of(log, module), ElementsAre("ERR! Too many bytes for buffer 10000000\n"));
  EXPECT_GE(connection, 0);
  EXPECT_FALSE(client.closed());
  EXPECT_TRUE(nothing_published());
}

TEST_F(Router, OneByteLessThanTheBufferIsForwarded) {
  StreamClient client(server);
  if (!client.reserve(enough)) GTEST_SKIP() << "a socket may not hold that much here";
  client.send(request_of(buffer_size - 1));
  stderr_of([&] { EXPECT_EQ(socket_to_mq(), 0); });
  EXPECT_EQ(next_frame(), ports_channel + R"(|{"method":"ports.Get",)" + new_id);
  EXPECT_FALSE(client.closed());
}

// ---- Bus to client ----

const std::string returning = "[kestro_jrpc_router_mq_to_socket]: ";

TEST_F(Router, ReturnsTheResponseUnchangedAndCloses) {
  const LogLevel verbose(Verbose);
  StreamClient client(server);
  accept_client();
  const std::string response = "{ \"id\":\"ports.Get\",\"jsonrpc\":\"2.0\", \"result\":\"\u00e4|\" }\n";
  const std::string frame = reply_channel + "|" + response;
  publish(frame);
  const auto log = stderr_of([&] { EXPECT_EQ(mq_to_socket(), 0); });
  EXPECT_EQ(client.received(), response);
  EXPECT_TRUE(client.closed());
  EXPECT_EQ(connection, -1);
  EXPECT_THAT(log_of(log, module),
              ElementsAre("VERB " + returning + "waiting to receive... \n",
                          "VERB " + returning + "mq_recv msg[" + std::to_string(frame.size()) + "]: " + frame + "\n",
                          "VERB " + returning + "parse_msg json_msg[" + std::to_string(response.size()) +
                              "]: " + response + "\n"));
}

TEST_F(Router, ReturnsWhatIsNoJsonJustTheSame) {
  StreamClient client(server);
  accept_client();
  publish("c|no json|at all");
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(mq_to_socket(), 0); }), "");
  EXPECT_EQ(client.received(), "no json|at all");
  EXPECT_TRUE(client.closed());
}

TEST_F(Router, AFailedReceiveClosesTheConnection) {
  StreamClient client(server);
  accept_client();
  bus.subscriber.timeout(1);
  char* frame = nullptr;
  int32_t length = 0;
  int32_t silence = 0;
  stderr_of([&] { silence = kestro_mq_socket_recv(bus.subscriber.handle(), &frame, &length, 0); });
  const auto log = stderr_of([&] { EXPECT_EQ(mq_to_socket(), silence); });
  EXPECT_NE(silence, 0);
  EXPECT_THAT(log_of(log, module), IsEmpty());
  EXPECT_TRUE(client.closed());
  EXPECT_EQ(connection, -1);
}

TEST_F(Router, AnEmptyFrameClosesTheConnection) {
  const LogLevel verbose(Verbose);
  StreamClient client(server);
  accept_client();
  publish("");
  const auto log = stderr_of([&] { EXPECT_EQ(mq_to_socket(), -1); });
  EXPECT_THAT(log_of(log, module), ElementsAre("VERB " + returning + "waiting to receive... \n"));
  EXPECT_EQ(client.received(), "");
  EXPECT_TRUE(client.closed());
  EXPECT_EQ(connection, -1);
}

TEST_F(Router, AFrameWithoutAChannelClosesTheConnection) {
  StreamClient client(server);
  accept_client();
  publish(R"({"jsonrpc":"2.0","id":"ports.Get"})");
  const auto log = stderr_of([&] { EXPECT_EQ(mq_to_socket(), -1); });
  EXPECT_THAT(log_of(log, module), ElementsAre("DEBG [kestro_connect_parse_msg]: Failed to parse JSON message\n",
                                               "DEBG " + returning + "Error parse_msg, rc = -1\n"));
  EXPECT_EQ(client.received(), "");
  EXPECT_TRUE(client.closed());
  EXPECT_EQ(connection, -1);
}

TEST_F(Router, AFailedSendClosesTheConnection) {
  { const StreamClient gone(server); }
  accept_client();
  const int32_t was = connection;
  publish("c|{}");
  const auto log = stderr_of([&] { EXPECT_EQ(mq_to_socket(), -1); });
  EXPECT_THAT(log_of(log, module), ElementsAre("DEBG " + returning + "Error send, rc = -1\n"));
  EXPECT_EQ(connection, -1);
  EXPECT_EQ(fcntl(was, F_GETFD), -1);
}

TEST_F(Router, NullArgumentsOfTheWayOutAreRefused) {
  StreamClient client(server);
  accept_client();
  publish("c|{}");
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_router_mq_to_socket(bus_in(), nullptr), -20);
    EXPECT_EQ(kestro_jrpc_router_mq_to_socket(nullptr, &connection), -20);
  });
  const std::string line = "DEBG " + returning + "Null Pointer!\n";
  EXPECT_THAT(log_of(log, module), ElementsAre(line, line));
  EXPECT_FALSE(client.closed());
  EXPECT_EQ(next_frame(), "c|{}");
}

// ---- There and back ----

int32_t get_ports(json_t* params, json_t** result, json_t** /*err_data*/) {
  *result = json_pack("[O, i]", params, 2);
  return 0;
}

TEST_F(Router, ARequestTravelsToItsServiceAndBack) {
  BusPair answers;
  StreamClient client(server);
  client.send(R"({"jsonrpc":"2.0","method":"ports.Get","params":{"a":1},"id":"mine","transaction_id":12})");
  kestro_jrpc_mapping_t table[] = {{"ports.Get", get_ports}, {nullptr, nullptr}};
  stderr_of([&] {
    EXPECT_EQ(socket_to_mq(), 0);
    EXPECT_EQ(kestro_jrpc_mq_run(bus_in(), answers.publisher.address_of_handle(), table, 0), 0);
    EXPECT_EQ(kestro_jrpc_router_mq_to_socket(answers.subscriber.address_of_handle(), &connection), 0);
  });
  EXPECT_EQ(client.received(), R"({"jsonrpc":"2.0","id":"ports.Get","result":[{"a":1},2],"transaction_id":12})");
  EXPECT_TRUE(client.closed());
}

}  // namespace
}  // namespace kestro::test
