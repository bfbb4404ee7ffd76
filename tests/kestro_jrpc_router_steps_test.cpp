// The router's road in four steps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>

#include "kestro_jrpc.h"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/router.hpp"

namespace kestro::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* module = "kestro_jrpc";
const std::string new_id = "\"id\":\"" + reply_channel + "\"}";

// An object that no text can hold.
Json unencodable(const std::string& text) {
  Json value = json_of(text);
  json_object_set_new(value.get(), "text", json_string_nocheck("\xff"));
  return value;
}

// ---- Extract request ----

class ExtractRequest : public RouterTest {
 protected:
  int32_t extract(json_t** request) {
    return kestro_jrpc_router_socket_extract_request(server.handle(), &connection, request);
  }
  const std::string name = "[kestro_jrpc_router_socket_extract_request]: ";
};

TEST_F(ExtractRequest, HandsOverTheObjectAndTheConnection) {
  StreamClient client(server);
  client.send("{\"method\":\"ports.Get\", \"id\":1.5}\n");
  JsonOut request;
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(extract(request), 0); }), "");
  EXPECT_EQ(request.text(), R"({"method":"ports.Get","id":1.5})");
  EXPECT_EQ(request.get()->refcount, 1U);
  EXPECT_GE(connection, 0);
  EXPECT_FALSE(client.closed());
}

TEST_F(ExtractRequest, AnyObjectIsARequestHere) {
  StreamClient client(server);
  client.send("{}\n[");
  JsonOut request;
  EXPECT_EQ(extract(request), 0);
  EXPECT_EQ(request.text(), "{}");
}

TEST_F(ExtractRequest, ReadsUpToTheLineFeed) {
  StreamClient client(server);
  client.send("{\"method\":");
  JsonOut request;
  int32_t status = 1;
  std::thread router([&] { status = extract(request); });
  client.send("\"ports.Get\"}").send("\n");
  router.join();
  EXPECT_EQ(status, 0);
  EXPECT_EQ(request.text(), R"({"method":"ports.Get"})");
}

TEST_F(ExtractRequest, TheEndOfTheStreamEndsALineToo) {
  StreamClient client(server);
  client.send("{\"a\":1}").finish();
  JsonOut request;
  stderr_of([&] { EXPECT_EQ(extract(request), 0); });
  EXPECT_EQ(request.text(), R"({"a":1})");
  EXPECT_FALSE(client.closed());
}

TEST_F(ExtractRequest, RefusedTextsCloseTheConnection) {
  const struct {
    const char* text;
    const char* line;
  } rows[] = {
      {"{\"a\":1,\n", "line: 2, text: string or '}' expected near end of file\n"},
      {"\n", "line: 2, text: unexpected token near end of file\n"},
      {"{\"a\":1,\"a\":1}\n", "line: 1, text: duplicate object key near '\"a\"'\n"},
      {"[1]\n", "Invalid JSON message\n"},
      {"\"{}\"\n", "Invalid JSON message\n"},
      {"null\n", "Invalid JSON message\n"},
  };
  for (const auto& [text, line] : rows) {
    SCOPED_TRACE(text);
    StreamClient client(server);
    client.send(text);
    JsonOut request;
    connection = untouched;
    const auto log = stderr_of([&] { EXPECT_EQ(extract(request), -1); });
    EXPECT_THAT(log_of(log, module), ElementsAre("DEBG " + name + line));
    EXPECT_TRUE(request.empty());
    EXPECT_EQ(connection, -1);
    EXPECT_TRUE(client.closed());
  }
}

TEST_F(ExtractRequest, AClientThatSendsNothingIsClosed) {
  StreamClient client(server);
  client.finish();
  JsonOut request;
  const auto log = stderr_of([&] { EXPECT_EQ(extract(request), -1); });
  EXPECT_THAT(log_of(log, module), ElementsAre("DEBG " + name + "Failed socket_recv, readsize = 0\n"));
  EXPECT_TRUE(request.empty());
  EXPECT_EQ(connection, -1);
  EXPECT_TRUE(client.closed());
}

