#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using testing::IsEmpty;

const char* const module = "kestro_utils";
const char* const first_null = "Found a null input parameter at varg index <0>\n";

struct Parsed {
  int32_t status = 99;
  int32_t oec = 99;
  int32_t port = 99;
  bool operator==(const Parsed&) const = default;
};

void PrintTo(const Parsed& p, std::ostream* out) {
  *out << "status " << p.status << ", (" << p.oec << "," << p.port << ")";
}

Parsed parse(const char* id) {
  Parsed p;
  p.status = kestro_parse_oec_port_id(&p.oec, &p.port, id);
  return p;
}

std::string port_id(int32_t oec, int32_t port) {
  char text[32];
  EXPECT_EQ(kestro_create_port_id_str(text, sizeof text, oec, port), 0);
  return text;
}

// ---- Making identifiers ----

TEST(PortId, NumbersNearTheBounds) {
  EXPECT_EQ(port_id(1, 1), "c1-1");
  EXPECT_EQ(port_id(512, 99), "c512-99");
  EXPECT_EQ(port_id(9999, 0), "c9999-0");
  EXPECT_EQ(port_id(10000, -3), "c10000--3");
  EXPECT_EQ(port_id(10001, 5), "d5");
  EXPECT_EQ(port_id(10002, 5), "d5");
  EXPECT_EQ(port_id(INT_MAX, INT_MIN), "d-2147483648");
}

TEST(PortId, EdgeSwitchBelowOneIsRefusedAndTheTextCleared) {
  for (const int32_t oec : {0, -1, INT_MIN}) {
    std::vector<char> out(8, 'x');
    const auto log = stderr_of([&] { EXPECT_EQ(kestro_create_port_id_str(out.data(), 8, oec, 5), -1); });
    EXPECT_EQ(std::string(out.begin(), out.end()), std::string(8, '\0'));
    EXPECT_THAT(log, HasLog(Debug, module, "Unable to create port id string due to oec number being less than 0\n"));
  }
}

TEST(PortId, EverySizeCutsToFit) {
  const std::string text = "c12-34";
  for (int32_t size = -1; size <= 9; ++size) {
    std::vector<char> out(12, 'x');
    EXPECT_EQ(kestro_create_port_id_str(out.data(), size, 12, 34), 0);
    const auto room = static_cast<size_t>(std::max(size, 0));
    std::string expected = text.substr(0, room == 0 ? 0 : room - 1);
    expected.resize(room, '\0');
    expected.resize(12, 'x');
    EXPECT_EQ(std::string(out.begin(), out.end()), expected) << size;
  }
}

TEST(PortId, ExactFitInItsOwnAllocation) {
  for (const int32_t size : {1, 6, 7}) {
    std::vector<char> out(static_cast<size_t>(size), 'x');
    EXPECT_EQ(kestro_create_port_id_str(out.data(), size, 12, 34), 0);
    EXPECT_EQ(std::string(out.data()), std::string("c12-34").substr(0, static_cast<size_t>(size) - 1));
  }
}

TEST(PortId, RefusesNull) {
  const auto log = stderr_of([] { EXPECT_EQ(kestro_create_port_id_str(nullptr, 8, 1, 1), -4); });
  EXPECT_THAT(log, HasLog(Warning, module, first_null));
}

TEST(OecId, AnyNumber) {
  for (const int32_t number : {INT_MIN, -1, 0, 1, 512, 10001, INT_MAX}) {
    char out[16];
    EXPECT_EQ(kestro_create_oec_id_str(out, sizeof out, number), 0);
    EXPECT_EQ(std::string(out), "c" + std::to_string(number));
  }
}

TEST(OecId, EverySizeCutsToFit) {
  for (int32_t size = -1; size <= 6; ++size) {
    std::vector<char> out(8, 'x');
    EXPECT_EQ(kestro_create_oec_id_str(out.data(), size, 123), 0);
    const auto room = static_cast<size_t>(std::max(size, 0));
    std::string expected = std::string("c123").substr(0, room == 0 ? 0 : room - 1);
    expected.resize(room, '\0');
    expected.resize(8, 'x');
    EXPECT_EQ(std::string(out.begin(), out.end()), expected) << size;
  }
}

TEST(OecId, RefusesNull) {
  const auto log = stderr_of([] { EXPECT_EQ(kestro_create_oec_id_str(nullptr, 8, 1), -4); });
  EXPECT_THAT(log, HasLog(Warning, module, first_null));
}

// ---- Reading identifiers ----

TEST(ParseId, ReadsBackWhatWasMade) {
  for (int32_t oec = 1; oec <= 512; ++oec) {
    char text[16];
    kestro_create_oec_id_str(text, sizeof text, oec);
    ASSERT_EQ(parse(text), (Parsed{0, oec, 0})) << text;
    for (int32_t port = 1; port <= 99; ++port) {
      const auto id = port_id(oec, port);
      ASSERT_EQ(parse(id.c_str()), (Parsed{0, oec, port})) << id;
    }
  }
  for (int32_t port = 1; port <= 99; ++port) {
    const auto id = port_id(10001, port);
    ASSERT_EQ(parse(id.c_str()), (Parsed{0, 10001, port})) << id;
  }
}

