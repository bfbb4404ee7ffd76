// A request ends where it ends, however the network cut it.

#include "routerd/framing.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "support/named.hpp"

namespace kestro::test {
namespace {

using routerd::RequestScanner;

struct Case {
  const char* name;
  const char* text;
  size_t request;  // how many bytes of the text belong to the request
  bool complete;
};

std::ostream& operator<<(std::ostream& out, const Case& c) {
  return out << c.name;
}

constexpr size_t all = std::string_view::npos;

const Case cases[] = {
    {"Nothing", "", all, false},
    {"EmptyObject", "{}", all, true},
    {"ClosingBraceEnds", R"({"a":1}rest)", 7, true},
    {"SecondRequestStays", R"({"a":1}{"b":2})", 7, true},
    {"LineFeedBehindStays", "{}\n", 2, true},
    {"NestedObjects", R"({"a":{"b":{}}}x)", 14, true},
    {"NestedArrays", R"({"a":[[],[{}]]}x)", 15, true},
    {"BraceInAString", R"({"a":"}"}x)", 9, true},
    {"BracketInAString", R"({"a":"]["}x)", 10, true},
    {"EscapedQuote", R"({"a":"\"}"}x)", 11, true},
    {"EscapedBackslashEndsTheString", R"({"a":"\\"}x)", 10, true},
    {"PrettyPrinted", "{\n  \"a\": 1\n}\n", 12, true},
    {"WhiteSpaceInFront", " \t\r\n{}x", 6, true},
    {"BlankLinesAreNoRequest", "\n\r\n", all, false},
    {"Unfinished", R"({"a":{)", all, false},
    {"UnfinishedLines", "{\n\n\n", all, false},
    {"UnfinishedString", R"({"a":"b)", all, false},
    {"LineFeedInAString", "{\"a\":\"b\nc\"}", 8, true},
    {"ArrayIsALine", "[1,2]\n{}", 6, true},
    {"ArrayWithoutLineFeed", "[1,2]", all, false},
    {"WordIsALine", "hello\nworld", 6, true},
    {"ObjectBehindAWordIsTheLine", "x{}\n", 4, true},
    {"WrongClosing", "{]}", 2, true},
};

class Framing : public testing::TestWithParam<Case> {
 protected:
  [[nodiscard]] std::string_view text() const { return GetParam().text; }
  [[nodiscard]] size_t expected() const { return std::min(GetParam().request, text().size()); }
};

TEST_P(Framing, InOnePiece) {
  RequestScanner scanner;
  EXPECT_EQ(scanner.feed(text()), expected());
  EXPECT_EQ(scanner.complete(), GetParam().complete);
}

TEST_P(Framing, CutAnywhere) {
  for (size_t cut = 0; cut <= text().size(); ++cut) {
    RequestScanner scanner;
    size_t taken = scanner.feed(text().substr(0, cut));
    taken += scanner.feed(text().substr(cut));
    EXPECT_EQ(taken, expected()) << "cut at " << cut;
    EXPECT_EQ(scanner.complete(), GetParam().complete) << "cut at " << cut;
  }
}

TEST_P(Framing, ByteByByte) {
  RequestScanner scanner;
  size_t taken = 0;
  for (size_t at = 0; at < text().size(); ++at) taken += scanner.feed(text().substr(at, 1));
  EXPECT_EQ(taken, expected());
  EXPECT_EQ(scanner.complete(), GetParam().complete);
}

INSTANTIATE_TEST_SUITE_P(Texts, Framing, testing::ValuesIn(cases), name_of<Case>);

TEST(FramingOf, TakesNothingMoreOnceComplete) {
  RequestScanner scanner;
  ASSERT_EQ(scanner.feed("{}"), 2U);
  EXPECT_EQ(scanner.feed("{}"), 0U);
  EXPECT_TRUE(scanner.complete());
}

TEST(FramingOf, DepthHasNoBound) {
  const std::string open(100'000, '[');
  const std::string close(100'000, ']');
  RequestScanner scanner;
  scanner.feed("{\"a\":" + open + close);
  EXPECT_FALSE(scanner.complete());
  scanner.feed("}");
  EXPECT_TRUE(scanner.complete());
}

}  // namespace
}  // namespace kestro::test
