// Identifiers of ports: what each combination of the flags takes, and what it says to the rest.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kestro_jrpc_utils.h"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/request.hpp"

namespace kestro::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* module = "kestro_jrpc_utils";

struct Flags {
  bool all;
  bool oec_id;
  bool c_ports;
  bool d_ports;
};

struct Kind {
  const char* name;
  std::vector<std::string> ids;
  // By the ports that are taken: none, D, C, C and D; first without and then with edge switches.
  int32_t expected[8];
};

const Kind kinds[] = {
    {"CPort", {"c3-4", "C512-99", "c1-1"}, {-34, -14, 0, 0, -15, -15, 0, 0}},
    {"DPort",
     {"d3", "D48", "d60", "d49", "d5x", "c10001-0", "c10001-49", "c3-d12", "x9 d12"},
     {-34, 0, -13, 0, -15, 0, -15, 0}},
    {"NoSuchHeadEndPort",
     {"d0", "D0", "x9", "X1", "x", "d", "dports", "x3-4"},
     {-34, -47, -13, -47, -15, -47, -15, -47}},
    {"EdgeSwitch", {"c3", "C512", "c10001"}, {-34, -14, -13, -34, 0, 0, 0, 0}},
    {"Nothing",
     {"c600", "c0", "c513-1", "c7-100", "C10001-1", "", "all", "ALL", "all ", " d3", "c", "v10", "1"},
     {-34, -14, -13, -34, -15, -15, -15, -15}},
};

class PortId : public testing::TestWithParam<Kind> {};
INSTANTIATE_TEST_SUITE_P(All, PortId, testing::ValuesIn(kinds), name_of<Kind>);

struct Outcome {
  int32_t status;
  std::string value;
  std::string explanation;
};

Outcome retrieve(const std::string& id, const Flags& flags, int8_t set = 1) {
  Request request = Request::of(id);
  char out[16] = "???????????????";
  const auto flag = [set](bool on) { return on ? set : int8_t{0}; };
  const int32_t status = kestro_jrpc_utils_retrieve_input_port_id(request.params(), request.err_data(), "value", out,
                                                                  sizeof(out), flag(flags.all), flag(flags.oec_id),
                                                                  flag(flags.c_ports), flag(flags.d_ports));
  return {status, out, request.explanation()};
}

TEST_P(PortId, EveryCombinationOfFlags) {
  const LogLevel off(0);
  for (const auto& id : GetParam().ids) {
    for (size_t bits = 0; bits < 16; ++bits) {
      SCOPED_TRACE("'" + id + "' by flags " + std::to_string(bits));
      const Flags flags{(bits & 8) != 0, (bits & 4) != 0, (bits & 2) != 0, (bits & 1) != 0};
      const int32_t expected = flags.all && id == "all" ? 0 : GetParam().expected[bits & 7];
      const Outcome outcome = retrieve(id, flags);
      EXPECT_EQ(outcome.status, expected);
      EXPECT_EQ(outcome.value, expected == 0 ? id : "");
      EXPECT_EQ(outcome.explanation, "");
    }
  }
}

TEST_P(PortId, AcceptedOnesAreToldAndOthersNot) {
  const LogLevel level(Debug);
  const std::string& id = GetParam().ids.front();
  for (size_t bits = 0; bits < 8; ++bits) {
    const Flags flags{false, (bits & 4) != 0, (bits & 2) != 0, (bits & 1) != 0};
    const auto log = stderr_of([&] { retrieve(id, flags); });
    const int expected = GetParam().expected[bits] == 0 ? 1 : 0;
    EXPECT_EQ(count_log_lines(log, Debug, module, "Retrieved and validated port id: " + id + "\n"), expected) << bits;
  }
}

TEST(PortIdFlags, AnyValueButZeroSetsThem) {
  const LogLevel off(0);
  for (const int set : {-128, -1, 2, 127}) {
    SCOPED_TRACE(set);
    const auto flag = static_cast<int8_t>(set);
    EXPECT_EQ(retrieve("all", {true, false, false, false}, flag).status, 0);
    EXPECT_EQ(retrieve("c3", {false, true, false, false}, flag).status, 0);
    EXPECT_EQ(retrieve("c3-4", {false, false, true, false}, flag).status, 0);
    EXPECT_EQ(retrieve("d3", {false, false, false, true}, flag).status, 0);
    EXPECT_EQ(retrieve("x9", {false, false, true, true}, flag).status, -47);
  }
}

// ---- Which checks are made, as the log tells.

std::string log_of(const std::string& id, const Flags& flags) {
  const LogLevel level(Verbose);
  return stderr_of([&] { retrieve(id, flags); });
}

TEST(PortIdChecks, AllIsNotValidated) {
  EXPECT_THAT(log_of("all", {true, true, true, true}),
              AllOf(HasLog(Debug, module, "Retrieved and validated port id: all\n"), Not(HasSubstr("Validating"))));
  EXPECT_THAT(log_of("all", {false, true, true, true}), HasSubstr("Validating port id: all\n"));
}

TEST(PortIdChecks, PortsGoBeforeEdgeSwitches) {
  EXPECT_THAT(log_of("c3-4", {false, true, true, false}),
              AllOf(HasSubstr("Validating c-port id: c3-4\n"), Not(HasSubstr("Validating oec id"))));
  EXPECT_THAT(log_of("c3", {false, true, false, true}),
              AllOf(HasSubstr("Validating d-port id: c3\n"), HasSubstr("Validating oec id: c3\n")));
  EXPECT_THAT(log_of("c3", {false, false, true, true}),
              AllOf(HasSubstr("Validating port id: c3\n"), Not(HasSubstr("Validating oec id"))));
  EXPECT_THAT(log_of("c3", {false, true, false, false}),
              AllOf(HasSubstr("Validating oec id: c3\n"), Not(HasSubstr("Validating port id"))));
  EXPECT_THAT(log_of("c3", {true, false, false, false}), Not(HasSubstr("Validating")));
}

}  // namespace
}  // namespace kestro::test
