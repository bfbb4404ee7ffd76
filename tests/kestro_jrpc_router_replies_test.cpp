// What the router handles or answers itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kestro_jrpc.h"
#include "support/captured_stderr.hpp"
#include "support/json.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* module = "kestro_jrpc";

// ---- Requests that the router handles itself ----

// What the handlers were called with; what they are to return and leave.
struct Handled {
  std::vector<std::string> calls;
  int32_t status = 0;
  json_t* result = nullptr;
  json_t* err_data = nullptr;
  bool slots_were_null = true;
};
Handled* handled = nullptr;

template <char Name>
int32_t handle(json_t* params, json_t** result, json_t** err_data) {
  handled->calls.push_back(Name + (" " + text_of(params)));
  handled->slots_were_null = *result == nullptr && *err_data == nullptr;
  *result = json_incref(handled->result);
  *err_data = json_incref(handled->err_data);
  return handled->status;
}

kestro_jrpc_mapping_t table[] = {{"first", handle<'a'>},
                                 {"second", handle<'b'>},
                                 {"first", handle<'c'>},
                                 {"beyond", nullptr},
                                 {"after", handle<'d'>}};

class EvalNotification : public testing::Test {
 protected:
  EvalNotification() { handled = &record; }
  ~EvalNotification() override { handled = nullptr; }

  // The status, and the log in `log`.
  int32_t eval(const std::string& request) {
    const Json object = json_of(request);
    int32_t status = 0;
    log = stderr_of([&] { status = kestro_jrpc_router_eval_notification(object.get(), table); });
    EXPECT_EQ(object->refcount, 1U);
    return status;
  }
  const std::string name = "[kestro_jrpc_router_eval_notification]: ";
  Handled record;
  std::string log;
};

TEST_F(EvalNotification, CallsTheFirstHandlerOfTheName) {
  EXPECT_EQ(eval(R"({"jsonrpc":"2.0","method":"first","params":{"a":1}})"), 0);
  EXPECT_EQ(eval(R"({"jsonrpc":"2.0","method":"second"})"), 0);
  EXPECT_EQ(eval(R"({"jsonrpc":"2.0","method":"second","params":{},"transaction_id":"any"})"), 0);
  EXPECT_THAT(record.calls, ElementsAre("a {\"a\":1}", "b null", "b {}"));
  EXPECT_TRUE(record.slots_were_null);
  EXPECT_EQ(log, "");
}

TEST_F(EvalNotification, AMethodWithoutAHandlerIsAWarning) {
  for (const char* method : {"third", "First", "", "beyond", "after"}) {
    EXPECT_EQ(eval(std::string(R"({"jsonrpc":"2.0","method":")") + method + "\"}"), -1) << method;
    EXPECT_THAT(log_of(log, module), ElementsAre("WARN " + name + "No method handler found\n")) << method;
  }
  EXPECT_THAT(record.calls, IsEmpty());
}

// Each request has every flaw that is looked for later, too.
TEST_F(EvalNotification, LooksForFlawsInOrder) {
  const struct {
    const char* request;
    const char* line;
  } rows[] = {
      {R"({"id":1,"params":[]})", "Invalid Request id found in notification\n"},
      {R"({"id":null,"jsonrpc":"2.0","method":"first"})", "Invalid Request id found in notification\n"},
      {R"({"id":{},"jsonrpc":1,"params":[]})", "Invalid Request id found in notification\n"},
      {R"({"params":[]})", "Empty jsonrpc\n"},
      {R"({"jsonrpc":2.0,"params":[]})", "Invalid Request jsonrpc\n"},
      {R"({"jsonrpc":null,"params":[]})", "Invalid Request jsonrpc\n"},
      {R"({"jsonrpc":"2","params":[]})", "Invalid Request jsonrpc version\n"},
      {R"({"jsonrpc":"2.0 ","params":[]})", "Invalid Request jsonrpc version\n"},
      {R"({"jsonrpc":"2.0","params":[]})", "Invalid Request params\n"},
      {R"({"jsonrpc":"2.0","params":null})", "Invalid Request params\n"},
      {R"({"jsonrpc":"2.0","params":"x","method":5})", "Invalid Request params\n"},
      {R"({"jsonrpc":"2.0"})", "No JSON method\n"},
      {R"({"jsonrpc":"2.0","params":{}})", "No JSON method\n"},
      {R"({"jsonrpc":"2.0","method":5})", "Invalid Request method\n"},
      {R"({"jsonrpc":"2.0","method":null})", "Invalid Request method\n"},
      {"[]", "Empty jsonrpc\n"},
  };
  for (const auto& [request, line] : rows) {
    EXPECT_EQ(eval(request), -1) << request;
    EXPECT_THAT(log_of(log, module), ElementsAre("ERR! " + name + line)) << request;
  }
  EXPECT_THAT(record.calls, IsEmpty());
}

TEST_F(EvalNotification, EveryStatusButZeroIsAFailure) {
  for (const int32_t status : {-1, -20, 1, 7}) {
    record.status = status;
    EXPECT_EQ(eval(R"({"jsonrpc":"2.0","method":"first"})"), status);
    EXPECT_THAT(log_of(log, module),
                ElementsAre("ERR! " + name + "Failed method handler, rc = " + std::to_string(status) + "\n"));
  }
}

TEST_F(EvalNotification, WhatTheHandlerLeavesIsReleased) {
  const Json result = json_of("[1]");
  const Json err_data = json_of("{}");
  record.result = result.get();
  record.err_data = err_data.get();
  for (const int32_t status : {0, -4, 4}) {
    record.status = status;
    EXPECT_EQ(eval(R"({"jsonrpc":"2.0","method":"first"})"), status);
    EXPECT_EQ(result->refcount, 1U);
    EXPECT_EQ(err_data->refcount, 1U);
  }
}

