#include "kestro_malloc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "core/owned.hpp"
#include "support/faults.hpp"

namespace kestro::test {
namespace {

using Block = Owned<void, std::free>;

TEST(Malloc, ZeroSizesGiveOneByte) {
  const Block allocated(omalloc(0));
  ASSERT_NE(allocated, nullptr);
  *static_cast<char*>(allocated.get()) = 'x';

  Block resized(omalloc(8));
  resized.reset(orealloc(resized.release(), 0));
  ASSERT_NE(resized, nullptr);
  *static_cast<char*>(resized.get()) = 'x';
}

TEST(Malloc, ReallocKeepsContents) {
  Block block(omalloc(4));
  *static_cast<uint32_t*>(block.get()) = 0xdecade;
  block.reset(orealloc(block.release(), 4096));
  EXPECT_EQ(*static_cast<uint32_t*>(block.get()), 0xdecade);
}

TEST(Malloc, CallocZeroFillsAndTakesZeroFactorsAsOne) {
  const struct { size_t count, size, bytes; } rows[] = {{0, 8, 8}, {8, 0, 8}, {0, 0, 1}, {3, 5, 15}};
  for (const auto& row : rows) {
    const Block block(ocalloc(row.count, row.size));
    const auto* const bytes = static_cast<const char*>(block.get());
    EXPECT_TRUE(std::all_of(bytes, bytes + row.bytes, [](char c) { return c == 0; })) << row.count << row.size;
  }
}

TEST(MallocDeathTest, FailureSaysTheSizeAndAborts) {
  const auto failing = [](const char* call, auto&& action) {
    const Fault no_memory(call, ENOMEM);
    action();
  };
  EXPECT_DEATH(failing("malloc", [] { omalloc(0); }), "^malloc 1 unsuccessful\n$");
  EXPECT_DEATH(failing("malloc", [] { omalloc(77); }), "^malloc 77 unsuccessful\n$");
  EXPECT_DEATH(failing("realloc", [] { orealloc(nullptr, 0); }), "^realloc 1 unsuccessful\n$");
  EXPECT_DEATH(failing("realloc", [] { orealloc(nullptr, 9); }), "^realloc 9 unsuccessful\n$");
  EXPECT_DEATH(failing("calloc", [] { ocalloc(0, 8); }), "^calloc 8 unsuccessful\n$");
  EXPECT_DEATH(failing("calloc", [] { ocalloc(6, 7); }), "^calloc 42 unsuccessful\n$");
}

}  // namespace
}  // namespace kestro::test
