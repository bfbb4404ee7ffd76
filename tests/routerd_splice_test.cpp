// Responses are read and changed in the text exactly as the JSON library would do it with the object.

#include "routerd/splice.hpp"

#include <gtest/gtest.h>
#include <jansson.h>

#include <array>
#include <random>
#include <string>
#include <string_view>

#include "core/owned.hpp"
#include "routerd/response.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

using routerd::outline;
using routerd::Response;
using namespace std::string_literals;

// What is done to a response: a "transaction_id" and an "id" to put there; null takes the former away and leaves the
// latter alone.
struct Change {
  const char* transaction_id;
  const char* id;
};
constexpr Change changes[] = {{"12", nullptr}, {nullptr, nullptr}, {"12", R"("x")"}, {nullptr, "5"}};

Json decoded(const char* text) {
  return Json(text != nullptr ? json_loads(text, JSON_DECODE_ANY, nullptr) : nullptr);
}
Json parsed(const std::string& text) {
  Json root(json_loads(text.c_str(), JSON_REJECT_DUPLICATES | JSON_DISABLE_EOF_CHECK | JSON_DECODE_ANY, nullptr));
  return json_is_object(root.get()) ? std::move(root) : nullptr;
}
std::string compact(const json_t* object) {
  return Text(json_dumps(object, JSON_COMPACT | JSON_ENSURE_ASCII)).get();
}
std::string changed(const std::string& text, const Change& change) {
  return Response(text).change(change.transaction_id != nullptr ? change.transaction_id : "",
                               change.id != nullptr ? change.id : "");
}

// Parse, replace, dump.
std::string changed_by_the_library(const std::string& text, const Change& change) {
  const Json object = parsed(text);
  json_object_del(change.transaction_id == nullptr ? object.get() : nullptr, "transaction_id");
  if (change.transaction_id != nullptr) {
    json_object_set_new(object.get(), "transaction_id", decoded(change.transaction_id).release());
  }
  if (change.id != nullptr) json_object_set_new(object.get(), "id", decoded(change.id).release());
  return compact(object.get());
}

// A failure when the response is not what the library says. Counts what was accepted.
void expect_agreement(const std::string& text, int* accepted = nullptr) {
  const Json object = parsed(text);
  const Response response(text);
  ASSERT_EQ(response.is_sound(), object != nullptr) << text;
  if (!object) {
    EXPECT_FALSE(outline(text)) << text;
    return;
  }
  if (accepted != nullptr) ++*accepted;
  const json_t* const number = json_object_get(object.get(), "transaction_id");
  const json_t* const id = json_object_get(object.get(), "id");
  ASSERT_EQ(response.number(), json_is_integer(number) ? json_integer_value(number) : -1) << text;
  ASSERT_EQ(response.method(), json_is_string(id) ? json_string_value(id) : "") << text;
  for (const auto& change : changes) {
    const std::string result = changed(text, change);
    const Json strictly(json_loads(result.c_str(), JSON_REJECT_DUPLICATES, nullptr));
    ASSERT_TRUE(strictly) << text << " became " << result;
    ASSERT_EQ(compact(strictly.get()), changed_by_the_library(text, change)) << text;
  }
}

// ---- Places ----

struct Case {
  const char* name;
  const char* text;
  const char* replaced;  // "transaction_id" by 12
  const char* removed;
};

std::ostream& operator<<(std::ostream& out, const Case& c) {
  return out << c.name;
}

