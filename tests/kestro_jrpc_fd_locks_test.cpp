// The map of locks never forgets a row: each test has it to itself in a process of its own.
#include "kestro_jrpc/fd_locks.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <barrier>
#include <cerrno>
#include <cstdlib>
#include <numeric>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kestro_jrpc.h"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"

namespace {

// Where threads that say so wait for each other, once, before they take their next mutex.
std::barrier<>* gate = nullptr;
thread_local bool waits_at_gate = false;

}  // namespace

// Every lock of a mutex in this program comes by here (--wrap).
extern "C" {
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (std::exchange(waits_at_gate, false)) gate->arrive_and_wait();
  return __real_pthread_mutex_lock(mutex);
}
}

namespace kestro::test {
namespace {

constexpr const char* jrpc = "kestro_jrpc";
constexpr const char* full = "reached max fd lock count!\n";
constexpr const char* duplicate = "duplicate fd in lock map\n";
constexpr int32_t rows = 16;

// Runs a body in a child process, whose failed expectations are the test's.
template <class Body>
void in_a_fresh_process(Body&& body) {
  EXPECT_EXIT(
      {
        body();
        std::exit(testing::Test::HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

struct Mutex {
  pthread_mutex_t it = PTHREAD_MUTEX_INITIALIZER;
};

std::array<Mutex, 64> mutexes;

// Registers a mutex of its own for each handle from 0 on.
void fill(int32_t count) {
  for (int32_t fd = 0; fd < count; ++fd) {
    EXPECT_EQ(kestro_jrpc_add_fd_lock(fd, &mutexes[static_cast<size_t>(fd)].it), 0) << fd;
  }
}

int32_t add(int32_t fd) {
  return kestro_jrpc_add_fd_lock(fd, &mutexes[40].it);
}

TEST(FdLocksDeathTest, ARegisteredMutexIsFoundByItsSocket) {
  in_a_fresh_process([] {
    EXPECT_EQ(find_fd_lock(0), nullptr);
    fill(rows);
    for (int32_t fd = 0; fd < rows; ++fd) EXPECT_EQ(find_fd_lock(fd), &mutexes[static_cast<size_t>(fd)].it);
    EXPECT_EQ(find_fd_lock(rows), nullptr);
    EXPECT_EQ(find_fd_lock(-1), nullptr);
  });
}

TEST(FdLocksDeathTest, AnyNumberMayNameASocket) {
  in_a_fresh_process([] {
    EXPECT_EQ(kestro_jrpc_add_fd_lock(-1, &mutexes[1].it), 0);
    EXPECT_EQ(kestro_jrpc_add_fd_lock(INT32_MAX, &mutexes[2].it), 0);
    EXPECT_EQ(find_fd_lock(-1), &mutexes[1].it);
    EXPECT_EQ(find_fd_lock(INT32_MAX), &mutexes[2].it);
  });
}

TEST(FdLocksDeathTest, OneMutexMayServeSeveralSockets) {
  in_a_fresh_process([] {
    EXPECT_EQ(add(3), 0);
    EXPECT_EQ(add(4), 0);
    EXPECT_EQ(find_fd_lock(3), find_fd_lock(4));
  });
}

TEST(FdLocksDeathTest, TheSeventeenthIsRefused) {
  in_a_fresh_process([] {
    fill(rows);
    const std::string log = stderr_of([] { EXPECT_EQ(add(rows), -1); });
    EXPECT_THAT(log, HasLog(Error, jrpc, full));
    EXPECT_EQ(find_fd_lock(rows), nullptr);
    EXPECT_EQ(find_fd_lock(0), &mutexes[0].it);
  });
}

TEST(FdLocksDeathTest, ADuplicateIsRefused) {
  in_a_fresh_process([] {
    fill(2);
    const std::string log = stderr_of([] { EXPECT_EQ(add(0), -1); });
    EXPECT_THAT(log, HasLog(Error, jrpc, duplicate));
    EXPECT_EQ(find_fd_lock(0), &mutexes[0].it) << "the first stays";
  });
}

TEST(FdLocksDeathTest, ADuplicateUsesUpNoRow) {
  in_a_fresh_process([] {
    fill(rows - 1);
    stderr_of([] { EXPECT_EQ(add(0), -1); });
    EXPECT_EQ(add(rows), 0);
  });
}

TEST(FdLocksDeathTest, InAFullMapADuplicateIsOneTooMany) {
  in_a_fresh_process([] {
    fill(rows);
    const std::string log = stderr_of([] { EXPECT_EQ(add(0), -1); });
    EXPECT_THAT(log, HasLog(Error, jrpc, full));
    EXPECT_EQ(count_log_lines(log, Error, jrpc, duplicate), 0);
  });
}

TEST(FdLocksDeathTest, ANullMutexIsRefusedAndUsesUpNoRow) {
  in_a_fresh_process([] {
    fill(rows - 1);
    const std::string log = stderr_of([] { EXPECT_EQ(kestro_jrpc_add_fd_lock(rows, nullptr), -20); });
    EXPECT_THAT(log, HasLog(Debug, jrpc, "[kestro_jrpc_add_fd_lock]: NULL pointer!\n"));
    EXPECT_EQ(add(rows), 0);
  });
}

TEST(FdLocksDeathTest, UnlockReleasesTheMutexOfTheSocketAlone) {
  in_a_fresh_process([] {
    fill(2);
    pthread_mutex_lock(&mutexes[0].it);
    pthread_mutex_lock(&mutexes[1].it);
    unlock_fd(7);  // nobody's
    unlock_fd(1);
    EXPECT_EQ(pthread_mutex_trylock(&mutexes[0].it), EBUSY);
    EXPECT_EQ(pthread_mutex_trylock(&mutexes[1].it), 0);
    pthread_mutex_unlock(&mutexes[0].it);
    pthread_mutex_unlock(&mutexes[1].it);
  });
}

// Starts threads that register, each of which has found room before the first takes the map's lock; the number of those
// that succeeded.
template <class HandleOf>
int race(int threads, HandleOf handle_of) {
  std::barrier start(threads);
  gate = &start;
  std::vector<int> won(static_cast<size_t>(threads), 0);
  std::vector<std::thread> all;
  for (int i = 0; i < threads; ++i) {
    all.emplace_back([&, i] {
      waits_at_gate = true;
      const auto at = static_cast<size_t>(i);
      won[at] = kestro_jrpc_add_fd_lock(handle_of(i), &mutexes[32 + at].it) == 0 ? 1 : 0;
    });
  }
  for (auto& thread : all) thread.join();
  return std::accumulate(won.begin(), won.end(), 0);
}

TEST(FdLocksDeathTest, OneOfManyThreadsGetsTheLastRow) {
  for (int round = 0; round < 20; ++round) {
    in_a_fresh_process([] {
      fill(rows - 1);
      const std::string log = stderr_of([] { EXPECT_EQ(race(8, [](int i) { return 100 + i; }), 1); });
      EXPECT_EQ(count_log_lines(log, Error, jrpc, full), 7);
      int found = 0;
      for (int32_t fd = 100; fd < 108; ++fd) found += find_fd_lock(fd) != nullptr ? 1 : 0;
      EXPECT_EQ(found, 1);
      EXPECT_EQ(find_fd_lock(0), &mutexes[0].it);
    });
  }
}

TEST(FdLocksDeathTest, OneOfManyThreadsGetsTheSocket) {
  for (int round = 0; round < 20; ++round) {
    in_a_fresh_process([] {
      const std::string log = stderr_of([] { EXPECT_EQ(race(8, [](int) { return 5; }), 1); });
      EXPECT_EQ(count_log_lines(log, Error, jrpc, duplicate), 7);
    });
  }
}

TEST(FdLocksDeathTest, LookingUpWhileOthersRegister) {
  in_a_fresh_process([] {
    std::thread writer([] { fill(rows); });
    for (int32_t fd = 0; fd < rows; ++fd) {
      while (find_fd_lock(fd) == nullptr) std::this_thread::yield();
      EXPECT_EQ(find_fd_lock(fd), &mutexes[static_cast<size_t>(fd)].it);
    }
    writer.join();
  });
}

}  // namespace
}  // namespace kestro::test
