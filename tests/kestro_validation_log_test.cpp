#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "kestro_validation.h"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// The messages, each as "VERB message". What is of another module, or without module and line, spoils the message
// before it.
template <class Action>
std::vector<std::string> lines_while(Action&& action, int32_t level = Verbose) {
  const LogLevel guard(level);
  std::istringstream log(stderr_of(action));
  static const std::regex head(R"(^\[[-0-9]+ [:.0-9]+\] \[(.{4})\] \[[^:\]]+: kestro_validation:[0-9]+\] )");
  std::vector<std::string> lines;
  for (std::string line; std::getline(log, line);) {
    if (lines.empty() || std::regex_search(line, head)) {
      lines.push_back(std::regex_replace(line, head, "$1 "));
    } else {
      lines.back() += "\n" + line;
    }
  }
  return lines;
}

template <class Validator, class Value>
std::vector<std::string> lines_of(Validator* validate, Value value, int32_t level = Verbose) {
  return lines_while([=] { validate(value); }, level);
}

using TextValidator = int32_t(const char*);
using NumberValidator = int32_t(int32_t);

// ---- Patterns: every label, first line and pattern

struct FormCase {
  const char* name;
  TextValidator* validate;
  const char* label;
  const char* first_line;  // without the value; empty: none
  const char* good;
  const char* bad;
  const char* regex;
};

class FormLog : public testing::TestWithParam<FormCase> {
 protected:
  // The lines of a value up to its judgement.
  static std::vector<std::string> lines_before(const std::string& value) {
    const auto& form = GetParam();
    std::vector<std::string> lines;
    if (*form.first_line != '\0') lines.push_back("VERB " + std::string(form.first_line) + value);
    lines.push_back("VERB Testing [" + std::string(form.label) + "] value <" + value +
                    "> against regex: " + form.regex);
    return lines;
  }
};

TEST_P(FormLog, OfAGoodValue) {
  const auto& form = GetParam();
  auto expected = lines_before(form.good);
  expected.emplace_back("VERB Regex test passed.");
  const auto lines = lines_of(form.validate, form.good);
  ASSERT_GE(lines.size(), expected.size());
  EXPECT_THAT(std::vector(lines.begin(), lines.begin() + static_cast<int64_t>(expected.size())),
              ElementsAreArray(expected));
}

TEST_P(FormLog, OfABadValue) {
  const auto& form = GetParam();
  auto expected = lines_before(form.bad);
  const auto refusal = "DEBG Validation failed: [" + std::string(form.label) + "] value <" + form.bad +
                       "> did not return a regex match.";
  expected.push_back(refusal);
  EXPECT_THAT(lines_of(form.validate, form.bad), ElementsAreArray(expected));
  EXPECT_THAT(lines_of(form.validate, form.bad, Debug), ElementsAre(refusal));
  EXPECT_THAT(lines_of(form.validate, form.bad, Info), IsEmpty());
}

constexpr const char* ip_regex =
    R"(^((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.){3}(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])$)";
constexpr const char* file_regex = R"(^[a-zA-Z0-9,._+@%/-]+$)";