TEST_F(ExtractRequest, WithoutAClientTheAcceptFails) {
  JsonOut request;
  const auto log = stderr_of([&] { EXPECT_EQ(extract(request), -1); });
  EXPECT_THAT(log_of(log, module), ElementsAre("DEBG " + name + "Failed socket_accept, rc = -1\n"));
  EXPECT_TRUE(request.empty());
  EXPECT_EQ(connection, -1);
}

TEST_F(ExtractRequest, NullArgumentsAreRefused) {
  const StreamClient client(server);
  JsonOut no_server;
  JsonOut no_connection;
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_router_socket_extract_request(nullptr, &connection, no_server), -1);
    EXPECT_EQ(kestro_jrpc_router_socket_extract_request(server.handle(), nullptr, no_connection), -1);
    EXPECT_EQ(extract(nullptr), -1);
  });
  const std::string line = "DEBG " + name + "NULL pointer!\n";
  EXPECT_THAT(log_of(log, module), ElementsAre(line, line, line));
  EXPECT_TRUE(no_server.empty());
  EXPECT_TRUE(no_connection.empty());
  accept_client();
}

// Sends from a thread: the socket does not hold that much.
class LargeRequest : public ExtractRequest {
 protected:
  int32_t extract_text(const std::string& text) {
    std::thread sender([&] { client.send(text); });
    const int32_t status = extract(request);
    sender.join();
    return status;
  }
  StreamClient client{server};
  JsonOut request;
};

TEST_F(LargeRequest, OneByteLessThanTheBufferIsTaken) {
  std::string text = "{\"a\":1}";
  text.resize(9'999'998, ' ');
  EXPECT_EQ(stderr_of([&] { EXPECT_EQ(extract_text(text + "\n"), 0); }), "");
  EXPECT_EQ(request.text(), R"({"a":1})");
  EXPECT_FALSE(client.closed());
}

TEST_F(LargeRequest, AFullBufferIsRefusedAndTheConnectionLeftOpen) {
  std::string text = "{\"a\":1}";
  text.resize(9'999'999, ' ');
  const auto log = stderr_of([&] { EXPECT_EQ(extract_text(text + "\n"), -21); });
  EXPECT_THAT(log, HasLog(Error, "kestro_socket", "overflowed socket read buffer\n"));
  EXPECT_THAT(log_of(log, module), ElementsAre("ERR! Too many bytes for buffer 10000000\n"));
  EXPECT_TRUE(request.empty());
  EXPECT_GE(connection, 0);
  EXPECT_FALSE(client.closed());
}

// ---- Dispatch request ----

class DispatchRequest : public RouterTest {
 protected:
  int32_t dispatch(const Json& request) { return kestro_jrpc_router_mq_dispatch_request(bus_out(), request.get()); }
  const std::string name = "[kestro_jrpc_router_mq_dispatch_request]: ";
  const std::string sending = "DEBG " + name + "Sending response over mq_pub ...\n";
};

TEST_F(DispatchRequest, PublishesWithTheReplyChannelAsId) {
  const struct {
    const char* request;
    std::string frame;
  } rows[] = {
      {R"({"jsonrpc":"2.0","id":"mine","method":"ports.Get","params":{"a":1},"transaction_id":12})",
       ports_channel + R"(|{"jsonrpc":"2.0","method":"ports.Get","params":{"a":1},"transaction_id":12,)"},
      {R"({"id":7,"method":"events.List","transaction_id":1.5})",
       events_channel + R"(|{"method":"events.List","transaction_id":1.5,)"},
      {"{\"id\":7.5,\"method\":\"x\",\"t\":\"\u00e4\"}", default_channel + R"(|{"method":"x","t":"\u00E4",)"},
  };
  for (const auto& [text, frame] : rows) {
    SCOPED_TRACE(text);
    const Json request = json_of(text);
    const auto log = stderr_of([&] { EXPECT_EQ(dispatch(request), 0); });
    EXPECT_EQ(next_frame(), frame + new_id);
    EXPECT_STREQ(json_string_value(json_object_get(request.get(), "id")), reply_channel.c_str());
    EXPECT_EQ(request->refcount, 1U);
    EXPECT_THAT(log_of(log, module), ElementsAre(sending));
  }
}

