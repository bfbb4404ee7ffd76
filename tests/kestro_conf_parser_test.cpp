#include "kestro_conf_parser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "kestro_conf_parser.hpp"
#include "support/captured_stderr.hpp"
#include "support/descriptors.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using namespace std::string_literals;

constexpr char untouched = '#';

// What a look-up leaves in a buffer of the given capacity, and in the byte behind it.
struct LookUp {
  LookUp(const std::string& file, const char* section, const char* field, int32_t capacity = 64) {
    buffer.fill(untouched);
    status = kestro_conf_parser_parse(file.c_str(), section, field, buffer.data(), capacity);
  }
  [[nodiscard]] std::string_view first(size_t count) const { return {buffer.data(), count}; }
  [[nodiscard]] bool is_untouched() const {
    return std::ranges::all_of(buffer, [](char c) { return c == untouched; });
  }

  std::array<char, 256> buffer{};
  int32_t status;
};

constexpr int32_t not_found = -35;

struct Row {
  const char* name;
  std::string text;
  const char* section = "s";
  const char* field = "k";
  int32_t status = 0;
  std::string value = {};

  friend void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }
};

class ConfParser : public testing::TestWithParam<Row> {};

TEST_P(ConfParser, LooksUp) {
  const auto& row = GetParam();
  const TempDir dir;
  const LookUp found(dir.write("conf", row.text), row.section, row.field);
  EXPECT_EQ(found.status, row.status);
  if (row.status == 0) {
    EXPECT_EQ(found.first(64), row.value + std::string(64 - row.value.size(), '\0'));
  } else {
    EXPECT_TRUE(found.is_untouched());
  }
}

const std::string name_49(49, 'n');
const std::string name_50(50, 'n');
const std::string name_51(51, 'n');

const Row rows[] = {
    {.name = "Plain", .text = "[s]\nk=value\n", .value = "value"},
    {.name = "EmptyValue", .text = "[s]\nk=\n", .value = ""},
    {.name = "FirstKeyWins", .text = "[s]\nk=one\nk=two\n", .value = "one"},
    {.name = "OtherKeysFirst", .text = "[s]\nkk=one\nK=two\nk=three\n", .value = "three"},
    {.name = "ValueIsVerbatim", .text = "[s]\nk= \"a\" = b #c;\t\r\n", .value = " \"a\" = b #c;\t\r"},

    {.name = "CommentBeforeSection", .text = "#[s]\n#k=1\n[s]\nk=2\n", .value = "2"},
    {.name = "CommentedSectionIsNone", .text = "#[s]\nk=1\n", .status = not_found},
    {.name = "CommentedKeyIsNone", .text = "[s]\n#k=1\n", .status = not_found},
    {.name = "CommentOfAKeyThatBeginsWithTheSign", .text = "[s]\n#k=1\n", .field = "#k", .status = not_found},
    {.name = "CommentSignElsewhereIsText", .text = "[s]\n #k=1\nk=#2\n", .field = " #k", .value = "1"},

    {.name = "EmptyFile", .text = "", .status = not_found},
    {.name = "NoSection", .text = "k=1\n", .status = not_found},
    {.name = "KeyBeforeSection", .text = "k=1\n[s]\nother=2\n", .status = not_found},
    {.name = "OtherSectionBefore", .text = "[t]\nk=1\n[s]\nk=2\n", .value = "2"},
    {.name = "SectionNamesAreCaseSensitive", .text = "[S]\nk=1\n", .status = not_found},
    {.name = "SectionNamesAreNotTrimmed", .text = "[ s ]\nk=1\n", .status = not_found},
    {.name = "BlankBeforeTheBracketIsNoSection", .text = " [s]\nk=1\n", .status = not_found},
    {.name = "SectionNameIsNoPrefix", .text = "[section]\nk=1\n", .status = not_found},
    {.name = "SectionNameNeedsAllOfTheName", .text = "[s]\nk=1\n", .section = "section", .status = not_found},
    {.name = "EmptySectionName", .text = "[]\nk=1\n", .section = "", .value = "1"},
    {.name = "TextBehindTheBracketIsIgnored", .text = "[s] ; ]=x\nk=1\n", .value = "1"},
    {.name = "FirstClosingBracketCounts", .text = "[s]t]\nk=1\n", .section = "s]t", .status = not_found},
    {.name = "SectionWithoutClosingBracket", .text = "[s\nk=1\n", .status = not_found},
    {.name = "SectionNameOf49", .text = "[" + name_49 + "]\nk=1\n", .section = name_49.c_str(), .value = "1"},
    {.name = "SectionNameOf50", .text = "[" + name_50 + "]\nk=1\n", .section = name_50.c_str(), .status = not_found},

    {.name = "NextSectionEndsTheSearch", .text = "[s]\n[t]\nk=1\n", .status = not_found},
    {.name = "SameSectionAgainEndsTheSearch", .text = "[s]\nother=1\n[s]\nk=2\n", .status = not_found},
    {.name = "SectionWithoutClosingBracketEndsTheSearch", .text = "[s]\n[\nk=1\n", .status = not_found},
    {.name = "TooLongSectionNameEndsTheSearch", .text = "[s]\n[" + name_51 + "]\nk=1\n", .status = not_found},

    {.name = "KeyIsCaseSensitive", .text = "[s]\nK=1\n", .status = not_found},
    {.name = "BlankBehindTheKeyBelongsToIt", .text = "[s]\nk =1\n", .status = not_found},
    {.name = "BlankBeforeTheKeyBelongsToIt", .text = "[s]\n k=1\n", .status = not_found},
    {.name = "KeyWithItsBlankIsFound", .text = "[s]\nk = 1\n", .field = "k ", .value = " 1"},
    {.name = "KeyIsNoPrefix", .text = "[s]\nkey=1\n", .status = not_found},
    {.name = "KeyNeedsAllOfTheName", .text = "[s]\nk=1\n", .field = "key", .status = not_found},
    {.name = "EmptyKey", .text = "[s]\n=1\n", .field = "", .value = "1"},
    {.name = "LineWithoutEqualsIsSkipped", .text = "[s]\nk\n\nk=1\n", .value = "1"},
    {.name = "KeyEndsAtTheFirstEquals", .text = "[s]\nk=1=2\n", .field = "k=1", .status = not_found},
    {.name = "KeyOf50", .text = "[s]\n" + name_50 + "=1\n", .field = name_50.c_str(), .value = "1"},
    {.name = "KeyOf51", .text = "[s]\n" + name_51 + "=1\n", .field = name_51.c_str(), .status = not_found},

    {.name = "LastLineWithoutLineFeed", .text = "[s]\nk=1", .status = not_found},
    {.name = "SectionOnALastLineWithoutLineFeed", .text = "[s]", .status = not_found},
    {.name = "LongLinesAreSkippedWhole",
     .text = "[s]\n" + std::string(100'000, 'x') + "k=1\n#" + std::string(100'000, '#') + "\nk=2\n",
     .value = "2"},
    {.name = "ALongLineIsOneLine", .text = "[s]\nother=" + std::string(4095, 'x') + "k=1\n", .status = not_found},
};

