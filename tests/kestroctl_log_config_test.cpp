// The log configuration file as text. What is read is compared with what the library reads from the same bytes.

#include "kestroctl/log_config.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "kestro_conf_parser.h"
#include "support/named.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using namespace std::string_literals;
using ctl::read_level;
using ctl::set_level;

// What a daemon named "router" reads; "-" for nothing.
std::string library_reads(const std::string& text) {
  const TempDir dir;
  std::string value(50, '\0');
  const auto path = dir.write("log.conf", text);
  if (kestro_conf_parser_parse(path.c_str(), "logging_levels", "router", value.data(), 50) != 0) return "-";
  return value.c_str();
}

struct Case {
  const char* name;
  std::string text;
  std::string value;   // that "router" has; "-" for none
  std::string edited;  // with router=debug
};

std::ostream& operator<<(std::ostream& out, const Case& c) {
  return out << c.name;
}

// What stands in the section, before and after.
Case section(const char* name, const std::string& text, const std::string& value, const std::string& edited) {
  return {name, "[logging_levels]\n" + text, value, "[logging_levels]\n" + edited};
}

const Case cases[] = {
    section("Entry", "router=info\n", "info", "router=debug\n"),
    section("OtherDaemons", "a=info\nrouter=off\nb=info\n", "off", "a=info\nrouter=debug\nb=info\n"),
    section("Missing", "a=info\n", "-", "a=info\nrouter=debug\n"),
    section("EmptySection", "", "-", "router=debug\n"),
    section("BeforeTheNextSection", "a=info\n\n# the rest\n[other]\nrouter=x\n", "-",
            "a=info\nrouter=debug\n\n# the rest\n[other]\nrouter=x\n"),
    section("CommentInTheSection", "# off info\na=info\n#router=info\n", "-",
            "# off info\na=info\nrouter=debug\n#router=info\n"),
    section("BlanksAroundEquals", "router = info\n", "-", "router = info\nrouter=debug\n"),
    section("BlankInTheValue", "router=info \n", "info ", "router=debug\n"),
    section("SecondSection", "a=info\n[logging_levels]\nrouter=info\n", "-",
            "a=info\nrouter=debug\n[logging_levels]\nrouter=info\n"),
    section("TwoEntries", "router=info\nrouter=off\n", "info", "router=debug\nrouter=off\n"),
    section("UnfinishedEntry", "router=info", "-", "router=debug\n"),
    section("UnfinishedOther", "a=info", "-", "a=info\nrouter=debug\n"),
    section("LongerName", "router2=info\n", "-", "router2=info\nrouter=debug\n"),
    section("EmptyValue", "router=\n", "", "router=debug\n"),
    section("SecondEquals", "router=a=b\n", "a=b", "router=debug\n"),
    section("ZeroByteBeforeTheEntry", "\0router=info\n"s, "-", "\0router=info\nrouter=debug\n"s),
    section("ZeroByteInTheValue", "router=in\0fo\n"s, "-", "router=in\0fo\nrouter=debug\n"s),
    {"NoFile", "", "-", "[logging_levels]\nrouter=debug\n"},
    {"SectionWithoutLineEnd", "[logging_levels]", "-", "[logging_levels]\nrouter=debug\n"},
    {"NoSection", "[other]\nrouter=info\n", "-", "[other]\nrouter=info\n[logging_levels]\nrouter=debug\n"},
    {"NoSectionAndNoLineEnd", "[other]\nrouter=info", "-", "[other]\nrouter=info\n[logging_levels]\nrouter=debug\n"},
    {"CommentBefore", "# levels\n\n[logging_levels]\nrouter=info\n", "info",
     "# levels\n\n[logging_levels]\nrouter=debug\n"},
    {"CommentedSection", "#[logging_levels]\nrouter=info\n", "-",
     "#[logging_levels]\nrouter=info\n[logging_levels]\nrouter=debug\n"},
    {"BlankBeforeTheBracket", " [logging_levels]\nrouter=info\n", "-",
     " [logging_levels]\nrouter=info\n[logging_levels]\nrouter=debug\n"},
    {"TextBehindTheBracket", "[logging_levels] # all\nrouter=info\n", "info", "[logging_levels] # all\nrouter=debug\n"},
    {"CarriageReturns", "[logging_levels]\r\na=info\r\nrouter=info\r\n[b]\r\n", "info\r",
     "[logging_levels]\r\na=info\r\nrouter=debug\n[b]\r\n"},
    {"CarriageReturnsAndMissing", "[logging_levels]\r\na=info\r\n\r\n[b]\r\n", "-",
     "[logging_levels]\r\na=info\r\nrouter=debug\n\r\n[b]\r\n"},
    {"LongSectionName", "[" + std::string(50, 'x') + "]\n[logging_levels]\nrouter=info\n", "info",
     "[" + std::string(50, 'x') + "]\n[logging_levels]\nrouter=debug\n"},
};