const FormCase form_cases[] = {
    {"PortId", validate_port_id, "Port ID", "Validating port id: ", "c1-1", "x",
     R"((^[cC]([1-9]|[1-9]\d|[1-4]\d\d|50\d|51[0-2])-([1-9]|[1-9]\d)$)|(^([dD][1-9])|([dD][1-3][0-9])|([dD]4[0-8]))"
     R"(|(c10001-[1-4]?[0-9])$))"},
    {"CPortId", validate_c_port_id, "C Port ID", "Validating c-port id: ", "c1-1", "x",
     R"(^[cC]([1-9]|[1-9]\d|[1-4]\d\d|50\d|51[0-2])-([1-9]|[1-9]\d)$)"},
    {"DPortId", validate_d_port_id, "D Port ID", "Validating d-port id: ", "d1", "x",
     R"(^([dD][1-9])|([dD][1-3][0-9])|([dD]4[0-8])|(c10001-[1-4]?[0-9])$)"},
    {"VlanNameId", validate_vlan_name_id, "Vlan Name ID", "Validating vlan name id: ", "v1", "x",
     R"(^v(([1-9])|([1-9][0-9])|([1-9][0-9][0-9])|([1-3][0-9][0-9][0-9])|(40[0-8][0-9])|(409[0-2]))$)"},
    {"OecId", validate_oec_id, "Edge Switch ID", "Validating oec id: ", "c1", "x",
     R"(^[cC]([1-9]|[1-9]\d|[1-4]\d\d|50\d|51[0-2]|10001)$)"},
    {"IpAddress", validate_ip_address, "IP Address", "Validating ip address: ", "1.2.3.4", "1.2.3.x", ip_regex},
    {"MacAddress", validate_mac_address, "MAC Address", "Validating mac address: ", "00:00:00:00:00:00",
     "00:00:00:00:00:0x", R"(^((((\d|[A-Fa-f]){2}:){5})|(((\d|[A-Fa-f]){2}-){5}))(\d|[A-Fa-f]){2}$)"},
    {"Description", validate_description, "Description", "Validating description: ", "text", "one\ntwo",
     R"(^.{0,50}$)"},
    {"OecSwUpgradeFilename", validate_oec_sw_upgrade_filename, "OEC SW Upgrade Filename",
     "Validating sw upgrade filename: ", "a", "!", file_regex},
    {"DbFilename", validate_db_filename, "Database Filename", "Validating database filename: ", "ab", "-b",
     R"(^[^-][a-zA-Z0-9,._+@%-]+$)"},
    {"Username", validate_username, "Username", "Validating username: ", "user", "user!", R"(^[a-zA-Z0-9]{4,15}$)"},
    {"Password", validate_password, "Password", "Validating password: ", "pass", "pass ",
     R"(^[a-zA-Z0-9!?_@-]{4,15}$)"},
    {"Date", validate_date, "Date", "Validating date: ", "2021-1-1", "x",
     R"(^2\d{3}-([1-9]|0[1-9]|1[0-2])-([1-9]|0[1-9]|1\d|2\d|3[0-1])$)"},
    {"Time", validate_time, "Time", "Validating time: ", "00:00", "x", R"(^([0-1]\d|2[0-3]):[0-5]\d$)"},
    {"Zone", validate_zone, "Time Zone", "Validating time zone: ", "UTC", "utc",
     R"(^($|([A-Z]{2,5}$)|([a-zA-Z/_]{5,}$)))"},
    {"Uuid", validate_uuid, "UUID", "", "01234567-0123-0123-0123-0123456789ab", "x",
     R"(^[a-fA-F0-9]{8}-[a-fA-F0-9]{4}-[a-fA-F0-9]{4}-[a-fA-F0-9]{4}-[a-fA-F0-9]{12}$)"},
    {"Filename", validate_filename, "filename", "", "a", "!", file_regex},
    {"UnitSwUpgradeFilename", validate_unit_sw_upgrade_filename, "Unit SW Upgrade filename",
     "Validating sw upgrade filename: ", "vtr1.2.3-4.x", "x", R"(^.*vtr.*\d+\.\d+\.\d+-\d+\..*)"},
    {"AddressRange", validate_address_range, "address range", "", "1.2.3.4/24", "x",
     R"(^((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.){3})"
     R"((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])/(16|22|24)$)"},
    {"DhcpRange", validate_dhcp_range, "dhcp range", "", "1.2.3.4-5.6.7.8", "x",
     R"((^((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.){3})"
     R"((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])-((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.){3})"
     R"((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])$)|(^$))"},
    {"GeneralAddressRange", validate_general_address_range, "dhcp range", "", "1.2.3.4/8", "x",
     R"(^((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.){3})"
     R"((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])/([1-2]?[0-9]|3[0-2])$)"},
    {"Hostname", validate_hostname, "hostname", "", "host", "host!", R"(^[0-9a-zA-Z.-]+$)"},
};
INSTANTIATE_TEST_SUITE_P(Fields, FormLog, testing::ValuesIn(form_cases), name_of<FormCase>);

// ---- Lengths

struct LengthCase {
  const char* name;
  TextValidator* validate;
  std::string value;
  std::vector<std::string> lines;
};

class LengthLog : public testing::TestWithParam<LengthCase> {};

