// The load: each request has exactly one outcome, whatever the other side does.

#include "kestroctl/load.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <functional>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "kestroctl/latencies.hpp"
#include "support/bus.hpp"
#include "support/json.hpp"
#include "support/named.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using namespace std::chrono_literals;
using ctl::Latencies;
using ctl::Ledger;
using ctl::Load;

// ---- Percentiles ----

TEST(LatenciesTest, OfNothingAreZero) {
  const Latencies none;
  EXPECT_EQ(none.count(), 0U);
  EXPECT_EQ(none.smallest(), 0ns);
  EXPECT_EQ(none.largest(), 0ns);
  EXPECT_EQ(none.percentile(99), 0ns);
}

TEST(LatenciesTest, SmallNumbersAreExact) {
  Latencies times;
  for (int i = 1; i <= 100; ++i) times.add(std::chrono::nanoseconds(i));
  EXPECT_EQ(times.percentile(0), 1ns);
  EXPECT_EQ(times.percentile(1), 1ns);
  EXPECT_EQ(times.percentile(50), 50ns);
  EXPECT_EQ(times.percentile(90), 90ns);
  EXPECT_EQ(times.percentile(99.5), 100ns);
  EXPECT_EQ(times.percentile(100), 100ns);
}

TEST(LatenciesTest, AreWithinTheirPrecision) {
  std::mt19937_64 random(7);
  std::vector<int64_t> exact;
  Latencies times;
  for (int i = 0; i < 20'000; ++i) {
    const auto time = static_cast<int64_t>(random() >> (random() % 60 + 4));
    exact.push_back(time);
    times.add(std::chrono::nanoseconds(time));
  }
  std::sort(exact.begin(), exact.end());
  for (const double percent : {0.1, 1.0, 10.0, 50.0, 90.0, 99.0, 99.9, 100.0}) {
    const auto rank = static_cast<size_t>(std::ceil(percent / 100 * static_cast<double>(exact.size())));
    const auto expected = exact[rank - 1];
    const auto got = times.percentile(percent).count();
    EXPECT_GE(got, expected) << percent;
    EXPECT_LE(static_cast<double>(got - expected), static_cast<double>(expected) / 64) << percent;
  }
  EXPECT_EQ(times.smallest().count(), exact.front());
  EXPECT_EQ(times.largest().count(), exact.back());
}

TEST(LatenciesTest, TheExtremesHaveTheirPlace) {
  Latencies times;
  times.add(-5ns);
  times.add(Latencies::Time::max());
  EXPECT_EQ(times.smallest(), 0ns);
  EXPECT_EQ(times.percentile(50), 0ns);
  EXPECT_EQ(times.percentile(100), Latencies::Time::max());
}

// ---- The ledger ----

std::string outcome_of(const Ledger& ledger) {
  std::string text;
  const auto add = [&text](const std::string& name, uint64_t count) {
    if (count != 0) text += (text.empty() ? "" : " ") + name + "=" + std::to_string(count);
  };
  add("answered", ledger.answered);
  for (const auto& [code, count] : ledger.errors) add(std::to_string(code), count);
  add("timed_out", ledger.timed_out);
  add("busy", ledger.busy);
  add("closed", ledger.closed);
  add("lost", ledger.lost);
  add("mixed_up", ledger.mixed_up);
  add("not_connected", ledger.not_connected);
  return text;
}

struct Entry {
  const char* name;
  const char* answer;
  const char* outcome;
};

std::ostream& operator<<(std::ostream& out, const Entry& c) {
  return out << c.name;
}

const Entry entries[] = {
    {"Result", R"({"id":"m","result":0,"transaction_id":7})", "answered=1"},
    {"Error", R"({"id":"m","error":{"code":-32030},"transaction_id":7})", "-32030=1"},
    {"TimedOut", R"({"id":"kestroctl-load","error":{"code":-32005},"transaction_id":7})", "timed_out=1"},
    {"Busy", R"({"id":"kestroctl-load","error":{"code":-32014},"transaction_id":7})", "busy=1"},
    {"OwnIdInAnAnswer", R"({"id":"kestroctl-load","result":0,"transaction_id":7})", "answered=1"},
    {"OtherNumber", R"({"id":"m","result":0,"transaction_id":8})", "mixed_up=1"},
    {"NoNumber", R"({"id":"m","result":0})", "mixed_up=1"},
    {"NumberAsText", R"({"id":"m","result":0,"transaction_id":"7"})", "mixed_up=1"},
    {"OtherMethod", R"({"id":"n","result":0,"transaction_id":7})", "mixed_up=1"},
    {"NoId", R"({"result":0,"transaction_id":7})", "mixed_up=1"},
    {"OthersError", R"({"id":"m","error":{"code":-32030},"transaction_id":8})", "mixed_up=1"},
    {"CutOff", R"({"id":"m","result":0,"transac)", "lost=1"},
    {"NoObject", R"([])", "lost=1"},
    {"NeitherResultNorError", R"({"id":"m","transaction_id":7})", "lost=1"},
};