TEST_F(DispatchRequest, ShowsTheRequestAtVerbose) {
  const LogLevel verbose(Verbose);
  const Json request = json_of(R"({"method":"x","id":1})");
  const auto log = stderr_of([&] { EXPECT_EQ(dispatch(request), 0); });
  const auto lines = log_of(log, module);
  ASSERT_GE(lines.size(), 4U);
  EXPECT_EQ(lines[0], "VERB Valid JSON received, of length 34\n");
  EXPECT_EQ(lines[1], "VERB JSON Data:\n{\n    \"method\": \"x\",\n    \"id\": 1\n}\n");
  EXPECT_EQ(lines[2], "VERB " + name + "JSON Method: x\n");
  EXPECT_EQ(lines[3], sending);
}

TEST_F(DispatchRequest, RefusedRequestsAreNotPublished) {
  const struct {
    const char* request;
    const char* line;
  } rows[] = {
      {"{}", "No JSON method\n"},
      {R"({"id":1})", "No JSON method\n"},
      {R"({"method":5})", "Invalid JSON method\n"},
      {R"({"method":null,"id":1})", "Invalid JSON method\n"},
      {R"({"method":"ports.Get"})", "No JSON ID\n"},
      {R"({"method":"ports.Get","id":null})", "Invalid JSON ID\n"},
      {R"({"method":"ports.Get","id":false})", "Invalid JSON ID\n"},
      {R"({"method":"ports.Get","id":{}})", "Invalid JSON ID\n"},
  };
  for (const auto& [text, line] : rows) {
    SCOPED_TRACE(text);
    const Json request = json_of(text);
    const auto log = stderr_of([&] { EXPECT_EQ(dispatch(request), -1); });
    EXPECT_THAT(log_of(log, module), ElementsAre("DEBG " + name + line));
    EXPECT_EQ(text_of(request.get()), text);
  }
  EXPECT_TRUE(nothing_published());
}

TEST_F(DispatchRequest, AnObjectThatCannotBeShownIsRefusedFirst) {
  const LogLevel verbose(Verbose);
  const Json request = unencodable(R"({"method":1,"id":true})");
  const auto log = stderr_of([&] { EXPECT_EQ(dispatch(request), -1); });
  EXPECT_THAT(log_of(log, module), ElementsAre("DEBG " + name + "Cannot print JSON message\n"));
  EXPECT_TRUE(json_is_true(json_object_get(request.get(), "id")));
  EXPECT_TRUE(nothing_published());
}

TEST_F(DispatchRequest, AnObjectThatNoTextCanHoldIsNotPublished) {
  const Json request = unencodable(R"({"method":"ports.Get","id":1})");
  const auto log = stderr_of([&] { EXPECT_EQ(dispatch(request), -1); });
  EXPECT_THAT(log_of(log, module), ElementsAre("DEBG " + name + "Cannot re-encode JSON message\n"));
  EXPECT_TRUE(nothing_published());
}

TEST_F(DispatchRequest, TheChannelIsLookedUpBeforeTheIdIsChecked) {
  const Json request = json_of(R"({"method":"ports.Get"})");
  const Fault no_memory("calloc", ENOMEM);
  const auto log = stderr_of([&] { EXPECT_EQ(dispatch(request), -1); });
  EXPECT_TRUE(no_memory.fired());
  EXPECT_THAT(log_of(log, module), ElementsAre("DEBG " + name + "No JSON uuid\n"));
}

TEST_F(DispatchRequest, AFailedPublishIsReturned) {
  const Json request = json_of(R"({"method":"ports.Get","id":1})");
  int32_t no_socket = -1;
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_jrpc_router_mq_dispatch_request(&no_socket, request.get()), -1); });
  EXPECT_THAT(log_of(log, module), ElementsAre(sending, "DEBG [kestro_jrpc_mq_pub]: Error mq_send, rc = -1\n",
                                               "DEBG " + name + "Error mq_pub, rc = -1\n"));
}

