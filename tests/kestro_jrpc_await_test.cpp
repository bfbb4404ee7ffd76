#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "kestro_jrpc.h"
#include "kestro_jrpc/await.hpp"
#include "kestro_mq.h"
#include "support/bus.hpp"
#include "support/captured_stderr.hpp"
#include "support/fd_lock.hpp"
#include "support/json.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Not;

constexpr const char* module = "kestro_jrpc";
const std::string waiting = "[kestro_jrpc_mq_sub_for_method_with_limit]";

// ---- Attempts by method ----

struct Attempts {
  const char* method;
  int32_t attempts;
};
void PrintTo(const Attempts& row, std::ostream* out) {
  *out << row.method;
}
constexpr Attempts attempts[] = {
    {"ports.Get", 60},
    {"ports.SetEnabled", 60},
    {"ports.SetVlanLocal", 100},
    {"ports.SetVlanAccess", 100},
    {"ports.SetVlanTrunk", 100},
    {"ports.poe.GetInstantPower", 200},
    {"db.ApplyBackup", 200},
    {"omac.service.OltGetMultiRssi", 30},
    {"emac.service.CoreSwitchGetTemps", 30},
    {"cache.ports.GetIpScan", 60},
    {"emac.service.CoreSwitchGetInfo", 30},
    {"emac.service.CoreSwitchConfigure", 30},
    {"network.service.ApplyMgmtVlan", 30},
    {"ports.GetAll", 10},
    {"ports.Ge", 10},
    {"ports.get", 10},
    {" ports.Get", 10},
    {"", 10},
};

class AttemptsOf : public testing::TestWithParam<Attempts> {};
INSTANTIATE_TEST_SUITE_P(Methods, AttemptsOf, testing::ValuesIn(attempts));

// Receives on a publish socket fail at once: each is an attempt, and none waits.
TEST_P(AttemptsOf, AreCountedDownByFailedReceives) {
  const auto [method, expected] = GetParam();
  const BusSocket deaf(KESTRO_MQ_SP_PUB);
  const FdLock lock(deaf.handle());
  ASSERT_TRUE(lock.take());
  JsonOut out;
  const auto log =
      stderr_of([&, name = method] { EXPECT_EQ(kestro_jrpc_mq_sub_for_method(deaf.handle(), name, out), -50); });
  EXPECT_TRUE(out.empty());

  std::vector<std::string> lines;
  for (int32_t left = expected; left > 0; --left) {
    lines.push_back(std::string("DEBG Waiting for API response <") + method +
                    ">, attempts remaining: " + std::to_string(left) + "\n");
    lines.emplace_back("DEBG Unable to receive an API response, rc = -1\n");
  }
  lines.emplace_back("DEBG Could not receive expected API response.\n");
  EXPECT_THAT(log_of(log, module), ElementsAreArray(lines));
}

TEST(SubForMethod, ASilentSocketUsesUpTheAttemptsByItsTimeOut) {
  BusSocket silent(KESTRO_MQ_SP_SUB);
  silent.timeout(1);
  const FdLock lock(silent.handle());
  ASSERT_TRUE(lock.take());
  JsonOut out;
  const auto log =
      stderr_of([&] { EXPECT_EQ(kestro_jrpc_mq_sub_for_method(silent.handle(), "db.ApplyBackup", out), -50); });
  EXPECT_EQ(count_log_lines(log, Debug, module, "Waiting for API response <db.ApplyBackup>, attempts remaining: 200\n"),
            1);
  EXPECT_EQ(count_log_lines(log, Debug, module, "Waiting for API response <db.ApplyBackup>, attempts remaining: 1\n"),
            1);
  EXPECT_EQ(log_of(log, module).size(), 2 * 200 + 1U);
}

// ---- Matching one response ----

