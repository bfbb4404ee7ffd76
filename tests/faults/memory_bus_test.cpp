// Services and routers on the bus while memory runs out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "faults/memory.hpp"
#include "kestro_jrpc.h"
#include "kestro_mq.h"
#include "kestro_socket.h"
#include "support/bus.hpp"
#include "support/fd_lock.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/stream.hpp"

namespace kestro::test {
namespace {

using testing::AnyOf;
using testing::StartsWith;

// No word is longer than the first buffer of the JSON library's scanner: it does not survive a failure to enlarge that.
constexpr const char* request_text = R"({"jsonrpc":"2.0","method":"ports.Get","params":{"a":[1,2.5]},"id":"c7"})";
constexpr const char* notification_text = R"({"jsonrpc":"2.0","method":"ports.Get","params":{"a":[1,2.5]}})";
constexpr const char* response_text = R"({"jsonrpc":"2.0","id":"ports.Get","result":[1]})";

int32_t answer_with_params(json_t* params, json_t** result, json_t** /*err_data*/) {
  *result = json_incref(params);
  return 0;
}
kestro_jrpc_mapping_t table[] = {{"ports.Get", answer_with_params}, {nullptr, nullptr}};

void put(const BusPair& bus, const std::string& frame) {
  ASSERT_EQ(kestro_mq_socket_send(bus.publisher.handle(), frame.c_str()), 0);
}
// The frame that comes next; "marker" is the one behind all others.
std::string take(const BusPair& bus) {
  char* raw = nullptr;
  int32_t length = 0;
  if (kestro_mq_socket_recv(bus.subscriber.handle(), &raw, &length, 0) != 0) return "none";
  const Text frame(raw);
  return frame.get();
}
std::string taken_before_marker(const BusPair& bus) {
  put(bus, "marker");
  std::string frame = take(bus);
  if (frame != "marker") {
    EXPECT_EQ(take(bus), "marker");
  }
  return frame;
}

void open_sockets(Trial& trial) {
  const LogLevel level(Verbose);
  const std::string address = free_bus_address();
  const std::string pull_address = free_bus_address();
  int32_t publisher = -1;
  int32_t subscriber = -1;
  int32_t puller = -1;
  trial.call({}, [&] { return kestro_jrpc_mq_pub_init(address.c_str(), &publisher); });
  trial.call({}, [&] { return kestro_jrpc_mq_sub_init(&subscriber, 1); });
  trial.call({}, [&] { return kestro_jrpc_mq_sub_set_channel(address.c_str(), "channel", &subscriber); });
  trial.call({}, [&] { return kestro_jrpc_pull_socket_init(pull_address.c_str(), &puller); });
  for (const int32_t socket : {publisher, subscriber, puller}) {
    trial.call({}, [&] { return kestro_mq_socket_close(socket); });
  }
}

void send_and_receive(Trial& trial) {
  const LogLevel level(Verbose);
  const BusPair bus;
  trial.call({}, [&] { return kestro_mq_socket_send(bus.publisher.handle(), "a message"); });
  char* raw = nullptr;
  int32_t length = -1;
  const auto status =
      trial.call({-1}, [&] { return kestro_mq_socket_recv(bus.subscriber.handle(), &raw, &length, 0); });
  const Text message(raw);
  EXPECT_STREQ(message.get(), status == 0 ? "a message" : nullptr);
  EXPECT_EQ(length, status == 0 ? 9 : -1);
}

// A request is answered, with an error object at worst, or it is not; no half answers travel.
void serve(Trial& trial) {
  const LogLevel level(Verbose);
  BusPair bus;
  put(bus, std::string("service|") + request_text);
  trial.call({-1}, [&] {
    return kestro_jrpc_mq_run(bus.subscriber.address_of_handle(), bus.publisher.address_of_handle(), table, 0);
  });
  const std::string frame = taken_before_marker(bus);
  EXPECT_THAT(frame, AnyOf("marker", StartsWith("c7|")));
  EXPECT_TRUE(frame != "marker" || trial.excused());
  if (frame != "marker") {
    EXPECT_TRUE(json_is_object(json_of(frame.substr(3)).get()));
  }
}

void serve_without_answers(Trial& trial) {
  const LogLevel level(Verbose);
  const std::string address = free_bus_address();
  BusSocket puller(KESTRO_MQ_SP_PULL);
  puller.bind(address).timeout(10'000);
  BusSocket pusher(KESTRO_MQ_SP_PUSH);
  pusher.connect(address);
  ASSERT_EQ(kestro_mq_socket_send(pusher.handle(), request_text), 0);
  trial.call({-1}, [&] { return kestro_jrpc_pull_socket_run(puller.handle(), table); });
}

// The lock is held after a publish that succeeded, and free after everything else.
void call_a_service(Trial& trial) {
  const LogLevel level(Verbose);
  BusPair bus;
  const FdLock lock(bus.subscriber.handle());
  const auto published = trial.call({-1}, [&] {
    return kestro_jrpc_mq_pub_lock(bus.publisher.address_of_handle(), "service", request_text, bus.subscriber.handle());
  });
  EXPECT_EQ(lock.is_free(), published != 0);
  if (published != 0) return;
  EXPECT_EQ(take(bus), std::string("service|") + request_text);
  put(bus, std::string("c7|") + response_text);
  json_t* raw = nullptr;
  const auto awaited = trial.call(
      {-50}, [&] { return kestro_jrpc_mq_sub_for_method_with_limit(bus.subscriber.handle(), "ports.Get", &raw, 1); });
  const Json response(raw);
  EXPECT_EQ(text_of(response.get()), awaited == 0 ? response_text : "null");
  EXPECT_TRUE(lock.is_free());
}

// The time-out of the socket is what it was.
void await_a_notification(Trial& trial) {
  const LogLevel level(Verbose);
  BusPair bus;
  for (int i = 0; i < 5; ++i) put(bus, std::string("c|") + notification_text);
  json_t* raw = nullptr;
  const auto status =
      trial.call({-1}, [&] { return kestro_jrpc_mq_sub_for_notifcation(bus.subscriber.handle(), "ports.Get", &raw); });
  const Json notification(raw);
  EXPECT_EQ(text_of(notification.get()), status == 0 ? notification_text : "null");
  int32_t timeout = 0;
  EXPECT_EQ(kestro_mq_socket_get_timeout(bus.subscriber.handle(), &timeout), 0);
  EXPECT_EQ(timeout, 10'000);
}

void forward_a_request(Trial& trial) {
  const LogLevel level(Verbose);
  BusPair bus;
  StreamServer server;
  StreamClient client(server);
  client.send(request_text);
  int32_t connection = -2;
  const auto status = trial.call({-1, -20}, [&] {
    return kestro_jrpc_router_socket_to_mq(server.handle(), bus.publisher.address_of_handle(), &connection);
  });
  EXPECT_EQ(connection >= 0, status == 0);
  EXPECT_EQ(client.closed(), status != 0);
  EXPECT_EQ(taken_before_marker(bus) != "marker", status == 0);
  if (connection >= 0) kestro_socket_shutdown(&connection);
}

void return_a_response(Trial& trial) {
  const LogLevel level(Verbose);
  BusPair bus;
  StreamServer server;
  StreamClient client(server);
  int32_t connection = -1;
  ASSERT_EQ(kestro_socket_accept(server.handle(), &connection), 0);
  put(bus, std::string("reply|") + response_text);
  const auto status = trial.call(
      {-1}, [&] { return kestro_jrpc_router_mq_to_socket(bus.subscriber.address_of_handle(), &connection); });
  EXPECT_EQ(client.received(), status == 0 ? response_text : "");
  EXPECT_TRUE(client.closed());
  EXPECT_EQ(connection, -1);
}

void forward_in_steps(Trial& trial) {
  const LogLevel level(Verbose);
  BusPair bus;
  const Json request = json_of(request_text);
  const auto dispatched = trial.call(
      {-1}, [&] { return kestro_jrpc_router_mq_dispatch_request(bus.publisher.address_of_handle(), request.get()); });
  EXPECT_EQ(taken_before_marker(bus) != "marker", dispatched == 0);
  put(bus, std::string("reply|") + response_text);
  json_t* raw = nullptr;
  const auto extracted = trial.call(
      {-1}, [&] { return kestro_jrpc_router_mq_extract_response(bus.subscriber.address_of_handle(), &raw); });
  const Json response(raw);
  EXPECT_EQ(text_of(response.get()), extracted == 0 ? response_text : "null");
}

INSTANTIATE_TEST_SUITE_P(Bus, MemoryCampaign,
                         testing::ValuesIn(std::vector<MemoryScenario>{
                             {"OpenSockets", open_sockets},
                             {"SendAndReceive", send_and_receive},
                             {"Serve", serve},
                             {"ServeWithoutAnswers", serve_without_answers},
                             {"CallAService", call_a_service},
                             {"AwaitANotification", await_a_notification},
                             {"ForwardARequest", forward_a_request, aborts("malloc 10000000 unsuccessful\n")},
                             {"ReturnAResponse", return_a_response},
                             {"ForwardInSteps", forward_in_steps},
                         }),
                         name_of<MemoryScenario>);

}  // namespace
}  // namespace kestro::test
