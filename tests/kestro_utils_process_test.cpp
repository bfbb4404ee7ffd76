#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <future>

#include "kestro_mq.h"
#include "kestro_utils.h"
#include "support/bus.hpp"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"

// The library's own is empty and weak: this one takes its place.
void print_stacktrace(void) noexcept {
  fputs("<stack>", stderr);
}

namespace kestro::test {
namespace {

using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::KilledBySignal;

constexpr const char* module = "kestro_utils";

volatile sig_atomic_t last_signal = 0;
void note_signal(int signal) {
  last_signal = signal;
}

// A handler of our own while the object lives.
class Handler {
 public:
  explicit Handler(int signal) : signal_(signal) {
    sigaction(signal_, nullptr, &saved_);
    last_signal = 0;
    kestro_signal(signal_, note_signal);
  }
  Handler(const Handler&) = delete;
  Handler& operator=(const Handler&) = delete;
  ~Handler() { sigaction(signal_, &saved_, nullptr); }

 private:
  int signal_;
  struct sigaction saved_ {};
};

TEST(Signal, HandlerBlocksNothingAndHasNoFlags) {
  struct sigaction before {};
  before.sa_handler = SIG_IGN;
  before.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
  sigfillset(&before.sa_mask);
  sigaction(SIGUSR2, &before, nullptr);

  const Handler handler(SIGUSR2);
  struct sigaction installed {};
  sigaction(SIGUSR2, nullptr, &installed);
  EXPECT_EQ(installed.sa_handler, note_signal);
  constexpr auto every_flag = static_cast<int>(SA_RESTART | SA_RESETHAND | SA_NODEFER | SA_SIGINFO | SA_ONSTACK);
  EXPECT_EQ(installed.sa_flags & every_flag, 0);
  for (int signal = 1; signal < 32; ++signal) EXPECT_EQ(sigismember(&installed.sa_mask, signal), 0) << signal;
  raise(SIGUSR2);
  EXPECT_EQ(last_signal, SIGUSR2);
}

TEST(Signal, CanBeIgnoredAndDefaultedAgain) {
  const Handler restore(SIGUSR2);
  kestro_signal(SIGUSR2, SIG_IGN);
  EXPECT_EQ(raise(SIGUSR2), 0);
  EXPECT_EQ(last_signal, 0);
  kestro_signal(SIGUSR2, SIG_DFL);
  struct sigaction installed {};
  sigaction(SIGUSR2, nullptr, &installed);
  EXPECT_EQ(installed.sa_handler, SIG_DFL);
}

TEST(TerminateProcess, LogsAndRaises) {
  const Handler handler(SIGTERM);
  const auto log = stderr_of([] { kestro_terminate_process(); });
  EXPECT_EQ(last_signal, SIGTERM);
  EXPECT_THAT(log, HasLog(Error, module, "Terminating, raise SIGTERM\n"));
}

TEST(Panic, LogsTracesAndRaises) {
  const Handler handler(SIGABRT);
  const auto log = stderr_of([] { kestro_panic("disk on fire"); });
  EXPECT_EQ(last_signal, SIGABRT);
  EXPECT_THAT(log, HasSubstr("] PANIC: disk on fire\n<stack>"));
  EXPECT_EQ(count_log_lines(log.substr(0, log.find('<')), Error, module, "PANIC: disk on fire\n"), 1);
}

TEST(PanicDeathTest, EndsTheProcess) {
  EXPECT_EXIT(kestro_panic("disk on fire"), KilledBySignal(SIGABRT), "PANIC: disk on fire\n<stack>");
  EXPECT_EXIT(kestro_panic(nullptr), KilledBySignal(SIGABRT), "PANIC: \\(null\\)\n<stack>");
}

TEST(TerminateProcessDeathTest, EndsTheProcess) {
  EXPECT_EXIT(kestro_terminate_process(), KilledBySignal(SIGTERM), "Terminating, raise SIGTERM\n");
}

TEST(SpawnDetachedThread, RunsTheFunctionDetached) {
  std::promise<int> detach_state;
  const auto run = [](void* input) -> void* {
    pthread_attr_t attributes;
    int state = -1;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
      pthread_attr_getdetachstate(&attributes, &state);
      pthread_attr_destroy(&attributes);
    }
    static_cast<std::promise<int>*>(input)->set_value(state);
    return nullptr;
  };
  auto seen = detach_state.get_future();
  const auto log = stderr_of([&] { kestro_spawn_detached_thread(run, &detach_state); });
  EXPECT_EQ(seen.get(), PTHREAD_CREATE_DETACHED);
  EXPECT_THAT(log, HasLog(Info, module, "finished spawning thread\n"));
}

TEST(SpawnDetachedThread, FailureIsNotReported) {
  bool ran = false;
  const auto run = [](void* input) -> void* {
    *static_cast<bool*>(input) = true;
    return nullptr;
  };
  const auto log = stderr_of([&] {
    const Fault no_thread("pthread_create", EAGAIN);
    kestro_spawn_detached_thread(run, &ran);
  });
  EXPECT_FALSE(ran);
  EXPECT_EQ(count_log_lines(log, Info, module, "finished spawning thread\n"), 1);
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
}

TEST(GetNnRcvfd, DescriptorBecomesReadableWithAMessage) {
  BusPair bus;
  int32_t fd = -1;
  ASSERT_EQ(kestro_get_nn_rcvfd(bus.subscriber.handle(), &fd), 0);
  pollfd ready = {.fd = fd, .events = POLLIN, .revents = 0};
  EXPECT_EQ(poll(&ready, 1, 0), 0);
  ASSERT_EQ(kestro_mq_socket_send(bus.publisher.handle(), "message"), 0);
  EXPECT_EQ(poll(&ready, 1, -1), 1);
}

TEST(GetNnRcvfd, Refusals) {
  int32_t fd = -1;
  EXPECT_EQ(kestro_get_nn_rcvfd(-1, &fd), -1);
  const BusSocket socket(KESTRO_MQ_SP_SUB);
  EXPECT_EQ(kestro_get_nn_rcvfd(socket.handle(), nullptr), -1);
  const BusSocket publisher(KESTRO_MQ_SP_PUB);
  EXPECT_EQ(kestro_get_nn_rcvfd(publisher.handle(), &fd), -1);
}

}  // namespace
}  // namespace kestro::test
