#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

const char* const module = "kestro_utils";

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
    {"AnySeparatorInNew", "1_2-4", "1.2.3", 1},
    {"AnySeparatorInOld", "1.2.4", "1_2-5", -1},
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

// The text in an allocation of its own, where the sanitizer sees a reader pass the end; with a number behind the end, a
// reader who does so takes it.
std::vector<char> with_number_behind(std::string_view text, std::string_view behind) {
  std::vector<char> result(text.begin(), text.end());
  result.push_back('\0');
  if (behind.empty()) return result;
  result.insert(result.end(), behind.begin(), behind.end());
  result.push_back('\0');
  return result;
}

int32_t compare(const std::vector<char>& newer, const std::vector<char>& older) {
  return kestro_utils_sw_version_strcmp(newer.data(), older.data());
}

class Versions : public testing::TestWithParam<VersionCase> {};

TEST_P(Versions, Compare) {
  const auto& [name, newer, older, result] = GetParam();
  EXPECT_EQ(compare(with_number_behind(newer, ""), with_number_behind(older, "")), result);
  EXPECT_EQ(compare(with_number_behind(newer, "9"), with_number_behind(older, "9")), result);
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
