#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kestro_data.h"
#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using testing::ElementsAre;

// A buffer of exactly `size` bytes on the heap, where the sanitizers watch both ends; filled with 'x'.
std::unique_ptr<char[]> filled(size_t size) {
  auto buffer = std::make_unique<char[]>(size);
  memset(buffer.get(), 'x', size);
  return buffer;
}

std::unique_ptr<char[]> copy_of(const std::string& text) {
  auto buffer = filled(text.size() + 1);
  memcpy(buffer.get(), text.c_str(), text.size() + 1);
  return buffer;
}

TEST(ErrPrintf, FormatsAndCuts) {
  struct error err {};
  err_printf(&err, "lease %s has %d leases", "lan", 7);
  EXPECT_STREQ(err.msg, "lease lan has 7 leases");
  err_printf(&err, "%s", std::string(511, 'e').c_str());
  EXPECT_EQ(err.msg, std::string(511, 'e'));
  err_printf(&err, "%s", std::string(512, 'f').c_str());
  EXPECT_EQ(err.msg, std::string(511, 'f'));
  err_printf(&err, "%s", "");
  EXPECT_STREQ(err.msg, "");
}

TEST(SqliteEscape, DoublesQuotesUntilTheBufferIsFull) {
  const struct {
    const char* name;
    const char* original;
    int32_t size;
    int32_t status;
    const char* copy;
  } rows[] = {
      {"roomy", "it's", 16, 0, "it''s"},
      {"exact fit", "it's", 6, 0, "it''s"},
      {"one too small", "it's", 5, -21, "it''"},
      {"no room for a pair", "it's", 4, -21, "it"},
      {"room for nothing but the text before", "it's", 3, -21, "it"},
      {"one byte", "it's", 1, -21, ""},
      {"nothing in one byte", "", 1, 0, ""},
      {"nothing but quotes", "''", 5, 0, "''''"},
      {"quotes that do not fit", "''", 4, -21, "''"},
      {"no quotes", "plain", 6, 0, "plain"},
      {"no quotes, one too small", "plain", 5, -21, "plai"},
  };
  for (const auto& row : rows) {
    const auto buffer = filled(static_cast<size_t>(row.size));
    EXPECT_EQ(sqlite_escape_single_quotes(buffer.get(), row.size, row.original), row.status) << row.name;
    EXPECT_STREQ(buffer.get(), row.copy) << row.name;
  }
}

TEST(SqliteEscape, ClearsTheWholeBuffer) {
  const auto buffer = filled(8);
  EXPECT_EQ(sqlite_escape_single_quotes(buffer.get(), 8, "a"), 0);
  EXPECT_EQ(std::string(buffer.get(), 8), std::string("a\0\0\0\0\0\0\0", 8));
}

TEST(SqliteEscape, NoBufferAtAll) {
  for (const int32_t size : {0, -1}) {
    const auto buffer = filled(0);
    EXPECT_EQ(sqlite_escape_single_quotes(buffer.get(), size, "a"), -21);
    EXPECT_EQ(sqlite_escape_single_quotes(buffer.get(), size, ""), -21);
  }
}

TEST(SqliteEscape, RefusesNull) {
  char buffer = 'x';
  EXPECT_EQ(sqlite_escape_single_quotes(nullptr, 1, "a"), -20);
  EXPECT_EQ(sqlite_escape_single_quotes(&buffer, 1, nullptr), -20);
}

TEST(BufReplaceChar, ReplacesInItsFirstBytesUpToTheEndOfTheText) {
  const struct {
    int32_t size;
    const char* text;
  } rows[] = {{7, "a_b_c_d"}, {8, "a_b_c_d"}, {4, "a_b_c d"}, {2, "a_b c d"},
              {1, "a b c d"}, {0, "a b c d"}, {-1, "a b c d"}};
  for (const auto& row : rows) {
    const auto text = copy_of("a b c d");
    buf_replace_char(text.get(), row.size, ' ', '_');
    EXPECT_STREQ(text.get(), row.text) << row.size;
  }
}

TEST(BufReplaceChar, StopsAtTheEndOfTheText) {
  std::array<char, 8> buffer = {'a', '-', '\0', '-', '-', '\0'};
  buf_replace_char(buffer.data(), 8, '-', '+');
  EXPECT_EQ(std::string(buffer.data(), 5), std::string("a+\0--", 5));
  buf_replace_char(buffer.data(), 8, '\0', '+');
  EXPECT_STREQ(buffer.data(), "a+");
}

