#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "kestro_data.h"
#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"

namespace {
int stack_traces = 0;
}
// The library's own is empty and weak: this one takes its place.
void print_stacktrace(void) noexcept {
  ++stack_traces;
}

namespace kestro::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const char* const null = nullptr;

TEST(CheckForNull, PassesWhenAllArePresent) {
  int object = 0;
  int32_t result = -1;
  const auto log = stderr_of([&] { result = kestro_check_for_null(3, &object, "text", &result); });
  EXPECT_EQ(result, 0);
  EXPECT_THAT(log, IsEmpty());
}

TEST(CheckForNull, TellsOnlyTheFirstNull) {
  int32_t result = 0;
  const auto log = stderr_of([&] { result = kestro_check_for_null(4, "0", null, "2", null); });
  EXPECT_EQ(result, -1);
  EXPECT_THAT(log, HasLog(Warning, "kestro_utils", "Found a null input parameter at varg index <1>\n"));
  EXPECT_THAT(log, Not(HasSubstr("<3>")));
}

TEST(CheckForNull, CountsTheIndexFromZero) {
  for (int index = 0; index < 3; ++index) {
    const char* args[] = {"0", "1", "2"};
    args[index] = nullptr;
    const auto log = stderr_of([&] { kestro_check_for_null(3, args[0], args[1], args[2]); });
    const auto message = "Found a null input parameter at varg index <" + std::to_string(index) + ">\n";
    EXPECT_EQ(count_log_lines(log, Warning, "kestro_utils", message), 1);
  }
}

TEST(CheckForNull, LooksAtNoMoreArgumentsThanItIsTold) {
  EXPECT_EQ(kestro_check_for_null(1, "text", null), 0);
  EXPECT_EQ(kestro_check_for_null(0, null), 0);
  EXPECT_EQ(kestro_check_for_null(-1, null), 0);
}

TEST(OverflowCheck, ComparesAsUnsignedNumbers) {
  struct {
    int32_t written, size;
    bool overflow;
  } const rows[] = {{0, 0, true},
                    {0, 1, false},
                    {254, 256, false},
                    {255, 256, false},
                    {256, 256, true},
                    {257, 256, true},
                    {-1, 256, true},
                    {INT_MIN, INT_MAX, true},
                    {INT_MAX, -1, false},
                    {INT_MAX, 0, true},
                    {INT_MAX - 1, INT_MAX, false}};
  for (const auto& [written, size, overflow] : rows) {
    SCOPED_TRACE(std::to_string(written) + " of " + std::to_string(size));
    stack_traces = 0;
    bool result = !overflow;
    const auto log = stderr_of([&, w = written, s = size] { result = s_overflow_check(w, s); });
    EXPECT_EQ(result, overflow);
    EXPECT_EQ(stack_traces, overflow ? 1 : 0);
    const auto message = "OVERFLOW: wbytes " + std::to_string(written) + " sz " + std::to_string(size) + "\n";
    EXPECT_EQ(count_log_lines(log, Error, "kestro_utils", message), overflow ? 1 : 0);
  }
}

TEST(EnumToStr, WritesTheTextAndClearsTheRest) {
  std::vector<char> out(16, 'x');
  EXPECT_EQ(kestro_enum_to_str(out.data(), 16, KESTRO_DATA_SECURE_CLEAR, kestro_data_secure_options_str), 0);
  EXPECT_EQ(std::string(out.begin(), out.end()), std::string("clear") + std::string(11, '\0'));
}

TEST(EnumToStr, EverySizeCutsToFit) {
  const std::string text = "current";
  for (int32_t size = -1; size <= 10; ++size) {
    std::vector<char> out(16, 'x');
    EXPECT_EQ(kestro_enum_to_str(out.data(), size, 0, kestro_data_secure_options_str), 0);
    const auto room = static_cast<size_t>(std::max(size, 0));
    std::string expected = text.substr(0, room == 0 ? 0 : room - 1);
    expected.resize(room, '\0');
    expected.resize(16, 'x');
    EXPECT_EQ(std::string(out.begin(), out.end()), expected) << size;
  }
}

TEST(EnumToStr, LogsWhatItMapped) {
  const LogLevel verbose(Verbose);
  char out[16];
  const auto log = stderr_of([&] { kestro_enum_to_str(out, sizeof out, 7, kestro_data_oec_model_name_enum_str); });
  EXPECT_THAT(log, HasLog(Verbose, "kestro_utils", "Mapped enum value <7> to string <Generic OEC>\n"));
}

TEST(EnumToStr, RefusesNull) {
  char out[] = "before";
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_enum_to_str(nullptr, 7, 0, kestro_data_secure_options_str), -4);
    EXPECT_EQ(kestro_enum_to_str(out, sizeof out, 0, nullptr), -4);
  });
  EXPECT_STREQ(out, "before");
  EXPECT_THAT(log, HasLog(Warning, "kestro_utils", "Found a null input parameter at varg index <0>\n"));
  EXPECT_THAT(log, HasLog(Warning, "kestro_utils", "Found a null input parameter at varg index <1>\n"));
}

TEST(StrToEnum, FindsEveryText) {
  for (int32_t value = 0; value < KESTRO_DATA_PORT_LINK_SPEED_MAX_ENUM_VAL; ++value) {
    int32_t found = -1;
    const char* const text = kestro_data_port_link_speed_enum_str[value];
    EXPECT_EQ(kestro_str_to_enum(&found, text, kestro_data_port_link_speed_enum_str), 0);
    EXPECT_EQ(found, value);
  }
}

TEST(StrToEnum, ComparesExactly) {
  for (const char* text : {"Clear", "CLEAR", "clea", "clear ", " clear", ""}) {
    int32_t found = 99;
    EXPECT_EQ(kestro_str_to_enum(&found, text, kestro_data_secure_options_str), -1) << text;
    EXPECT_EQ(found, 99);
  }
}

TEST(StrToEnum, LogsWhatItFoundOrDidNot) {
  const LogLevel verbose(Verbose);
  int32_t found = 0;
  const auto log = stderr_of([&] {
    kestro_str_to_enum(&found, "clear", kestro_data_secure_options_str);
    kestro_str_to_enum(&found, "Clear", kestro_data_secure_options_str);
  });
  EXPECT_THAT(log, HasLog(Verbose, "kestro_utils", "Mapped string <clear> to enum value <3>\n"));
  EXPECT_THAT(log, HasLog(Verbose, "kestro_utils", "Unable to map string <Clear> to enum value\n"));
}

TEST(StrToEnum, RefusesNull) {
  int32_t found = 99;
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_str_to_enum(nullptr, "clear", kestro_data_secure_options_str), -4);
    EXPECT_EQ(kestro_str_to_enum(&found, nullptr, kestro_data_secure_options_str), -4);
    EXPECT_EQ(kestro_str_to_enum(&found, "clear", nullptr), -4);
  });
  EXPECT_EQ(found, 99);
  for (const char* index : {"0", "1", "2"}) {
    const auto message = std::string("Found a null input parameter at varg index <") + index + ">\n";
    EXPECT_EQ(count_log_lines(log, Warning, "kestro_utils", message), 1);
  }
}

}  // namespace
}  // namespace kestro::test
