// A hundred thousand requests leave the router daemon as it was.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "e2e/routerd.hpp"

namespace kestro::test {
namespace {

constexpr int requests = sanitized ? 4'000 : 100'000;

int64_t resident_pages(pid_t pid) {
  std::ifstream statm("/proc/" + std::to_string(pid) + "/statm");
  int64_t size = 0;
  int64_t resident = 0;
  statm >> size >> resident;
  return resident;
}

auto descriptors(pid_t pid) {
  return std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd"), {});
}

// Every twentieth client sends nonsense, every twentieth leaves before its answer.
int serve(const Road& road, int count) {
  constexpr int clients = 8;
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int client = 0; client < clients; ++client) {
    threads.emplace_back([&road, &wrong, client, turns = count / clients] {
      for (int turn = 0; turn < turns; ++turn) {
        const auto params = R"({"c":)" + std::to_string(client) + R"(,"t":)" + std::to_string(turn) + "}";
        if (turn % 20 == 1) {
          wrong += road.call("nonsense\n").empty() ? 0 : 1;
        } else if (turn % 20 == 2) {
          road.connect().send(request("ports.Echo", params, "1"));
        } else {
          wrong += road.call(request("ports.Echo", params, "1")) == answer("ports.Echo", params) ? 0 : 1;
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  return wrong;
}

TEST(RouterdEndurance, MemoryAndDescriptorsComeBack) {
  std::filesystem::create_directories(std::filesystem::path(KESTRO_LSYSLOG_CONF_FILE).parent_path());
  const Finally remove_conf([]() noexcept { std::filesystem::remove(KESTRO_LSYSLOG_CONF_FILE); });
  std::ofstream(KESTRO_LSYSLOG_CONF_FILE) << "[logging_levels]\nrouter=info\n";
  Road road;
  const pid_t pid = road.router().pid();
  EXPECT_EQ(serve(road, requests / 10), 0);
  ASSERT_TRUE(road.counts("accepted", requests / 10) && road.counts("clients", 0));
  const auto held_before = descriptors(pid);
  const auto resident_before = resident_pages(pid);

  EXPECT_EQ(serve(road, requests), 0);
  ASSERT_TRUE(road.counts("accepted", requests + requests / 10) && road.counts("clients", 0));
  EXPECT_TRUE(road.counts("in_flight", 0));
  EXPECT_EQ(descriptors(pid), held_before);
  // A hundred bytes kept of each request would be ten megabytes.
  const int64_t grown = (resident_pages(pid) - resident_before) * sysconf(_SC_PAGESIZE);
  // A sanitizer holds on to what is freed.
  if (!sanitized) {
    EXPECT_LT(grown, 4 << 20);
  }
}

}  // namespace
}  // namespace kestro::test