struct Case {
  const char* name;
  const char* id;
  Parsed expected;
  int severity;  // of the expected line; 0: silence
  const char* message;
};

const Case cases[] = {
    {"AllHeadEndPorts", "dports", {0, 10001, 0}, 0, ""},
    {"AllHeadEndPortsInCapitals", "DPORTS", {-4, 0, 0}, Debug, "Could not parse port number from DPORTS\n"},
    {"AllHeadEndPortsMixed", "Dports", {-4, 0, 0}, Debug, "Could not parse port number from Dports\n"},
    {"DportsAndMore", "dports1", {-4, 0, 0}, Debug, "Could not parse port number from dports1\n"},
    {"UpperD", "D3", {0, 10001, 3}, 0, ""},
    {"LowerD", "d3", {0, 10001, 3}, 0, ""},
    {"DWithTail", "d5x", {0, 10001, 5}, 0, ""},
    {"DNegative", "d-5", {0, 10001, -5}, 0, ""},
    {"DZero", "d0", {-4, 0, 0}, Debug, "Could not parse port number from d0\n"},
    {"DAlone", "d", {-4, 0, 0}, Debug, "Could not parse port number from d\n"},
    {"LowerX", "x2", {0, 10001, 10}, 0, ""},
    {"UpperX", "X40", {0, 10001, 48}, 0, ""},
    {"XNegativeEight", "x-8", {0, 10001, 0}, 0, ""},
    {"XZero", "x0", {-4, 0, 0}, Error, "Could not parse port number from x0\n"},
    {"XAlone", "X", {-4, 0, 0}, Error, "Could not parse port number from X\n"},
    {"Port", "c12-4", {0, 12, 4}, 0, ""},
    {"UpperC", "C12-4", {0, 12, 4}, 0, ""},
    {"EdgeSwitch", "c12", {0, 12, 0}, 0, ""},
    {"HeadEndAsEdgeSwitch", "c10001", {0, 10001, 0}, 0, ""},
    {"SecondDashEndsThePort", "c1-2-3", {0, 1, 2}, 0, ""},
    {"PortMissing", "c12-", {-4, 12, 0}, Error, "Could not parse port number from c12-\n"},
    {"PortZero", "c12-0", {-4, 12, 0}, Error, "Could not parse port number from c12-0\n"},
    {"PortNoNumber", "c12-x", {-4, 12, 0}, Error, "Could not parse port number from c12-x\n"},
    {"EdgeSwitchZeroWithPort", "c0-4", {-4, 0, 0}, Error, "Could not parse port number from c0-4\n"},
    {"EdgeSwitchMissing", "c-4", {-4, 0, 0}, Error, "Could not parse port number from c-4\n"},
    {"EdgeSwitchNegative", "c-5-1", {-4, 0, 0}, Error, "Could not parse port number from c-5-1\n"},
    {"EdgeSwitchZero", "c0", {-4, 0, 0}, Error, "Could not parse port number from c0\n"},
    {"CAlone", "c", {-4, 0, 0}, Error, "Could not parse port number from c\n"},
    {"Empty", "", {-4, 0, 0}, Debug, "Could not parse oec/port number from \n"},
    {"OtherLetter", "v12", {-4, 0, 0}, Debug, "Could not parse oec/port number from v12\n"},
    {"Number", "12-4", {-4, 0, 0}, Debug, "Could not parse oec/port number from 12-4\n"},
    {"EightCharacters", "c12345-7", {0, 12345, 7}, 0, ""},
    {"NineCharacters", "c123456-7", {-4, 0, 0}, 0, ""},
    {"SixteenCharacters", "d123456789012345", {-4, 0, 0}, 0, ""},
};

class ParseIdCase : public testing::TestWithParam<Case> {};

TEST_P(ParseIdCase, GivesNumbersAndLine) {
  const auto& row = GetParam();
  Parsed parsed;
  const auto log = stderr_of([&] { parsed = parse(row.id); });
  EXPECT_EQ(parsed, row.expected);
  if (row.severity == 0) {
    EXPECT_THAT(log, IsEmpty());
  } else {
    EXPECT_THAT(log, HasLog(static_cast<Severity>(row.severity), module, row.message));
  }
}

INSTANTIATE_TEST_SUITE_P(Ids, ParseIdCase, testing::ValuesIn(cases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(ParseId, LongTextsAreNotReadToTheirEnd) {
  // No terminating zero byte behind the sixteen characters that are looked at.
  const std::vector<char> endless(16, 'c');
  EXPECT_EQ(parse(endless.data()), (Parsed{-4, 0, 0}));
}

TEST(ParseId, RefusesNull) {
  int32_t oec = 99;
  int32_t port = 99;
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_parse_oec_port_id(nullptr, &port, "c1"), -20);
    EXPECT_EQ(kestro_parse_oec_port_id(&oec, nullptr, "c1"), -20);
    EXPECT_EQ(kestro_parse_oec_port_id(&oec, &port, nullptr), -20);
  });
  EXPECT_EQ(oec, 99);
  EXPECT_EQ(port, 99);
  EXPECT_EQ(count_log_lines(log, Error, module, "NULL input\n"), 3);
}

}  // namespace
}  // namespace kestro::test
