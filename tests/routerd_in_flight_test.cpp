// Who waits for which response.

#include "routerd/in_flight.hpp"

#include <gtest/gtest.h>

#include <asio/co_spawn.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kestro::test {
namespace {

using routerd::InFlight;
using routerd::Response;
using Delivery = InFlight::Delivery;
using namespace std::chrono_literals;

class InFlightTest : public testing::Test {
 protected:
  std::unique_ptr<InFlight::Entry> enter(const std::string& method, std::chrono::milliseconds time = 1h) {
    return std::make_unique<InFlight::Entry>(all_, io_, method, InFlight::Clock::now() + time);
  }
  // A response whose one other member is the text.
  Delivery deliver(int64_t number, const std::string& method, const std::string& text) {
    const std::string members = R"("transaction_id":)" + std::to_string(number) + R"(,"id":")" + method;
    Response response("{" + members + R"(","result":")" + text + R"("})");
    return all_.deliver(response);
  }
  // Runs until the entry's wait is over, and gives that text.
  std::optional<std::string> response_of(InFlight::Entry& entry) {
    std::optional<Response> response;
    asio::co_spawn(io_, entry.response(), [&](const std::exception_ptr&, std::optional<Response> received) {
      response = std::move(received);
    });
    io_.restart();
    io_.run();
    if (!response) return std::nullopt;
    const Json object(json_loads(response->change({}, {}).c_str(), 0, nullptr));
    return json_string_value(json_object_get(object.get(), "result"));
  }

  asio::io_context io_{1};
  InFlight all_;
};

TEST_F(InFlightTest, NumbersArePositiveAndDiffer) {
  std::set<int32_t> numbers;
  std::vector<std::unique_ptr<InFlight::Entry>> entries;
  for (int i = 0; i < 1000; ++i) {
    entries.push_back(enter("a"));
    EXPECT_GT(entries.back()->number(), 0);
    EXPECT_TRUE(numbers.insert(entries.back()->number()).second);
  }
  EXPECT_EQ(all_.size(), 1000U);
  entries.clear();
  EXPECT_EQ(all_.size(), 0U);
}

TEST_F(InFlightTest, ResponseReachesTheOneWhoWaits) {
  const auto one = enter("ports.Get");
  const auto other = enter("ports.Get");
  EXPECT_EQ(deliver(other->number(), "ports.Get", "for the other"), Delivery::Done);
  EXPECT_EQ(deliver(one->number(), "ports.Get", "for the one"), Delivery::Done);
  EXPECT_EQ(response_of(*one), "for the one");
  EXPECT_EQ(response_of(*other), "for the other");
}

TEST_F(InFlightTest, ResponseWakesTheWait) {
  const auto entry = enter("ports.Get");
  asio::steady_timer later(io_, 1ms);
  later.async_wait([&](const asio::error_code&) { deliver(entry->number(), "ports.Get", "text"); });
  EXPECT_EQ(response_of(*entry), "text");
}

TEST_F(InFlightTest, DeadlineEndsTheWait) {
  const auto entry = enter("ports.Get", 1ms);
  EXPECT_EQ(response_of(*entry), std::nullopt);
  EXPECT_FALSE(entry->given_up());
}

TEST_F(InFlightTest, RepeatedResponseIsLateAndChangesNothing) {
  const auto entry = enter("ports.Get");
  EXPECT_EQ(deliver(entry->number(), "ports.Get", "first"), Delivery::Done);
  EXPECT_EQ(deliver(entry->number(), "ports.Get", "second"), Delivery::Late);
  EXPECT_EQ(response_of(*entry), "first");
}

TEST_F(InFlightTest, ResponseAfterTheEndIsLate) {
  const int32_t number = enter("ports.Get")->number();
  EXPECT_EQ(deliver(number, "ports.Get", "text"), Delivery::Late);
}

TEST_F(InFlightTest, ResponseOfAnotherMethodIsForeign) {
  const auto entry = enter("ports.Get", 1ms);
  EXPECT_EQ(deliver(entry->number(), "ports.Set", "text"), Delivery::Foreign);
  EXPECT_EQ(response_of(*entry), std::nullopt);
}

TEST_F(InFlightTest, NumbersThatWereNeverGivenAreForeign) {
  const auto entry = enter("ports.Get");
  for (const int64_t number : {int64_t{-1}, int64_t{0}, int64_t{entry->number()} - 1, int64_t{entry->number()} + 1,
                               int64_t{entry->number()} + (int64_t{1} << 32)}) {
    EXPECT_EQ(deliver(number, "ports.Get", "text"), Delivery::Foreign) << number;
  }
}

TEST_F(InFlightTest, EveryWaitCanBeGivenUp) {
  const auto one = enter("a");
  const auto other = enter("b");
  all_.give_up_all();
  EXPECT_EQ(response_of(*one), std::nullopt);
  EXPECT_EQ(response_of(*other), std::nullopt);
  EXPECT_TRUE(one->given_up());
  EXPECT_TRUE(other->given_up());
}

TEST_F(InFlightTest, ResponseBeforeTheGivingUpCounts) {
  const auto entry = enter("a");
  deliver(entry->number(), "a", "text");
  all_.give_up_all();
  EXPECT_EQ(response_of(*entry), "text");
}

}  // namespace
}  // namespace kestro::test