struct Match {
  const char* name;
  const char* response;
  int32_t status;
  std::vector<std::string> log;
};
void PrintTo(const Match& row, std::ostream* out) {
  *out << row.name;
}
const std::string found = "DEBG Found correct method \"ports.Get\".\n";
const std::string not_text = "DEBG Given parameter <id> is not a string\n";
const std::string invalid_id = "ERR! kestro_jrpc_eval_request: Invalid Request ID\n";
std::string other(const std::string& method) {
  return "DEBG Found incorrect method \"" + method + "\".\n";
}
const Match matches[] = {
    {"Result", R"({"jsonrpc":"2.0","id":"ports.Get","result":[1,2.5],"transaction_id":3})", 0, {found}},
    {"Error", R"({"jsonrpc":"2.0","id":"ports.Get","error":{"code":-32001,"message":"x","data":null}})", 0, {found}},
    {"OnlyTheTwoMembers", R"({"id":"ports.Get","jsonrpc":"2.0"})", 0, {found}},
    {"OtherId", R"({"jsonrpc":"2.0","id":"ports.Set"})", -1, {other("ports.Set")}},
    {"LongerId", R"({"jsonrpc":"2.0","id":"ports.GetAll"})", -1, {other("ports.GetAll")}},
    {"OtherCase", R"({"jsonrpc":"2.0","id":"Ports.Get"})", -1, {other("Ports.Get")}},
    {"EmptyId", R"({"jsonrpc":"2.0","id":""})", -1, {other("")}},
    {"IntegerId", R"({"jsonrpc":"2.0","id":7})", -1, {not_text, other("(null)")}},
    {"RealId", R"({"jsonrpc":"2.0","id":7.5})", -1, {not_text, other("(null)")}},
    {"NullId", R"({"jsonrpc":"2.0","id":null})", -1, {invalid_id, not_text, other("(null)")}},
    {"TrueId", R"({"jsonrpc":"2.0","id":true})", -1, {invalid_id, not_text, other("(null)")}},
    {"ObjectId", R"({"jsonrpc":"2.0","id":{}})", -1, {invalid_id, not_text, other("(null)")}},
    {"NoId", R"({"jsonrpc":"2.0"})", -1, {not_text, other("(null)")}},
    {"NoVersion", R"({"id":"ports.Get"})", -1, {"DEBG Received invalid JSON-RPC format.\n", other("ports.Get")}},
    {"NumericVersion", R"({"jsonrpc":2.0,"id":"ports.Get"})", -1, {invalid_id, other("ports.Get")}},
    {"OtherVersion",
     R"({"jsonrpc":"1.0","id":"ports.Get"})",
     -1,
     {"DEBG Received unsupported JSON-RPC version.\n", other("ports.Get")}},
    {"EmptyObject", "{}", -1, {"DEBG Received invalid JSON-RPC format.\n", other("(null)")}},
    {"Array", "[]", -1, {"DEBG Received invalid JSON-RPC format.\n", other("(null)")}},
    {"Number", "5", -1, {"DEBG Received invalid JSON-RPC format.\n", other("(null)")}},
    {"NoJson",
     "\n{jsonrpc}",
     -1,
     {"ERR! kestro_jrpc_eval_request: Cannot parse JSON data\n",
      "ERR! error: on line 2: string or '}' expected near 'jsonrpc'\n"}},
    {"EmptyText",
     "",
     -1,
     {"ERR! kestro_jrpc_eval_request: Cannot parse JSON data\n",
      "ERR! error: on line 1: unexpected token near end of file\n"}},
    {"DuplicateKey",
     R"({"jsonrpc":"2.0","id":"ports.Get","id":"ports.Get"})",
     -1,
     {"ERR! kestro_jrpc_eval_request: Cannot parse JSON data\n",
      "ERR! error: on line 1: duplicate object key near '\"id\"'\n"}},
    {"TextBehind", "{\"jsonrpc\":\"2.0\",\"id\":\"ports.Get\"}\n{", 0, {found}},
};

class EvalMethod : public testing::TestWithParam<Match> {};
INSTANTIATE_TEST_SUITE_P(Responses, EvalMethod, testing::ValuesIn(matches),
                         [](const auto& row) { return row.param.name; });

TEST_P(EvalMethod, MatchesByVersionAndId) {
  const auto& row = GetParam();
  JsonOut out;
  int32_t status = 1;
  const auto log = stderr_of([&] { status = kestro_jrpc_eval_method("ports.Get", row.response, out); });
  EXPECT_EQ(status, row.status);
  EXPECT_EQ(out.empty(), row.status != 0);
  EXPECT_THAT(log_of(log, module), ElementsAreArray(row.log));
}