TEST_P(LengthLog, TellsTheBound) {
  EXPECT_THAT(lines_of(GetParam().validate, GetParam().value.c_str()), ElementsAreArray(GetParam().lines));
  EXPECT_THAT(lines_of(GetParam().validate, GetParam().value.c_str(), Debug), ElementsAre(GetParam().lines.back()));
}

const std::string x51(51, 'x');
const std::string x1001(1001, 'x');

const LengthCase length_cases[] = {
    {"IpShort",
     validate_ip_address,
     "1.2.3.",
     {"VERB Validating ip address: 1.2.3.", "DEBG Validation failed: [IP Address] value <1.2.3.> is too short (<7)"}},
    {"IpLong",
     validate_ip_address,
     "1234567890123456",
     {"VERB Validating ip address: 1234567890123456",
      "DEBG Validation failed: [IP Address] value <1234567890123456> is too long (>15)"}},
    {"MacShort",
     validate_mac_address,
     "1234567890123456",
     {"VERB Validating mac address: 1234567890123456",
      "DEBG Validation failed: [MAC Address] value <1234567890123456> is too short (<17)"}},
    {"MacLong",
     validate_mac_address,
     "123456789012345678",
     {"VERB Validating mac address: 123456789012345678",
      "DEBG Validation failed: [MAC Address] value <123456789012345678> is too long (>17)"}},
    {"DescriptionLong",
     validate_description,
     x51,
     {"VERB Validating description: " + x51,
      "DEBG Validation failed: [Description] value <" + x51 + "> is too long (>50)"}},
    {"UsernameShort",
     validate_username,
     "abc",
     {"VERB Validating username: abc", "DEBG Validation failed: [Username] value <abc> is too short (<4)"}},
    {"UsernameLong",
     validate_username,
     "abcdefghijklmnop",
     {"VERB Validating username: abcdefghijklmnop",
      "DEBG Validation failed: [Username] value <abcdefghijklmnop> is too long (>15)"}},
    {"PasswordShort",
     validate_password,
     "abc",
     {"VERB Validating password: abc", "DEBG Validation failed: [Password] value <abc> is too short (<4)"}},
    {"PasswordLong",
     validate_password,
     "abcdefghijklmnop",
     {"VERB Validating password: abcdefghijklmnop",
      "DEBG Validation failed: [Password] value <abcdefghijklmnop> is too long (>15)"}},
    {"ExtensionLong",
     validate_entity_extension,
     x1001,
     {"VERB Validating extension: " + x1001,
      "DEBG Validation failed: [extension] value <" + x1001 + "> is too long (>1000)"}},
};
INSTANTIATE_TEST_SUITE_P(Fields, LengthLog, testing::ValuesIn(length_cases), name_of<LengthCase>);

TEST(ValidationLog, ExtensionOfGoodLength) {
  EXPECT_THAT(lines_of(validate_entity_extension, "text"), ElementsAre("VERB Validating extension: text"));
}

// ---- Numbers

struct RangeCase {
  const char* name;
  NumberValidator* validate;
  const char* first_line;
  const char* failure;
};

class RangeLog : public testing::TestWithParam<RangeCase> {};

TEST_P(RangeLog, TellsTheBounds) {
  const auto& [name, validate, first_line, failure] = GetParam();
  EXPECT_THAT(lines_of(validate, 1), ElementsAre("VERB " + std::string(first_line) + "1"));
  EXPECT_THAT(lines_of(validate, -2),
              ElementsAre("VERB " + std::string(first_line) + "-2", "DEBG " + std::string(failure)));
  EXPECT_THAT(lines_of(validate, -2, Debug), ElementsAre("DEBG " + std::string(failure)));
}

const RangeCase range_cases[] = {
    {"VlanId", validate_vlan_id, "Validating vlan id: ", "FAIL: Vlan id outside acceptable range [1, 4050]"},
    {"UnitId", validate_unit_id, "Validating unit id: ", "FAIL: Unit id outside acceptable range [1, 1]"},
    {"LaserId", validate_laser_id, "Validating laser_id: ", "FAIL: laser_id outside acceptable range [0, 7]"},
    {"OltId", validate_olt_id, "Validating olt id: ", "FAIL: OLT id outside acceptable range [0, 7]"},
    {"OnuId", validate_onu_id, "Validating ONU id: ", "FAIL: ONU id outside acceptable range [-1, 64]"},
    {"PortNumber", validate_port_number,
     "Validating port_number: ", "FAIL: port_number outside acceptable range [1, 64]"},
    {"PeriodicInterval", validate_periodic_interval,
     "Validating periodic interval: ", "FAIL: Periodic interval outside acceptable range [1, 3600]"},
};
INSTANTIATE_TEST_SUITE_P(Fields, RangeLog, testing::ValuesIn(range_cases), name_of<RangeCase>);

