#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

const char* const module = "kestro_utils";

TEST(LetterCase, EveryByte) {
  std::string lower, upper, whole;
  for (int c = 1; c < 256; ++c) lower += static_cast<char>(c);
  upper = whole = lower;
  EXPECT_EQ(kestro_to_lower(lower.data(), 255), 0);
  EXPECT_EQ(kestro_to_upper(upper.data(), 255), 0);
  kestro_str_to_upper(whole.data());
  for (int c = 1; c < 256; ++c) {
    const auto at = static_cast<size_t>(c - 1);
    EXPECT_EQ(lower[at], static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c)) << c;
    EXPECT_EQ(upper[at], static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c)) << c;
  }
  EXPECT_EQ(whole, upper);
}

TEST(LetterCase, EveryLength) {
  for (int32_t length = -1; length <= 6; ++length) {
    const auto used = static_cast<size_t>(std::min(std::max(length, 0), 4));
    std::string text("aBcD\0eF", 7);
    EXPECT_EQ(kestro_to_upper(text.data(), length), 0);
    EXPECT_EQ(text, std::string("ABCD").substr(0, used) + std::string("aBcD").substr(used) + std::string("\0eF", 3));
    text.assign("aBcD\0eF", 7);
    EXPECT_EQ(kestro_to_lower(text.data(), length), 0);
    EXPECT_EQ(text, std::string("abcd").substr(0, used) + std::string("aBcD").substr(used) + std::string("\0eF", 3));
  }
}

TEST(LetterCase, TextWithoutEndStopsAtTheLength) {
  char text[] = {'a', 'b', 'c'};
  EXPECT_EQ(kestro_to_upper(text, 3), 0);
  EXPECT_EQ(std::string(text, 3), "ABC");
}

TEST(LetterCase, NullIsRefusedWithAVerboseLine) {
  const LogLevel verbose(Verbose);
  const auto log = stderr_of([] {
    EXPECT_EQ(kestro_to_lower(nullptr, 5), -4);
    EXPECT_EQ(kestro_to_upper(nullptr, 5), -4);
  });
  EXPECT_EQ(count_log_lines(log, Verbose, module, "NULL\n"), 2);
}

TEST(LetterCase, WholeEmptyText) {
  char text[] = "";
  kestro_str_to_upper(text);
  EXPECT_STREQ(text, "");
}

}  // namespace
}  // namespace kestro::test
