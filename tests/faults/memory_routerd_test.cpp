// The parts of the router daemon while memory runs out: they throw std::bad_alloc, or give nothing, and leak nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/use_awaitable.hpp>
#include <chrono>
#include <cstring>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/owned.hpp"
#include "faults/memory.hpp"
#include "routerd/client.hpp"
#include "routerd/framing.hpp"
#include "routerd/in_flight.hpp"
#include "routerd/request.hpp"
#include "routerd/response.hpp"
#include "routerd/send_window.hpp"
#include "routerd/stats.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/shm_name.hpp"

namespace kestro::test {
namespace {

using namespace std::chrono_literals;
using routerd::InFlight;

constexpr int32_t thrown = -1;

// As a status: what the daemon's loop gets to see.
template <class Action>
int32_t caught(Action&& action) {
  try {
    action();
    return 0;
  } catch (const std::bad_alloc&) {
    return thrown;
  }
}

// "transaction_id" is a word that the JSON library's scanner does not survive to run out of memory on.
constexpr const char* request_text = R"({"jsonrpc":"2.0","method":"ports.Get","params":{"a":[1,2]},"id":"c7"})";

void read_a_request(Trial& trial) {
  const LogLevel level(Verbose);
  const std::string text = request_text;
  trial.call({thrown, 1}, [&] {
    int32_t objected = 0;
    const auto status = caught([&] {
      const routerd::Request request(text);
      if (request.objection() == nullptr) {
        EXPECT_EQ(request.method(), "ports.Get");
      } else {
        objected = 1;
      }
    });
    return status != 0 ? status : objected;
  });
}

void address_a_request(Trial& trial) {
  const LogLevel level(Verbose);
  routerd::Request request{std::string(request_text)};
  trial.call({-2}, [&] { return request.addressed(7) ? 0 : -2; });
}

// An answer of the router's own is whole, or there is none.
void make_own_answers(Trial& trial) {
  const LogLevel level(Verbose);
  const routerd::Request request(R"({"jsonrpc":"2.0","method":"ports.Get","id":7,"transaction_id":1234567890123})");
  for (const bool strict : {false, true}) {
    for (const bool busy : {false, true}) {
      std::string answer;
      const auto status = trial.call({thrown, -2}, [&] {
        const auto made = caught([&] { answer = busy ? request.busy(strict) : request.timed_out(strict); });
        return made == 0 && answer.empty() ? -2 : made;
      });
      if (status == 0) {
        const Json object = json_of(answer);
        EXPECT_EQ(text_of(json_object_get(object.get(), "transaction_id")), "1234567890123") << answer;
        EXPECT_EQ(text_of(json_object_get(object.get(), "id")), strict ? "7" : "\"7\"") << answer;
        EXPECT_TRUE(json_is_object(json_object_get(object.get(), "error"))) << answer;
      }
    }
  }
}

// A service's answer reaches the client with the client's own number, or not at all.
void restore_an_answer(Trial& trial) {
  const LogLevel level(Verbose);
  const routerd::Request request(R"({"jsonrpc":"2.0","method":"ports.Get","id":"c7","transaction_id":5})");
  const std::string plain = R"({"jsonrpc":"2.0","id":"ports.Get","result":1,"transaction_id":77})";
  // The member's name is written with an escape, so the text is parsed instead of spliced.
  const std::string escaped = R"({"id":"ports.Get","t\u0072":1,"result":1})";
  for (const auto& text : {plain, escaped}) {
    std::string answer;
    const auto status = trial.call({thrown, -2}, [&] {
      const auto made = caught([&] { answer = request.restore(routerd::Response(text), true); });
      return made == 0 && answer.empty() ? -2 : made;
    });
    if (status == 0) {
      const Json object = json_of(answer);
      EXPECT_EQ(text_of(json_object_get(object.get(), "transaction_id")), "5") << answer;
      EXPECT_EQ(text_of(json_object_get(object.get(), "id")), "\"c7\"") << answer;
    }
  }
}

// A plain text needs no object of the JSON library.
void read_a_response(Trial& trial) {
  const std::string text = R"({"jsonrpc":"2.0","id":"a.method.with.a.long.name","transaction_id":77})";
  trial.call({thrown}, [&] {
    return caught([&] {
      const routerd::Response response(text);
      EXPECT_EQ(response.number(), 77);
      EXPECT_EQ(response.method(), "a.method.with.a.long.name");
    });
  });
}

void read_an_odd_response(Trial& trial) {
  const std::string text = R"({"\u006asonrpc":"2.0","id":"a.method.with.a.long.name"})";
  trial.call({thrown, -2}, [&] {
    bool sound = false;
    const auto status = caught([&] { sound = routerd::Response(text).is_sound(); });
    return status == 0 && !sound ? -2 : status;
  });
}

// Runs a coroutine to its end on a loop of its own.
template <class Coroutine>
int32_t run(asio::io_context& io, Coroutine coroutine) {
  std::exception_ptr failure;
  return caught([&] {
    asio::co_spawn(io, coroutine(), [&](const std::exception_ptr& thrown_in_it) {
      failure = thrown_in_it;
      io.stop();  // a deadline may still be waiting
    });
    io.run();
    if (failure) std::rethrow_exception(failure);
  });
}

void wait_for_a_response(Trial& trial) {
  trial.call({thrown}, [&] {
    return caught([&] {
      InFlight in_flight;
      {
        asio::io_context io(1);
        const auto status = run(io, [&]() -> asio::awaitable<void> {
          InFlight::Entry entry(in_flight, io, "ports.Get", InFlight::Clock::now() + 100s);
          routerd::Response sent(R"({"id":"ports.Get","transaction_id":)" + std::to_string(entry.number()) + "}");
          EXPECT_EQ(in_flight.deliver(sent), InFlight::Delivery::Done);
          const auto response = co_await entry.response();
          EXPECT_TRUE(response && response->method() == "ports.Get");
        });
        if (status != 0) throw std::bad_alloc();
      }
      EXPECT_EQ(in_flight.size(), 0U);
    });
  });
}

void enter_the_window(Trial& trial) {
  trial.call({thrown}, [&] {
    return caught([&] {
      routerd::SendWindows windows(100);
      bool given_up = false;
      asio::io_context io(1);
      const auto status = run(io, [&]() -> asio::awaitable<void> {
        const auto later = routerd::SendWindow::Clock::now() + 100s;
        routerd::SendWindow::Place first(windows.of("a channel with a long name"));
        routerd::SendWindow::Place second(windows.of("a channel with a long name"));
        EXPECT_TRUE(co_await first.enter(io, 1000, later, given_up));
        asio::post(io, [&] {  // when the second one waits
          given_up = true;
          windows.wake_all();
        });
        EXPECT_FALSE(co_await second.enter(io, 1000, later, given_up));
      });
      if (status != 0) throw std::bad_alloc();
    });
  });
}

// One connection from its first byte to its end.
void serve_a_client(Trial& trial) {
  const std::string request = R"({"a":")" + std::string(2000, 'x') + "\"}";
  int ends[2] = {-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const Descriptor peer(ends[1]);
  ASSERT_EQ(::send(peer.get(), request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
  Descriptor own(ends[0]);
  trial.call({thrown}, [&] {
    return caught([&] {
      asio::io_context io(1);
      const auto client = std::make_shared<routerd::Client>(io, AF_UNIX, std::move(own));
      const auto status = run(io, [&]() -> asio::awaitable<void> {
        const auto received = co_await client->read_request(10'000, 100s);
        EXPECT_EQ(received.text, request);
        EXPECT_EQ(co_await client->write("an answer", 100s), nullptr);
        client->close();
      });
      if (status != 0) throw std::bad_alloc();
    });
  });
}

void count(Trial& trial) {
  const ShmName name;
  std::optional<routerd::StatsVariable> variable;
  variable.emplace(name.str());
  trial.call({thrown}, [&] {
    return caught([&] {
      routerd::Stats stats;
      ++stats.refused["no_json"];
      stats.count_latency(3ms);
      variable->publish(stats);
    });
  });
}

// The name of a method that does not fit into a text's own bytes is the last thing that a request allocates.
void read_a_request_with_a_long_name(Trial& trial) {
  const std::string text = R"({"jsonrpc":"2.0","method":"emac.service.CoreSwitchGetTemps","id":"c7"})";
  trial.call({thrown}, [&] {
    return caught([&] { EXPECT_EQ(routerd::Request(text).method(), "emac.service.CoreSwitchGetTemps"); });
  });
}
TEST(MemoryOfRouterd, LongNameOfAMethod) {
  Performance reading{.play = read_a_request_with_a_long_name, .plan = FailingMalloc::plan(), .ending = {}};
  reading.nth = perform(reading).seen;
  const Outcome outcome = perform(reading);
  EXPECT_TRUE(outcome.well) << outcome.objection;
  EXPECT_EQ(outcome.failed, 1);
}

// The event loop ends the process where an allocation of its own fails.
const Ending end_of_the_loop = aborts("terminate called ");

INSTANTIATE_TEST_SUITE_P(Routerd, MemoryCampaign,
                         testing::ValuesIn(std::vector<MemoryScenario>{
                             {"ReadARequest", read_a_request},
                             {"AddressARequest", address_a_request},
                             {"MakeOwnAnswers", make_own_answers},
                             {"RestoreAnAnswer", restore_an_answer},
                             {"ReadAResponse", read_a_response},
                             {"ReadAnOddResponse", read_an_odd_response},
                             {"WaitForAResponse", wait_for_a_response, end_of_the_loop},
                             {"EnterTheWindow", enter_the_window, end_of_the_loop},
                             {"ServeAClient", serve_a_client, end_of_the_loop},
                             {"Count", count},
                         }),
                         name_of<MemoryScenario>);

}  // namespace
}  // namespace kestro::test