class LedgerEntry : public testing::TestWithParam<Entry> {};

TEST_P(LedgerEntry, IsEnteredOnce) {
  Ledger ledger;
  ledger.requests = 1;
  ctl::enter_answer(ledger, "m", 7, GetParam().answer);
  EXPECT_EQ(outcome_of(ledger), GetParam().outcome);
  EXPECT_EQ(ledger.outcomes(), 1U);
  EXPECT_EQ(ledger.is_sound(), ledger.lost + ledger.mixed_up == 0);
}

INSTANTIATE_TEST_SUITE_P(Answers, LedgerEntry, testing::ValuesIn(entries), name_of<Entry>);

TEST(LedgerTest, WithoutAnOutcomeForEachRequestIsNotSound) {
  Ledger ledger;
  ledger.requests = 2;
  ledger.answered = 1;
  EXPECT_FALSE(ledger.is_sound());
  ledger.closed = 1;
  EXPECT_TRUE(ledger.is_sound());
  ledger.answered = 2;
  EXPECT_FALSE(ledger.is_sound());
}

TEST(LedgerTest, IsTold) {
  Ledger ledger;
  ledger.requests = 3;
  ledger.answered = 1;
  ledger.errors[-32030] = 2;
  ledger.latencies.add(2ms);
  ledger.took = ctl::Seconds(0.5);
  EXPECT_EQ(text_of(ledger.json().get()),
            R"({"requests":3,"answered":1,"errors":{"-32030":2},"timed_out":0,"busy":0,"closed":0,"lost":0,)"
            R"("mixed_up":0,"not_connected":0,"seconds":0.5,"latency_ms":{"min":2.0,"p50":2.0,"p90":2.0,)"
            R"("p99":2.0,"p99.9":2.0,"max":2.0}})");
}

// ---- The load against a stand-in for the router ----

// Answers each connection as told, on a thread of its own.
class StandIn {
 public:
  // Gets the request and how many came before it; what it returns is sent.
  using Script = std::function<std::string(const json_t* request, int turn)>;

