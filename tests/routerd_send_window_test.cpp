#include "routerd/send_window.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace kestro::routerd {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

// Room for two of the messages below, with what the kernel adds to each.
constexpr size_t message = 1'000;
constexpr size_t room_for_two = 8'000;

class SendWindowTest : public testing::Test {
 protected:
  struct Sender {
    explicit Sender(SendWindow& window) : place(std::make_unique<SendWindow::Place>(window)) {}
    std::unique_ptr<SendWindow::Place> place;
    bool given_up = false;
  };

  // Somebody who wants to send; who gets in, or does not, is noted.
  std::unique_ptr<Sender> sender(const std::string& name, size_t bytes, std::chrono::milliseconds patience = 1h) {
    auto sender = std::make_unique<Sender>(window_);
    asio::co_spawn(io_, enter(*sender, name, bytes, SendWindow::Clock::now() + patience), asio::detached);
    run();
    return sender;
  }
  asio::awaitable<void> enter(Sender& sender, std::string name, size_t bytes, SendWindow::Clock::time_point deadline) {
    const bool entered = co_await sender.place->enter(io_, bytes, deadline, sender.given_up);
    (entered ? entered_ : refused_).push_back(name);
  }
  // Runs what is ready.
  void run() {
    io_.restart();
    io_.poll();
  }
  void run_until_refused() {
    io_.restart();
    while (refused_.empty()) io_.run_one();
  }

  asio::io_context io_{1};
  SendWindow window_{room_for_two};
  std::vector<std::string> entered_;
  std::vector<std::string> refused_;
};

TEST_F(SendWindowTest, EntersWhileThereIsRoom) {
  const auto first = sender("first", message);
  const auto second = sender("second", message);
  EXPECT_THAT(entered_, ElementsAre("first", "second"));
}

TEST_F(SendWindowTest, WaitsUntilAnEarlierOneIsAnswered) {
  const auto first = sender("first", message);
  auto second = sender("second", message);
  const auto third = sender("third", message);
  EXPECT_THAT(entered_, ElementsAre("first", "second"));

  second->place.reset();
  run();
  EXPECT_THAT(entered_, ElementsAre("first", "second", "third"));
}

TEST_F(SendWindowTest, WaitsInTheOrderOfArrival) {
  auto first = sender("first", message);
  auto second = sender("second", message);
  const auto large = sender("large", 4 * message);
  const auto small = sender("small", 1);
  first->place.reset();
  run();
  EXPECT_THAT(entered_, ElementsAre("first", "second")) << "the small one must not overtake";

  second->place.reset();
  run();
  EXPECT_THAT(entered_, ElementsAre("first", "second", "large"));
}

TEST_F(SendWindowTest, TooLargeForTheWindowEntersWhenItIsEmpty) {
  auto first = sender("first", message);
  const auto large = sender("large", 10 * room_for_two);
  EXPECT_THAT(entered_, ElementsAre("first"));
  first->place.reset();
  run();
  EXPECT_THAT(entered_, ElementsAre("first", "large"));
}

TEST_F(SendWindowTest, DeadlineEndsTheWaitAndLetsTheNextLook) {
  const auto first = sender("first", message);
  const auto large = sender("large", 10 * room_for_two, 20ms);
  const auto small = sender("small", message);
  EXPECT_THAT(entered_, ElementsAre("first"));
  run_until_refused();
  run();
  EXPECT_THAT(refused_, ElementsAre("large"));
  EXPECT_THAT(entered_, ElementsAre("first", "small"));
}

TEST_F(SendWindowTest, GivenUpOnesAreRefused) {
  const auto first = sender("first", room_for_two);
  const auto second = sender("second", message);
  second->given_up = true;
  EXPECT_THAT(refused_, IsEmpty());
  window_.wake_all();
  run();
  EXPECT_THAT(refused_, ElementsAre("second"));
}

TEST_F(SendWindowTest, StuckServiceDoesNotHoldItsChannelForEver) {
  const auto first = sender("first", room_for_two);
  const auto second = sender("second", room_for_two);
  EXPECT_THAT(entered_, ElementsAre("first"));
  io_.restart();
  while (entered_.size() < 2) io_.run_one();
  EXPECT_THAT(entered_, ElementsAre("first", "second"));
}

TEST(SendWindows, ChannelsDoNotWaitForEachOther) {
  SendWindows windows(room_for_two);
  EXPECT_EQ(&windows.of("one"), &windows.of("one"));
  EXPECT_NE(&windows.of("one"), &windows.of("other"));
}

}  // namespace
}  // namespace kestro::routerd
