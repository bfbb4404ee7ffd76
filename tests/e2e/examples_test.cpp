// The example programs as real processes: what a reader copies from them works.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jansson.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "core/owned.hpp"
#include "kestro_jrpc.h"
#include "kestro_mq.h"
#include "support/bus.hpp"
#include "support/process.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

std::string example(const char* name) {
  return std::string(KESTRO_EXAMPLES_DIR) + "/" + name;
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find('\n', at);
    result.push_back(text.substr(at, end - at));
    at = end == std::string::npos ? text.size() : end + 1;
  }
  return result;
}

// Router and service, found by each other.
class Road : public testing::Test {
 protected:
  Road() {
    const bool up = eventually([this] { return call_for_counters().status == 0; });
    if (!up) throw std::runtime_error("the service does not answer");
  }

  struct Answer {
    int status;
    std::string text;
  };
  Answer call(const std::string& request) const {
    Process client({example("call"), socket_, request});
    const int status = client.wait();
    auto text = lines(client.out());
    return {status, text.empty() ? "" : text[0]};
  }
  Answer call_for_counters() const { return call(R"({"jsonrpc":"2.0","method":"ports.GetCounters","id":0})"); }

  TempDir dir_;
  std::string socket_ = dir_.file("router.sock");
  std::string router_address_ = free_bus_address();
  std::string service_address_ = free_bus_address();
  std::string caller_address_ = free_bus_address();
  Process router_{{example("router"), socket_, router_address_, service_address_}};
  Process service_{{example("service"), service_address_, router_address_, caller_address_}};
};

TEST_F(Road, ARequestTravelsAndItsAnswerComesBack) {
  const auto answer =
      call(R"({"jsonrpc":"2.0","method":"ports.Get","params":{"port_id":"c1-1"},"id":7,"transaction_id":12})");
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.text,
            R"({"jsonrpc":"2.0","id":"ports.Get","result":{"port_id":"c1-1","enabled":true},"transaction_id":12})");
}

TEST_F(Road, ErrorDataExplainsTheFailure) {
  EXPECT_EQ(call(R"({"jsonrpc":"2.0","method":"ports.Get","params":{"port_id":"d7"},"id":"x"})").text,
            R"({"jsonrpc":"2.0","id":"ports.Get","error":{"code":-32030,"message":"The given Port ID is invalid.",)"
            R"("data":{"message":"d7 is no port of this unit"}}})");
}

TEST_F(Road, UnknownMethodIsAnswered) {
  EXPECT_EQ(call(R"({"jsonrpc":"2.0","method":"ports.Fly","id":1})").text,
            R"({"jsonrpc":"2.0","id":"ports.Fly","error":{"code":-32601,"message":"Method not found","data":null}})");
}

TEST_F(Road, WhatCannotBeForwardedIsClosedAndTheNextIsServed) {
  const char* const hopeless[] = {
      "{",                                            // no JSON
      "[1,2]",                                        // no object
      R"({"jsonrpc":"2.0","method":"ports.Get"})",    // no id
      R"({"jsonrpc":"2.0","id":1})",                  // no method
      R"({"jsonrpc":"2.0","method":5,"id":1})",       // a method that is no text
      R"({"jsonrpc":"2.0","method":"a","id":true})",  // an id that is neither text nor number
  };
  for (const auto* request : hopeless) EXPECT_EQ(call(request).status, 3) << request;
  EXPECT_EQ(call_for_counters().status, 0);
}

TEST_F(Road, AbsentServiceEndsInAClosedConnection) {
  EXPECT_EQ(call(R"({"jsonrpc":"2.0","method":"events.List","id":1})").status, 3);
  EXPECT_EQ(call_for_counters().status, 0);
}

TEST_F(Road, RequestWithAWrongVersionIsForwardedAndNotAnswered) {
  EXPECT_EQ(call(R"({"jsonrpc":"1.0","method":"ports.Get","id":1})").status, 3);
  EXPECT_EQ(call_for_counters().status, 0);
}

