#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "kestro_jrpc.h"
#include "kestro_mq.h"
#include "support/bus.hpp"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/fd_lock.hpp"
#include "support/json.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr const char* module = "kestro_jrpc";
constexpr int32_t timeout_before = 12'345;
const std::string awaiting = "[kestro_jrpc_mq_sub_for_notifcation]";

std::string waiting_line(int left) {
  return "DEBG " + awaiting + " Waiting for <m> response, attempts remaining: " + std::to_string(left) + "\n";
}

int32_t timeout_of(int32_t socket) {
  int32_t timeout = 0;
  EXPECT_EQ(kestro_mq_socket_get_timeout(socket, &timeout), 0);
  return timeout;
}

class SubForNotification : public testing::Test {
 protected:
  SubForNotification() { bus.subscriber.timeout(timeout_before); }

  void publish(const std::string& frame) const {
    const LogLevel quiet(0);
    ASSERT_EQ(kestro_mq_socket_send(bus.publisher.handle(), frame.c_str()), 0);
  }
  [[nodiscard]] int32_t socket() const { return bus.subscriber.handle(); }
  int32_t await(json_t** out) const { return kestro_jrpc_mq_sub_for_notifcation(socket(), "m", out); }
  // The frame that waits, or "none".
  [[nodiscard]] std::string next_frame() const {
    char* raw = nullptr;
    int32_t length = 0;
    if (kestro_mq_socket_recv(socket(), &raw, &length, 0) != 0) return "none";
    const Text frame(raw);
    return frame.get();
  }

  BusPair bus;
};

TEST_F(SubForNotification, HandsItOverAndRestoresTheTimeOut) {
  const LogLevel verbose(Verbose);
  const std::string notification = R"({"jsonrpc":"2.0","method":"m","params":{"a":"|"},"id":4})";
  publish("events|" + notification);
  JsonOut out;
  const auto log = stderr_of([&] { EXPECT_EQ(await(out), 0); });
  EXPECT_EQ(out.text(), notification);
  EXPECT_EQ(out.get()->refcount, 1U);
  EXPECT_EQ(timeout_of(socket()), timeout_before);
  EXPECT_THAT(
      log_of(log, module),
      ElementsAre(waiting_line(5), "DEBG " + awaiting + " Recv:\nevents|" + notification + "\n",
                  "DEBG " + awaiting + " Received notification, evaluating method name...\n", "VERB JSON Method: m\n",
                  "DEBG Found correct method \"m\".\n", "DEBG " + awaiting + " JSON Out: " + notification + "\n"));
}

TEST_F(SubForNotification, TheFifthFrameIsTheLast) {
  for (int n = 0; n < 4; ++n) publish(R"(c|{"jsonrpc":"2.0","method":"other"})");
  publish(R"(c|{"jsonrpc":"2.0","method":"m"})");
  JsonOut out;
  const auto log = stderr_of([&] { EXPECT_EQ(await(out), 0); });
  EXPECT_EQ(out.text(), R"({"jsonrpc":"2.0","method":"m"})");
  EXPECT_EQ(count_log_lines(log, Debug, module, waiting_line(1).substr(5)), 1);
  EXPECT_EQ(timeout_of(socket()), timeout_before);
}

TEST_F(SubForNotification, GivesUpAfterFiveFrames) {
  for (int n = 0; n < 5; ++n) publish(R"(c|{"jsonrpc":"2.0","method":"other"})");
  publish(R"(c|{"jsonrpc":"2.0","method":"m"})");
  JsonOut out;
  const auto log = stderr_of([&] { EXPECT_EQ(await(out), -1); });
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(timeout_of(socket()), timeout_before);
  EXPECT_EQ(next_frame(), R"(c|{"jsonrpc":"2.0","method":"m"})");

  std::vector<std::string> lines;
  for (int left = 5; left > 0; --left) {
    lines.insert(lines.end(),
                 {waiting_line(left), "DEBG " + awaiting + " Recv:\nc|{\"jsonrpc\":\"2.0\",\"method\":\"other\"}\n",
                  "DEBG " + awaiting + " Received notification, evaluating method name...\n",
                  "DEBG Found incorrect method \"other\".\n", "DEBG Incorrect notification received. rc = -1\n"});
  }
  lines.emplace_back("DEBG Could not receive expected notification.\n");
  EXPECT_THAT(log_of(log, module), ElementsAreArray(lines));
}