TEST_F(DispatchRequest, NullArgumentsAreRefused) {
  const Json request = json_of(R"({"method":"ports.Get","id":1})");
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_router_mq_dispatch_request(nullptr, request.get()), -1);
    EXPECT_EQ(kestro_jrpc_router_mq_dispatch_request(bus_out(), nullptr), -1);
  });
  const std::string line = "DEBG " + name + "NULL pointer!\n";
  EXPECT_THAT(log_of(log, module), ElementsAre(line, line));
}

// ---- Extract response ----

class ExtractResponse : public RouterTest {
 protected:
  int32_t extract(json_t** response) { return kestro_jrpc_router_mq_extract_response(bus_in(), response); }
  const std::string name = "[kestro_jrpc_router_mq_extract_response]: ";
  const std::string waiting = "DEBG " + name + "waiting to receive...\n";
};

TEST_F(ExtractResponse, HandsOverTheObject) {
  publish(reply_channel + "|{\"jsonrpc\":\"2.0\", \"result\":\"|\"}\n");
  JsonOut response;
  const auto log = stderr_of([&] { EXPECT_EQ(extract(response), 0); });
  EXPECT_EQ(response.text(), R"({"jsonrpc":"2.0","result":"|"})");
  EXPECT_EQ(response.get()->refcount, 1U);
  EXPECT_THAT(log_of(log, module),
              ElementsAre(waiting, "DEBG " + name + "Recv: {\"jsonrpc\":\"2.0\", \"result\":\"|\"}\n\n"));
}

TEST_F(ExtractResponse, RefusesOtherFrames) {
  const std::string no_envelope = "DEBG [kestro_connect_parse_msg]: Failed to parse JSON message\n";
  const std::string unparsed = "DEBG " + name + "Error parse_msg, rc = -1\n";
  const struct {
    const char* frame;
    std::string first;
    std::string second;
  } rows[] = {
      {"", no_envelope, unparsed},
      {"{}", no_envelope, unparsed},
      {"c|", "DEBG " + name + "Recv: \n", "DEBG " + name + "line: 1, text: unexpected token near end of file\n"},
      {"c|{]", "DEBG " + name + "Recv: {]\n", "DEBG " + name + "line: 1, text: string or '}' expected near ']'\n"},
      {"c|[]", "DEBG " + name + "Recv: []\n", "DEBG " + name + "Invalid JSON message\n"},
      {"c|7", "DEBG " + name + "Recv: 7\n", "DEBG " + name + "Invalid JSON message\n"},
  };
  for (const auto& [frame, first, second] : rows) {
    SCOPED_TRACE(frame);
    publish(frame);
    JsonOut response;
    const auto log = stderr_of([&] { EXPECT_EQ(extract(response), -1); });
    EXPECT_TRUE(response.empty());
    EXPECT_THAT(log_of(log, module), ElementsAre(waiting, first, second));
  }
}

TEST_F(ExtractResponse, AFailedReceiveIsAFailure) {
  int32_t no_socket = -1;
  JsonOut response;
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_jrpc_router_mq_extract_response(&no_socket, response), -1); });
  EXPECT_TRUE(response.empty());
  EXPECT_THAT(log_of(log, module), ElementsAre(waiting, "DEBG " + name + "Failed mq_socket_recv, rc = -1\n"));

  bus.subscriber.timeout(1);
  JsonOut none;
  stderr_of([&] { EXPECT_EQ(extract(none), -1); });
  EXPECT_TRUE(none.empty());
}

TEST_F(ExtractResponse, NullArgumentsAreRefused) {
  publish("c|{}");
  JsonOut response;
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_router_mq_extract_response(nullptr, response), -1);
    EXPECT_EQ(extract(nullptr), -1);
  });
  const std::string line = "DEBG " + name + "NULL pointer!\n";
  EXPECT_THAT(log_of(log, module), ElementsAre(line, line));
  EXPECT_TRUE(response.empty());
  EXPECT_EQ(next_frame(), "c|{}");
}

// ---- Dispatch response ----