TEST(EvalMethodResult, IsTheWholeObjectAndTheCallersOwn) {
  const std::string response = R"({"jsonrpc":"2.0","id":"m","result":{"a":[1,2.5,null]},"transaction_id":1.5})";
  JsonOut out;
  ASSERT_EQ(kestro_jrpc_eval_method("m", response.c_str(), out), 0);
  EXPECT_EQ(out.text(), response);
  EXPECT_EQ(out.get()->refcount, 1U);
}

TEST(EvalMethodArguments, NullsAreRefused) {
  JsonOut no_method;
  JsonOut no_response;
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_eval_method(nullptr, "{}", no_method), -20);
    EXPECT_EQ(kestro_jrpc_eval_method("m", nullptr, no_response), -20);
    EXPECT_EQ(kestro_jrpc_eval_method("m", "{}", nullptr), -20);
  });
  EXPECT_TRUE(no_method.empty());
  EXPECT_TRUE(no_response.empty());
  const std::string line = "DEBG [kestro_jrpc_eval_method]: Null Pointer!\n";
  EXPECT_THAT(log_of(log, module), ElementsAre(line, line, line));
}

// ---- Waiting for a response ----

// A bus whose subscribe socket has a lock that this thread holds, as after publishing a request.
class SubForMethodOnBus : public testing::Test {
 protected:
  SubForMethodOnBus() { EXPECT_TRUE(lock.take()); }

  void publish(const std::string& frame) const {
    const LogLevel quiet(0);
    ASSERT_EQ(kestro_mq_socket_send(bus.publisher.handle(), frame.c_str()), 0);
  }
  int32_t await(const char* method, json_t** out, int32_t limit) const {
    return kestro_jrpc_mq_sub_for_method_with_limit(bus.subscriber.handle(), method, out, limit);
  }
  // The frame that comes next, or "none".
  [[nodiscard]] std::string next_frame() const {
    const LogLevel quiet(0);
    char* raw = nullptr;
    int32_t length = 0;
    if (kestro_mq_socket_recv(bus.subscriber.handle(), &raw, &length, 0) != 0) return "none";
    const Text frame(raw);
    return frame.get();
  }

  BusPair bus;
  FdLock lock{bus.subscriber.handle()};
};

TEST_F(SubForMethodOnBus, HandsOverTheResponse) {
  const LogLevel verbose(Verbose);
  const std::string response = R"({"jsonrpc":"2.0","id":"m","result":"\u00E4|"})";
  publish("reply|" + response);
  JsonOut out;
  const auto log = stderr_of([&] { EXPECT_EQ(await("m", out, 3), 0); });
  EXPECT_EQ(out.text(), "{\"jsonrpc\":\"2.0\",\"id\":\"m\",\"result\":\"\u00e4|\"}");
  EXPECT_EQ(out.get()->refcount, 1U);
  EXPECT_TRUE(lock.is_free());
  EXPECT_THAT(log_of(log, module),
              ElementsAre("DEBG Waiting for API response <m>, attempts remaining: 3\n",
                          "VERB " + waiting + " Received:\nreply|" + response + "\n",
                          "DEBG " + waiting + " Received API response, evaluating id...\n",
                          "DEBG Found correct method \"m\".\n", "VERB " + waiting + " JSON Out: " + response + "\n"));
}

