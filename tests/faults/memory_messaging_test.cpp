// JSON-RPC messaging while memory runs out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "faults/memory.hpp"
#include "kestro_jrpc.h"
#include "kestro_jrpc/envelope.hpp"
#include "kestro_jrpc/evaluate.hpp"
#include "kestro_jrpc/router_request.hpp"
#include "kestro_jrpc_utils.h"
#include "kestro_socket.h"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/stream.hpp"

namespace kestro::test {
namespace {

using testing::HasSubstr;

// No word of the texts that are parsed is longer than the scanner's first buffer: the JSON library in use does not
// survive a failure to enlarge that one.
constexpr const char* request_text = R"({"jsonrpc":"2.0","method":"ports.Get","params":{"a":[1,2.5]},"id":"c7"})";
constexpr const char* response_text = R"({"jsonrpc":"2.0","id":"ports.Get","result":[1]})";

int32_t answer_with_params(json_t* params, json_t** result, json_t** /*err_data*/) {
  *result = json_incref(params);
  return 0;
}
int32_t refuse(json_t* /*params*/, json_t** /*result*/, json_t** err_data) {
  *err_data = kestro_jrpc_utils_simple_error_obj("no such port");
  return -6;
}
kestro_jrpc_mapping_t answering[] = {{"ports.Get", answer_with_params}, {nullptr, nullptr}};
kestro_jrpc_mapping_t refusing[] = {{"ports.Get", refuse}, {nullptr, nullptr}};
kestro_jrpc_mapping_t nothing[] = {{nullptr, nullptr}};

// A response that could not be made turns into an error object; one of those may be missing, but never half.
void evaluate(Trial& trial, kestro_jrpc_mapping_t* table) {
  const LogLevel level(Verbose);
  std::string request = request_text;
  char* raw = nullptr;
  const auto status = trial.call({-1}, [&] { return kestro_jrpc_eval_request(request.data(), table, &raw); });
  const Text response(raw);
  EXPECT_EQ(response != nullptr, status == 0);
  if (response) {
    const Json object = json_of(response.get());
    EXPECT_STREQ(json_string_value(json_object_get(object.get(), "id")), "ports.Get");
  }
}
void answer(Trial& trial) {
  evaluate(trial, answering);
}
void answer_with_an_error(Trial& trial) {
  evaluate(trial, refusing);
}
void find_no_method(Trial& trial) {
  evaluate(trial, nothing);
}

void wrap_and_unwrap(Trial& trial) {
  const LogLevel level(Verbose);
  const Text channel(trial.give([] { return kestro_jrpc_router_extract_channel("ports.Get"); }));
  const Text frame(trial.give([&] { return kestro_jrpc_add_channel("channel", request_text); }));
  if (frame) {
    EXPECT_STREQ(frame.get(), (std::string("channel|") + request_text).c_str());
  }

  const std::string whole = std::string("channel|") + request_text;
  char* raw = nullptr;
  const auto parsed =
      trial.call({-1}, [&] { return kestro_jrpc_parse_msg(whole.c_str(), static_cast<int32_t>(whole.size()), &raw); });
  const Text text(raw);
  EXPECT_STREQ(text.get(), parsed == 0 ? request_text : nullptr);

  const auto found = trial.call({-1}, [&] { return kestro_jrpc_parse_channel(request_text, &raw); });
  const Text reply_channel(raw);
  EXPECT_STREQ(reply_channel.get(), found == 0 ? "c7" : nullptr);
}

void match(Trial& trial) {
  const LogLevel level(Verbose);
  json_t* raw = nullptr;
  const auto status = trial.call({-1}, [&] { return kestro_jrpc_eval_method("ports.Get", response_text, &raw); });
  const Json response(raw);
  EXPECT_EQ(text_of(response.get()), status == 0 ? response_text : "null");
}

void rewrite(Trial& trial) {
  const LogLevel level(Verbose);
  char* raw_request = nullptr;
  char* raw_channel = nullptr;
  const auto status =
      trial.call({-1}, [&] { return kestro_jrpc_router_process_msg(request_text, &raw_request, &raw_channel); });
  const Text request(raw_request);
  const Text channel(raw_channel);
  EXPECT_EQ(request != nullptr, status == 0);
  if (request) {
    EXPECT_THAT(request.get(), HasSubstr(R"("id":")" KESTRO_JRPC_CHANNEL_ROUTER_REPLY));
  }
}

// A request that is not taken in leaves no connection behind.
void take_a_request_in(Trial& trial) {
  const LogLevel level(Verbose);
  StreamServer server;
  StreamClient client(server);
  client.send(std::string(request_text) + "\n");
  int32_t connection = -2;
  json_t* raw = nullptr;
  const auto status =
      trial.call({-1}, [&] { return kestro_jrpc_router_socket_extract_request(server.handle(), &connection, &raw); });
  const Json request(raw);
  EXPECT_EQ(text_of(request.get()), status == 0 ? request_text : "null");
  EXPECT_EQ(connection >= 0, status == 0);
  EXPECT_EQ(client.closed(), status != 0);
  if (connection >= 0) kestro_socket_shutdown(&connection);
}

void send_a_response_out(Trial& trial) {
  const LogLevel level(Verbose);
  StreamServer server;
  StreamClient client(server);
  int32_t connection = -1;
  ASSERT_EQ(kestro_socket_accept(server.handle(), &connection), 0);
  const Json response = json_of(response_text);
  const auto status =
      trial.call({-1}, [&] { return kestro_jrpc_router_socket_dispatch_response(&connection, response.get()); });
  EXPECT_EQ(client.received(), status == 0 ? response_text : "");
  kestro_socket_shutdown(&connection);
}

void serve_a_connection(Trial& trial) {
  const LogLevel level(Verbose);
  StreamServer server;
  StreamClient client(server);
  client.send(request_text);
  const auto status = trial.call({-1}, [&] { return kestro_jrpc_unix_socket_run(server.handle(), answering); });
  const std::string received = client.received();
  EXPECT_EQ(received.empty(), status != 0);
  if (!received.empty()) {
    EXPECT_TRUE(json_is_object(json_of(received).get()));
  }
  EXPECT_TRUE(client.closed());
}

void make_canned_answers(Trial& trial) {
  const LogLevel level(Verbose);
  const Json request = json_of(R"({"id":"mine","transaction_id":4})");
  json_t* raw = nullptr;
  const auto busy =
      trial.call({-1}, [&] { return kestro_jrpc_router_create_system_lock_response(request.get(), &raw); });
  const Json busy_response(raw);
  EXPECT_EQ(busy_response != nullptr, busy == 0);
  const auto late =
      trial.call({-1}, [&] { return kestro_jrpc_router_create_system_timeout_response("mine", 4, &raw); });
  const Json late_response(raw);
  EXPECT_EQ(text_of(late_response.get()),
            late == 0 ? R"({"jsonrpc":"2.0","transaction_id":4,"id":"mine","error":{"code":-32005,)"
                        R"("message":"Command timed out","data":null}})"
                      : "null");
}

void handle_a_notification(Trial& trial) {
  const LogLevel level(Verbose);
  const Json request = json_of(R"({"jsonrpc":"2.0","method":"ports.Get","params":{"a":1}})");
  trial.call({}, [&] { return kestro_jrpc_router_eval_notification(request.get(), answering); });
}

const Ending no_buffer = aborts("malloc 10000000 unsuccessful\n");

INSTANTIATE_TEST_SUITE_P(Messaging, MemoryCampaign,
                         testing::ValuesIn(std::vector<MemoryScenario>{
                             {"Answer", answer},
                             {"AnswerWithAnError", answer_with_an_error},
                             {"FindNoMethod", find_no_method},
                             {"WrapAndUnwrap", wrap_and_unwrap},
                             {"Match", match},
                             {"Rewrite", rewrite},
                             {"TakeARequestIn", take_a_request_in, no_buffer},
                             {"SendAResponseOut", send_a_response_out},
                             {"ServeAConnection", serve_a_connection},
                             {"MakeCannedAnswers", make_canned_answers},
                             {"HandleANotification", handle_a_notification},
                         }),
                         name_of<MemoryScenario>);

}  // namespace
}  // namespace kestro::test
