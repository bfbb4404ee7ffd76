// What passes between the bus and the methods, and when.

#include "simd/gate.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "kestro_jrpc.h"
#include "kestro_mq.h"
#include "support/bus.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"
#include "support/process.hpp"

namespace kestro::simd {
namespace {

using testing::ElementsAre;

int32_t answer_nothing(json_t* /*params*/, json_t** /*result*/, json_t** /*err_data*/) {
  return 0;
}

class SimdGate : public testing::Test {
 protected:
  void request(const std::string& method) const {
    kestro_mq_socket_send(requests_.publisher.handle(),
                          (R"(channel|{"jsonrpc":"2.0","method":")" + method + R"(","id":"reply"})").c_str());
  }
  // Returns when there is something for the gate to take.
  void await_frame() const {
    int fd = -1;
    ASSERT_EQ(kestro_mq_socket_recvfd(requests_.subscriber.handle(), &fd), 0);
    pollfd readable{fd, POLLIN, 0};
    ASSERT_EQ(poll(&readable, 1, 60'000), 1);
  }
  void set(const std::string& word) { faults_.set(parse_fault(word).value()); }

  // Lets the gate work until this many answers have come; gives the methods that were answered, in order.
  std::vector<std::string> answers(size_t count) {
    std::vector<std::string> methods;
    const bool came = test::eventually([&] {
      gate_.take_frames();
      gate_.release_due();
      collect(methods);
      return methods.size() >= count;
    });
    EXPECT_TRUE(came);
    return methods;
  }

  Faults faults_;

 private:
  void collect(std::vector<std::string>& methods) const {
    char* raw = nullptr;
    int32_t length = 0;
    while (kestro_mq_socket_recv(answers_.subscriber.handle(), &raw, &length, 1) == 0) {
      const kestro::Text frame(raw);
      const std::string text(frame.get());
      const auto from = text.find(R"("id":")") + 6;
      methods.push_back(text.substr(from, text.find('"', from) - from));
    }
  }

  test::LogLevel quiet_{0};
  test::BusPair requests_;
  test::BusPair answers_;
  kestro_jrpc_mapping_t table_[6] = {{"emac.One", answer_nothing},     {"emac.Two", answer_nothing},
                                     {"sim.SetFault", answer_nothing}, {"logger.ReloadConf", answer_nothing},
                                     {"simple.Three", answer_nothing}, {nullptr, nullptr}};
  Gate gate_{requests_.subscriber.handle(), answers_.publisher.handle(), table_, faults_};
};

TEST_F(SimdGate, IsOpenFromTheFirstFrameOn) {
  request("emac.One");
  request("emac.Two");
  EXPECT_THAT(answers(2), ElementsAre("emac.One", "emac.Two"));
}

TEST_F(SimdGate, ServesAFrameWhoseReceiveFailed) {
  request("emac.One");
  await_frame();
  const test::Fault behind_the_gate("nn_recv", EINTR, 2);
  EXPECT_THAT(answers(1), ElementsAre("emac.One"));
  EXPECT_TRUE(behind_the_gate.fired());
}

TEST_F(SimdGate, ASilentUnitAnswersWhoSteersIt) {
  set("silent");
  request("emac.One");
  request("sim.SetFault");
  request("simple.Three");
  EXPECT_THAT(answers(1), ElementsAre("sim.SetFault"));
  set("none");
  request("emac.Two");
  EXPECT_THAT(answers(1), ElementsAre("emac.Two"));  // what was dropped is not answered later
}

TEST_F(SimdGate, TheLogIsTheOperatorsInEveryFault) {
  for (const auto* word : {"silent", "late=60000"}) {
    set("none");
    set(word);
    request("emac.One");
    request("logger.ReloadConf");
    EXPECT_THAT(answers(1), ElementsAre("logger.ReloadConf")) << word;
  }
}

TEST_F(SimdGate, AFrameIsNoLongerHeldBackThanItIsLate) {
  set("late=60000");
  request("emac.One");
  request("sim.SetFault");
  EXPECT_THAT(answers(1), ElementsAre("sim.SetFault"));  // so the other one was taken, too
  set("late=30");
  request("emac.Two");
  EXPECT_THAT(answers(1), ElementsAre("emac.Two"));
  set("none");
  request("simple.Three");
  EXPECT_THAT(answers(1), ElementsAre("simple.Three"));
}

TEST_F(SimdGate, LateFramesKeepTheirOrder) {
  set("late=30");
  std::vector<std::string> sent;
  for (int i = 0; i < 20; ++i) {
    sent.emplace_back(i % 3 == 0 ? "emac.One" : "emac.Two");
    request(sent.back());
  }
  EXPECT_EQ(answers(20), sent);
}

TEST_F(SimdGate, ALateFrameWaitsItsTime) {
  set("late=50");
  const auto sent = std::chrono::steady_clock::now();
  request("emac.One");
  EXPECT_THAT(answers(1), ElementsAre("emac.One"));
  EXPECT_GE(std::chrono::steady_clock::now() - sent, std::chrono::milliseconds(50));
}

TEST_F(SimdGate, GarbageDoesNoHarm) {
  const auto garbage = {"", "|", "channel|", "channel|{", "channel|[]", R"(channel|{"method":7})", "no separator"};
  for (const auto* word : {"none", "late=1", "silent"}) {
    set(word);
    for (const auto* frame : garbage) request(frame);
    request("sim.SetFault");
    EXPECT_THAT(answers(1), testing::Contains("sim.SetFault"));
  }
}

TEST_F(SimdGate, TakesManyFramesAsTheyCome) {
  for (int i = 0; i < 200; ++i) request("emac.One");
  EXPECT_EQ(answers(200).size(), 200U);
}

}  // namespace
}  // namespace kestro::simd