INSTANTIATE_TEST_SUITE_P(Rules, ConfParser, testing::ValuesIn(rows),
                         [](const auto& instance) { return instance.param.name; });

TEST(ConfParserCapacity, ValueMayFillTheBufferWithoutAZeroByte) {
  const TempDir dir;
  const LookUp found(dir.write("conf", "[s]\nk=12345678\n"), "s", "k", 8);
  EXPECT_EQ(found.status, 0);
  EXPECT_EQ(found.first(9), "12345678"s + untouched);
}

TEST(ConfParserCapacity, RestOfTheBufferIsZeroedAndNoMore) {
  const TempDir dir;
  const LookUp found(dir.write("conf", "[s]\nk=123\n"), "s", "k", 8);
  EXPECT_EQ(found.status, 0);
  EXPECT_EQ(found.first(9), "123\0\0\0\0\0"s + untouched);
}

TEST(ConfParserCapacity, LongerValueIsRefusedAndEndsTheSearch) {
  const TempDir dir;
  const LookUp found(dir.write("conf", "[s]\nk=123456789\nk=1\n"), "s", "k", 8);
  EXPECT_EQ(found.status, -41);
  EXPECT_TRUE(found.is_untouched());
}

TEST(ConfParserCapacity, OneByteHoldsOneCharacter) {
  const TempDir dir;
  const LookUp found(dir.write("conf", "[s]\nk=1\n"), "s", "k", 1);
  EXPECT_EQ(found.status, 0);
  EXPECT_EQ(found.first(2), "1"s + untouched);
}

TEST(ConfParserArguments, NullIsRefusedBeforeAnythingElse) {
  char value[8] = "old";
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_conf_parser_parse(nullptr, "s", "k", value, 0), -20);
    EXPECT_EQ(kestro_conf_parser_parse("/no/such/file", nullptr, "k", value, 0), -20);
    EXPECT_EQ(kestro_conf_parser_parse("/no/such/file", "s", nullptr, value, 0), -20);
    EXPECT_EQ(kestro_conf_parser_parse("/no/such/file", "s", "k", nullptr, 0), -20);
  });
  EXPECT_STREQ(value, "old");
  EXPECT_EQ(log, "");
}

TEST(ConfParserArguments, CapacityBelowOneIsRefusedBeforeTheFileIsOpened) {
  char value[8] = "old";
  for (const int32_t capacity : {0, -1, INT32_MIN}) {
    EXPECT_EQ(kestro_conf_parser_parse("/no/such/file", "s", "k", value, capacity), -4) << capacity;
  }
  EXPECT_STREQ(value, "old");
}

TEST(ConfParserFile, MissingFileCannotBeOpened) {
  const TempDir dir;
  const LookUp found(dir.file("missing"), "s", "k");
  EXPECT_EQ(found.status, -40);
  EXPECT_TRUE(found.is_untouched());
}

TEST(ConfParserFile, IsClosedOnEveryReturn) {
  const TempDir dir;
  const auto file = dir.write("conf", "[s]\nk=123\n[t]\n");
  const auto before = open_descriptors();
  EXPECT_EQ(LookUp(file, "s", "k").status, 0);
  EXPECT_EQ(LookUp(file, "s", "k", 2).status, -41);
  EXPECT_EQ(LookUp(file, "s", "other").status, -35);
  EXPECT_EQ(LookUp(file, "t", "k").status, -35);
  EXPECT_EQ(open_descriptors(), before);
}

TEST(ConfParserIndexOf, IsThePositionOfTheFirstOccurrence) {
  const struct {
    const char* text;
    char search_for;
    int64_t position;
  } positions[] = {{"a=b=c", '=', 1}, {"=", '=', 0}, {"abc", '=', -1}, {"", '=', -1}, {"ab\n", '\n', 2}};
  for (const auto& row : positions) {
    EXPECT_EQ(kestro_conf_parser_index_of(row.text, row.search_for), row.position) << row.text;
  }
}

}  // namespace
}  // namespace kestro::test