const Case cases[] = {
    {"Only", R"({"transaction_id":1})", R"({"transaction_id":12})", R"({})"},
    {"First", R"({"transaction_id":1,"a":2})", R"({"transaction_id":12,"a":2})", R"({"a":2})"},
    {"Middle", R"({"a":1,"transaction_id":2,"b":3})", R"({"a":1,"transaction_id":12,"b":3})", R"({"a":1,"b":3})"},
    {"Last", R"({"a":1,"transaction_id":2})", R"({"a":1,"transaction_id":12})", R"({"a":1})"},
    {"InsideFirst", R"({"a":{"transaction_id":1},"transaction_id":2})",
     R"({"a":{"transaction_id":1},"transaction_id":12})", R"({"a":{"transaction_id":1}})"},
    {"BehindLookalikes",
     R"({"a":["transaction_id"],"b":"transaction_id","xtransaction_id":"\"transaction_id\":1",)"
     R"("transaction_id":2})",
     R"({"a":["transaction_id"],"b":"transaction_id","xtransaction_id":"\"transaction_id\":1","transaction_id":12})",
     R"({"a":["transaction_id"],"b":"transaction_id","xtransaction_id":"\"transaction_id\":1"})"},
    {"TextValue", R"({"transaction_id":"},\",{","a":1})", R"({"transaction_id":12,"a":1})", R"({"a":1})"},
    {"ObjectValue", R"({"transaction_id":{"x":[1,{}]},"a":1})", R"({"transaction_id":12,"a":1})", R"({"a":1})"},
    {"ArrayValue", R"({"a":1,"transaction_id":[[],["]"]]})", R"({"a":1,"transaction_id":12})", R"({"a":1})"},
    {"Spaces", " { \"a\" : 1.50 ,\n \"transaction_id\" : 2 } ", " { \"a\" : 1.50 ,\n \"transaction_id\" : 12 }",
     " { \"a\" : 1.50  }"},
    {"TextBehindIsDropped", R"({"transaction_id":1} {"transaction_id":2})", R"({"transaction_id":12})", "{}"},
    {"BeyondAscii", "{\"a\":\"\xe2\x82\xac\",\"transaction_id\":1}", "{\"a\":\"\xe2\x82\xac\",\"transaction_id\":12}",
     "{\"a\":\"\xe2\x82\xac\"}"},
};

class Splice : public testing::TestWithParam<Case> {};

TEST_P(Splice, Replaces) {
  EXPECT_TRUE(outline(GetParam().text));
  EXPECT_EQ(changed(GetParam().text, {"12", nullptr}), GetParam().replaced);
}

TEST_P(Splice, Removes) {
  EXPECT_EQ(changed(GetParam().text, {nullptr, nullptr}), GetParam().removed);
}