TEST(ValidationLog, LinkSpeedIsSilent) {
  EXPECT_THAT(lines_of(validate_port_link_speed, -1), IsEmpty());
}

// ---- Options: the whole list, in its order

struct OptionsCase {
  const char* name;
  TextValidator* validate;
  std::string label;
  std::string first_line;
  std::vector<std::string> options;
};

class OptionsLog : public testing::TestWithParam<OptionsCase> {
 protected:
  static std::string unequal(const std::string& value, const std::string& option) {
    return "VERB [" + GetParam().label + "] value <" + value + "> did not match option <" + option + ">";
  }
};

TEST_P(OptionsLog, OfARefusedValueNamesEveryOption) {
  const auto& [name, validate, label, first_line, options] = GetParam();
  std::vector<std::string> expected = {"VERB " + first_line + "x"};
  for (const auto& option : options) expected.push_back(unequal("x", option));
  const auto refusal = "DEBG Validation failed: Given [" + label + "] value <x> is not one of the available options";
  expected.push_back(refusal);
  EXPECT_THAT(lines_of(validate, "x"), ElementsAreArray(expected));
  EXPECT_THAT(lines_of(validate, "x", Debug), ElementsAre(refusal));
}

TEST_P(OptionsLog, OfAnAcceptedValueEndsAtItsOption) {
  const auto& [name, validate, label, first_line, options] = GetParam();
  const auto& value = options[1];
  EXPECT_THAT(lines_of(validate, value.c_str()),
              ElementsAre("VERB " + first_line + value, unequal(value, options[0]),
                          "VERB [" + label + "] value <" + value + "> matches option <" + value + ">"));
}

const OptionsCase option_cases[] = {
    {"Status", validate_status, "Status", "Validating status: ", {"enable", "disable"}},
    {"VlanMode", validate_vlan_mode, "VLAN Mode", "Validating vlan mode: ", {"local", "access", "trunk", "discovery"}},
    {"UnitSwBank",
     validate_unit_sw_bank,
     "Unit SW Bank",
     "Validating unit sw bank: ",
     {"all", "current", "previous", "default"}},
    {"OecModel",
     validate_oec_model,
     "OEC Model",
     "Validating oec model: ",
     {"unknown",     "VTR-E10",       "VTR-E20p",      "VTR-E20i",    "VTR-E200",    "VTR-E30p",   "VTR-E6301p",
      "Generic OEC", "VTR-E5301pi",   "VTR-E3301pi",   "VTR-E7301p",  "VTR-E2301i",  "VTR-E3310p", "VTR-E2301i*",
      "EKI-7706G",   "IPES-3408GSFP", "IPES-3416DSFP", "VTR-R6640XP", "VTR-D3340GP", "VTR-R6620GT"}},
};
INSTANTIATE_TEST_SUITE_P(Fields, OptionsLog, testing::ValuesIn(option_cases), name_of<OptionsCase>);

// ---- Validators of several steps

const std::vector<std::string> reserved_names = {"root",      "daemon", "bin",      "sys",    "sync",
                                                 "mail",      "proxy",  "www-data", "backup", "operator",
                                                 "haldaemon", "dbus",   "nobody",   "sshd"};

std::string not_reserved(const std::string& value, const std::string& name) {
  return "VERB [Username] value <" + value + "> did not match blacklist option <" + name + ">";
}

TEST(ValidationLog, UsernameIsComparedWithEveryReservedName) {
  std::vector<std::string> expected = {"VERB Validating username: admin",
                                       "VERB Testing [Username] value <admin> against regex: ^[a-zA-Z0-9]{4,15}$",
                                       "VERB Regex test passed."};
  for (const auto& name : reserved_names) expected.push_back(not_reserved("admin", name));
  const std::string end = "DEBG Given [Username] value <admin> is not one of the blacklisted options";
  expected.push_back(end);
  EXPECT_THAT(lines_of(validate_username, "admin"), ElementsAreArray(expected));
  EXPECT_THAT(lines_of(validate_username, "admin", Debug), ElementsAre(end));
}