TEST_F(SubForMethodOnBus, WhatDoesNotMatchUsesOneAttemptEachAndIsDropped) {
  publish(R"(c|{"jsonrpc":"2.0","id":"other"})");
  publish(R"({"jsonrpc":"2.0","id":"m"})");
  publish("");
  publish("c|");
  publish(R"(c|{"jsonrpc":"2.0","id":7})");
  publish(R"(c|{"jsonrpc":"2.0","id":"m","result":1})");
  publish("behind");
  JsonOut out;
  const auto log = stderr_of([&] { EXPECT_EQ(await("m", out, 6), 0); });
  EXPECT_EQ(out.text(), R"({"jsonrpc":"2.0","id":"m","result":1})");
  EXPECT_EQ(next_frame(), "behind");
  EXPECT_TRUE(lock.is_free());
  const std::string evaluating = "DEBG " + waiting + " Received API response, evaluating id...\n";
  const std::string incorrect = "DEBG Incorrect API response received. rc = -1\n";
  const std::string no_envelope = "DEBG [kestro_connect_parse_msg]: Failed to parse JSON message\n";
  const std::string unparsed = "DEBG Unable to parse API response, rc = -1\n";
  EXPECT_THAT(log_of(log, module),
              ElementsAre("DEBG Waiting for API response <m>, attempts remaining: 6\n", evaluating, other("other"),
                          incorrect, "DEBG Waiting for API response <m>, attempts remaining: 5\n", no_envelope,
                          unparsed, "DEBG Waiting for API response <m>, attempts remaining: 4\n", no_envelope, unparsed,
                          "DEBG Waiting for API response <m>, attempts remaining: 3\n", evaluating,
                          "ERR! kestro_jrpc_eval_request: Cannot parse JSON data\n",
                          "ERR! error: on line 1: unexpected token near end of file\n", incorrect,
                          "DEBG Waiting for API response <m>, attempts remaining: 2\n", evaluating, not_text,
                          other("(null)"), incorrect, "DEBG Waiting for API response <m>, attempts remaining: 1\n",
                          evaluating, "DEBG Found correct method \"m\".\n"));
}

TEST_F(SubForMethodOnBus, GivesUpWhenTheAttemptsAreUsedUp) {
  publish(R"(c|{"jsonrpc":"2.0","id":"other"})");
  publish(R"(c|{"jsonrpc":"2.0","id":"other"})");
  publish(R"(c|{"jsonrpc":"2.0","id":"m"})");
  JsonOut out;
  const auto log = stderr_of([&] { EXPECT_EQ(await("m", out, 2), -50); });
  EXPECT_TRUE(out.empty());
  EXPECT_TRUE(lock.is_free());
  EXPECT_THAT(log, HasLog(Debug, module, "Could not receive expected API response.\n"));
  EXPECT_THAT(log, Not(HasLog(Debug, module, "Found correct method \"m\".\n")));
  EXPECT_EQ(next_frame(), R"(c|{"jsonrpc":"2.0","id":"m"})");
}

TEST_F(SubForMethodOnBus, WithoutAttemptsNothingIsReceived) {
  publish(R"(c|{"jsonrpc":"2.0","id":"m"})");
  for (const int32_t limit : {0, -1}) {
    JsonOut out;
    const auto log = stderr_of([&] { EXPECT_EQ(await("m", out, limit), -50); });
    EXPECT_TRUE(out.empty());
    EXPECT_THAT(log_of(log, module), ElementsAre("DEBG Could not receive expected API response.\n"));
    EXPECT_TRUE(lock.is_free());
    ASSERT_TRUE(lock.take());
  }
  EXPECT_EQ(next_frame(), R"(c|{"jsonrpc":"2.0","id":"m"})");
}

TEST_F(SubForMethodOnBus, NullArgumentsReleaseTheLockToo) {
  const std::string line = "DEBG " + waiting + ": Null Pointer!\n";
  const int32_t socket = bus.subscriber.handle();
  JsonOut out;
  const struct {
    const char* name;
    int32_t (*call)(int32_t socket, json_t** out);
  } calls[] = {
      {"method", [](int32_t s, json_t** o) { return kestro_jrpc_mq_sub_for_method(s, nullptr, o); }},
      {"out", [](int32_t s, json_t**) { return kestro_jrpc_mq_sub_for_method(s, "m", nullptr); }},
      {"method, limit",
       [](int32_t s, json_t** o) { return kestro_jrpc_mq_sub_for_method_with_limit(s, nullptr, o, 1); }},
      {"out, limit", [](int32_t s, json_t**) { return kestro_jrpc_mq_sub_for_method_with_limit(s, "m", nullptr, 1); }},
  };
  for (const auto& each : calls) {
    const auto log = stderr_of([&] { EXPECT_EQ(each.call(socket, out), -20) << each.name; });
    EXPECT_THAT(log_of(log, module), ElementsAre(line)) << each.name;
    EXPECT_TRUE(lock.is_free()) << each.name;
    ASSERT_TRUE(lock.take());
  }
  EXPECT_TRUE(out.empty());
}

