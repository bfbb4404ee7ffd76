#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"
#include "support/time_zone.hpp"

namespace kestro::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

constexpr const char* module = "kestro_utils";

TEST(TimeSentence, SplitsSeconds) {
  const struct {
    int64_t seconds;
    const char* sentence;
  } rows[] = {
      {86400 + 3600 + 60 + 1, "1 days 01:01:01"},
      {0, "0 days 00:00:00"},
      {59, "0 days 00:00:59"},
      {60, "0 days 00:01:00"},
      {3599, "0 days 00:59:59"},
      {3600, "0 days 01:00:00"},
      {86399, "0 days 23:59:59"},
      {86400, "1 days 00:00:00"},
      {86400LL * 12345 + 7, "12345 days 00:00:07"},
      {86400LL * INT32_MAX + 86399, "2147483647 days 23:59:59"},
      {-1, "0 days 00:00:-1"},
      {-86400 - 3600 - 60 - 1, "-1 days -1:-1:-1"},
      {86400LL * INT32_MIN - 86399, "-2147483648 days -23:-59:-59"},
  };
  for (const auto& row : rows) {
    const auto text = std::make_unique<char[]>(32);
    EXPECT_EQ(kestro_utils_format_seconds_as_time_sentence(row.seconds, text.get()), 0) << row.seconds;
    EXPECT_STREQ(text.get(), row.sentence) << row.seconds;
  }
}

TEST(TimeSentence, IsTraced) {
  std::array<char, 32> text{};
  const auto format = [&] { kestro_utils_format_seconds_as_time_sentence(90061, text.data()); };
  EXPECT_THAT(stderr_of(format), IsEmpty());
  const LogLevel verbose(Verbose);
  EXPECT_THAT(stderr_of(format),
              HasLog(Verbose, module, "Finished formatting seconds <90061> into <1 days 01:01:01>\n"));
}

TEST(TimeSentence, RefusesNull) {
  EXPECT_EQ(kestro_utils_format_seconds_as_time_sentence(1, nullptr), -4);
}

// Local times and the moments they are, in zones east and west and on both sides of a change of the clocks.
const struct {
  const char* zone;
  const char* text;
  int64_t moment;
} moments[] = {
    {utc, "2021-03-04 17:05:09", 1614877509},
    {utc, "2038-01-19 03:14:08", 2147483648},
    {utc, "1970-01-01 00:00:00", 0},
    {central_europe, "2021-01-15 12:00:00", 1610708400},
    {central_europe, "2021-07-15 12:00:00", 1626343200},
    {central_europe, "2021-03-28 01:59:59", 1616893199},
    {central_europe, "2021-03-28 03:00:00", 1616893200},
    {central_europe, "2021-10-31 01:59:59", 1635638399},
    {central_europe, "2021-10-31 03:00:00", 1635645600},
    {new_york, "2021-07-04 00:00:00", 1625371200},
    {new_york, "2021-12-04 00:00:00", 1638594000},
    {india, "1970-01-01 05:30:00", 0},
    {india, "1969-12-31 00:00:00", -106200},
    {new_zealand, "2021-01-01 00:00:00", 1609412400},
};

TEST(StrToEpt, TakesLocalTime) {
  for (const auto& row : moments) {
    const TimeZone zone(row.zone);
    EXPECT_EQ(kestro_str_to_ept(row.text), row.moment) << row.zone << " " << row.text;
  }
}

TEST(EptFmt, GivesLocalTime) {
  for (const auto& row : moments) {
    const TimeZone zone(row.zone);
    std::array<char, 64> text{};
    kestro_ept_fmt(text.data(), text.size(), row.moment, "%Y-%m-%d %X");
    EXPECT_STREQ(text.data(), row.text) << row.zone;
  }
}

TEST(StrToEpt, HourThatComesTwiceIsOneOfTheTwo) {
  const TimeZone zone(central_europe);
  const int64_t moment = kestro_str_to_ept("2021-10-31 02:30:00");
  EXPECT_THAT(moment, testing::AnyOf(1635640200, 1635643800));
}

TEST(StrToEpt, IgnoresWhatFollows) {
  const TimeZone zone(utc);
  EXPECT_EQ(kestro_str_to_ept("2021-03-04 17:05:09.042"), 1614877509);
}

