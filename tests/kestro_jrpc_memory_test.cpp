// Awaiting and routing while the allocations of JSON values fail, one after the other: every operation ends with a clean
// status, hands nothing out that it did not finish, and leaks nothing (the sanitizers watch).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "kestro_jrpc.h"
#include "kestro_jrpc/router_request.hpp"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/fd_lock.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/router.hpp"
#include "support/scarce_json.hpp"

namespace kestro::test {
namespace {

constexpr const char* module = "kestro_jrpc";

// Runs an operation again and again, failing another allocation each time, until none is left to fail: then it must
// succeed. `check` judges each run by its status. Returns what was logged on the way.
struct Run {
  std::function<void()> prepare;
  std::function<int32_t()> operation;
  std::function<void(int32_t status)> check;
};
std::string exhaust(const Run& run) {
  std::string log;
  bool fired = true;
  for (int nth = 1; fired; ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth));
    run.prepare();
    int32_t status = 1;
    log += stderr_of([&] {
      const ScarceJson scarce(nth);
      status = run.operation();
      fired = scarce.fired();
    });
    if (!fired) {
      EXPECT_EQ(status, 0);
    }
    run.check(status);
    if (testing::Test::HasFailure()) break;
  }
  return log;
}

// No word of these texts is longer than the scanner's first buffer: the JSON library in use does not survive a failure to
// enlarge that one.
const std::string request_text = R"({"jsonrpc":"2.0","method":"ports.Get","params":{"a":[1,2.5]},"id":7})";
const std::string forwarded =
    R"({"jsonrpc":"2.0","method":"ports.Get","params":{"a":[1,2.5]},"id":")" + reply_channel + "\"}";
const std::string response_text = R"({"jsonrpc":"2.0","id":"ports.Get","result":[1]})";

class ScarceMemory : public RouterTest, public testing::WithParamInterface<int32_t> {
 protected:
  void connect() {
    connection = untouched;
    client.emplace(server);
  }
  // The connection is open after a success, else closed.
  void expect_connection(bool open) {
    EXPECT_EQ(client->closed(), !open);
    EXPECT_EQ(connection >= 0, open);
    if (connection >= 0) kestro_socket_shutdown(&connection);
    client.reset();
  }
  // The object was handed over whole, or not at all.
  void expect_out(int32_t status, const std::string& text) {
    EXPECT_TRUE(status == 0 || status == -1) << status;
    EXPECT_EQ(text_of(out), status == 0 ? text : "null");
    json_decref(std::exchange(out, nullptr));
  }
  void expect_published(int32_t status) {
    EXPECT_TRUE(status == 0 || status == -1) << status;
    if (status == 0) {
      EXPECT_EQ(next_frame(), ports_channel + "|" + forwarded);
    }
    EXPECT_TRUE(nothing_published());
  }

  LogLevel level{GetParam()};
  std::optional<StreamClient> client;
  json_t* out = nullptr;
};
INSTANTIATE_TEST_SUITE_P(AtLevel, ScarceMemory, testing::Values(Info, Debug, Verbose));

TEST_P(ScarceMemory, WhileRewriting) {
  char* request = nullptr;
  char* channel = nullptr;
  const auto log =
      exhaust({.prepare = [] {},
               .operation = [&] { return kestro_jrpc_router_process_msg(request_text.c_str(), &request, &channel); },
               .check =
                   [&](int32_t status) {
                     EXPECT_TRUE(status == 0 || status == -1) << status;
                     EXPECT_EQ(request != nullptr ? request : "", status == 0 ? forwarded : "");
                     free(std::exchange(request, nullptr));
                     free(std::exchange(channel, nullptr));
                   }});
  if (GetParam() < Debug) return;
  for (const char* reason : {"Cannot update JSON ID\n", "Cannot re-encode JSON message\n"}) {
    EXPECT_THAT(log, HasLog(Debug, module, std::string("[kestro_jrpc_router_process_msg]: ") + reason));
  }
  if (GetParam() < Verbose) return;
  EXPECT_THAT(log, HasLog(Debug, module, "[kestro_jrpc_router_process_msg]: Cannot print JSON message\n"));
}

TEST_P(ScarceMemory, WhileForwarding) {
  exhaust({.prepare =
               [&] {
                 connect();
                 client->send(request_text);
               },
           .operation = [&] { return kestro_jrpc_router_socket_to_mq(server.handle(), bus_out(), &connection); },
           .check =
               [&](int32_t status) {
                 expect_published(status);
                 expect_connection(status == 0);
               }});
}

TEST_P(ScarceMemory, WhileExtractingARequest) {
  exhaust({.prepare =
               [&] {
                 connect();
                 client->send(request_text + "\n");
               },
           .operation = [&] { return kestro_jrpc_router_socket_extract_request(server.handle(), &connection, &out); },
           .check =
               [&](int32_t status) {
                 expect_out(status, request_text);
                 expect_connection(status == 0);
               }});
}