TEST_P(Splice, AgreesWithTheLibrary) {
  expect_agreement(GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Texts, Splice, testing::ValuesIn(cases), name_of<Case>);

// ---- What is accepted ----

enum class Verdict { Plain, Odd, Refused };  // read here, left to the library, refused by it

struct Judged {
  const char* name;
  std::string text;
  Verdict verdict;
};

std::ostream& operator<<(std::ostream& out, const Judged& j) {
  return out << j.name;
}

std::string repeated(const std::string& piece, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += piece;
  return text;
}
std::string nested(int arrays, const std::string& innermost) {
  return R"({"a":)" + repeated("[", arrays) + innermost + repeated("]", arrays) + "}";
}
std::string with_keys(int count, const std::string& last) {
  std::string text = "{";
  for (int i = 0; i < count; ++i) text += "\"k" + std::to_string(i) + "\":0,";
  return text + "\"" + last + "\":0}";
}
// An object with that value.
std::string of(const std::string& value) {
  return R"({"id":"m","a":)" + value + R"(,"transaction_id":7})";
}

const Judged judged[] = {
    {"Nothing", "", Verdict::Refused},
    {"Spaces", " \n", Verdict::Refused},
    {"Array", "[]", Verdict::Refused},
    {"Number", "5", Verdict::Refused},
    {"NoEnd", R"({"a":1)", Verdict::Refused},
    {"NoMembers", "{ }", Verdict::Plain},
    {"CommaAtTheEnd", R"({"a":1,})", Verdict::Refused},
    {"CommaAtTheBegin", R"({,"a":1})", Verdict::Refused},
    {"NoColon", R"({"a" 1})", Verdict::Refused},
    {"NoValue", R"({"a":})", Verdict::Refused},
    {"NoComma", R"({"a":1 "b":2})", Verdict::Refused},
    {"NoQuotes", R"({a:1})", Verdict::Refused},
    {"ArrayOfNothing", of("[ ]"), Verdict::Plain},
    {"ArrayWithCommaAtTheEnd", of("[1,]"), Verdict::Refused},
    {"ArrayWithoutComma", of("[1 2]"), Verdict::Refused},
    {"ArrayClosedAsObject", of("[1}"), Verdict::Refused},
    {"Literals", of("[true,false,null]"), Verdict::Plain},
    {"LongLiteral", of("truex"), Verdict::Refused},
    {"ShortLiteral", of("tru"), Verdict::Refused},
    {"LiteralAtTheEnd", R"({"a":nul)", Verdict::Refused},
    {"CapitalLiteral", of("True"), Verdict::Refused},
    {"AllSpaces", "\t\r\n {\t\"a\"\r:\n1 , \"b\":[ 1\t,2\n]}", Verdict::Plain},
    {"OtherSpace", "{\"a\":\v1}", Verdict::Refused},

    {"Zero", of("0"), Verdict::Plain},
    {"MinusZero", of("-0"), Verdict::Plain},
    {"LeadingZero", of("01"), Verdict::Refused},
    {"Plus", of("+1"), Verdict::Refused},
    {"MinusAlone", of("-"), Verdict::Refused},
    {"EighteenDigits", of("-999999999999999999"), Verdict::Plain},
    {"Greatest", of("9223372036854775807"), Verdict::Odd},
    {"Least", of("-9223372036854775808"), Verdict::Odd},
    {"TooGreat", of("9223372036854775808"), Verdict::Refused},
    {"TooLittle", of("-9223372036854775809"), Verdict::Refused},
    {"Real", of("-1.5e+10"), Verdict::Plain},
    {"RealOfManyDigits", of("0." + repeated("123", 200)), Verdict::Plain},
    {"NoFraction", of("1."), Verdict::Refused},
    {"NoWhole", of(".5"), Verdict::Refused},
    {"NoExponent", of("1e"), Verdict::Refused},
    {"NoExponentBehindSign", of("1e-"), Verdict::Refused},
    {"CapitalExponent", of("1E2"), Verdict::Plain},
    {"LongExponent", of("1e308"), Verdict::Odd},
    {"Overflow", of("1e309"), Verdict::Refused},
    {"Underflow", of("1e-999"), Verdict::Odd},
    {"HugeWhole", of(repeated("9", 400) + ".0"), Verdict::Refused},
    {"Hexadecimal", of("0x10"), Verdict::Refused},

    {"Escapes", of(R"("\"\\\/\b\f\n\r\t\u00e9\uABCD")"), Verdict::Plain},
    {"OtherEscape", of(R"("\a")"), Verdict::Refused},
    {"ShortEscape", of(R"("\u12")"), Verdict::Refused},
    {"EscapedGarbage", of(R"("\u12g4")"), Verdict::Refused},
    {"EscapeAtTheEnd", R"({"a":"\)", Verdict::Refused},
    {"EscapedQuoteAtTheEnd", R"({"a":"\")", Verdict::Refused},
    {"EscapedNul", of(R"("\u0000")"), Verdict::Refused},
    {"EscapedNulInAKey", R"({"a\u0000":1})", Verdict::Refused},
    {"Pair", of(R"("\ud83d\ude00")"), Verdict::Odd},
    {"HighAlone", of(R"("\ud83d")"), Verdict::Refused},
    {"LowAlone", of(R"("\ude00")"), Verdict::Refused},
    {"HighBeforeOther", of(R"("\ud83d\u0041")"), Verdict::Refused},
    {"ControlCharacter", of("\"\x1f\""), Verdict::Refused},
    {"LineFeed", of("\"\n\""), Verdict::Refused},
    {"Delete", of("\"\x7f\""), Verdict::Plain},
    {"Nul", "{\"a\":\"\0\"}"s, Verdict::Refused},
    {"NulBehind", "{\"a\":1}\0{"s, Verdict::Plain},

    {"Utf8", of("\"\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xf0\x90\x80\x80\xf4\x8f\xbf\xbf\""),
     Verdict::Plain},
    {"Utf8InAKey", "{\"\xc3\xa9\":1,\"transaction_id\":2}", Verdict::Plain},
    {"OverlongTwo", of("\"\xc1\xbf\""), Verdict::Refused},
    {"OverlongThree", of("\"\xe0\x9f\xbf\""), Verdict::Refused},
    {"OverlongFour", of("\"\xf0\x8f\xbf\xbf\""), Verdict::Refused},
    {"Surrogate", of("\"\xed\xa0\x80\""), Verdict::Refused},
    {"BeyondUnicode", of("\"\xf4\x90\x80\x80\""), Verdict::Refused},
    {"LeadBeyondUnicode", of("\"\xf5\x80\x80\x80\""), Verdict::Refused},
    {"ContinuationAlone", of("\"\x80\""), Verdict::Refused},
    {"CutCharacter", of("\"\xe2\x82\""), Verdict::Refused},
    {"CutAtTheEnd", "{\"a\":\"\xe2\x82", Verdict::Refused},
    {"Utf8OutsideOfTexts", "{\"a\":1\xc3\xa9}", Verdict::Refused},

    {"SameKey", R"({"a":1,"a":1})", Verdict::Refused},
    {"SameKeyInside", of(R"([{"b":{"c":1,"d":2,"c":3}}])"), Verdict::Refused},
    {"SameKeyWithEscapes", R"({"a":1,"\u0061":1})", Verdict::Refused},
    {"OtherKeyWithEscapes", R"({"a":1,"\u0062":1})", Verdict::Odd},
    {"SameKeyAtOtherLevels", R"({"a":{"a":1,"b":{"a":2}},"b":[{"a":1},{"a":2}]})", Verdict::Plain},
    {"EmptyKeys", R"({"":1,"":2})", Verdict::Refused},
    {"KeysOfEightBytes", R"({"abcdefgh":1,"abcdefghi":2,"abcdefg":3})", Verdict::Plain},
    {"ManyKeys", with_keys(5000, "transaction_id"), Verdict::Plain},
    {"SameAmongFewKeys", with_keys(15, "k3"), Verdict::Refused},
    {"SameAmongManyKeys", with_keys(5000, "k17"), Verdict::Refused},

    {"SixtyFourLevels", nested(63, ""), Verdict::Plain},
    {"SixtyFiveLevels", nested(64, ""), Verdict::Odd},
    {"DeepestLevel", nested(2047, ""), Verdict::Odd},
    {"DeeperValue", nested(2047, "1"), Verdict::Refused},
    {"DeeperLevel", nested(2048, ""), Verdict::Refused},

    {"EscapedMethod", R"({"id":"a\/b","transaction_id":7})", Verdict::Plain},
    {"MethodOfAnotherType", R"({"id":["a"],"transaction_id":7})", Verdict::Plain},
    {"WideNumber", R"({"id":"a","transaction_id":9223372036854775807})", Verdict::Odd},
    {"RealNumber", R"({"id":"a","transaction_id":7.0})", Verdict::Plain},
    {"ExponentNumber", R"({"id":"a","transaction_id":7e0})", Verdict::Plain},
};

class Judgement : public testing::TestWithParam<Judged> {};

TEST_P(Judgement, IsThatOfTheLibrary) {
  expect_agreement(GetParam().text);
}

TEST_P(Judgement, IsReachedWhereItIsMeantToBe) {
  EXPECT_EQ(outline(GetParam().text).has_value(), GetParam().verdict == Verdict::Plain);
  EXPECT_EQ(Response(GetParam().text).is_sound(), GetParam().verdict != Verdict::Refused);
}

INSTANTIATE_TEST_SUITE_P(Texts, Judgement, testing::ValuesIn(judged), name_of<Judged>);

// The bytes of a text are looked at sixteen at a time: what ends it may stand anywhere among them.
TEST(JudgementOf, TextsOfAnyLength) {
  for (int length = 0; length < 70; ++length) {
    const std::string text = repeated("x", length);
    for (const char* const special : {"", "\\n", "\xc3\xa9", "\xc3", "\x01", "\"", "\\"}) {
      expect_agreement(R"({"a":")" + text + special + "\"}");
      expect_agreement(R"({"a":")" + text + special + repeated("y", 20) + R"(","transaction_id":1})");
      expect_agreement(R"({"a":")" + text + special);
    }
  }
}

// ---- At random ----

// Objects of every shape, with keys and texts that look like JSON.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  Json object(int depth) {
    Json result(json_object());
    for (int count = below(6); count > 0; --count) {
      json_object_set_new(result.get(), keys[below(std::size(keys))], value(depth).release());
    }
    return result;
  }
  int below(size_t bound) { return static_cast<int>(random_() % bound); }

 private:
  static constexpr const char* keys[] = {"transaction_id", "id", "a", "tt", "", "{", "}", "a b", "t:", "\"", "[",
                                         "x\xc3\xa9"};
  static constexpr const char* texts[] = {"",
                                          "transaction_id",
                                          "\"id\":1",
                                          "\\",
                                          "\"",
                                          "{\"id\":",
                                          "}",
                                          "]\\\"",
                                          "\n",
                                          "\xe2\x82\xac",
                                          "\xf0\x9f\x98",
                                          "sixteen or more of them",
                                          "\xf0\x9f\x98\x80"};

  Json value(int depth) {
    switch (below(depth > 0 ? 8 : 6)) {
      case 0:
        return Json(json_integer(below(1000) - 500));
      case 1:
        return Json(json_real(below(1000) / 8.0));
      case 2:
        return Json(json_boolean(below(2)));
      case 3:
        return Json(json_null());
      case 4:
      case 5:
        return Json(json_string_nocheck(texts[below(std::size(texts))]));
      case 6:
        return object(depth - 1);
      default:
        return array(depth - 1);
    }
  }
  Json array(int depth) {
    Json result(json_array());
    for (int count = below(4); count > 0; --count) json_array_append_new(result.get(), value(depth).release());
    return result;
  }

  std::mt19937 random_;
};

