// Every validator of the library is to be had by its name, and decides.

#include "kestroctl/fields.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include "support/log.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

using testing::HasSubstr;

TEST(Fields, AreAllThatTheHeaderDeclares) {
  std::ifstream header(KESTRO_VALIDATION_HEADER);
  const std::string text(std::istreambuf_iterator<char>(header), {});
  const std::regex declaration(R"(int32_t validate_(\w+)\()");
  std::set<std::string> declared;
  for (std::sregex_iterator found(text.begin(), text.end(), declaration), end; found != end; ++found) {
    declared.insert((*found)[1]);
  }
  std::set<std::string> rows;
  for (const auto& field : ctl::fields()) rows.insert(field.name);
  EXPECT_GE(declared.size(), 38U);
  EXPECT_EQ(rows, declared);
  EXPECT_EQ(rows.size(), ctl::fields().size());
}

TEST(Fields, AreSortedAndExplained) {
  EXPECT_TRUE(std::ranges::is_sorted(ctl::fields(), {}, [](const auto& field) { return std::string(field.name); }));
  for (const auto& field : ctl::fields()) EXPECT_STRNE(field.rule, "") << field.name;
}

struct Case {
  const char* name;
  const char* field;
  const char* value;
  const char* reason;  // null: accepted
};

std::ostream& operator<<(std::ostream& out, const Case& c) {
  return out << c.name;
}

const Case cases[] = {
    {"Port", "port_id", "c1-1", nullptr},
    {"NoPort", "port_id", "x", "(-2)"},
    {"NoOption", "status", "on", "(-3)"},
    {"Reserved", "username", "root", "(-3)"},
    {"TooLong", "password", "0123456789abcdef", "too long (-4)"},
    {"TooShort", "password", "abc", "too short (-5)"},
    {"OutOfRange", "vlan_id", "4051", "out of range (-6)"},
    {"NumberInRange", "vlan_id", "4050", nullptr},
    {"NegativeNumber", "onu_id", "-1", nullptr},
    {"NoNumber", "vlan_id", "1x", "no whole number"},
    {"EmptyNumber", "vlan_id", "", "no whole number"},
    {"NumberBeyond32Bits", "vlan_id", "4294967297", "no whole number"},
    {"EmptyText", "dhcp_range", "", nullptr},
    {"Pair", "date_time", "2026-01-31 23:59", nullptr},
    {"HalfAPair", "date_time", "2026-01-31", "two words"},
    {"WrongHalf", "date_time", "2026-01-31 24:00", "(-2)"},
    {"OneOfSeveral", "preferred_time_servers", "10.0.0.1 a_b", "one of its parts"},
};

class Verdicts : public testing::TestWithParam<Case> {};

TEST_P(Verdicts, AreTheValidators) {
  const LogLevel quiet(0);
  const auto* const field = ctl::find_field(GetParam().field);
  ASSERT_NE(field, nullptr);
  const auto verdict = ctl::judge(*field, GetParam().value);
  EXPECT_EQ(verdict.accepted, GetParam().reason == nullptr);
  if (GetParam().reason != nullptr) {
    EXPECT_THAT(verdict.reason, HasSubstr(GetParam().reason));
  }
}

INSTANTIATE_TEST_SUITE_P(Values, Verdicts, testing::ValuesIn(cases), name_of<Case>);

TEST(Fields, AnUnknownNameIsNone) {
  EXPECT_EQ(ctl::find_field("validate_port_id"), nullptr);
  EXPECT_EQ(ctl::find_field(""), nullptr);
}

}  // namespace
}  // namespace kestro::test