TEST_P(ScarceMemory, WhileDispatchingARequest) {
  Json request;
  const auto log =
      exhaust({.prepare = [&] { request = json_of(request_text); },
               .operation = [&] { return kestro_jrpc_router_mq_dispatch_request(bus_out(), request.get()); },
               .check = [&](int32_t status) { expect_published(status); }});
  if (GetParam() < Debug) return;
  for (const char* reason : {"Cannot update JSON ID\n", "Cannot re-encode JSON message\n"}) {
    EXPECT_THAT(log, HasLog(Debug, module, std::string("[kestro_jrpc_router_mq_dispatch_request]: ") + reason));
  }
  if (GetParam() < Verbose) return;
  EXPECT_THAT(log, HasLog(Debug, module, "[kestro_jrpc_router_mq_dispatch_request]: Cannot print JSON message\n"));
}

TEST_P(ScarceMemory, WhileExtractingAResponse) {
  exhaust({.prepare = [&] { publish(reply_channel + "|" + response_text); },
           .operation = [&] { return kestro_jrpc_router_mq_extract_response(bus_in(), &out); },
           .check = [&](int32_t status) { expect_out(status, response_text); }});
}

TEST_P(ScarceMemory, WhileDispatchingAResponse) {
  // Long enough for a text that grows to be enlarged several times, also for the name of a member.
  const std::string text = R"({"jsonrpc":"2.0","id":"emac.service.CoreSwitchGetTemps","result":[1,2,3,4,5,6,7],)"
                           R"("transaction_id":4,"a name of some length":"a text of some length","another name":0})";
  const Json response = json_of(text);
  connect();
  accept_client();
  exhaust({.prepare = [] {},
           .operation = [&] { return kestro_jrpc_router_socket_dispatch_response(&connection, response.get()); },
           .check =
               [&](int32_t status) {
                 EXPECT_TRUE(status == 0 || status == -1) << status;
                 EXPECT_EQ(client->received(), status == 0 ? text : "");
                 EXPECT_GE(connection, 0);
               }});
}

TEST_P(ScarceMemory, WhileMakingTheBusyResponse) {
  const Json request = json_of(R"({"id":"mine","transaction_id":4})");
  const auto log = exhaust(
      {.prepare = [] {},
       .operation = [&] { return kestro_jrpc_router_create_system_lock_response(request.get(), &out); },
       .check =
           [&](int32_t status) {
             expect_out(status, R"({"jsonrpc":"2.0","id":"mine","error":{"code":-32014,"message":"System is busy.",)"
                                R"("data":null},"transaction_id":4})");
             EXPECT_EQ(json_object_get(request.get(), "transaction_id")->refcount, 1U);
           }});
  EXPECT_THAT(log, HasLog(Error, module, "kestro_jrpc_eval_request: Failed to add Transaction ID to response\n"));
}

TEST_P(ScarceMemory, WhileMakingTheTimeoutResponse) {
  exhaust({.prepare = [] {},
           .operation = [&] { return kestro_jrpc_router_create_system_timeout_response("mine", 4, &out); },
           .check =
               [&](int32_t status) {
                 expect_out(status, R"({"jsonrpc":"2.0","transaction_id":4,"id":"mine","error":{"code":-32005,)"
                                    R"("message":"Command timed out","data":null}})");
               }});
}

TEST_P(ScarceMemory, WhileMatchingAResponse) {
  exhaust({.prepare = [] {},
           .operation = [&] { return kestro_jrpc_eval_method("ports.Get", response_text.c_str(), &out); },
           .check = [&](int32_t status) { expect_out(status, response_text); }});
}

TEST_P(ScarceMemory, WhileAwaitingAResponse) {
  const FdLock lock(bus.subscriber.handle());
  exhaust({.prepare =
               [&] {
                 publish("c|" + response_text);
                 ASSERT_TRUE(lock.take());
               },
           .operation =
               [&] { return kestro_jrpc_mq_sub_for_method_with_limit(bus.subscriber.handle(), "ports.Get", &out, 1); },
           .check =
               [&](int32_t status) {
                 expect_out(status == -50 ? -1 : status, response_text);
                 EXPECT_TRUE(lock.is_free());
               }});
}

// A notification that is lost to a lack of memory is an attempt; the next one is taken.
TEST_P(ScarceMemory, WhileAwaitingANotification) {
  exhaust({.prepare =
               [&] {
                 publish("c|" + request_text);
                 publish("c|" + request_text);
               },
           .operation = [&] { return kestro_jrpc_mq_sub_for_notifcation(bus.subscriber.handle(), "ports.Get", &out); },
           .check =
               [&](int32_t status) {
                 EXPECT_EQ(status, 0);
                 expect_out(status, request_text);
                 publish("marker");
                 const std::string next = next_frame();
                 if (next != "marker") {
                   EXPECT_EQ(next_frame(), "marker");
                 }
               }});
}

// The library's own allocations: without a channel the request goes nowhere.
TEST_F(RouterTest, WithoutMemoryForTheChannelARequestIsNotForwarded) {
  StreamClient patient(server);
  patient.send(request_text);
  const Fault no_memory("calloc", ENOMEM);
  const auto log =
      stderr_of([&] { EXPECT_EQ(kestro_jrpc_router_socket_to_mq(server.handle(), bus_out(), &connection), -20); });
  EXPECT_TRUE(no_memory.fired());
  EXPECT_THAT(log, HasLog(Debug, module, "[kestro_jrpc_router_socket_to_mq]: Error mq_pub, rc = -20\n"));
  EXPECT_TRUE(patient.closed());
  EXPECT_EQ(connection, -1);
}

}  // namespace
}  // namespace kestro::test