std::vector<std::string> tokens_of(const std::string& text, const char* delimit) {
  const auto source = copy_of(text);
  std::vector<std::string> tokens;
  char* start = source.get();
  const auto word = filled(text.size() + 1);
  // Every token but the first has at least a delimiter.
  while (strparse(start, delimit, word.get()) == 0 && tokens.size() <= text.size()) {
    tokens.emplace_back(word.get());
    start = nullptr;
  }
  EXPECT_EQ(text, source.get());
  EXPECT_STREQ(word.get(), "");
  return tokens;
}

TEST(Strparse, TokensBeginWithTheDelimiterThatEndedTheOneBefore) {
  EXPECT_THAT(tokens_of("a,b,c", ","), ElementsAre("a", ",b", ",c"));
  EXPECT_THAT(tokens_of("abc", ","), ElementsAre("abc"));
  EXPECT_THAT(tokens_of("a,", ","), ElementsAre("a", ","));
  EXPECT_THAT(tokens_of("a,,b", ","), ElementsAre("a", ",", ",b"));
  EXPECT_THAT(tokens_of(",a", ","), ElementsAre("", ",a"));
  EXPECT_THAT(tokens_of("", ","), ElementsAre(""));
}

TEST(Strparse, NewlineAlwaysDelimits) {
  EXPECT_THAT(tokens_of("a\nb,c\n", ","), ElementsAre("a", "\nb", ",c", "\n"));
  EXPECT_THAT(tokens_of("a\nb,c", ""), ElementsAre("a", "\nb,c"));
}

TEST(Strparse, ElevenDelimitersCount) {
  EXPECT_THAT(tokens_of("aBbKcLd\ne", "ABCDEFGHIJKLM"), ElementsAre("a", "Bb", "KcLd", "\ne"));
}

TEST(Strparse, NothingIsLeftAfterTheLastToken) {
  const auto text = copy_of("a");
  const auto word = filled(4);
  EXPECT_EQ(strparse(text.get(), ",", word.get()), 0);
  EXPECT_EQ(strparse(nullptr, ",", word.get()), 1);
  EXPECT_EQ(strparse(nullptr, ",", word.get()), 1);
}

TEST(Strparse, ANewTextReplacesTheOldOne) {
  const auto first = copy_of("a,b,c");
  const auto second = copy_of("d;e");
  const auto word = filled(8);
  strparse(first.get(), ",", word.get());
  strparse(second.get(), ";", word.get());
  EXPECT_STREQ(word.get(), "d");
  strparse(nullptr, ";", word.get());
  EXPECT_STREQ(word.get(), ";e");
  EXPECT_EQ(strparse(nullptr, ";", word.get()), 1);
}

TEST(Strparse, RefusesNullAndKeepsItsPlace) {
  const auto text = copy_of("a,b");
  const auto word = filled(4);
  strparse(text.get(), ",", word.get());
  EXPECT_EQ(strparse(nullptr, nullptr, word.get()), -4);
  EXPECT_EQ(strparse(nullptr, ",", nullptr), -4);
  EXPECT_EQ(strparse(nullptr, ",", word.get()), 0);
  EXPECT_STREQ(word.get(), ",b");
}

TEST(Isdigits, EveryCharacterCounts) {
  const struct {
    const char* text;
    int32_t result;
  } rows[] = {{"", 1},   {"0", 1},  {"0123456789", 1}, {"12a", 0}, {"a12", 0},
              {"-1", 0}, {" 1", 0}, {"1.", 0},         {"\xb2", 0}};
  for (const auto& row : rows) EXPECT_EQ(isdigits(row.text), row.result) << row.text;
}

TEST(TokenizeIpAddress, BytesAreTheNumbersUnchecked) {
  const struct {
    const char* text;
    std::array<uint8_t, 4> bytes;
  } rows[] = {
      {"10.0.0.1", {10, 0, 0, 1}},          {"255.255.255.255", {255, 255, 255, 255}},
      {"256.257.-1.300", {0, 1, 255, 44}},  {"1.2", {1, 2, 0, 0}},
      {"1.2.3.4.5", {1, 2, 3, 4}},          {"", {0, 0, 0, 0}},
      {"x.7y.z.9", {0, 7, 0, 9}},           {"192.168.100.0012345", {192, 168, 100, 12}},
      {"1.99999999999999", {1, 255, 0, 0}},
  };
  for (const auto& row : rows) {
    std::array<uint8_t, 4> bytes = {77, 77, 77, 77};
    EXPECT_EQ(kestro_tokenize_ip_address(bytes.data(), row.text, 4), 0) << row.text;
    EXPECT_EQ(bytes, row.bytes) << row.text;
  }
}