TEST_F(SubForMethodOnBus, LeavesTheLocksOfOtherSocketsAlone) {
  BusSocket deaf(KESTRO_MQ_SP_PUB);
  const FdLock others(deaf.handle());
  ASSERT_TRUE(others.take());
  JsonOut out;
  stderr_of([&] { EXPECT_EQ(await("m", out, 0), -50); });
  EXPECT_TRUE(lock.is_free());
  EXPECT_FALSE(others.is_free());

  stderr_of([&] { kestro_jrpc_mq_sub_for_method_with_limit(deaf.handle(), "m", out, 1); });
  EXPECT_TRUE(others.is_free());
}

TEST_F(SubForMethodOnBus, HoldsTheLockUntilTheResponseIsThere) {
  ASSERT_EQ(pthread_mutex_unlock(lock.mutex()), 0);
  const LogLevel quiet(0);
  std::promise<void> published;
  JsonOut out;
  int32_t status = 1;
  std::thread waiter([&] {
    EXPECT_EQ(kestro_jrpc_mq_pub_lock(bus.publisher.address_of_handle(), "c", "{}", bus.subscriber.handle()), 0);
    published.set_value();
    status = await("m", out, 5);
  });
  published.get_future().wait();
  EXPECT_FALSE(lock.is_free());
  publish(R"(c|{"jsonrpc":"2.0","id":"other"})");
  EXPECT_FALSE(lock.is_free());
  publish(R"(c|{"jsonrpc":"2.0","id":"m"})");
  waiter.join();
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(lock.is_free());
}

TEST(SubForMethod, NeedsNoRegisteredLock) {
  // A handle that no socket has: no lock, and every receive fails.
  JsonOut out;
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_jrpc_mq_sub_for_method_with_limit(-1, "m", out, 2), -50); });
  EXPECT_EQ(count_log_lines(log, Debug, module, "Unable to receive an API response, rc = -1\n"), 2);
}

// ---- Threads ----

int32_t echo(json_t* params, json_t** result, json_t** /*err_data*/) {
  *result = json_incref(params);
  return 0;
}

TEST(SharedSubscribeSocket, EveryThreadGetsItsOwnAnswer) {
  constexpr int threads = 4;
  constexpr int calls = 40;
  const LogLevel quiet(0);

  // Requests go one way, answers the other.
  BusPair requests;
  BusPair answers;
  requests.subscriber.timeout(20);
  const FdLock lock(answers.subscriber.handle());

  std::atomic<bool> done{false};
  std::thread service([&] {
    kestro_jrpc_mapping_t table[] = {{"echo.Shared", echo}, {nullptr, nullptr}};
    while (!done) {
      kestro_jrpc_mq_run(requests.subscriber.address_of_handle(), answers.publisher.address_of_handle(), table, 0);
    }
  });

  const auto call = [&](const std::string& mine) {
    const std::string request =
        R"({"jsonrpc":"2.0","method":"echo.Shared","id":"reply","params":{"mine":")" + mine + "\"}}";
    ASSERT_EQ(kestro_jrpc_mq_pub_lock(requests.publisher.address_of_handle(), "service", request.c_str(),
                                      answers.subscriber.handle()),
              0);
    JsonOut out;
    ASSERT_EQ(kestro_jrpc_mq_sub_for_method(answers.subscriber.handle(), "echo.Shared", out), 0);
    EXPECT_EQ(out.text(), R"({"jsonrpc":"2.0","id":"echo.Shared","result":{"mine":")" + mine + "\"}}");
  };
  std::vector<std::thread> callers;
  for (int each = 0; each < threads; ++each) {
    callers.emplace_back([&, each] {
      for (int n = 0; n < calls; ++n) call(std::to_string(each) + "." + std::to_string(n));
    });
  }
  for (auto& each : callers) each.join();
  done = true;
  service.join();
  EXPECT_TRUE(lock.is_free());
}

}  // namespace
}  // namespace kestro::test