TEST_F(Road, PairOfRequestAndNotification) {
  const auto* const get = R"({"jsonrpc":"2.0","method":"ports.Get","params":{"port_id":"d1"},"id":1})";
  ASSERT_EQ(call(get).status, 0);
  EXPECT_THAT(call_for_counters().text, HasSubstr(R"("d1":1)"));

  // A notification goes onto the bus without the router, which forwards only what wants an answer.
  const BusSocket publisher(KESTRO_MQ_SP_PUB);
  int32_t out = publisher.handle();
  int32_t eid = 0;
  ASSERT_EQ(kestro_mq_socket_bind(out, KESTRO_MQ_TRANSPORT_TCP, caller_address_.c_str(), &eid), 0);
  EXPECT_TRUE(eventually([&] {
    kestro_jrpc_mq_pub(&out, KESTRO_JRPC_CHANNEL_3A6F8F51, R"({"jsonrpc":"2.0","method":"ports.ClearCounters"})");
    return call_for_counters().text.find(R"("d1":0)") != std::string::npos;
  }));
}

TEST_F(Road, LoggerReloadsItsLevel) {
  std::filesystem::create_directories(std::filesystem::path(KESTRO_LSYSLOG_CONF_FILE).parent_path());
  const Finally remove_conf([]() noexcept { std::filesystem::remove(KESTRO_LSYSLOG_CONF_FILE); });
  std::ofstream(KESTRO_LSYSLOG_CONF_FILE) << "[logging_levels]\nservice=info\n";

  EXPECT_EQ(call(R"({"jsonrpc":"2.0","method":"logger.ReloadConf","id":1})").text,
            R"({"jsonrpc":"2.0","id":"logger.ReloadConf","result":0})");
  EXPECT_THAT(service_.err(), HasSubstr("[INFO] [service] Logging level set to info.\n"));
}

TEST_F(Road, ThreadsOfADaemonShareOneSubscribeSocket) {
  Process caller({example("caller"), caller_address_, service_address_, "c1-1", "c1-2", "d1", "c7-7"});
  EXPECT_EQ(caller.wait(), 0);
  EXPECT_THAT(lines(caller.out()), UnorderedElementsAre("c1-1: enabled", "c1-2: enabled", "d1: enabled",
                                                        "c7-7: refused, c7-7 is no port of this unit"));
}

TEST_F(Road, ProcessesEndWhenTold) {
  EXPECT_EQ(service_.terminate(), 0);
  EXPECT_EQ(router_.terminate(), 0);
  EXPECT_FALSE(std::filesystem::exists(socket_));
}

TEST(Pull, EncipheredRequestsAreObeyed) {
  const auto address = free_bus_address();
  Process pull({example("pull"), address});
  BusSocket push(KESTRO_MQ_SP_PUSH);
  push.connect(address);

  // {"jsonrpc":"2.0","method":"console.Show","params":{"text":"hello"}}, letters moved by 13 places.
  const char* const hello = R"(FAKE:{"wfbaecp":"2.0","zrgubq":"pbafbyr.Fubj","cnenzf":{"grkg":"uryyb"}})";
  ASSERT_EQ(kestro_mq_socket_send(push.handle(), "not enciphered"), 0);
  ASSERT_EQ(kestro_mq_socket_send(push.handle(), hello), 0);
  EXPECT_TRUE(eventually([&] { return !pull.out().empty(); }));
  EXPECT_EQ(pull.terminate(), 0);
  EXPECT_EQ(pull.out(), "hello\n");
}

TEST(Usage, IsTold) {
  for (const auto* name : {"service", "router", "call", "caller", "pull"}) {
    Process process({example(name)});
    EXPECT_EQ(process.wait(), 2) << name;
    EXPECT_THAT(process.err(), HasSubstr("usage: ")) << name;
  }
}

TEST(Call, SaysThatNobodyListens) {
  const TempDir dir;
  Process process({example("call"), dir.file("nobody"), "{}"});
  EXPECT_EQ(process.wait(), 4);
  EXPECT_THAT(process.err(), HasSubstr("No such file or directory"));
}

}  // namespace
}  // namespace kestro::test