TEST(TokenizeIpAddress, Refusals) {
  std::array<uint8_t, 8> bytes = {77, 77, 77, 77, 77, 77, 77, 77};
  const auto untouched = bytes;
  for (const int32_t size : {-1, 0, 1, 3, 5, 8}) {
    EXPECT_EQ(kestro_tokenize_ip_address(bytes.data(), "10.0.0.1", size), -41) << size;
  }
  EXPECT_EQ(kestro_tokenize_ip_address(nullptr, "10.0.0.1", 4), -20);
  EXPECT_EQ(kestro_tokenize_ip_address(bytes.data(), nullptr, 4), -20);
  EXPECT_EQ(kestro_tokenize_ip_address(nullptr, "10.0.0.1", 5), -20);
  EXPECT_EQ(bytes, untouched);
}

TEST(CliDescParse, OnePairOfQuotesLosesTheFirst) {
  const struct {
    const char* name;
    std::string source;
    std::string copy;  // what is written, zero bytes included
  } rows[] = {
      {"quoted", "\"two words\"", "two words\""},
      {"nothing quoted", "\"\"", "\""},
      {"plain", "plain", std::string("plain\0", 6)},
      {"empty", "", std::string("\0", 1)},
      {"one quote", "\"", std::string("\"\0", 2)},
      {"opened", "\"open", std::string("\"open\0", 6)},
      {"closed", "close\"", std::string("close\"\0", 7)},
      {"three quotes", "\"a\"b\"", std::string("\"a\"b\"\0", 6)},
      {"two inside", "a\"b\"c", std::string("a\"b\"c\0", 6)},
      {"two pairs", "\"a\" \"b\"", std::string("\"a\" \"b\"\0", 8)},
  };
  for (const auto& row : rows) {
    const auto source = copy_of(row.source);
    const auto copy = filled(row.copy.size());
    EXPECT_EQ(kestro_cli_desc_parse(source.get(), copy.get()), 0) << row.name;
    EXPECT_EQ(std::string(copy.get(), row.copy.size()), row.copy) << row.name;
  }
}

TEST(CliDescParse, QuotedTextGetsNoTerminator) {
  const auto copy = filled(8);
  EXPECT_EQ(kestro_cli_desc_parse("\"ab\"", copy.get()), 0);
  EXPECT_EQ(std::string(copy.get(), 8), "ab\"xxxxx");
}

TEST(CliDescParse, RefusesNull) {
  char copy = 'x';
  EXPECT_EQ(kestro_cli_desc_parse(nullptr, &copy), -4);
  EXPECT_EQ(kestro_cli_desc_parse("text", nullptr), -4);
  EXPECT_EQ(copy, 'x');
}

TEST(RemoveSurroundingQuotes, CopiesWhatIsInside) {
  const struct {
    const char* name;
    std::string source;
    std::string inside;
  } rows[] = {
      {"quoted", "\"two words\"", "two words"},
      {"plain", "plain", "plain"},
      {"empty", "", ""},
      {"nothing quoted", "\"\"", ""},
      {"one quote", "\"", ""},
      {"opened", "\"open", "\"open"},
      {"closed", "close\"", "close\""},
      {"more quotes", "\"a\"b\"", "a\"b"},
  };
  for (const auto& row : rows) {
    for (int32_t size = 0; size <= 12; ++size) {
      const auto source = copy_of(row.source);
      const auto copy = filled(static_cast<size_t>(size));
      EXPECT_EQ(kestro_remove_surrounding_quotes(source.get(), copy.get(), size), 0) << row.name << size;
      auto expected = row.inside;
      expected.resize(static_cast<size_t>(size), '\0');
      EXPECT_EQ(std::string(copy.get(), expected.size()), expected) << row.name << size;
    }
  }
}

TEST(RemoveSurroundingQuotes, NegativeSizeWritesNothing) {
  const auto copy = filled(0);
  EXPECT_EQ(kestro_remove_surrounding_quotes("\"a\"", copy.get(), -1), 0);
}

TEST(RemoveSurroundingQuotes, RefusesNull) {
  char copy = 'x';
  EXPECT_EQ(kestro_remove_surrounding_quotes(nullptr, &copy, 1), -4);
  EXPECT_EQ(kestro_remove_surrounding_quotes("text", nullptr, 1), -4);
  EXPECT_EQ(copy, 'x');
}

TEST(StripLastChar, DropsOne) {
  const struct { const char *text, *rest; } rows[] = {{"line\n", "line"}, {"a", ""}, {"", ""}};
  for (const auto& row : rows) {
    const auto text = copy_of(row.text);
    kestro_strip_last_char(text.get());
    EXPECT_STREQ(text.get(), row.rest);
  }
}

}  // namespace
}  // namespace kestro::test
