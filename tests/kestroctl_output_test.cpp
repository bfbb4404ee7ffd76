// How things look: JSON, lines, tables.

#include "kestroctl/output.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestroctl/stats_table.hpp"
#include "support/json.hpp"

namespace kestro::test {
namespace {

using ctl::Colour;
using ctl::json_text;
using ctl::Line;
using ctl::Look;
using testing::HasSubstr;
using testing::Not;

constexpr Look plain{};
constexpr Look pretty{.pretty = true};
constexpr Look coloured{.pretty = true, .coloured = true};

TEST(JsonText, IsCompactAsciiForPrograms) {
  EXPECT_EQ(json_text(json_of(R"({"b": [1, {"a": null}], "t": "ü"})").get(), plain),
            R"({"b":[1,{"a":null}],"t":"\u00FC"})");
}

TEST(JsonText, IsIndentedForEyes) {
  EXPECT_EQ(
      json_text(json_of(R"({"b":[1,{"a":true}],"e":{},"f":[],"t":"ü"})").get(), pretty),
      "{\n  \"b\": [\n    1,\n    {\n      \"a\": true\n    }\n  ],\n  \"e\": {},\n  \"f\": [],\n  \"t\": \"ü\"\n}");
}

TEST(JsonText, SaysTheSameWithColours) {
  const Json value = json_of(R"({"a":["x",1,2.5,true,false,null,{}],"b\n":"\\\""})");
  const auto text = json_text(value.get(), coloured);
  EXPECT_THAT(text, HasSubstr("\33[34m\"a\"\33[0m: "));
  EXPECT_THAT(text, HasSubstr("\33[32m\"x\"\33[0m"));
  std::string without;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\33')
      i = text.find('m', i);
    else
      without += text[i];
  }
  EXPECT_EQ(without, json_text(value.get(), pretty));
  EXPECT_EQ(json_equal(json_of(without).get(), value.get()), 1);
}

TEST(JsonText, NumbersKeepTheirValueInFewDigits) {
  EXPECT_EQ(json_text(json_of("[43.1,0.1,-18.25]").get()), "[43.1,0.1,-18.25]");
  const Json third(json_real(1.0 / 3));
  EXPECT_EQ(json_equal(json_of(json_text(third.get())).get(), third.get()), 1);
  EXPECT_EQ(json_text(json_of("9007199254740993").get()), "9007199254740993");
}

TEST(JsonText, ObeysNoControlCharacters) {
  const auto text = json_text(json_of("[\"\\u001b[31m\",\"\\u009b31m\",\"\x7f\"]").get(), pretty);
  EXPECT_EQ(text, "[\n  \"\\u001B[31m\",\n  \"\\u009B31m\",\n  \"?\"\n]");
}

TEST(Tame, LeavesTheTerminalAlone) {
  EXPECT_EQ(ctl::tame("a\33[31m\nb\x7f\tü"), "a?[31m?b??ü");
  EXPECT_EQ(ctl::tame("ü\xc2\x9bm"), "ü??m");
}

TEST(LineText, JoinsItsParts) {
  EXPECT_EQ(Line(plain).add("a", Colour::Red, 3).add("").add("b").text(), "a   b");
  EXPECT_EQ(Line(coloured).add("a", Colour::Red).add("b").text(), "\33[31ma\33[0m b");
}

TEST(LineText, IsCutToTheWidth) {
  const auto line = Line(plain).add("abcd").add("efgh");
  EXPECT_EQ(line.text(9), "abcd efgh");
  EXPECT_EQ(line.text(8), "abcd ef~");
  EXPECT_EQ(line.text(6), "abcd ~");
  EXPECT_EQ(line.text(5), "abcd");
  EXPECT_EQ(line.text(4), "abcd");
  EXPECT_EQ(line.text(3), "ab~");
  EXPECT_EQ(line.text(1), "~");
}

TEST(LineText, ColoursTakeNoWidth) {
  EXPECT_EQ(Line(coloured).add("abcd", Colour::Red).add("efgh", Colour::Green).text(8),
            "\33[31mabcd\33[0m \33[32mef~\33[0m");
}

TEST(LineText, IsOneLine) {
  EXPECT_EQ(Line(plain).add("a\nb").add("\33[2J").text(), "a?b ?[2J");
}

// ---- The router's counters ----

constexpr const char* counters = R"({"accepted":120,"answered":100,"busy":7,"timed_out":5,"handled":3,
  "client_gone":2,"refused":{"no_json":4,"bad_id":0,"no_id":1},"late":11,"foreign":12,"garbage":13,"clients":9,
  "in_flight":8,"bytes_in":5000,"bytes_out":6000,"latency_below_2_to_n_ms":[0,60,0,40,0]})";

TEST(StatsTable, ShowsOutcomesReasonsAndTimes) {
  const auto table = ctl::stats_table(json_of(counters).get(), nullptr, 0, plain);
  EXPECT_THAT(table, HasSubstr("\naccepted                 120\n"));
  EXPECT_THAT(table, HasSubstr("\n  answered               100  by a service\n"));
  EXPECT_THAT(table,
              HasSubstr("\n  refused                  5  closed without an answer\n    no_json                4\n"
                        "    no_id                  1\n"));
  EXPECT_THAT(table, Not(HasSubstr("bad_id")));
  EXPECT_THAT(table, HasSubstr("\n  in flight                8\n"));
  EXPECT_THAT(table, HasSubstr("\n  below       2 ms         60  " + std::string(40, '#') +
                               "\n"
                               "  below       4 ms          0\n"
                               "  below       8 ms         40  " +
                               std::string(27, '#')));
  EXPECT_THAT(table, Not(HasSubstr("below       1 ms")));
  EXPECT_THAT(table, Not(HasSubstr("below      16 ms")));
  EXPECT_THAT(table, Not(HasSubstr("/s")));
  EXPECT_THAT(table, Not(HasSubstr("\33")));
}

TEST(StatsTable, ShowsRates) {
  const Json before = json_of(R"({"accepted":100,"answered":99,"refused":{"no_json":3}})");
  const auto table = ctl::stats_table(json_of(counters).get(), before.get(), 2, plain);
  EXPECT_THAT(table, HasSubstr("accepted                 120        10.0/s\n"));
  EXPECT_THAT(table, HasSubstr("  answered               100         0.5/s  by a service\n"));
  EXPECT_THAT(table, HasSubstr("  refused                  5         1.0/s  closed"));
}

TEST(StatsTable, ARouterThatHasServedNobodyHasNoTimes) {
  const auto table = ctl::stats_table(json_of(R"({"latency_below_2_to_n_ms":[0,0]})").get(), nullptr, 0, plain);
  EXPECT_THAT(table, Not(HasSubstr("time that services took")));
}

TEST(StatsTable, TheLastSlotIsOpenEnded) {
  const auto table = ctl::stats_table(json_of(R"({"latency_below_2_to_n_ms":[0,0,1]})").get(), nullptr, 0, plain);
  EXPECT_THAT(table, HasSubstr("  from        2 ms          1"));
}

}  // namespace
}  // namespace kestro::test