class LogConfig : public testing::TestWithParam<Case> {};

TEST_P(LogConfig, IsReadAsTheLibraryReadsIt) {
  EXPECT_EQ(read_level(GetParam().text, "router").value_or("-"), GetParam().value);
  EXPECT_EQ(library_reads(GetParam().text), GetParam().value);
}

TEST_P(LogConfig, IsEditedWhereItMust) {
  EXPECT_EQ(set_level(GetParam().text, "router", "debug"), GetParam().edited);
}

TEST_P(LogConfig, IsReadAfterwardsAsMeant) {
  const auto edited = set_level(GetParam().text, "router", "verbose");
  EXPECT_EQ(read_level(edited, "router"), "verbose");
  EXPECT_EQ(library_reads(edited), "verbose");
}

TEST_P(LogConfig, IsEditedOnce) {
  EXPECT_EQ(set_level(GetParam().edited, "router", "debug"), GetParam().edited);
}

INSTANTIATE_TEST_SUITE_P(Texts, LogConfig, testing::ValuesIn(cases), name_of<Case>);

TEST(LogConfig, EveryEntryIsListedOnce) {
  const auto entries =
      ctl::read_levels("[a]\nx=off\n[logging_levels]\nrouter=info\n#b=off\nsimd=no\nrouter=off\n[c]\ny=off\n");
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].daemon + ":" + entries[0].value, "router:info");
  EXPECT_EQ(entries[1].daemon + ":" + entries[1].value, "simd:no");
}

TEST(LogConfig, LevelsAreThoseOfTheLibrary) {
  for (const char* word : {"off", "info", "debug", "verbose"}) EXPECT_TRUE(ctl::is_log_level(word)) << word;
  for (const char* word : {"", "warn", "error", "INFO", "info ", "info\r"})
    EXPECT_FALSE(ctl::is_log_level(word)) << word;
}

TEST(LogConfig, NamesThatTheFileCannotHoldAreRefused) {
  EXPECT_TRUE(ctl::is_daemon_name("router"));
  EXPECT_TRUE(ctl::is_daemon_name(std::string(50, 'n')));
  EXPECT_FALSE(ctl::is_daemon_name(std::string(51, 'n')));
  for (const auto& name : {""s, "a=b"s, "a\nb"s, "a\0b"s, "#a"s, "[a"s})
    EXPECT_FALSE(ctl::is_daemon_name(name)) << name;
}

TEST(LogConfig, TheLongestNameIsReadByTheLibrary) {
  const TempDir dir;
  const std::string name(50, 'n');
  const auto path = dir.write("log.conf", set_level("", name, "debug"));
  std::string value(50, '\0');
  EXPECT_EQ(kestro_conf_parser_parse(path.c_str(), "logging_levels", name.c_str(), value.data(), 50), 0);
  EXPECT_STREQ(value.c_str(), "debug");
}

}  // namespace
}  // namespace kestro::test
