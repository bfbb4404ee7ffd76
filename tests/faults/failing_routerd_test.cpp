// The router daemon while its allocations and its system calls fail. Each client gets its whole answer, or none; the
// clients that come later get theirs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "e2e/routerd.hpp"
#include "faults/failing_process.hpp"
#include "support/shm_name.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;

class FailingRouterd : public testing::Test {
 protected:
  void SetUp() override { start(); }

  void start() {
    road.reset();
    road = std::make_unique<Road>(std::vector<std::string>{"--timeout", "ports.Echo=0.5", "--read-timeout", "1"});
    EXPECT_TRUE(is_sound());
    ASSERT_TRUE(road->counts("clients", 0));
    held = descriptors(road->router().pid());
  }
  [[nodiscard]] bool has_ended() const { return test::has_ended(road->router()); }
  // What a client gets for a request; nothing when it cannot even connect.
  [[nodiscard]] std::string ask() const {
    try {
      const std::string text = request("ports.Echo", R"({"a":1})", "\"mine\"", R"(,"transaction_id":77)");
      const Connection client = road->connect();
      client.send(text.substr(0, 20));
      usleep(2'000);  // usually enough to make the daemon wait for the rest
      client.send(text.substr(20));
      return client.receive();
    } catch (const std::exception&) {
      return "";
    }
  }
  const std::string full_answer = answer("ports.Echo", R"({"a":1})", R"(,"transaction_id":77)");
  // A late client is served, after a pause at the most.
  [[nodiscard]] bool is_sound() const {
    return eventually([&] { return has_ended() || ask() == full_answer; }) && !has_ended();
  }
  // What may come when something failed: the answer, one of the router's own, or the end of the connection.
  void expect_whole(const std::string& received) const {
    EXPECT_THAT(received, AnyOf(full_answer, IsEmpty(), HasSubstr("\"code\":-32005"), HasSubstr("\"code\":-32014")));
    if (!received.empty()) {
      const Json object(json_loads(received.c_str(), JSON_REJECT_DUPLICATES, nullptr));
      EXPECT_TRUE(json_is_object(object.get())) << received;
      EXPECT_EQ(json_integer_value(json_object_get(object.get(), "transaction_id")), 77) << received;
    }
  }
  void expect_no_descriptor_lost() const {
    EXPECT_TRUE(eventually([&] { return descriptors(road->router().pid()) <= held; }))
        << descriptors(road->router().pid()) << " instead of " << held;
  }

  ControlFile control;
  std::unique_ptr<Road> road;
  std::ptrdiff_t held = 0;
};

// ---- Memory

// Where it is the event loop's own memory that lacks, the daemon ends, but in good order.
TEST_F(FailingRouterd, EachAllocationOfARequestFails) {
  ProgramCampaign campaign(control, From::Trial);
  int ends = 0;
  const auto trial = [&] {
    const std::string received = ask();
    control.rest();
    expect_whole(received);
    if (!is_sound()) {
      ++ends;
      EXPECT_EQ(road->router().wait(), 1) << road->router().err();
      EXPECT_THAT(road->router().err(), AnyOf(HasSubstr("out of memory\n"), HasSubstr("kestro-routerd: ")));
      start();
    }
    ASSERT_FALSE(HasFailure()) << road->router().err();
  };
  campaign.fail_each_allocation(Persistence::Once, 40, trial);
  campaign.fail_each_allocation(Persistence::ForEver, 4, trial);
  expect_no_descriptor_lost();
  printf("[   FAULTS ] %d allocations failed, %d ended the daemon\n", campaign.trials(), ends);
}

// ---- System calls

TEST_F(FailingRouterd, EachSystemCallOfARequestFails) {
  const std::vector<FailingCall> rows = {
      {"accept4", {EAGAIN, EINTR, ECONNABORTED, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPERM, EPROTO}},
      {"epoll_ctl", {ENOMEM, ENOSPC}, false},
      {"recv", {0, EINTR, EAGAIN, ECONNRESET, ETIMEDOUT, ENOMEM}},
      {"send", {0, EINTR, EAGAIN, EPIPE, ECONNRESET, ENOBUFS, ENOMEM}},
      {"shutdown", {ENOTCONN, ENOBUFS}, false},
      {"close", {EINTR, EIO}},
      {"epoll_wait", {EINTR}},
      {"nn_allocmsg", {ENOMEM}},
      {"nn_send", {EAGAIN, EINTR, EBADF}},
      {"nn_recv", {EAGAIN, EINTR, ENOMEM}},
      {"nn_freemsg", {EFAULT}},
  };
  ProgramCampaign campaign(control, From::Trial);
  campaign.fail_each_call(rows, 4, [&] {
    const std::string received = ask();
    // The client hears of its end before the daemon has closed the connection.
    for (int tries = 0; tries < 20 && control.failed() == 0; ++tries) usleep(5'000);
    control.rest();
    expect_whole(received);
    EXPECT_TRUE(is_sound()) << road->router().err();
    ASSERT_FALSE(HasFailure()) << road->router().err();
  });
  expect_no_descriptor_lost();
  printf("[   FAULTS ] %d calls failed\n", campaign.trials());
}

// Counters that cannot be published once are published the next time.
TEST_F(FailingRouterd, EachSystemCallOfTheCountersFails) {
  const std::vector<FailingCall> rows = {
      {"shm_open", {EMFILE, ENOENT}}, {"mmap", {ENOMEM}}, {"madvise", {ENOMEM}}, {"timerfd_settime", {EINVAL}}};
  for (const auto& row : rows) {
    for (const int error : row.errors) {
      SCOPED_TRACE(std::string(row.call) + ": " + strerror(error));
      control->calls.make(1, Persistence::Once);
      control->choose(row.call, error);
      control->calls.watch_again();
      EXPECT_TRUE(eventually([&] { return control->calls.failed() > 0 || has_ended(); }));
      control->calls.rest();
      ASSERT_TRUE(is_sound()) << road->router().err();
      const auto accepted = road->counter("accepted");
      EXPECT_TRUE(is_sound());
      EXPECT_TRUE(road->counts_at_least("accepted", accepted + 1));
    }
  }
  expect_no_descriptor_lost();
}

// ---- Start

class FailingStart : public testing::Test {
 protected:
  // Starts the daemon and sees it come up, or end with a word and status 1, be it right after it has said that it is
  // ready.
  void start_once() {
    Process daemon({KESTRO_ROUTERD, "--listen-unix", dir.file("router.sock"), "--bus-publish", address,
                    "--bus-subscribe", free_bus_address(), "--stats-name", stats_name.str(), "--drain-timeout", "0.1"});
    EXPECT_TRUE(eventually([&] {
      return has_ended(daemon) || daemon.err().find("ready: clients at") != std::string::npos;
    })) << "neither ready nor ended: "
        << daemon.err();
    const bool refused = has_ended(daemon);
    control.rest();
    const int status = refused ? daemon.wait() : daemon.terminate();
    const bool came_up = !refused && status == 0;
    if (!came_up) {
      EXPECT_GT(control.failed(), 0) << daemon.err();
      EXPECT_EQ(status, 1) << daemon.err();
      EXPECT_THAT(daemon.err(), AnyOf(HasSubstr("kestro-routerd: "), HasSubstr("out of memory\n"))) << daemon.err();
    }
    (came_up ? came_up_ : ended_) += control.failed() > 0 ? 1 : 0;
  }

  TempDir dir;
  ShmName stats_name;
  std::string address = free_bus_address();
  ControlFile control;
  ProgramCampaign campaign{control, From::Start};
  int ended_ = 0;
  int came_up_ = 0;
};

TEST_F(FailingStart, EachAllocation) {
  campaign.fail_each_allocation(Persistence::Once, sanitized ? 4 : 12, [&] { start_once(); });
  printf("[   FAULTS ] %d allocations ended the daemon, %d did not\n", ended_, came_up_);
}

TEST_F(FailingStart, EachSystemCall) {
  std::vector<FailingCall> rows = {
      {"epoll_create1", {EMFILE, ENOMEM}},
      {"eventfd", {EMFILE, ENFILE}},
      {"timerfd_create", {EMFILE, ENOMEM}},
      {"socket", {EMFILE, ENOMEM}},
      {"bind", {EADDRINUSE, EACCES}},
      {"listen", {EADDRINUSE}},
      {"chmod", {EPERM}},
      {"unlink", {EACCES}},
      {"ioctl", {ENOMEM}},
      {"shm_open", {EACCES, EMFILE}},
      {"ftruncate", {ENOSPC}},
      {"mmap", {ENOMEM}},
      {"nn_socket", {EMFILE}},
      {"nn_setsockopt", {ENOPROTOOPT}},
      {"nn_getsockopt", {ENOPROTOOPT}},
      {"nn_bind", {EADDRINUSE}},
      {"nn_connect", {ENODEV}},
  };
  // clang's undefined-behaviour checks ask a pipe of their own whether memory can be read.
  if (!sanitized) rows.push_back({"pipe", {EMFILE}});
  campaign.fail_each_call(rows, 3, [&] { start_once(); });
  printf("[   FAULTS ] %d calls ended the daemon, %d did not\n", ended_, came_up_);
}

}  // namespace
}  // namespace kestro::test