std::string written(Generator& generate, const json_t* object) {
  constexpr size_t styles[] = {JSON_COMPACT, JSON_ENSURE_ASCII | JSON_COMPACT, JSON_INDENT(2), 0};
  const Text text(json_dumps(object, styles[generate.below(std::size(styles))]));
  return text ? text.get() : "";
}

// One byte, or a few, are changed, taken out, repeated or put in.
void damage(Generator& generate, std::string& text) {
  constexpr std::string_view pieces[] = {"\"",   "\\",   "{",     "}",  "[",    "]",    ",",
                                         ":",    "0",    "-",     ".",  "e9",   "\n",   " ",
                                         "\xc3", "\x80", "\\u00", "d8", "true", "\x01", "\"id\":1,"};
  const auto place = static_cast<size_t>(generate.below(text.size() + 1));
  const auto length = static_cast<size_t>(generate.below(3));
  const std::string piece(pieces[generate.below(std::size(pieces))]);
  text.replace(place, length, piece);
}

TEST(SpliceOf, GeneratedObjectsEqualsParseChangeAndDump) {
  Generator generate(20'240'817);
  int accepted = 0;
  for (int i = 0; i < 5'000 && !testing::Test::HasFatalFailure(); ++i) {
    expect_agreement(written(generate, generate.object(3).get()), &accepted);
  }
  EXPECT_GT(accepted, 2'500);
}

TEST(SpliceOf, DamagedObjectsEqualsParseChangeAndDump) {
  Generator generate(20'250'211);
  int accepted = 0;
  constexpr int texts = 20'000;
  for (int i = 0; i < texts && !testing::Test::HasFatalFailure(); ++i) {
    std::string text = written(generate, generate.object(2).get());
    for (int count = generate.below(3); count >= 0; --count) damage(generate, text);
    expect_agreement(text, &accepted);
  }
  EXPECT_GT(accepted, texts / 20);
  EXPECT_LT(accepted, texts / 2);
}

}  // namespace
}  // namespace kestro::test
