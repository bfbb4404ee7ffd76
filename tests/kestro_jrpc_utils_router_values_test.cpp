#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <iterator>
#include <string>

#include "kestro_jrpc_utils.h"
#include "support/captured_stderr.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/scarce_json.hpp"

namespace kestro::test {
namespace {

constexpr const char* module = "kestro_jrpc_utils";
constexpr const char* no_object = "not an object\n";

// A record in which nothing was read yet.
struct Router {
  Router() {
    memset(static_cast<void*>(&values), 0x55, sizeof(values));
    for (char* const field : {values.mac_addr, values.sw_version, values.credentials, values.model}) {
      strcpy(field, "earlier");
    }
  }
  [[nodiscard]] bool is_untouched() const {
    const Router other;
    return memcmp(&values, &other.values, sizeof(values)) == 0;
  }
  int32_t parse(const std::string& object) { return kestro_json_parse_rcfg_init_vals(&values, json_of(object).get()); }
  int32_t parse_text(const char* text) { return kestro_json_parse_rcfg_init_vals_from_str(&values, text); }

  router_cfg values;
};

struct Field {
  const char* name;
  size_t size;
  char* (*place)(router_cfg&);
};

const Field fields[] = {
    {"mac_addr", 20, [](router_cfg& values) -> char* { return values.mac_addr; }},
    {"sw_version", 64, [](router_cfg& values) -> char* { return values.sw_version; }},
    {"credentials", 64, [](router_cfg& values) -> char* { return values.credentials; }},
    {"model", 64, [](router_cfg& values) -> char* { return values.model; }},
};

std::string object_with(const char* name, const std::string& value) {
  return R"({")" + std::string(name) + R"(":)" + value + "}";
}
std::string quoted(const std::string& text) {
  return "\"" + text + "\"";
}

TEST(RouterValues, AreAllRead) {
  Router router;
  EXPECT_EQ(router.parse(R"({"model":"VTR-R6640XP","mac_addr":"aa-bb-cc-dd-ee-ff","wan_ip":"10.0.0.1",)"
                         R"("sw_version":"1.2.3","credentials":""})"),
            0);
  EXPECT_STREQ(router.values.mac_addr, "aa-bb-cc-dd-ee-ff");
  EXPECT_STREQ(router.values.sw_version, "1.2.3");
  EXPECT_STREQ(router.values.credentials, "");
  EXPECT_STREQ(router.values.model, "VTR-R6640XP");
  EXPECT_EQ(router.values.wan_ip[0], 0x55);  // not one of them
}

class RouterField : public testing::TestWithParam<Field> {};

TEST_P(RouterField, AloneIsWritten) {
  Router router;
  EXPECT_EQ(router.parse(object_with(GetParam().name, quoted("new"))), 0);
  EXPECT_STREQ(GetParam().place(router.values), "new");
  strcpy(GetParam().place(router.values), "earlier");
  EXPECT_TRUE(router.is_untouched());
}

TEST_P(RouterField, OfAnotherTypeIsLeft) {
  for (const char* const value : {"1", "null", "true", "[]", R"({"model":"x"})"}) {
    Router router;
    EXPECT_EQ(router.parse(object_with(GetParam().name, value)), 0) << value;
    EXPECT_TRUE(router.is_untouched());
  }
}

TEST_P(RouterField, IsFilledToItsLastByte) {
  Router router;
  const std::string text(GetParam().size - 1, 'x');
  EXPECT_EQ(router.parse(object_with(GetParam().name, quoted(text))), 0);
  EXPECT_EQ(GetParam().place(router.values), text);
}

using RouterFieldDeathTest = RouterField;

TEST_P(RouterFieldDeathTest, OneByteMoreEndsTheProcess) {
  const std::string object = object_with(GetParam().name, quoted(std::string(GetParam().size, 'x')));
  const std::string why =
      std::string("overflow detected: ") + GetParam().name + " has " + std::to_string(GetParam().size) + " characters";
  EXPECT_EXIT(Router().parse(object), testing::KilledBySignal(SIGABRT), why);
  EXPECT_EXIT(Router().parse_text(object.c_str()), testing::KilledBySignal(SIGABRT), why);
}

// Nor does a program go on that ignores the signal.
TEST_P(RouterFieldDeathTest, TheProcessCannotSurvive) {
  const std::string object = object_with(GetParam().name, quoted(std::string(1000, 'x')));
  EXPECT_EXIT(
      {
        signal(SIGABRT, SIG_IGN);
        Router().parse(object);
      },
      testing::KilledBySignal(SIGABRT), "overflow detected");
}

// Of several that are too long, the first in the order of the record is told.
TEST(RouterValuesDeathTest, FieldsAreReadInTheirOrder) {
  const Json object(json_object());
  for (size_t last = std::size(fields); last-- > 0;) {
    json_object_set_new(object.get(), fields[last].name, json_string(std::string(64, 'x').c_str()));
    const std::string why = std::string("overflow detected: ") + fields[last].name + " has 64 characters";
    EXPECT_EXIT(Router().parse(text_of(object.get())), testing::KilledBySignal(SIGABRT), why);
  }
}

INSTANTIATE_TEST_SUITE_P(All, RouterField, testing::ValuesIn(fields), name_of<Field>);
INSTANTIATE_TEST_SUITE_P(All, RouterFieldDeathTest, testing::ValuesIn(fields), name_of<Field>);

TEST(RouterValues, WhatIsNoObjectIsRefused) {
  Router router;
  for (const char* const value : {"[]", "\"text\"", "1", "null"}) {
    EXPECT_THAT(stderr_of([&] { EXPECT_EQ(router.parse(value), -1) << value; }), HasLog(Error, module, no_object));
  }
  EXPECT_THAT(stderr_of([&] { EXPECT_EQ(kestro_json_parse_rcfg_init_vals(&router.values, nullptr), -1); }),
              HasLog(Error, module, no_object));
  EXPECT_TRUE(router.is_untouched());
}

TEST(RouterValues, NullRecordIsRefused) {
  const LogLevel level(Debug);
  const Json object = json_of("{}");
  EXPECT_THAT(stderr_of([&] { EXPECT_EQ(kestro_json_parse_rcfg_init_vals(nullptr, object.get()), -1); }),
              HasLog(Debug, module, "NULL pointer!\n"));
}

TEST(RouterValuesText, IsRead) {
  Router router;
  EXPECT_EQ(router.parse_text(R"( {"model":"VTR-R6620GT"} )"), 0);
  EXPECT_STREQ(router.values.model, "VTR-R6620GT");
}

// Unlike a request, a stored text may repeat a member: the last one counts.
TEST(RouterValuesText, TheLastOfRepeatedMembersCounts) {
  Router router;
  EXPECT_EQ(router.parse_text(R"({"model":"first","sw_version":"1","model":"last"})"), 0);
  EXPECT_STREQ(router.values.model, "last");
}

TEST(RouterValuesText, EmptyObjectChangesNothing) {
  Router router;
  EXPECT_EQ(router.parse_text("{}"), 0);
  EXPECT_TRUE(router.is_untouched());
}

// Only a null text is told as a failure to parse.
TEST(RouterValuesText, WhatIsNoJsonIsNoObject) {
  Router router;
  for (const char* const text : {"", "{", "{} more", "model", "[]", R"({"model":)"}) {
    const auto log = stderr_of([&] { EXPECT_EQ(router.parse_text(text), -1) << text; });
    EXPECT_THAT(log, HasLog(Error, module, no_object));
    EXPECT_THAT(log, testing::Not(testing::HasSubstr("Parse error")));
  }
  EXPECT_TRUE(router.is_untouched());
}

TEST(RouterValuesText, NullIsToldAsAParseError) {
  Router router;
  const auto log = stderr_of([&] { EXPECT_EQ(router.parse_text(nullptr), -1); });
  EXPECT_THAT(log, HasLog(Error, module, "Parse error: wrong arguments; source: <string>\n"));
  EXPECT_THAT(log, testing::Not(testing::HasSubstr("not an object")));
  EXPECT_TRUE(router.is_untouched());
}

TEST(RouterValuesText, IsReadWholeOrNotAtAllWhenMemoryRunsOut) {
  const LogLevel off(0);
  bool fired = true;
  for (int nth = 1; fired; ++nth) {
    Router router;
    int32_t status = 1;
    {
      const ScarceJson scarce(nth);
      status = router.parse_text(R"({"mac_addr":"a","model":"b"})");
      fired = scarce.fired();
    }
    EXPECT_EQ(status, fired ? -1 : 0) << nth;
    EXPECT_EQ(router.is_untouched(), fired) << nth;
    ASSERT_LT(nth, 100);
  }
}

}  // namespace
}  // namespace kestro::test
