// What a process holds after it released much.

#include "common/free_memory.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <vector>

#include "core/owned.hpp"

namespace kestro::test {
namespace {

constexpr size_t blocks = 4000;
constexpr size_t block_size = 2000;

size_t resident_bytes() {
  std::ifstream file("/proc/self/statm");
  size_t all = 0;
  size_t resident = 0;
  file >> all >> resident;
  return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

TEST(DaemonsFreeMemory, GoesBackFromBelowABlockThatIsHeld) {
  std::vector<Text> held(blocks);
  for (auto& block : held) block.reset(static_cast<char*>(calloc(block_size, 1)));
  const Text last(static_cast<char*>(calloc(block_size, 1)));
  const size_t most = resident_bytes();
  held.clear();
  daemons::give_free_memory_back();
  EXPECT_LT(resident_bytes() + blocks * block_size / 2, most);
}

}  // namespace
}  // namespace kestro::test
