// The simulated unit while its allocations and its system calls fail: each caller gets a whole answer, or none, and the
// callers that come later get theirs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "faults/failing_process.hpp"
#include "kestro_jrpc.h"
#include "support/bus_caller.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

using namespace std::chrono_literals;
using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// ---- From the start to the end

class FailingSimdStart : public FailingStart {
 protected:
  // Starts the daemon, and ends it as soon as it is ready.
  void live() {
    Process daemon({KESTRO_SIMD, "--bus-publish", address, "--bus-subscribe", address_of_others, "--seed", "7",
                    "--fault", "offline=c3", "--event-interval", "60"});
    if (const int status = FailingStart::live(daemon); status != 0) {
      // An option that cannot be checked is refused.
      EXPECT_THAT(status, AnyOf(1, 2)) << daemon.err();
      EXPECT_THAT(daemon.err(), HasSubstr(status == 1 ? "kestro-simd: " : "--fault: "));
    }
  }
};

TEST_F(FailingSimdStart, EachAllocation) {
  campaign.fail_each_allocation(Persistence::Once, 12, [this] { live(); });
  campaign.fail_each_allocation(Persistence::ForEver, 4, [this] { live(); });
  tell("allocations");
}

TEST_F(FailingSimdStart, EachSystemCall) {
  const std::vector<FailingCall> rows = {
      {"signalfd", {EMFILE, ENOMEM}},   {"timerfd_create", {EMFILE, ENOMEM}},
      {"timerfd_settime", {EINVAL}},    {"read", {EINTR, EIO}},
      {"close", {EINTR, EIO}},          {"poll", {EINTR, ENOMEM}},
      {"nn_socket", {EMFILE}},          {"nn_setsockopt", {ENOPROTOOPT}},
      {"nn_getsockopt", {ENOPROTOOPT}}, {"nn_bind", {EADDRINUSE}},
      {"nn_connect", {ENODEV}},
  };
  campaign.fail_each_call(rows, 3, [this] { live(); });
  tell("calls");
}

// ---- Requests

struct Call {
  const char* name;
  const char* method;
  const char* params;
};
void PrintTo(const Call& call, std::ostream* out) {
  *out << call.name;
}

class FailingSimd : public testing::TestWithParam<Call> {
 protected:
  void SetUp() override {
    caller.hear(address);
    start();
    expected = ask();
    ASSERT_THAT(expected, testing::Not(AnyOf(IsEmpty(), StartsWith("error"))));
    ASSERT_EQ(ask(), expected);
  }
  void start() {
    process.reset();
    process = std::make_unique<Process>(std::vector<std::string>{KESTRO_SIMD, "--bus-publish", address,
                                                                 "--bus-subscribe", caller.address(), "--seed", "7"});
    ASSERT_TRUE(eventually([&] { return has_ended(*process) || !call("sim.GetUnit", "{}", 50ms).empty(); }));
    held = descriptors(process->pid());
  }
  std::string call(const std::string& method, const std::string& params, std::chrono::milliseconds patience = 1min) {
    return caller.call(KESTRO_JRPC_CHANNEL_DEFAULT, method, params, patience);
  }

  // The answer that came while things failed, or nothing.
  std::string ask() {
    const auto number = caller.ask(KESTRO_JRPC_CHANNEL_DEFAULT, GetParam().method, GetParam().params);
    std::string answer;
    EXPECT_TRUE(eventually([&] {
      answer = caller.await(number, 5ms);
      return !answer.empty() || control.failed() > 0 || has_ended(*process);
    })) << process->err();
    if (control->memory.is_for_ever() && answer.empty()) answer = caller.await(number, 50ms);
    control.rest();
    // Requests are served one after the other.
    const auto next = caller.ask(KESTRO_JRPC_CHANNEL_DEFAULT, "sim.GetUnit");
    EXPECT_TRUE(eventually([&] { return !caller.await(next, 20ms).empty() || has_ended(*process); })) << process->err();
    return answer.empty() ? caller.await(number, 1ms) : answer;
  }

  void try_once() {
    const std::string answer = ask();
    if (answer != expected) {
      EXPECT_GT(control.failed(), 0) << process->err();
      EXPECT_THAT(answer, AnyOf(IsEmpty(), StartsWith("error {\"code\":-3"))) << process->err();
    }
    if (has_ended(*process)) {
      ++ends;
      EXPECT_GT(control.failed(), 0) << process->err();
      EXPECT_EQ(process->wait(), 1) << process->err();
      EXPECT_THAT(process->err(), HasSubstr("kestro-simd: "));
      start();
      ask();
    }
    // The next one is served.
    EXPECT_EQ(ask(), expected) << process->err();
    ASSERT_FALSE(HasFailure()) << process->err();
  }
  void expect_nothing_left() {
    EXPECT_TRUE(eventually([&] { return descriptors(process->pid()) <= held; }))
        << descriptors(process->pid()) << " instead of " << held;
    EXPECT_EQ(process->terminate(), 0) << process->err();
  }

  ControlFile control;
  ProgramCampaign campaign{control, From::Trial, Extent::Sparse};
  std::string address = free_bus_address();
  BusCaller caller;
  std::unique_ptr<Process> process;
  std::string expected;
  std::ptrdiff_t held = 0;
  int ends = 0;
};

TEST_P(FailingSimd, EachAllocation) {
  campaign.fail_each_allocation(Persistence::Once, 12, [this] { try_once(); });
  campaign.fail_each_allocation(Persistence::ForEver, 1, [this] { try_once(); });
  expect_nothing_left();
  printf("[   FAULTS ] %d allocations failed, %d ended the daemon\n", campaign.trials(), ends);
}

TEST_P(FailingSimd, EachSystemCall) {
  const std::vector<FailingCall> rows = {
      {"poll", {EINTR, ENOMEM}, false}, {"read", {EINTR, EIO}, false},        {"nn_recv", {EINTR, ENOMEM}},
      {"nn_send", {EINTR, EBADF}},      {"timerfd_settime", {EINVAL}, false}, {"nn_freemsg", {EFAULT}},
  };
  campaign.fail_each_call(rows, 4, [this] { try_once(); });
  expect_nothing_left();
  printf("[   FAULTS ] %d calls failed, %d ended the daemon\n", campaign.trials(), ends);
}

const std::vector<Call> calls = {
    {"Answer", "emac.service.CoreSwitchGetInfo", "{}"},
    {"Configure", "emac.service.CoreSwitchConfigure",
     R"({"oec_number":1,"ports":[{"port_number":1,"port_status":1,"poe_status":2,"link_status":2,"link_speed":6,)"
     R"("vlan_mode":2,"vlan_ids":[10],"mac_filters":[{"mac":"02:00:01:00:00:01","mask":"FF:FF:FF:FF:FF:FF"}]}]})"},
    {"Late", "sim.SetFault", R"({"fault":"late","milliseconds":10})"},
    {"Event", "sim.SetFault", R"({"fault":"offline","oec_id":"c3"})"},
};
INSTANTIATE_TEST_SUITE_P(Calls, FailingSimd, testing::ValuesIn(calls), name_of<Call>);

}  // namespace
}  // namespace kestro::test
