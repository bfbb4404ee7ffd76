// Members are changed in the text as a JSON library would change them in the object.

#include "routerd/splice.hpp"

#include <gtest/gtest.h>
#include <jansson.h>

#include <random>
#include <string>

#include "core/owned.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

using routerd::remove_member;
using routerd::replace_member;

struct Case {
  const char* name;
  const char* text;
  const char* replaced;  // "t" by 7; null: no such member
  const char* removed;
};

std::ostream& operator<<(std::ostream& out, const Case& c) {
  return out << c.name;
}

const Case cases[] = {
    {"Only", R"({"t":1})", R"({"t":7})", R"({})"},
    {"First", R"({"t":1,"a":2})", R"({"t":7,"a":2})", R"({"a":2})"},
    {"Middle", R"({"a":1,"t":2,"b":3})", R"({"a":1,"t":7,"b":3})", R"({"a":1,"b":3})"},
    {"Last", R"({"a":1,"t":2})", R"({"a":1,"t":7})", R"({"a":1})"},
    {"Absent", R"({"a":1})", nullptr, nullptr},
    {"Empty", R"({})", nullptr, nullptr},
    {"OnlyInside", R"({"a":{"t":1}})", nullptr, nullptr},
    {"OnlyInAnArray", R"({"a":[{"t":1},"t"]})", nullptr, nullptr},
    {"OnlyAsValue", R"({"a":"t"})", nullptr, nullptr},
    {"OnlyInAText", R"({"a":"\"t\":1"})", nullptr, nullptr},
    {"OnlyAsPrefix", R"({"tt":1})", nullptr, nullptr},
    {"InsideFirst", R"({"a":{"t":1},"t":2})", R"({"a":{"t":1},"t":7})", R"({"a":{"t":1}})"},
    {"TextValue", R"({"t":"},\",{","a":1})", R"({"t":7,"a":1})", R"({"a":1})"},
    {"BackslashAtTheEnd", R"({"t":"\\","a":1})", R"({"t":7,"a":1})", R"({"a":1})"},
    {"ObjectValue", R"({"t":{"x":[1,{}]},"a":1})", R"({"t":7,"a":1})", R"({"a":1})"},
    {"ArrayValue", R"({"a":1,"t":[[],["]"]]})", R"({"a":1,"t":7})", R"({"a":1})"},
    {"LongNumber", R"({"a":1,"t":-1.5e+10})", R"({"a":1,"t":7})", R"({"a":1})"},
    {"Spaces", " { \"a\" : 1 ,\n \"t\" : 2 } ", " { \"a\" : 1 ,\n \"t\" : 7 } ", " { \"a\" : 1  } "},
    {"EscapedKey", R"({"\u0074":1})", nullptr, nullptr},
    {"TextBehindIsKept", R"({"t":1} {"t":2})", R"({"t":7} {"t":2})", R"({} {"t":2})"},
};

class Splice : public testing::TestWithParam<Case> {};

TEST_P(Splice, Replaces) {
  std::string text = GetParam().text;
  EXPECT_EQ(replace_member(text, "t", "7"), GetParam().replaced != nullptr);
  EXPECT_EQ(text, GetParam().replaced != nullptr ? GetParam().replaced : GetParam().text);
}

TEST_P(Splice, Removes) {
  std::string text = GetParam().text;
  EXPECT_EQ(remove_member(text, "t"), GetParam().removed != nullptr);
  EXPECT_EQ(text, GetParam().removed != nullptr ? GetParam().removed : GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Texts, Splice, testing::ValuesIn(cases), name_of<Case>);

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
  static constexpr const char* keys[] = {"t", "a", "tt", "", "{", "}", "a b", "t:", "te,", "[", "x\xc3\xa9"};
  static constexpr const char* texts[] = {"",        "t", "\"t\":1", "\\", "\"",
                                          "{\"t\":", "}", "]\\\"",   "\n", "\xe2\x82\xac"};

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
        return Json(json_string(texts[below(std::size(texts))]));
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

std::string compact(const json_t* object) {
  return Text(json_dumps(object, JSON_COMPACT | JSON_ENSURE_ASCII)).get();
}

TEST(SpliceOf, GeneratedObjectsEqualsParseChangeAndDump) {
  Generator generate(20'240'817);
  int with_member = 0;
  for (int i = 0; i < 20'000; ++i) {
    const Json object = generate.object(3);
    const std::string text = compact(object.get());
    const bool there = json_object_get(object.get(), "t") != nullptr;
    with_member += there ? 1 : 0;

    std::string replaced = text;
    ASSERT_EQ(replace_member(replaced, "t", "\"7\""), there) << text;
    const Json set(json_deep_copy(object.get()));
    if (there) json_object_set_new(set.get(), "t", json_string("7"));
    ASSERT_EQ(replaced, compact(set.get())) << text;

    std::string removed = text;
    ASSERT_EQ(remove_member(removed, "t"), there) << text;
    if (there) json_object_del(set.get(), "t");
    ASSERT_EQ(removed, compact(set.get())) << text;
  }
  EXPECT_GT(with_member, 1000);
}

}  // namespace
}  // namespace kestro::test