  explicit StandIn(Script script, int hold = 1) : script_(std::move(script)), hold_(static_cast<size_t>(hold)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path().c_str(), sizeof address.sun_path - 1);
    if (bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener_.get(), 4) != 0) {
      throw std::runtime_error("no socket");
    }
    thread_ = std::thread([this] { serve(); });
  }
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;
  ~StandIn() {
    stop_ = true;
    thread_.join();
  }

  [[nodiscard]] std::string path() const { return dir_.file("router.sock"); }
  // Of the requests so far.
  [[nodiscard]] const std::set<json_int_t>& numbers() const { return numbers_; }

  // Sends nothing, and does not close.
  static constexpr const char* silence = "silence";

 private:
  void serve() {
    std::vector<Descriptor> silent;
    std::vector<std::pair<Descriptor, std::string>> held;
    while (!stop_) {
      pollfd ready{listener_.get(), POLLIN, 0};
      if (poll(&ready, 1, 20) <= 0) continue;
      Descriptor client(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
      const auto answer = answer_to(client.get());
      if (answer == silence) {
        silent.push_back(std::move(client));
        continue;
      }
      held.emplace_back(std::move(client), answer);
      if (held.size() < hold_) continue;
      for (const auto& [socket, text] : held) send(socket.get(), text.data(), text.size(), MSG_NOSIGNAL);
      held.clear();
    }
  }
  std::string answer_to(int client) {
    std::string text;
    std::array<char, 4096> piece;
    while (text.find('\n') == std::string::npos) {
      const ssize_t count = recv(client, piece.data(), piece.size(), 0);
      if (count <= 0) return "";
      text.append(piece.data(), static_cast<size_t>(count));
    }
    const Json request = json_of(text);
    numbers_.insert(json_integer_value(json_object_get(request.get(), "transaction_id")));
    return script_(request.get(), turn_++);
  }

  Script script_;
  size_t hold_;
  TempDir dir_;
  Descriptor listener_{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  std::atomic<bool> stop_ = false;
  int turn_ = 0;
  std::set<json_int_t> numbers_;
  std::thread thread_;
};

std::string answer(const json_t* request, json_int_t shift = 0) {
  const auto number = json_integer_value(json_object_get(request, "transaction_id"));
  return R"({"id":"m","result":0,"transaction_id":)" + std::to_string(number + shift) + "}";
}

Load load_on(const std::string& path, uint64_t requests, size_t clients) {
  return {
      .router = {.socket = path, .port = 0}, .clients = clients, .requests = requests, .patience = 60s, .method = "m"};
}

Ledger run(const Load& load) {
  return ctl::run_load(load, [](const Ledger&) { return true; });
}

TEST(LoadTest, EveryRequestHasItsOwnNumberAndItsAnswer) {
  StandIn router([](const json_t* request, int) { return answer(request); });
  const auto ledger = run(load_on(router.path(), 500, 7));
  EXPECT_EQ(outcome_of(ledger), "answered=500");
  EXPECT_EQ(ledger.requests, 500U);
  EXPECT_EQ(ledger.latencies.count(), 500U);
  EXPECT_GT(ledger.latencies.smallest(), 0ns);
  EXPECT_TRUE(ledger.is_sound());
  EXPECT_EQ(router.numbers().size(), 500U);
}

TEST(LoadTest, HasAsManyOnTheirWayAsClients) {
  StandIn router([](const json_t* request, int) { return answer(request); }, 5);  // answers five at once, or none
  EXPECT_EQ(outcome_of(run(load_on(router.path(), 20, 5))), "answered=20");
}

TEST(LoadTest, MoreClientsThanTheQueueHoldsWaitForTheirTurn) {
  StandIn router([](const json_t* request, int) { return answer(request); });
  EXPECT_EQ(outcome_of(run(load_on(router.path(), 300, 100))), "answered=300");
}

TEST(LoadTest, EveryOutcomeIsSeen) {
  StandIn router([](const json_t* request, int turn) -> std::string {
    switch (turn % 5) {
      case 0:
        return "";
      case 1:
        return answer(request, 1);
      case 2:
        return R"({"id":"m","result)";
      case 3:
        return R"({"id":"m","error":{"code":-32030},"transaction_id":)" +
               std::to_string(json_integer_value(json_object_get(request, "transaction_id"))) + "}";
      default:
        return answer(request);
    }
  });
  const auto ledger = run(load_on(router.path(), 50, 3));
  EXPECT_EQ(outcome_of(ledger), "answered=10 -32030=10 closed=10 lost=10 mixed_up=10");
  EXPECT_FALSE(ledger.is_sound());
}

TEST(LoadTest, WhatIsNotAnsweredInTimeIsLost) {
  StandIn router([](const json_t* request, int turn) { return turn == 1 ? StandIn::silence : answer(request); });
  auto load = load_on(router.path(), 3, 1);
  load.patience = 0.3s;
  const auto ledger = run(load);
  EXPECT_EQ(ledger.lost, 1U);
  EXPECT_EQ(ledger.outcomes(), 3U);
}

TEST(LoadTest, LongAnswersArriveWhole) {
  StandIn router([](const json_t* request, int) {
    auto text = answer(request);
    return text.insert(1, "\"pad\":\"" + std::string(300'000, 'x') + "\",");
  });
  EXPECT_EQ(outcome_of(run(load_on(router.path(), 10, 2))), "answered=10");
}

TEST(LoadTest, WithoutARouterNothingIsConnected) {
  const TempDir dir;
  EXPECT_EQ(outcome_of(run(load_on(dir.file("none"), 4, 2))), "not_connected=4");
  Load load = load_on("", 2, 2);
  load.router.port = free_port();
  EXPECT_EQ(outcome_of(run(load)), "not_connected=2");
}

TEST(LoadTest, EndsWhenItsTimeIsOver) {
  StandIn router([](const json_t* request, int) { return answer(request); });
  auto load = load_on(router.path(), 0, 2);
  load.duration = 0.2s;
  const auto ledger = run(load);
  EXPECT_GT(ledger.requests, 0U);
  EXPECT_GE(ledger.took, 0.2s);
  EXPECT_EQ(ledger.outcomes(), ledger.requests);
}

TEST(LoadTest, EndsWhenItIsToldTo) {
  StandIn router([](const json_t* request, int) { return answer(request); });
  int asked = 0;
  const auto ledger = ctl::run_load(load_on(router.path(), 0, 2), [&asked](const Ledger&) { return ++asked < 2; });
  EXPECT_EQ(asked, 2);
  EXPECT_TRUE(ledger.is_sound());
}

}  // namespace
}  // namespace kestro::test
