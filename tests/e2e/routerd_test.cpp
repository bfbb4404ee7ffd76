// The router daemon among many clients and services of every kind: to each its own answer, and to everybody one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "e2e/routerd.hpp"

namespace kestro::test {
namespace {

using testing::AnyOf;

std::string payload(int client, int turn) {
  return R"({"client":)" + std::to_string(client) + R"(,"turn":)" + std::to_string(turn) + "}";
}

// Runs `client(number)` in as many threads.
template <class Client>
void at_once(int clients, Client&& client) {
  std::vector<std::thread> threads;
  for (int number = 0; number < clients; ++number) threads.emplace_back([&client, number] { client(number); });
  for (auto& thread : threads) thread.join();
}

// ---- To each its own ----

TEST(Routerd, ManyClientsAtOnceEachGetTheirOwnAnswers) {
  constexpr int clients = 64;
  constexpr int turns = 200;
  const Road road;
  std::atomic<int> right{0};
  at_once(clients, [&](int number) {
    for (int turn = 0; turn < turns; ++turn) {
      const auto connection = number % 2 == 0 ? road.connect() : road.connect_by_tcp();
      const auto* const method = turn % 2 == 0 ? "ports.Echo" : "events.Echo";
      const auto received = connection.call(request(method, payload(number, turn), "1"));
      right += received == answer(method, payload(number, turn)) ? 1 : 0;
    }
  });
  EXPECT_EQ(right, clients * turns);
  EXPECT_TRUE(road.counts("busy", 0));
  EXPECT_TRUE(road.counts("timed_out", 0));
}

TEST(Routerd, TransactionIdComesBackAsItWasSent) {
  const Road road;
  for (const char* number : {"12", "0", "-1", "13.5", "4294967296", "9223372036854775807", "100.0"}) {
    const std::string more = std::string(R"(,"transaction_id":)") + number;
    EXPECT_EQ(road.call(request("ports.Echo", "{}", "1", more)), answer("ports.Echo", "{}", more));
  }
  EXPECT_EQ(road.call(request("ports.Echo", "{}", "1")), answer("ports.Echo", "{}"));
}

TEST(Routerd, EqualTransactionIdsOfTwoClientsDoNotMatter) {
  const Road road;
  const std::string more = R"(,"transaction_id":7)";
  const auto first = road.connect();
  first.send(request("ports.Late", R"({"who":1})", "1", more));
  const auto second = road.connect();
  second.send(request("ports.Late", R"({"who":2})", "1", more));
  ASSERT_TRUE(road.counts("in_flight", 2));
  road.call(request("ports.Release", "{}", "1"));
  EXPECT_EQ(second.receive(), answer("ports.Late", R"({"who":2})", more));
  EXPECT_EQ(first.receive(), answer("ports.Late", R"({"who":1})", more));
}

TEST(Routerd, StrictIdsAreTheClientsOwn) {
  const Road road({"--strict-ids", "--timeout", "ports.Silent=0.05"});
  for (const char* id : {"5", "-1.5", R"("mine")", R"("")", R"("\u20AC\"")"}) {
    const std::string with_id = std::string(R"({"jsonrpc":"2.0","id":)") + id;
    EXPECT_EQ(road.call(request("ports.Echo", "{}", id)), with_id + R"(,"result":{}})");
    EXPECT_EQ(road.call(request("ports.Silent", "{}", id)),
              with_id + R"(,"error":{"code":-32005,"message":"Command timed out","data":null}})");
  }
}

// ---- Everybody gets an answer ----

TEST(Routerd, SilenceEndsInTheTimedOutObject) {
  Road road({"--timeout", "ports.Silent=0.05"});
  EXPECT_EQ(road.call(request("ports.Silent", "{}", R"("mine")")), timed_out("mine"));
  EXPECT_EQ(road.call(request("ports.Silent", "{}", "7.5")), timed_out("7.5"));
  EXPECT_EQ(road.call(request("ports.Silent", "{}", "7", R"(,"transaction_id":2.5)")),
            R"({"jsonrpc":"2.0","transaction_id":2.5,"id":"7","error":{"code":-32005,"message":"Command timed out",)"
            R"("data":null}})");
  EXPECT_TRUE(road.counts("timed_out", 3));
  EXPECT_THAT(road.router().err(), HasLog(Warning, "kestro_routerd", "ports.Silent: no response in time\n"));
}

TEST(Routerd, NamesThatClientsChooseBeginNoLineOfTheLog) {
  Road road({"--timeout", "cache.a\n[\x1b[31mb=0.05"});
  EXPECT_EQ(road.call(request(R"(cache.a\n[\u001b[31mb)", "{}", "1")), timed_out("1"));
  EXPECT_TRUE(road.counts("timed_out", 1));
  EXPECT_THAT(road.router().err(), HasLog(Warning, "kestro_routerd", "cache.a?[?[31mb: no response in time\n"));
}

TEST(Routerd, TimeOfOneMethodLeavesThatOfOthers) {
  const Road road({"--timeout", "ports.Silent=600", "--timeout", "ports.poe.Silent=0.05"});
  const auto patient = road.connect();
  patient.send(request("ports.Silent", "{}", "1"));
  EXPECT_EQ(road.call(request("ports.poe.Silent", "{}", "2")), timed_out("2"));
  EXPECT_FALSE(patient.has_news());
}

TEST(Routerd, AbsentServiceEndsInTheTimedOutObject) {
  const Road road({"--timeout", "cache.Get=0.05"});
  EXPECT_EQ(road.call(request("cache.Get", "{}", "1")), timed_out("1"));
}

TEST(Routerd, LimitOfRequestsInFlightAnswersBusyAtOnce) {
  Road road({"--max-in-flight", "2"});
  const auto first = road.connect();
  first.send(request("ports.Late", "{}", "1"));
  const auto second = road.connect();
  second.send(request("ports.Late", "{}", "2"));
  ASSERT_TRUE(road.counts("in_flight", 2));

  EXPECT_EQ(road.call(request("ports.Echo", "{}", R"("third")")), busy("third"));
  EXPECT_EQ(road.call(request("ports.Echo", "{}", "4", R"(,"transaction_id":12)")),
            R"({"jsonrpc":"2.0","id":"4","error":{"code":-32014,"message":"System is busy.","data":null},)"
            R"("transaction_id":12})");
  EXPECT_TRUE(road.counts("busy", 2));

  road.ports().signal(SIGUSR1);
  EXPECT_EQ(first.receive(), answer("ports.Late", "{}"));
  EXPECT_EQ(second.receive(), answer("ports.Late", "{}"));
  EXPECT_EQ(road.call(request("ports.Echo", "{}", "5")), answer("ports.Echo", "{}"));
}

struct Hopeless {
  const char* text;
  const char* reason;
};

TEST(Routerd, WhatIsNotForwardedIsClosedWithAReason) {
  const Hopeless hopeless[] = {
      {"{]", "no_json"},
      {"[1,2]\n", "no_object"},
      {R"({"jsonrpc":"2.0","id":1})", "no_method"},
      {R"({"jsonrpc":"2.0","method":"ports.Echo","id":true})", "bad_id"},
      {R"({"jsonrpc":"2.0","method":"ports.Echo","id":1,"transaction_id":"12"})", "bad_transaction_id"},
      {R"({"jsonrpc":"2.0","method":"ports.Echo"})", "no_id"},
  };
  Road road;
  for (const auto& [text, reason] : hopeless) {
    EXPECT_EQ(road.call(text), "") << text;
    EXPECT_THAT(road.router().err(), HasLog(Warning, "kestro_routerd",
                                            "request not forwarded, connection closed: " + std::string(reason) + "\n"));
  }
  for (const auto& [text, reason] : hopeless) EXPECT_TRUE(road.counts(reason, 1)) << reason;
  EXPECT_EQ(road.call(request("ports.Echo", "{}", "1")), answer("ports.Echo", "{}"));
}

TEST(Routerd, EveryConnectionIsCountedInOneEnd) {
  const Road road({"--timeout", "ports.Silent=0.05", "--max-in-flight", "1"});
  const auto counted = [&road](const char* name) { return std::max<int64_t>(road.counter(name), 0); };
  const auto ends = [&] {
    return counted("answered") + counted("busy") + counted("timed_out") + counted("handled") + counted("no_json") +
           counted("no_id") + counted("closed_early");
  };
  for (const char* text : {"{]", R"({"method":"a"})", R"({"jsonrpc":"2.0","method":"logger.ReloadConf"})"}) {
    road.call(text);
  }
  road.call(request("ports.Silent", "{}", "1"));
  const auto held = road.connect();
  held.send(request("ports.Late", "{}", "1"));
  ASSERT_TRUE(road.counts("in_flight", 1));
  road.call(request("ports.Echo", "{}", "1"));
  road.connect().end_sending();

  EXPECT_TRUE(road.counts("closed_early", 1));
  EXPECT_TRUE(road.counts("busy", 1));
  EXPECT_TRUE(road.counts("handled", 1));
  EXPECT_TRUE(road.counts("clients", 1));
  EXPECT_EQ(counted("accepted"), ends() + 1);
}

// ---- Services that misbehave ----

TEST(Routerd, RepeatedResponseIsDropped) {
  const Road road;
  for (int turn = 0; turn < 20; ++turn) {
    EXPECT_EQ(road.call(request("ports.Twice", payload(1, turn), "1")), answer("ports.Twice", payload(1, turn)));
  }
  EXPECT_TRUE(road.counts_at_least("late", 20));
}

TEST(Routerd, GarbageIsDropped) {
  const Road road;
  EXPECT_EQ(road.call(request("ports.Garbage", R"({"a":1})", "1")), answer("ports.Garbage", R"({"a":1})"));
  EXPECT_TRUE(road.counts("garbage", 6));
}

TEST(Routerd, ResponsesOfNobodyReachNobody) {
  const Road road({"--timeout", "ports.WithoutNumber=0.05", "--timeout", "ports.Foreign=0.05", "--timeout",
                   "ports.OtherMethod=0.05"});
  const auto waiting = road.connect();
  waiting.send(request("ports.Late", R"({"waits":true})", "1"));
  for (const char* method : {"ports.WithoutNumber", "ports.Foreign", "ports.OtherMethod"}) {
    EXPECT_EQ(road.call(request(method, "{}", "1")), timed_out("1")) << method;
  }
  EXPECT_TRUE(road.counts("foreign", 3));
  road.call(request("ports.Release", "{}", "1"));
  EXPECT_EQ(waiting.receive(), answer("ports.Late", R"({"waits":true})"));
}

TEST(Routerd, KeyThatIsWrittenWithAnEscapeIsUnderstood) {
  const Road road;
  EXPECT_EQ(road.call(request("ports.Escaped", "{}", "1")), answer("ports.Escaped", "{}"));
  EXPECT_EQ(road.call(request("ports.Escaped", "{}", "1", R"(,"transaction_id":5)")),
            answer("ports.Escaped", "{}", R"(,"transaction_id":5)"));
}

TEST(Routerd, LateResponsesReachNobody) {
  const Road road({"--timeout", "ports.Late=0.05"});
  for (int turn = 0; turn < 8; ++turn)
    EXPECT_EQ(road.call(request("ports.Late", payload(1, turn), "1")), timed_out("1"));
  EXPECT_EQ(road.call(request("ports.Release", "{}", "1")), answer("ports.Release", "{}"));
  EXPECT_TRUE(road.counts_at_least("late", 8));
}

TEST(Routerd, FloodOfOneServiceLeavesTheOtherServed) {
  Road road;
  ASSERT_EQ(road.call(request("ports.Flood", "{}", "1")), answer("ports.Flood", "{}"));
  for (int turn = 0; turn < 100; ++turn) {
    EXPECT_EQ(road.call(request("events.Echo", payload(1, turn), "1")), answer("events.Echo", payload(1, turn)));
  }
  EXPECT_TRUE(road.counts_at_least("foreign", 1));
}

TEST(Routerd, StoppedServiceAnswersNobodyLate) {
  Road road({"--timeout", "ports.Echo=0.2"});
  road.ports().signal(SIGSTOP);
  at_once(16, [&](int number) {
    EXPECT_EQ(road.call(request("ports.Echo", payload(number, 0), std::to_string(number))),
              timed_out(std::to_string(number)));
  });
  road.ports().signal(SIGCONT);
  EXPECT_TRUE(road.is_served("ports"));
  EXPECT_TRUE(road.counts_at_least("late", 16));
  at_once(16, [&](int number) {
    const auto received = road.call(request("ports.Echo", payload(number, 1), "1"));
    EXPECT_THAT(received, AnyOf(answer("ports.Echo", payload(number, 1)), timed_out("1")));
  });
}

TEST(Routerd, KilledServiceLeavesNobodyWithoutAnAnswer) {
  Road road({"--timeout", "ports.Late=4"});
  std::vector<Connection> clients;
  for (int number = 0; number < 64; ++number) {
    clients.push_back(road.connect());
    clients.back().send(request("ports.Late", payload(number, 0), std::to_string(number)));
  }
  ASSERT_TRUE(road.counts("in_flight", 64));
  road.ports().signal(SIGKILL);
  for (size_t number = 0; number < clients.size(); ++number) {
    EXPECT_EQ(clients[number].receive(), timed_out(std::to_string(number)));
  }
  EXPECT_EQ(road.call(request("events.Echo", "{}", "1")), answer("events.Echo", "{}"));

  road.ports().wait();
  road.start_ports();
  EXPECT_TRUE(road.is_served("ports"));
}

TEST(Routerd, ServiceIsKilledAndRestartedUnderLoad) {
  Road road({"--timeout", "ports.Echo=0.5"});
  std::atomic<int> right{0};
  std::thread killer([&] {
    for (int times = 0; times < 3; ++times) {
      const int before = right;
      eventually([&] { return right > before + 50; });
      road.ports().signal(SIGKILL);
      road.ports().wait();
      road.start_ports();
    }
  });
  std::atomic<bool> killing{true};
  std::thread waiter([&] {
    killer.join();
    killing = false;
  });
  at_once(16, [&](int number) {
    for (int turn = 0; killing; ++turn) {
      const auto received = road.call(request("ports.Echo", payload(number, turn), "1"));
      right += received == answer("ports.Echo", payload(number, turn)) ? 1 : 0;
      EXPECT_THAT(received, AnyOf(answer("ports.Echo", payload(number, turn)), timed_out("1")));
    }
  });
  waiter.join();
  EXPECT_TRUE(road.is_served("ports"));
}

// ---- The bus takes what the limit lets through ----

TEST(Routerd, BurstOfRequestsAndAnswersIsWithoutLoss) {
  constexpr int burst = 256;
  Road road;
  std::vector<Connection> clients;
  const std::string filling(4096, 'x');
  const auto params = [&filling](int number) {
    return R"({"of":256,"n":)" + std::to_string(number) + R"(,"filling":")" + filling + R"("})";
  };
  for (int number = 0; number < burst; ++number) {
    clients.push_back(road.connect());
    clients.back().send(request("ports.Burst", params(number), "1"));
  }
  int right = 0;
  for (int number = 0; number < burst; ++number) {
    if (clients[static_cast<size_t>(number)].receive() == answer("ports.Burst", std::to_string(number))) ++right;
  }
  EXPECT_EQ(right, burst);
}

TEST(Routerd, RequestsForAStoppedServiceWaitForIt) {
  constexpr int burst = 256;
  Road road({"--timeout", "ports.Echo=50"});
  road.ports().signal(SIGSTOP);
  std::vector<Connection> clients;
  for (int number = 0; number < burst; ++number) {
    clients.push_back(road.connect());
    clients.back().send(request("ports.Echo", payload(number, 0), "1"));
  }
  EXPECT_TRUE(road.counts("in_flight", burst));
  road.ports().signal(SIGCONT);
  int right = 0;
  for (int number = 0; number < burst; ++number) {
    if (clients[static_cast<size_t>(number)].receive() == answer("ports.Echo", payload(number, 0))) ++right;
  }
  EXPECT_EQ(right, burst);
}

}  // namespace
}  // namespace kestro::test
