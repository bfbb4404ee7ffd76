// Clients of the router daemon that are slow, silent, greedy or gone: none of them is in anybody's way.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "e2e/routerd.hpp"

namespace kestro::test {
namespace {

using namespace std::chrono_literals;

const std::string echo = request("ports.Echo", R"({"a":"}\"\\{"})", "1", R"(,"transaction_id":3)");
const std::string echoed = answer("ports.Echo", R"({"a":"}\"\\{"})", R"(,"transaction_id":3)");

std::string request_of(size_t size) {
  const auto shortest = request("ports.Echo", R"({"a":""})", "1").size();
  return request("ports.Echo", R"({"a":")" + std::string(size - shortest, 'x') + R"("})", "1");
}
std::string answer_to_request_of(size_t size) {
  const auto shortest = request("ports.Echo", R"({"a":""})", "1").size();
  return answer("ports.Echo", R"({"a":")" + std::string(size - shortest, 'x') + R"("})");
}

bool has_closed(const Connection& connection) {
  return connection.receive().empty();
}

// ---- Where a request ends ----

TEST(RouterdClients, RequestIsUnderstoodHoweverItIsCut) {
  const Road road;
  for (size_t cut = 1; cut < echo.size(); ++cut) {
    const auto connection = road.connect_by_tcp();
    connection.send(echo.substr(0, cut));
    std::this_thread::yield();
    EXPECT_EQ(connection.call(echo.substr(cut)), echoed) << "cut at " << cut;
  }
}