// Receives on a publish socket fail at once.
TEST(SubForNotificationOnADeafSocket, FailedReceivesAreAttempts) {
  BusSocket deaf(KESTRO_MQ_SP_PUB);
  deaf.timeout(timeout_before);
  JsonOut out;
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_jrpc_mq_sub_for_notifcation(deaf.handle(), "m", out), -1); });
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(timeout_of(deaf.handle()), timeout_before);

  std::vector<std::string> lines;
  for (int left = 5; left > 0; --left) {
    lines.push_back(waiting_line(left));
    lines.emplace_back("DEBG Unable to receive an API response from OMAC Service, rc = -1\n");
  }
  lines.emplace_back("DEBG Could not receive expected notification.\n");
  EXPECT_THAT(log_of(log, module), ElementsAreArray(lines));
}

// ---- One frame ----

struct Frame {
  const char* name;
  std::string frame;
  std::vector<std::string> log;  // between the receive and the next attempt
};
void PrintTo(const Frame& row, std::ostream* out) {
  *out << row.name;
}
const std::string evaluating = "DEBG " + awaiting + " Received notification, evaluating method name...\n";
const std::string incorrect = "DEBG Incorrect notification received. rc = -1\n";
const std::string no_version = "DEBG Received invalid JSON-RPC format.\n";
const std::string no_envelope = "DEBG [kestro_connect_parse_msg]: Failed to parse JSON message\n";
const std::string unparsed = "DEBG Unable to parse notification message, rc = -1\n";
const std::string no_json = "ERR! kestro_jrpc_eval_request: Cannot parse JSON data\n";
std::string other(const std::string& method) {
  return "DEBG Found incorrect method \"" + method + "\".\n";
}
std::string method_line(const std::string& method) {
  return "VERB JSON Method: " + method + "\n";
}
const Frame frames[] = {
    {"Empty", "", {no_envelope, unparsed}},
    {"NoEnvelope", R"({"jsonrpc":"2.0","method":"m"})", {no_envelope, unparsed}},
    {"NoJson", "c|{]", {evaluating, no_json, "ERR! error: on line 1: string or '}' expected near ']'\n", incorrect}},
    {"DuplicateKey",
     R"(c|{"jsonrpc":"2.0","method":"m","method":"m"})",
     {evaluating, no_json, "ERR! error: on line 1: duplicate object key near '\"method\"'\n", incorrect}},
    {"NoVersion", R"(c|{"method":"m"})", {evaluating, no_version, other("m"), incorrect}},
    {"NoObject", "c|[]", {evaluating, no_version, other("(null)"), incorrect}},
    {"NumericVersion",
     R"(c|{"jsonrpc":2.0,"method":"m"})",
     {evaluating, "ERR! kestro_jrpc_eval_request: Invalid Request ID\n", other("m"), incorrect}},
    {"OtherVersion",
     R"(c|{"jsonrpc":"2.1","method":"m"})",
     {evaluating, "DEBG Received unsupported JSON-RPC version.\n", other("m"), incorrect}},
    {"NoMethod",
     R"(c|{"jsonrpc":"2.0"})",
     {evaluating, "DEBG [kestro_jrpc_eval_notification]: No JSON method\n", other("(null)"), incorrect}},
    {"NumericMethod",
     R"(c|{"jsonrpc":"2.0","method":1})",
     {evaluating, "DEBG [kestro_jrpc_eval_notification]: Invalid JSON method\n", other("(null)"), incorrect}},
    {"NullMethod",
     R"(c|{"jsonrpc":"2.0","method":null})",
     {evaluating, "DEBG [kestro_jrpc_eval_notification]: Invalid JSON method\n", other("(null)"), incorrect}},
    {"OtherMethod", R"(c|{"jsonrpc":"2.0","method":"mm"})", {evaluating, method_line("mm"), other("mm"), incorrect}},
    {"OtherCase", R"(c|{"jsonrpc":"2.0","method":"M"})", {evaluating, method_line("M"), other("M"), incorrect}},
};

class NotificationFrame : public SubForNotification, public testing::WithParamInterface<Frame> {};
INSTANTIATE_TEST_SUITE_P(Frames, NotificationFrame, testing::ValuesIn(frames),
                         [](const auto& row) { return row.param.name; });

TEST_P(NotificationFrame, IsDroppedAndUsesOneAttempt) {
  const LogLevel verbose(Verbose);
  const std::string wanted = R"({"jsonrpc":"2.0","method":"m"})";
  publish(GetParam().frame);
  publish("c|" + wanted);
  JsonOut out;
  const auto log = stderr_of([&] { EXPECT_EQ(await(out), 0); });
  EXPECT_EQ(out.text(), wanted);

  std::vector<std::string> lines = {waiting_line(5), "DEBG " + awaiting + " Recv:\n" + GetParam().frame + "\n"};
  lines.insert(lines.end(), GetParam().log.begin(), GetParam().log.end());
  lines.insert(lines.end(),
               {waiting_line(4), "DEBG " + awaiting + " Recv:\nc|" + wanted + "\n", evaluating, method_line("m"),
                "DEBG Found correct method \"m\".\n", "DEBG " + awaiting + " JSON Out: " + wanted + "\n"});
  EXPECT_THAT(log_of(log, module), ElementsAreArray(lines));
}