TEST(ValidationLog, ReservedUsernameEndsTheComparison) {
  EXPECT_THAT(lines_of(validate_username, "daemon"),
              ElementsAre("VERB Validating username: daemon",
                          "VERB Testing [Username] value <daemon> against regex: ^[a-zA-Z0-9]{4,15}$",
                          "VERB Regex test passed.", not_reserved("daemon", "root"),
                          "DEBG Validation failed: [Username] value <daemon> matches blacklist option <daemon>"));
}

std::string refused(const std::string& label, const std::string& value) {
  return "DEBG Validation failed: [" + label + "] value <" + value + "> did not return a regex match.";
}

TEST(ValidationLog, EntityNameTriesSwitchThenPortThenVlan) {
  EXPECT_THAT(lines_of(validate_entity_name, "x", Debug),
              ElementsAre(refused("Edge Switch ID", "x"), refused("Port ID", "x"), refused("Vlan Name ID", "x")));
  EXPECT_THAT(lines_of(validate_entity_name, "v1", Debug),
              ElementsAre(refused("Edge Switch ID", "v1"), refused("Port ID", "v1")));
  EXPECT_THAT(lines_of(validate_entity_name, "d1", Debug), ElementsAre(refused("Edge Switch ID", "d1")));
  EXPECT_THAT(lines_of(validate_entity_name, "c1", Debug), IsEmpty());
}

TEST(ValidationLog, TimeIsNotLookedAtWhenTheDateIsBad) {
  EXPECT_THAT(lines_while([] { validate_date_time("x", "y"); }, Debug), ElementsAre(refused("Date", "x")));
  EXPECT_THAT(lines_while([] { validate_date_time("2021-1-1", "y"); }, Debug), ElementsAre(refused("Time", "y")));
}

TEST(ValidationLog, DateAndTimeHaveOnlyTheirOwnLines) {
  auto expected = lines_of(validate_date, "2021-1-1");
  const auto time = lines_of(validate_time, "00:00");
  expected.insert(expected.end(), time.begin(), time.end());
  EXPECT_THAT(lines_while([] { validate_date_time("2021-1-1", "00:00"); }), ElementsAreArray(expected));
}

TEST(ValidationLog, ImageNameMustBeAFilenameToo) {
  EXPECT_THAT(lines_of(validate_unit_sw_upgrade_filename, "x y", Debug),
              ElementsAre(refused("Unit SW Upgrade filename", "x y")));
  EXPECT_THAT(lines_of(validate_unit_sw_upgrade_filename, "vtr1.2.3-4.x (1)", Debug),
              ElementsAre(refused("filename", "vtr1.2.3-4.x (1)")));
}

TEST(ValidationLog, EachTimeServerIsTriedAsAnAddressFirst) {
  EXPECT_THAT(lines_of(validate_preferred_time_servers, " host  long-host 10.0.0.1", Debug),
              ElementsAre("DEBG Validation failed: [IP Address] value <host> is too short (<7)",
                          refused("IP Address", "long-host")));
}

TEST(ValidationLog, TimeServersBehindABadOneAreNotLookedAt) {
  EXPECT_THAT(lines_of(validate_preferred_time_servers, "bad_host! ?", Debug),
              ElementsAre(refused("IP Address", "bad_host!"), refused("hostname", "bad_host!")));
}

TEST(ValidationLog, EmptyListOfTimeServersIsSilent) {
  EXPECT_THAT(lines_of(validate_preferred_time_servers, "   "), IsEmpty());
}

TEST(ValidationLog, SeverityAndModuleAreThoseOfTheUnit) {
  const LogLevel verbose(Verbose);
  const auto log = stderr_of([] { validate_oec_id("x"); });
  EXPECT_THAT(log, HasLog(Verbose, "kestro_validation", "Validating oec id: x\n"));
  EXPECT_THAT(log, HasLog(Debug, "kestro_validation",
                          "Validation failed: [Edge Switch ID] value <x> did not return a regex match.\n"));
}

}  // namespace
}  // namespace kestro::test