TEST(RouterdClients, RequestMayComeByteByByte) {
  const Road road;
  const auto connection = road.connect_by_tcp();
  for (const char byte : echo) {
    connection.send(std::string_view(&byte, 1));
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_EQ(connection.receive(), echoed);
}

TEST(RouterdClients, RequestMayBePrettyPrinted) {
  const Road road;
  EXPECT_EQ(
      road.call("\n{\n  \"jsonrpc\": \"2.0\",\n  \"method\": \"ports.Echo\",\n  \"params\": {},\n  \"id\": 1\n}\n"),
      answer("ports.Echo", "{}"));
}

TEST(RouterdClients, LineThatIsNoObjectEndsTheRequestAtOnce) {
  const Road road({"--read-timeout", "3600"});
  EXPECT_EQ(road.call("hello\n"), "");
  EXPECT_EQ(road.call("{\"method\":\"a\n"), "");
}

TEST(RouterdClients, EndOfInputEndsTheRequest) {
  const Road road({"--read-timeout", "3600"});
  for (const char* text : {"", "{", "hello"}) {
    const auto connection = road.connect();
    connection.send(text);
    connection.end_sending();
    EXPECT_TRUE(has_closed(connection)) << text;
  }
}

TEST(RouterdClients, HalfClosedClientIsAnswered) {
  const Road road;
  for (const bool by_tcp : {false, true}) {
    const auto connection = by_tcp ? road.connect_by_tcp() : road.connect();
    connection.send(echo);
    connection.end_sending();
    EXPECT_EQ(connection.receive(), echoed);
  }
}

TEST(RouterdClients, SecondRequestOfAConnectionIsNotServed) {
  const Road road;
  for (const bool by_tcp : {false, true}) {
    const auto connection = by_tcp ? road.connect_by_tcp() : road.connect();
    EXPECT_EQ(connection.call(echo + "\n" + echo), echoed);
  }
  EXPECT_TRUE(road.counts("answered", 2));
}

// ---- Clients that are in no hurry ----

TEST(RouterdClients, SilentAndTricklingOnesLeaveTheGoodOneServed) {
  constexpr int of_each = 64;
  const Road road({"--read-timeout", "3600"});
  std::vector<Connection> silent;
  std::vector<Connection> trickling;
  for (int number = 0; number < of_each; ++number) {
    silent.push_back(road.connect());
    trickling.push_back(number % 2 == 0 ? road.connect() : road.connect_by_tcp());
  }
  std::atomic<bool> done{false};
  std::thread tap([&] {
    for (size_t at = 0; at + 1 < echo.size() && !done; ++at) {
      for (const auto& connection : trickling) connection.send(std::string_view(echo).substr(at, 1));
      std::this_thread::sleep_for(100ms);
    }
  });
  for (int turn = 0; turn < 100; ++turn) EXPECT_EQ(road.call(echo), echoed);
  done = true;
  tap.join();
  EXPECT_TRUE(road.counts("clients", 2 * of_each));
}

TEST(RouterdClients, TimeForARequestRunsFromItsBeginning) {
  Road road({"--read-timeout", "0.3"});
  const auto silent = road.connect();
  const auto trickling = road.connect();
  bool cut = false;
  for (size_t at = 0; at + 1 < echo.size() && !cut; ++at) {
    cut = !trickling.send(std::string_view(echo).substr(at, 1));
    std::this_thread::sleep_for(50ms);
  }
  EXPECT_TRUE(cut);
  EXPECT_TRUE(has_closed(silent));
  EXPECT_TRUE(road.counts("read_timeout", 2));
  EXPECT_THAT(road.router().err(),
              HasLog(Warning, "kestro_routerd", "request not forwarded, connection closed: read_timeout\n"));
}

TEST(RouterdClients, AnswerOfAMegabyteReachesASlowReaderWhole) {
  const Road road;
  constexpr size_t size = (size_t{1} << 20) - 1000;
  for (const bool by_tcp : {false, true}) {
    const auto connection = by_tcp ? road.connect_by_tcp() : road.connect();
    connection.send(request("ports.Size", R"({"bytes":)" + std::to_string(size) + "}", "1"));
    while (!connection.has_news()) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(connection.receive(1021), answer("ports.Size", '"' + std::string(size, 'x') + '"'));
  }
}

TEST(RouterdClients, AnswerThatIsNotTakenIsGivenUp) {
  Road road({"--write-timeout", "0.2"});
  const auto connection = road.connect();
  connection.send(request("ports.Size", R"({"bytes":4000000})", "1"));
  EXPECT_TRUE(road.counts("client_gone", 1));
  EXPECT_THAT(road.router().err(),
              HasLog(Info, "kestro_routerd", "ports.Size: the client did not get its answer: write_timeout\n"));
  EXPECT_LT(connection.receive().size(), 4'000'000U);
}

TEST(RouterdClients, ThoseWhoVanishBeforeTheirAnswerAreCounted) {
  Road road;
  for (int number = 0; number < 8; ++number) road.connect().send(request("ports.Late", "{}", "1"));
  ASSERT_TRUE(road.counts("in_flight", 8));
  EXPECT_EQ(road.call(request("ports.Release", "{}", "1")), answer("ports.Release", "{}"));
  EXPECT_TRUE(road.counts("client_gone", 8));
  EXPECT_TRUE(road.counts("in_flight", 0));
  EXPECT_THAT(road.router().err(),
              HasLog(Info, "kestro_routerd", "ports.Late: the client did not get its answer: client_gone\n"));
}

TEST(RouterdClients, NameOfTheMethodIsOneLineOfTheLog) {
  Road road;
  road.connect().send(request(R"(ports.a\nb.Late)", "{}", "1"));
  ASSERT_TRUE(road.counts("in_flight", 1));
  road.call(request("ports.Release", "{}", "1"));
  EXPECT_TRUE(road.counts("client_gone", 1));
  EXPECT_THAT(road.router().err(),
              HasLog(Info, "kestro_routerd", "ports.a?b.Late: the client did not get its answer: client_gone\n"));
}

// ---- Limits ----

TEST(RouterdClients, LongestRequestTravelsAndALongerOneDoesNot) {
  constexpr size_t longest = (size_t{1} << 20) - 256;
  const Road road;
  EXPECT_EQ(road.call(request_of(longest)), answer_to_request_of(longest));
  EXPECT_EQ(road.call(request_of(longest + 1)), "");
  EXPECT_TRUE(road.counts("too_large", 1));
  EXPECT_EQ(road.call(echo), echoed);
}

TEST(RouterdClients, LimitOfRequestsCanBeLowered) {
  const Road road({"--max-request", "200"});
  EXPECT_EQ(road.call(request_of(200)), answer_to_request_of(200));
  EXPECT_EQ(road.call(request_of(201)), "");
  EXPECT_EQ(road.call(std::string(100'000, ' ')), "");
  EXPECT_TRUE(road.counts("too_large", 2));
}

TEST(RouterdClients, RequestThatGrowsTooLongForTheBusIsRefused) {
  const Road road;
  std::string letters;
  for (int i = 0; i < 200'000; ++i) letters += "\xc3\xa9";  // two bytes here, six on the bus
  EXPECT_EQ(road.call(request("ports.Echo", R"({"a":")" + letters + R"("})", "1")), "");
  EXPECT_TRUE(road.counts("too_large", 1));
  EXPECT_EQ(road.call(echo), echoed);
}

TEST(RouterdClients, MoreThanTheLimitWaitToBeAccepted) {
  const Road road({"--max-clients", "4"});
  std::vector<Connection> silent;
  for (int number = 0; number < 4; ++number) {
    silent.push_back(number % 2 == 0 ? road.connect() : road.connect_by_tcp());
  }
  ASSERT_TRUE(road.counts("clients", 4));
  const auto fifth = road.connect();
  fifth.send(echo);
  const auto sixth = road.connect_by_tcp();
  sixth.send(echo);
  road.forget_counters();
  ASSERT_TRUE(road.counts("clients", 4));
  EXPECT_EQ(road.counter("accepted"), 4);
  EXPECT_FALSE(fifth.has_news());
  silent.pop_back();
  EXPECT_EQ(fifth.receive(), echoed);
  EXPECT_EQ(sixth.receive(), echoed);
}

TEST(RouterdClients, LimitHoldsForThoseWhoComeTogether) {
  Road road({"--max-clients", "4"});
  road.router().signal(SIGSTOP);
  std::vector<Connection> silent;
  for (int number = 0; number < 12; ++number) {
    silent.push_back(number % 2 == 0 ? road.connect() : road.connect_by_tcp());
  }
  road.router().signal(SIGCONT);
  ASSERT_TRUE(road.counts("clients", 4));
  EXPECT_EQ(road.counter("accepted"), 4);
}

// What is behind a request is not read, and its sender gets the answer and a good end all the same.
TEST(RouterdClients, BytesBehindTheRequestDoNotSpoilTheAnswer) {
  const Road road;
  for (const bool by_tcp : {false, true}) {
    const auto later = by_tcp ? road.connect_by_tcp() : road.connect();
    later.send(echo);
    later.send("\n");
    EXPECT_EQ(later.receive_exactly(echoed.size()), echoed);
    EXPECT_TRUE(later.ends_well());

    // The request ends where the router's buffer does.
    const auto filling = by_tcp ? road.connect_by_tcp() : road.connect();
    const std::string request = request_of(65'536);
    filling.send(request + "\n");
    const std::string answer = answer_to_request_of(65'536);
    EXPECT_EQ(filling.receive_exactly(answer.size()), answer);
    EXPECT_TRUE(filling.ends_well());
  }
}

size_t count_of(std::string_view text, std::string_view what) {
  size_t count = 0;
  for (size_t at = text.find(what); at != std::string_view::npos; at = text.find(what, at + 1)) ++count;
  return count;
}

TEST(RouterdClients, WithoutDescriptorsAcceptingIsPaused) {
  if (sanitized) GTEST_SKIP() << "the sanitizers need descriptors themselves";
  Road road;
  const auto descriptors = std::filesystem::path("/proc") / std::to_string(road.router().pid()) / "fd";
  const auto held = std::distance(std::filesystem::directory_iterator(descriptors), {});
  const auto early = road.connect();
  ASSERT_TRUE(road.counts("clients", 1));
  const rlimit limit{static_cast<rlim_t>(held) + 8, static_cast<rlim_t>(held) + 8};
  ASSERT_EQ(prlimit(road.router().pid(), RLIMIT_NOFILE, &limit, nullptr), 0);

  std::vector<Connection> silent;
  const auto begun = std::chrono::steady_clock::now();
  for (int number = 0; number < 16; ++number) silent.push_back(road.connect());
  EXPECT_TRUE(road.logs("[WARN] [router] accepting is paused: Too many open files\n"));
  EXPECT_EQ(early.call(echo), echoed);
  silent.clear();
  EXPECT_EQ(road.call(echo), echoed);
  // One line a pause, not one a turn of a loop that spins.
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(std::chrono::steady_clock::now() - begun).count();
  EXPECT_LE(count_of(road.router().err(), "accepting is paused"), 2 * (static_cast<size_t>(seconds) + 1));
}

}  // namespace
}  // namespace kestro::test
