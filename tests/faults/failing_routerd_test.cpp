// The router daemon while its allocations and its system calls fail. Each client gets its whole answer, or none; the
// clients that come later get theirs.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "e2e/routerd.hpp"
#include "faults/campaign.hpp"
#include "faults/failing_routerd.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;

// The file through which a daemon is told what to fail.
class ControlFile {
 public:
  ControlFile() {
    const std::string path = dir_.write("control", std::string(sizeof(Control), '\0'));
    const Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    page_ = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    if (page_ == MAP_FAILED) throw std::runtime_error("no control");
    control_ = new (page_) Control();
    setenv(control_variable, path.c_str(), 1);
  }
  ControlFile(const ControlFile&) = delete;
  ControlFile& operator=(const ControlFile&) = delete;
  ~ControlFile() {
    unsetenv(control_variable);
    munmap(page_, sizeof(Control));
  }
  Control* operator->() const { return control_; }

 private:
  TempDir dir_;
  void* page_ = nullptr;
  Control* control_ = nullptr;
};

auto descriptors(pid_t pid) {
  return std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd"), {});
}

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
  [[nodiscard]] bool runs() const { return kill(road->router().pid(), 0) == 0 && !has_ended(); }
  [[nodiscard]] bool has_ended() const {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(road->router().pid()), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid != 0;
  }
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
  int trials = 0;
  int ends = 0;
  for (const auto persistence : {Persistence::Once, Persistence::ForEver}) {
    for (int nth = 1;; ++nth) {
      if (!is_chosen(nth, persistence == Persistence::Once ? 40 : 4)) continue;
      SCOPED_TRACE("allocation " + std::to_string(nth));
      control->memory.make(nth, persistence);
      control->memory.watch_again();
      const std::string received = ask();
      control->memory.rest();
      const bool reached = control->memory.failed() > 0;
      expect_whole(received);
      ++trials;
      if (!is_sound()) {
        ++ends;
        EXPECT_EQ(road->router().wait(), 1) << road->router().err();
        EXPECT_THAT(road->router().err(), AnyOf(HasSubstr("out of memory\n"), HasSubstr("kestro-routerd: ")));
        start();
      }
      ASSERT_FALSE(HasFailure()) << road->router().err();
      if (!reached) break;
    }
  }
  expect_no_descriptor_lost();
  printf("[   FAULTS ] %d allocations failed, %d ended the daemon\n", trials, ends);
}

// ---- System calls

struct RunningRow {
  const char* call;
  std::vector<int> errors;  // 0: shortened
  bool always = true;       // it is made for every request, not just where one side is slower
};

TEST_F(FailingRouterd, EachSystemCallOfARequestFails) {
  const std::vector<RunningRow> rows = {
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
  int injections = 0;
  for (const auto& row : rows) {
    for (const int error : row.errors) {
      for (int nth = 1;; ++nth) {
        if (!is_chosen(nth, 4)) continue;
        SCOPED_TRACE(std::string(row.call) + " number " + std::to_string(nth) + ": " + strerror(error));
        control->calls.make(nth, Persistence::Once);
        control->choose(row.call, error);
        control->calls.watch_again();
        const std::string received = ask();
        // The client hears of its end before the daemon has closed the connection.
        for (int tries = 0; tries < 20 && control->calls.seen() < nth; ++tries) usleep(5'000);
        control->calls.rest();
        const bool reached = control->calls.failed() > 0;
        expect_whole(received);
        EXPECT_TRUE(reached || nth > 1 || !row.always) << "is not called";
        EXPECT_TRUE(is_sound()) << road->router().err();
        ASSERT_FALSE(HasFailure()) << road->router().err();
        if (!reached) break;
        ++injections;
      }
    }
  }
  expect_no_descriptor_lost();
  printf("[   FAULTS ] %d calls failed\n", injections);
}

// Counters that cannot be published once are published the next time.
TEST_F(FailingRouterd, EachSystemCallOfTheCountersFails) {
  const std::vector<RunningRow> rows = {
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
  // Starts the daemon and sees it come up, or end with a word and status 1. Whether something failed.
  bool start_once() {
    const Process daemon({KESTRO_ROUTERD, "--listen-unix", dir.file("router.sock"), "--bus-publish", address,
                          "--bus-subscribe", free_bus_address(), "--stats-name",
                          "/kestro-" + dir.path().filename().string(), "--drain-timeout", "0.1"});
    auto& process = const_cast<Process&>(daemon);
    const auto ended = [&] {
      siginfo_t info{};
      return waitid(P_PID, static_cast<id_t>(daemon.pid()), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
             info.si_pid != 0;
    };
    EXPECT_TRUE(eventually([&] { return ended() || daemon.err().find("ready: clients at") != std::string::npos; }))
        << "neither ready nor ended: " << daemon.err();
    const bool refused = ended();
    control->memory.rest();
    control->calls.rest();
    const int failed = control->memory.failed() + control->calls.failed();
    const int status = refused ? process.wait() : process.terminate();
    if (refused) {
      EXPECT_GT(failed, 0) << daemon.err();
      EXPECT_EQ(status, 1) << daemon.err();
      EXPECT_THAT(daemon.err(), AnyOf(HasSubstr("kestro-routerd: "), HasSubstr("out of memory\n"))) << daemon.err();
    } else {
      EXPECT_EQ(status, 0) << daemon.err();
    }
    (refused ? ended_ : came_up_) += failed > 0 ? 1 : 0;
    return failed > 0;
  }

  TempDir dir;
  std::string address = free_bus_address();
  ControlFile control;
  int ended_ = 0;
  int came_up_ = 0;
};

TEST_F(FailingStart, EachAllocation) {
  for (int nth = 1;; ++nth) {
    if (!is_chosen(nth, sanitized ? 4 : 12)) continue;
    SCOPED_TRACE("allocation " + std::to_string(nth));
    control->memory.make(nth, Persistence::Once);
    control->memory_from_start = true;
    const bool reached = start_once();
    ASSERT_FALSE(HasFailure());
    if (!reached) break;
  }
  printf("[   FAULTS ] %d allocations ended the daemon, %d did not\n", ended_, came_up_);
}

TEST_F(FailingStart, EachSystemCall) {
  const std::vector<RunningRow> rows = {
      {"epoll_create1", {EMFILE, ENOMEM}},
      {"eventfd", {EMFILE, ENFILE}},
      {"timerfd_create", {EMFILE, ENOMEM}},
      {"pipe", {EMFILE}},
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
  for (const auto& row : rows) {
    // clang's undefined-behaviour checks ask a pipe of their own whether memory can be read.
    if (sanitized && row.call == std::string_view("pipe")) continue;
    for (const int error : row.errors) {
      for (int nth = 1;; ++nth) {
        if (!is_chosen(nth, 3)) continue;
        SCOPED_TRACE(std::string(row.call) + " number " + std::to_string(nth) + ": " + strerror(error));
        control->calls.make(nth, Persistence::Once);
        control->choose(row.call, error);
        control->calls_from_start = true;
        const bool reached = start_once();
        ASSERT_FALSE(HasFailure());
        if (!reached) break;
      }
    }
  }
  printf("[   FAULTS ] %d calls ended the daemon, %d did not\n", ended_, came_up_);
}

}  // namespace
}  // namespace kestro::test