TEST_F(EvalNotification, NullArgumentsAreErrors) {
  const Json request = json_of(R"({"jsonrpc":"2.0","method":"first"})");
  log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_router_eval_notification(nullptr, table), -1);
    EXPECT_EQ(kestro_jrpc_router_eval_notification(request.get(), nullptr), -1);
  });
  const std::string line = "ERR! " + name + "NULL pointer!\n";
  EXPECT_THAT(log_of(log, module), ElementsAre(line, line));
  EXPECT_THAT(record.calls, IsEmpty());
}

// ---- The system is busy ----

const std::string lock_name = "[kestro_jrpc_router_create_system_lock_response]: ";
const std::string busy = R"("error":{"code":-32014,"message":"System is busy.","data":null})";

TEST(SystemLockResponse, EchoesTheClientsOwnMembers) {
  const struct {
    const char* request;
    std::string response;
  } rows[] = {
      {R"({"method":"ports.Get","id":"mine"})", R"({"jsonrpc":"2.0","id":"mine",)" + busy + "}"},
      {R"({"id":""})", R"({"jsonrpc":"2.0","id":"",)" + busy + "}"},
      {R"({"transaction_id":12,"id":"mine","jsonrpc":"1.0"})",
       R"({"jsonrpc":"2.0","id":"mine",)" + busy + R"(,"transaction_id":12})"},
      {R"({"id":"mine","transaction_id":1.5})",
       R"({"jsonrpc":"2.0","id":"mine",)" + busy + R"(,"transaction_id":1.5})"},
      {R"({"id":"mine","transaction_id":2.0})",
       R"({"jsonrpc":"2.0","id":"mine",)" + busy + R"(,"transaction_id":2.0})"},
  };
  for (const auto& [text, expected] : rows) {
    const Json request = json_of(text);
    JsonOut response;
    const auto log =
        stderr_of([&] { EXPECT_EQ(kestro_jrpc_router_create_system_lock_response(request.get(), response), 0); });
    EXPECT_EQ(log, "");
    EXPECT_EQ(response.text(), expected);
    EXPECT_EQ(response.get()->refcount, 1U);
    EXPECT_EQ(text_of(request.get()), text);
  }
}

TEST(SystemLockResponse, NeedsATextId) {
  const struct {
    const char* request;
    const char* line;
  } rows[] = {
      {R"({"method":"ports.Get","transaction_id":1})", "No JSON id\n"},
      {"[]", "No JSON id\n"},
      {R"({"id":7})", "Invalid JSON id\n"},
      {R"({"id":7.5})", "Invalid JSON id\n"},
      {R"({"id":null})", "Invalid JSON id\n"},
  };
  for (const auto& [text, line] : rows) {
    const Json request = json_of(text);
    JsonOut response;
    const auto log =
        stderr_of([&] { EXPECT_EQ(kestro_jrpc_router_create_system_lock_response(request.get(), response), -1); });
    EXPECT_THAT(log_of(log, module), ElementsAre("DEBG " + lock_name + line)) << text;
    EXPECT_TRUE(response.empty()) << text;
  }
}

TEST(SystemLockResponse, NullArgumentsAreRefused) {
  const Json request = json_of(R"({"id":"mine"})");
  JsonOut response;
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_router_create_system_lock_response(nullptr, response), -1);
    EXPECT_EQ(kestro_jrpc_router_create_system_lock_response(request.get(), nullptr), -1);
  });
  EXPECT_TRUE(response.empty());
  const std::string line = "DEBG " + lock_name + "NULL pointer!\n";
  EXPECT_THAT(log_of(log, module), ElementsAre(line, line));
}

// ---- No answer came in time ----

TEST(SystemTimeoutResponse, IsMadeFromAnIdAndATransaction) {
  const std::string timed_out = R"("error":{"code":-32005,"message":"Command timed out","data":null}})";
  const struct {
    const char* id;
    int32_t transaction;
    std::string response;
  } rows[] = {
      {"mine", 12, R"({"jsonrpc":"2.0","transaction_id":12,"id":"mine",)" + timed_out},
      {"", 0, R"({"jsonrpc":"2.0","transaction_id":0,"id":"",)" + timed_out},
      {"\u00e4", INT32_MIN, "{\"jsonrpc\":\"2.0\",\"transaction_id\":-2147483648,\"id\":\"\u00e4\"," + timed_out},
  };
  for (const auto& [id, transaction, expected] : rows) {
    JsonOut response;
    int32_t status = 1;
    const auto log = stderr_of([&, own_id = id, own_transaction = transaction] {
      status = kestro_jrpc_router_create_system_timeout_response(own_id, own_transaction, response);
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(log, "");
    EXPECT_EQ(response.text(), expected);
    EXPECT_EQ(response.get()->refcount, 1U);
  }
}

TEST(SystemTimeoutResponse, AnIdThatIsNoTextIsAFailure) {
  JsonOut response;
  EXPECT_EQ(kestro_jrpc_router_create_system_timeout_response("\xff", 1, response), -1);
  EXPECT_TRUE(response.empty());
}

TEST(SystemTimeoutResponse, NullArgumentsAreRefused) {
  JsonOut response;
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_router_create_system_timeout_response(nullptr, 1, response), -1);
    EXPECT_EQ(kestro_jrpc_router_create_system_timeout_response("mine", 1, nullptr), -1);
  });
  EXPECT_TRUE(response.empty());
  const std::string line = "DEBG [kestro_jrpc_router_create_system_timeout_response]: NULL pointer!\n";
  EXPECT_THAT(log_of(log, module), ElementsAre(line, line));
}

}  // namespace
}  // namespace kestro::test