TEST(StrToEpt, RefusesWhatIsNoTime) {
  for (const char* const text : {"", "2021-03-04", "2021-13-04 17:05:09", "2021-03-04 25:05:09", "yesterday"}) {
    const auto log = stderr_of([&] { EXPECT_EQ(kestro_str_to_ept(text), 0) << text; });
    EXPECT_THAT(log, HasLog(Error, module, std::string("strptime error for ") + text + "\n"));
  }
  const auto log = stderr_of([] { EXPECT_EQ(kestro_str_to_ept(nullptr), 0); });
  EXPECT_THAT(log, HasLog(Error, module, "strptime error for (null)\n"));
}

TEST(EptFmt, TakesAnyFormat) {
  const TimeZone zone(india);
  std::array<char, 64> text{};
  const auto log = stderr_of([&] { kestro_ept_fmt(text.data(), text.size(), 0, "%H:%M on day %j"); });
  EXPECT_STREQ(text.data(), "05:30 on day 001");
  EXPECT_THAT(log, IsEmpty());
}

TEST(EptFmt, BufferOfEverySize) {
  const TimeZone zone(utc);
  const std::string whole = "2021-03-04 17:05:09";
  for (size_t size = 0; size <= whole.size() + 2; ++size) {
    const auto text = std::make_unique<char[]>(size);
    const auto log = stderr_of([&] { kestro_ept_fmt(text.get(), size, 1614877509, "%Y-%m-%d %X"); });
    const bool fits = size > whole.size();
    EXPECT_EQ(std::string(text.get(), size).c_str(), fits ? whole : "") << size;
    EXPECT_EQ(count_log_lines(log, Error, module, "Error in strftime\n"), fits ? 0 : 1) << size;
  }
}

TEST(EptFmt, EmptyResultIsAnError) {
  std::array<char, 8> text{"xxxxxxx"};
  const auto log = stderr_of([&] { kestro_ept_fmt(text.data(), text.size(), 0, ""); });
  EXPECT_STREQ(text.data(), "");
  EXPECT_THAT(log, HasLog(Error, module, "Error in strftime\n"));
}

TEST(EptFmt, MomentOutsideTheCalendar) {
  std::array<char, 64> text{};
  const auto log = stderr_of([&] { kestro_ept_fmt(text.data(), text.size(), INT64_MAX, "%Y"); });
  EXPECT_STREQ(text.data(), "");
  EXPECT_THAT(log, HasLog(Error, module, "Error in strftime\n"));
}

TEST(DateStr, IsTheLocalTimeNow) {
  for (const char* const name : {utc, central_europe, new_york, india, new_zealand}) {
    const TimeZone zone(name);
    std::array<char, 25> text{};
    const int64_t before = now();
    const auto log = stderr_of([&] { kestro_date_str(text.data(), text.size()); });
    const int64_t after = now();
    EXPECT_THAT(text.data(), MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}"));
    EXPECT_THAT(log, IsEmpty());
    const int64_t read_back = kestro_str_to_ept(text.data());
    // In the hour that comes twice the text names either of two moments.
    const bool is_now = read_back >= before && read_back <= after;
    const bool is_other_hour = read_back >= before - 3600 && read_back <= after + 3600;
    EXPECT_TRUE(strchr(name, ',') == nullptr ? is_now : is_other_hour) << name << text.data();
  }
}

TEST(DateStr, BufferOfEverySize) {
  for (size_t size = 0; size <= 26; ++size) {
    const auto text = std::make_unique<char[]>(size);
    const auto log = stderr_of([&] { kestro_date_str(text.get(), size); });
    const size_t date = size > 19 ? 19 : 0;
    const size_t milliseconds = size == 0 ? 0 : std::min<size_t>(size - date - 1, 4);
    EXPECT_EQ(strnlen(text.get(), size), date + milliseconds) << size;
    EXPECT_EQ(count_log_lines(log, Error, module, "Error in strftime\n"), date == 0) << size;
    EXPECT_EQ(count_log_lines(log, Error, module, "Not enough room for milliseconds\n"), size - date < 5) << size;
  }
}

}  // namespace
}  // namespace kestro::test