// ---- Time-outs that cannot be read or changed ----

const std::string set_failed =
    "DEBG [kestro_jrpc_mq_sub_for_notifcation]: Error mq_socket_set_timeout for sub, rc = -1\n";

TEST(SubForNotificationOnNoSocket, TheTimeOutCannotBeRead) {
  JsonOut out;
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_jrpc_mq_sub_for_notifcation(-1, "m", out), -1); });
  EXPECT_TRUE(out.empty());
  EXPECT_THAT(log_of(log, module),
              ElementsAre("DEBG [kestro_jrpc_mq_sub_for_notifcation]: Error mq_socket_get_timeout for sub, rc = -1\n"));
}

TEST_F(SubForNotification, WithoutAChangedTimeOutNothingIsReceived) {
  publish(R"(c|{"jsonrpc":"2.0","method":"m"})");
  JsonOut out;
  std::string log;
  {
    const Fault refused("nn_setsockopt", EINVAL);
    log = stderr_of([&] { EXPECT_EQ(await(out), -1); });
    EXPECT_TRUE(refused.fired());
  }
  EXPECT_TRUE(out.empty());
  EXPECT_THAT(log_of(log, module), ElementsAre(set_failed));
  EXPECT_EQ(timeout_of(socket()), timeout_before);
  EXPECT_EQ(next_frame(), R"(c|{"jsonrpc":"2.0","method":"m"})");
}

TEST_F(SubForNotification, AFailedRestoreIsOnlyToldAfterSuccess) {
  publish(R"(c|{"jsonrpc":"2.0","method":"m"})");
  JsonOut out;
  const Fault refused("nn_setsockopt", EINVAL, 2);
  const auto log = stderr_of([&] { EXPECT_EQ(await(out), 0); });
  EXPECT_TRUE(refused.fired());
  EXPECT_FALSE(out.empty());
  const auto lines = log_of(log, module);
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[lines.size() - 2], set_failed);
  EXPECT_EQ(lines.back(), "DEBG " + awaiting + " JSON Out: {\"jsonrpc\":\"2.0\",\"method\":\"m\"}\n");
  EXPECT_EQ(timeout_of(socket()), -1);
}

TEST(SubForNotificationOnADeafSocket, AFailedRestoreIsOnlyToldAfterFailure) {
  const BusSocket deaf(KESTRO_MQ_SP_PUB);
  JsonOut out;
  const Fault refused("nn_setsockopt", EINVAL, 2);
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_jrpc_mq_sub_for_notifcation(deaf.handle(), "m", out), -1); });
  EXPECT_TRUE(refused.fired());
  const auto lines = log_of(log, module);
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[lines.size() - 2], set_failed);
  EXPECT_EQ(lines.back(), "DEBG Could not receive expected notification.\n");
}

TEST_F(SubForNotification, NullArgumentsAreRefused) {
  JsonOut out;
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_mq_sub_for_notifcation(socket(), nullptr, out), -20);
    EXPECT_EQ(kestro_jrpc_mq_sub_for_notifcation(socket(), "m", nullptr), -20);
  });
  EXPECT_TRUE(out.empty());
  const std::string line = "DEBG " + awaiting + ": Null Pointer!\n";
  EXPECT_THAT(log_of(log, module), ElementsAre(line, line));
  EXPECT_EQ(timeout_of(socket()), timeout_before);
}

TEST_F(SubForNotification, TouchesNoLock) {
  const FdLock lock(socket());
  ASSERT_TRUE(lock.take());
  publish(R"(c|{"jsonrpc":"2.0","method":"m"})");
  JsonOut out;
  JsonOut none;
  stderr_of([&] {
    EXPECT_EQ(await(out), 0);
    EXPECT_EQ(kestro_jrpc_mq_sub_for_notifcation(socket(), nullptr, none), -20);
  });
  EXPECT_FALSE(lock.is_free());
}

TEST_F(SubForNotification, IsSilentBelowDebug) {
  const LogLevel info(Info);
  publish(R"(c|{"jsonrpc":"2.0","method":"m"})");
  JsonOut out;
  EXPECT_THAT(stderr_of([&] { EXPECT_EQ(await(out), 0); }), IsEmpty());
}

}  // namespace
}  // namespace kestro::test
