#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"
#include "support/time_zone.hpp"

namespace kestro::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr const char* module = "kestro_utils";

// The bytes 0, 1, 2 ...
std::vector<uint8_t> counting(size_t count) {
  std::vector<uint8_t> bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(i);
  return bytes;
}

std::string debug_print(const std::vector<uint8_t>& bytes, const std::string& message) {
  return stderr_of(
      [&] { kestro_debug_print_bytes(bytes.data(), static_cast<int32_t>(bytes.size()), message.c_str()); });
}

TEST(DebugPrintBytes, SixteenALineInTwoHalves) {
  EXPECT_THAT(debug_print(counting(17), "frame"), HasLog(Info, module,
                                                         "frame\n"
                                                         "00 01 02 03 04 05 06 07   08 09 0A 0B 0C 0D 0E 0F \n"
                                                         "10 \n"));
  EXPECT_THAT(debug_print({0xde, 0xad}, "got:"), HasLog(Info, module, "got:\nDE AD \n"));
}

TEST(DebugPrintBytes, NoBytes) {
  EXPECT_THAT(debug_print({0x00}, ""), HasLog(Info, module, "\n00 \n"));
  const uint8_t byte = 7;
  for (const int32_t length : {0, -1}) {
    const auto log = stderr_of([&] { kestro_debug_print_bytes(&byte, length, "message"); });
    EXPECT_THAT(log, HasLog(Info, module, "message\n"));
  }
}

TEST(DebugPrintBytes, WhatDoesNotFitIsLeftOut) {
  // 16 bytes take 51 characters: 196 lines are 9,996 of the 9,999. The log shows 8,000 of them.
  for (const size_t count : {3136UL, 3137UL, 3138UL, 20'000UL}) {
    const auto log = debug_print(counting(count), "");
    EXPECT_THAT(log, HasSubstr("\n00 01 02 03 04 05 06 07   08 09 0A 0B 0C 0D 0E 0F \n10 "));
    EXPECT_LE(log.size(), 8100U) << count;
  }
  EXPECT_THAT(debug_print({1}, std::string(9'998, 'm')), HasSubstr("mmm"));
  EXPECT_THAT(debug_print({1}, std::string(9'999, 'm')), HasSubstr("mmm"));
  EXPECT_THAT(debug_print({1}, std::string(20'000, 'm')), HasSubstr("mmm"));
}

TEST(DebugPrintBytes, NullIsLogged) {
  const uint8_t byte = 7;
  EXPECT_THAT(stderr_of([] { kestro_debug_print_bytes(nullptr, 1, "message"); }),
              HasLog(Warning, module, "Found a null input parameter at varg index <0>\n"));
  EXPECT_THAT(stderr_of([&] { kestro_debug_print_bytes(&byte, 1, nullptr); }),
              HasLog(Warning, module, "Found a null input parameter at varg index <1>\n"));
}

TEST(DebugPrintBytesDeathTest, NoMemoryEndsTheProcess) {
  const auto print = [] {
    const Fault no_memory("malloc", ENOMEM);
    const uint8_t byte = 7;
    kestro_debug_print_bytes(&byte, 1, "message");
  };
  EXPECT_DEATH(print(), "malloc 10000 unsuccessful");
}

std::string print_packet(const std::vector<uint8_t>& bytes, const char* prefix) {
  return stderr_of([&] { kestro_print_packet(bytes.data(), bytes.size(), prefix); });
}

TEST(PrintPacket, TwelveALineInTwoHalves) {
  EXPECT_EQ(print_packet(counting(13), "sent:"),
            "\nsent:\n"
            "00 01 02 03 04 05     06 07 08 09 0A 0B \n"
            "0C \n\n");
  EXPECT_EQ(print_packet({0xff}, ""), "\n\nFF \n\n");
}

TEST(PrintPacket, EachDumpStandsAlone) {
  print_packet(counting(100), "long");
  EXPECT_EQ(print_packet(counting(1), "short"), "\nshort\n00 \n\n");
  const uint8_t none = 0;
  EXPECT_EQ(stderr_of([&] { kestro_print_packet(&none, 0, "empty"); }), "\nempty\n\n");
}

TEST(PrintPacket, DoesNotAskTheLevel) {
  const LogLevel off(0);
  EXPECT_EQ(print_packet({0x0a}, "x"), "\nx\n0A \n\n");
}

TEST(PrintPacket, WhatDoesNotFitIsLeftOut) {
  // A line of 12 bytes takes 41 characters: 1,598 lines are 65,518 of the 65,535, and five more bytes fit.
  constexpr size_t fits = 12 * 1598 + 5;
  const auto whole = print_packet(counting(fits), "");
  EXPECT_EQ(whole.size(), 65'518U + 1 + 5 * 3 + 3);
  EXPECT_EQ(print_packet(counting(fits + 1), ""), whole);
  EXPECT_EQ(print_packet(counting(100'000), ""), whole);
}

TEST(PrintPacket, NullIsLogged) {
  const uint8_t byte = 7;
  EXPECT_THAT(stderr_of([] { kestro_print_packet(nullptr, 1, "prefix"); }),
              HasLog(Warning, module, "Found a null input parameter at varg index <0>\n"));
  EXPECT_THAT(stderr_of([&] { kestro_print_packet(&byte, 1, nullptr); }),
              HasLog(Warning, module, "Found a null input parameter at varg index <1>\n"));
}

TEST(SystemLog, TellsUtcTimePlaceAndMessage) {
  const LogLevel off(0);
  const TimeZone zone(new_york);
  tzset();
  const int64_t before = now();
  const auto line = stderr_of([] { kestro_utils_system_log("main.c", "start", 42, "%s %d", "value", 7); });
  const int64_t after = now();
  EXPECT_THAT(line,
              MatchesRegex("\\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}\\] \\[main\\.c\\] "
                           "\\[start:42\\] value 7"));
  tm written{};
  ASSERT_NE(strptime(line.c_str(), "[%Y-%m-%d %H:%M:%S", &written), nullptr);
  EXPECT_GE(timegm(&written), before);
  EXPECT_LE(timegm(&written), after);
}

TEST(SystemLog, MessageIsCutAt8000Characters) {
  const auto line = stderr_of([] { kestro_utils_system_log("f", "g", 1, "%s", std::string(9000, 'm').c_str()); });
  EXPECT_THAT(line, EndsWith("[f] [g:1] " + std::string(8000, 'm')));
}

}  // namespace
}  // namespace kestro::test