class DispatchResponse : public RouterTest {
 protected:
  int32_t dispatch(json_t* response) { return kestro_jrpc_router_socket_dispatch_response(&connection, response); }
  const std::string name = "[kestro_jrpc_router_socket_dispatch_response]: ";
  const std::string sending = "DEBG " + name + "Sending response over socket ...\n";
};

TEST_F(DispatchResponse, SendsTheCompactTextAndLeavesTheConnectionOpen) {
  const LogLevel verbose(Verbose);
  StreamClient client(server);
  accept_client();
  const Json response = json_of("{\"jsonrpc\": \"2.0\", \"id\": \"\u00e4\", \"result\": [1, 2.5]}");
  const std::string text = R"({"jsonrpc":"2.0","id":"\u00E4","result":[1,2.5]})";
  const auto log = stderr_of([&] { EXPECT_EQ(dispatch(response.get()), 0); });
  EXPECT_EQ(client.received(), text);
  EXPECT_FALSE(client.closed());
  EXPECT_GE(connection, 0);
  EXPECT_EQ(response->refcount, 1U);
  EXPECT_THAT(log_of(log, module),
              ElementsAre("DEBG JSON response sent, of string length " + std::to_string(text.size()) + "\n",
                          "VERB The JSON Request was:\n" + text + "\n", sending));
}

TEST_F(DispatchResponse, WhatNoTextCanHoldIsNotSent) {
  StreamClient client(server);
  accept_client();
  const Json broken = unencodable("{}");
  const Json number = json_of("7");
  for (auto* const response : {broken.get(), number.get()}) {
    const auto log = stderr_of([&] { EXPECT_EQ(dispatch(response), -1); });
    EXPECT_THAT(log_of(log, module), ElementsAre("DEBG " + name + "Cannot decode JSON message\n"));
  }
  EXPECT_EQ(client.received(), "");
  EXPECT_FALSE(client.closed());
}

TEST_F(DispatchResponse, AFailedSendIsReturnedAndClosesNothing) {
  { const StreamClient gone(server); }
  accept_client();
  const Json response = json_of("{}");
  const auto log = stderr_of([&] { EXPECT_EQ(dispatch(response.get()), -1); });
  EXPECT_THAT(log_of(log, module), ElementsAre("DEBG JSON response sent, of string length 2\n", sending,
                                               "DEBG [kestro_jrpc_router_mq_to_socket]: Error send, rc = -1\n"));
  EXPECT_GE(connection, 0);
}

TEST_F(DispatchResponse, NullArgumentsAreRefused) {
  StreamClient client(server);
  accept_client();
  const Json response = json_of("{}");
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_router_socket_dispatch_response(nullptr, response.get()), -1);
    EXPECT_EQ(dispatch(nullptr), -1);
  });
  const std::string line = "DEBG " + name + "NULL pointer!\n";
  EXPECT_THAT(log_of(log, module), ElementsAre(line, line));
  EXPECT_EQ(client.received(), "");
}

// ---- There and back ----

TEST_F(RouterTest, FourStepsMakeOneRoad) {
  StreamClient client(server);
  client.send("{\"method\":\"ports.Get\",\"id\":\"mine\"}\n");
  JsonOut request;
  JsonOut response;
  stderr_of([&] {
    ASSERT_EQ(kestro_jrpc_router_socket_extract_request(server.handle(), &connection, request), 0);
    ASSERT_EQ(kestro_jrpc_router_mq_dispatch_request(bus_out(), request.get()), 0);
    EXPECT_EQ(next_frame(), ports_channel + R"(|{"method":"ports.Get",)" + new_id);
    publish(reply_channel + R"(|{"jsonrpc":"2.0","id":"ports.Get","result":0})");
    ASSERT_EQ(kestro_jrpc_router_mq_extract_response(bus_in(), response), 0);
    ASSERT_EQ(kestro_jrpc_router_socket_dispatch_response(&connection, response.get()), 0);
  });
  EXPECT_EQ(client.received(), R"({"jsonrpc":"2.0","id":"ports.Get","result":0})");
}

}  // namespace
}  // namespace kestro::test
