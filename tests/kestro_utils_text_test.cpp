// Letter case and versions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

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

struct VersionCase {
  const char* name;
  const char* newer;
  const char* older;
  int32_t result;
};

const VersionCase version_cases[] = {
    {"Same", "1.4.12", "1.4.12", 0},
    {"Higher", "1.4.12", "1.4.9", 1},
    {"Lower", "1.4.9", "1.4.12", -1},
    {"FirstNumberDecides", "2.1", "2.0.9", 1},
    {"FirstNumberDecidesLower", "1.9", "2.0", -1},
    {"NewHasMore", "3.1.7", "3.1", 0},
    {"NewHasLessAndOldIsZero", "3.1", "3.1.0", 0},
    {"NewHasLess", "3.1", "3.1.7", -1},
    {"NewHasMuchLess", "3", "3.0.0.0.1", -1},
    {"NewEndsInDot", "3.", "3.1", -1},
    {"OldEndsInDot", "3.1", "3.", 0},
    {"OldHasEmptyNumber", "3.1.2", "3..5", 0},
    {"NewHasEmptyNumber", "3..5", "3.1.2", -1},
    {"AnySeparator", "1-2_3", "1.2.4", -1},
    {"SeparatorIsOneCharacter", "1. 2", "1.2", 0},
    {"OldEmpty", "1.2", "", 0},
    {"BothEmpty", "", "", 0},
    {"NewEmpty", "", "0.1", -1},
    {"NewEmptyOldZero", "", "0.0", 0},
    {"OldNoNumber", "1.2", "v1.2", 0},
    {"NewNoNumber", "v1", "1.2", -1},
    {"LeadingZeros", "1.007", "1.7", 0},
    {"LargestNumber", "2147483647", "2147483646", 1},
    {"NumbersAreSigned", "2147483648", "0", -1},
    {"NumbersAreCut", "4294967297", "1", 0},
    {"NegativeNumber", "-1", "0", -1},
};

class Versions : public testing::TestWithParam<VersionCase> {};

TEST_P(Versions, Compare) {
  const auto& [name, newer, older, result] = GetParam();
  // In allocations of their own, so that reading past an end shows.
  const std::vector<char> a(newer, newer + strlen(newer) + 1);
  const std::vector<char> b(older, older + strlen(older) + 1);
  EXPECT_EQ(kestro_utils_sw_version_strcmp(a.data(), b.data()), result);
}

INSTANTIATE_TEST_SUITE_P(All, Versions, testing::ValuesIn(version_cases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(VersionsOfNull, AreRefused) {
  const auto log = stderr_of([] {
    EXPECT_EQ(kestro_utils_sw_version_strcmp(nullptr, "1"), -20);
    EXPECT_EQ(kestro_utils_sw_version_strcmp("1", nullptr), -20);
  });
  EXPECT_THAT(log, HasLog(Warning, module, "Found a null input parameter at varg index <0>\n"));
  EXPECT_THAT(log, HasLog(Warning, module, "Found a null input parameter at varg index <1>\n"));
}

}  // namespace
}  // namespace kestro::test
