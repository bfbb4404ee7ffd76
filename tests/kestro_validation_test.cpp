#include "kestro_validation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "kestro_validation/engines.hpp"
#include "support/log.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

using namespace validation;

constexpr int32_t invalid_server = -34;

using TextValidator = int32_t (*)(const char*);
using NumberValidator = int32_t (*)(int32_t);

// Thousands of refusals: none of them need be read.
class Quiet : public testing::Test {
  const LogLevel off_{0};
};

// ---- Single values

struct Case {
  const char* name;
  TextValidator validate;
  std::string value;
  int32_t expected;
};

class TextValue : public testing::TestWithParam<Case> {
  const LogLevel off_{0};
};

TEST_P(TextValue, IsJudged) {
  EXPECT_EQ(GetParam().validate(GetParam().value.c_str()), GetParam().expected) << '"' << GetParam().value << '"';
}

const Case ports[] = {
    {"CPort", validate_port_id, "c512-99", acceptable},
    {"CPortUpperCase", validate_port_id, "C1-1", acceptable},
    {"CPortOfSwitch513", validate_port_id, "c513-1", no_match},
    {"DPort", validate_port_id, "d48", acceptable},
    {"DPortLoose", validate_port_id, "d5x", acceptable},
    {"DPortInside", validate_port_id, "c3-d12", acceptable},
    {"HeadEndForm", validate_port_id, "c10001-49", acceptable},
    {"HeadEndFormUpperCase", validate_port_id, "C10001-1", no_match},
    {"EdgeSwitchIsNoPort", validate_port_id, "c12", no_match},
    {"AllHeadEndPortsIsNoPort", validate_port_id, "dports", no_match},
    {"PortEmpty", validate_port_id, "", no_match},
    {"PortBehindABlank", validate_port_id, " c1-1", no_match},

    {"OnlyCPort", validate_c_port_id, "c512-99", acceptable},
    {"OnlyCPortSwitch0", validate_c_port_id, "c0-1", no_match},
    {"OnlyCPortPort100", validate_c_port_id, "C7-100", no_match},
    {"OnlyCPortNoDPort", validate_c_port_id, "d1", no_match},
    {"OnlyCPortNoHeadEnd", validate_c_port_id, "c10001-1", no_match},
    {"OnlyCPortEmpty", validate_c_port_id, "", no_match},
    {"OnlyCPortTwoLineFeeds", validate_c_port_id, "c1-1\n\n", no_match},

    {"OnlyDPort48", validate_d_port_id, "d48", acceptable},
    {"OnlyDPortUpperCase", validate_d_port_id, "D1", acceptable},
    {"OnlyDPort49BeginsWithD4", validate_d_port_id, "d49", acceptable},
    {"OnlyDPort0", validate_d_port_id, "d0", no_match},
    {"OnlyDPortHeadEnd49", validate_d_port_id, "c10001-49", acceptable},
    {"OnlyDPortHeadEnd0", validate_d_port_id, "c10001-0", acceptable},
    {"OnlyDPortHeadEnd50", validate_d_port_id, "c10001-50", no_match},
    {"OnlyDPortHeadEndUpperCase", validate_d_port_id, "C10001-1", no_match},
    {"OnlyDPortLoose", validate_d_port_id, "d5x", acceptable},
    {"OnlyDPortInside", validate_d_port_id, "c3-d12", acceptable},
    {"OnlyDPortNoCPort", validate_d_port_id, "c1-1", no_match},
    {"OnlyDPortEmpty", validate_d_port_id, "", no_match},

    {"VlanName", validate_vlan_name_id, "v4092", acceptable},
    {"VlanName4093", validate_vlan_name_id, "v4093", no_match},
    {"VlanNameUpperCase", validate_vlan_name_id, "V1", no_match},
    {"VlanNameLeadingZero", validate_vlan_name_id, "v01", no_match},
    {"VlanNameEmpty", validate_vlan_name_id, "", no_match},

    {"EdgeSwitch", validate_oec_id, "c512", acceptable},
    {"EdgeSwitchUpperCase", validate_oec_id, "C1", acceptable},
    {"EdgeSwitch513", validate_oec_id, "c513", no_match},
    {"EdgeSwitchHeadEnd", validate_oec_id, "c10001", acceptable},
    {"EdgeSwitch10000", validate_oec_id, "c10000", no_match},
    {"EdgeSwitchEmpty", validate_oec_id, "", no_match},

    {"EntityEdgeSwitch", validate_entity_name, "c10001", acceptable},
    {"EntityPort", validate_entity_name, "c1-1", acceptable},
    {"EntityHeadEndPort", validate_entity_name, "D7", acceptable},
    {"EntityVlan", validate_entity_name, "v7", acceptable},
    {"EntityNone", validate_entity_name, "x7", no_match},
    {"EntityEmpty", validate_entity_name, "", no_match},
};
INSTANTIATE_TEST_SUITE_P(Ports, TextValue, testing::ValuesIn(ports), name_of<Case>);

const Case addresses[] = {
    {"Ip", validate_ip_address, "1.2.3.4", acceptable},
    {"IpLongest", validate_ip_address, "255.255.255.255", acceptable},
    {"IpThreeNumbers", validate_ip_address, "1.2.3", too_short},
    {"IpEmpty", validate_ip_address, "", too_short},
    {"IpFourDigits", validate_ip_address, "1111.2.3.4", no_match},
    {"IpSixteenBytes", validate_ip_address, "255.255.255.2555", too_long},
    {"IpLineFeed", validate_ip_address, "1.2.3.4\n", acceptable},
    {"IpLineFeedTooLong", validate_ip_address, "255.255.255.255\n", too_long},

    {"MacColons", validate_mac_address, "aa:bb:cc:dd:ee:ff", acceptable},
    {"MacDashes", validate_mac_address, "AA-BB-CC-DD-EE-FF", acceptable},
    {"MacMixedSeparators", validate_mac_address, "aa:bb-cc:dd:ee:ff", no_match},
    {"MacSixteenBytes", validate_mac_address, "aa:bb:cc:dd:ee:f", too_short},
    {"MacEighteenBytes", validate_mac_address, "aa:bb:cc:dd:ee:ff\n", too_long},
    {"MacLineFeedWithinLength", validate_mac_address, "aa:bb:cc:dd:ee:f\n", no_match},
    {"MacEmpty", validate_mac_address, "", too_short},

    {"RangeOtherPrefix", validate_address_range, "10.0.0.0/23", no_match},
    {"RangeEmpty", validate_address_range, "", no_match},
    {"DhcpRange", validate_dhcp_range, "10.0.0.1-10.0.0.9", acceptable},
    {"DhcpRangeBackwards", validate_dhcp_range, "10.0.0.9-10.0.0.1", acceptable},
    {"DhcpRangeEmpty", validate_dhcp_range, "", acceptable},
    {"DhcpRangeLineFeedOnly", validate_dhcp_range, "\n", acceptable},
    {"DhcpRangeBlank", validate_dhcp_range, " ", no_match},
    {"DhcpRangeOneAddress", validate_dhcp_range, "10.0.0.1", no_match},
    {"DhcpRangeHalf", validate_dhcp_range, "10.0.0.1-", no_match},
    {"DhcpRangeThree", validate_dhcp_range, "10.0.0.1-10.0.0.2-10.0.0.3", no_match},
    {"GeneralRangeNoPrefix", validate_general_address_range, "10.0.0.0", no_match},
    {"GeneralRangeLeadingZero", validate_general_address_range, "10.0.0.0/08", no_match},
    {"GeneralRangeEmpty", validate_general_address_range, "", no_match},

    {"Hostname", validate_hostname, "time-server.example.1", acceptable},
    {"HostnameEmpty", validate_hostname, "", no_match},
    {"HostnameLineFeed", validate_hostname, "host\n", acceptable},
    {"HostnameLineFeedInside", validate_hostname, "ho\nst", no_match},

    {"ServersEmpty", validate_preferred_time_servers, "", acceptable},
    {"ServersOnlySpaces", validate_preferred_time_servers, "    ", acceptable},
    {"ServersOne", validate_preferred_time_servers, "10.0.0.1", acceptable},
    {"ServersManySpaces", validate_preferred_time_servers, "  10.0.0.1  timeserver ", acceptable},
    {"ServersBadLast", validate_preferred_time_servers, "10.0.0.1 bad_host!", invalid_server},
    {"ServersBadFirst", validate_preferred_time_servers, "bad_host! 10.0.0.1", invalid_server},
    {"ServersTab", validate_preferred_time_servers, "10.0.0.1\ttimeserver", invalid_server},
};
INSTANTIATE_TEST_SUITE_P(Addresses, TextValue, testing::ValuesIn(addresses), name_of<Case>);

const Case files[] = {
    {"OecImage", validate_oec_sw_upgrade_filename, "dir/image_1.2+3@4%5,6-7.bin", acceptable},
    {"OecImageEmpty", validate_oec_sw_upgrade_filename, "", no_match},
    {"OecImageCopy", validate_oec_sw_upgrade_filename, "image (1).bin", no_match},
    {"Filename", validate_filename, "/tmp/update/x", acceptable},
    {"FilenameEmpty", validate_filename, "", no_match},
    {"FilenameBackslash", validate_filename, "a\\b", no_match},

    {"Database", validate_db_filename, "db", acceptable},
    {"DatabaseFirstSlash", validate_db_filename, "/a", acceptable},
    {"DatabaseFirstBlank", validate_db_filename, " a", acceptable},
    {"DatabaseFirstLineFeed", validate_db_filename, "\na", acceptable},
    {"DatabaseFirstDash", validate_db_filename, "-a", no_match},
    {"DatabaseLaterSlash", validate_db_filename, "a/b", no_match},
    {"DatabaseOneByte", validate_db_filename, "a", no_match},
    {"DatabaseEmpty", validate_db_filename, "", no_match},

    {"Image", validate_unit_sw_upgrade_filename, "vtr-h9-1.20.3-4.bin", acceptable},
    {"ImageInside", validate_unit_sw_upgrade_filename, "/tmp/new_vtr_rel1.20.3-4.tar", acceptable},
    {"ImageTwoVersions", validate_unit_sw_upgrade_filename, "vtr1.2-1.20.3-4.x", acceptable},
    {"ImageNothingBehind", validate_unit_sw_upgrade_filename, "vtr0.0.0-0.", acceptable},
    {"ImageLineFeed", validate_unit_sw_upgrade_filename, "vtr1.2.3-4.bin\n", acceptable},
    {"ImageUpperCase", validate_unit_sw_upgrade_filename, "VTR1.2.3-4.bin", no_match},
    {"ImageNoFamily", validate_unit_sw_upgrade_filename, "image1.2.3-4.bin", no_match},
    {"ImageFamilyBehind", validate_unit_sw_upgrade_filename, "1.2.3-4.vtr", no_match},
    {"ImageNoDot", validate_unit_sw_upgrade_filename, "vtr1.2.3-4", no_match},
    {"ImageTwoNumbers", validate_unit_sw_upgrade_filename, "vtr1.2-4.bin", no_match},
    {"ImageNoBuild", validate_unit_sw_upgrade_filename, "vtr1.2.3-.bin", no_match},
    {"ImageCopyIsNoFilename", validate_unit_sw_upgrade_filename, "vtr1.2.3-4.bin (1)", no_match},
    {"ImageLineFeedInside", validate_unit_sw_upgrade_filename, "vtr\n1.2.3-4.bin", no_match},
    {"ImageEmpty", validate_unit_sw_upgrade_filename, "", no_match},
};
INSTANTIATE_TEST_SUITE_P(Files, TextValue, testing::ValuesIn(files), name_of<Case>);

const Case users_and_texts[] = {
    {"Username", validate_username, "admin", acceptable},
    {"UsernameReserved", validate_username, "root", not_an_option},
    {"UsernameReservedUpperCase", validate_username, "Root", acceptable},
    {"UsernameReservedAndMore", validate_username, "root1", acceptable},
    {"UsernameReservedLineFeed", validate_username, "root\n", acceptable},
    {"UsernameShort", validate_username, "ab", too_short},
    {"UsernameEmpty", validate_username, "", too_short},
    {"UsernameUnderscore", validate_username, "user_1", no_match},

    {"Password", validate_password, "Pa!?_@-9", acceptable},
    {"PasswordBlank", validate_password, "pass word", no_match},
    {"PasswordEmpty", validate_password, "", too_short},

    {"Uuid", validate_uuid, "01234567-89ab-CDEF-0123-456789abcdef", acceptable},
    {"UuidLetterG", validate_uuid, "g1234567-89ab-cdef-0123-456789abcdef", no_match},
    {"UuidNoDashes", validate_uuid, "0123456789abcdef0123456789abcdef", no_match},
    {"UuidBraces", validate_uuid, "{01234567-89ab-cdef-0123-456789abcdef}", no_match},
    {"UuidOneMore", validate_uuid, "01234567-89ab-cdef-0123-456789abcdef0", no_match},
    {"UuidEmpty", validate_uuid, "", no_match},

    {"ZoneEmpty", validate_zone, "", acceptable},
    {"ZoneLineFeedOnly", validate_zone, "\n", acceptable},
    {"ZoneCapitals", validate_zone, "UTC", acceptable},
    {"ZoneName", validate_zone, "America/New_York", acceptable},
    {"ZoneLowerCase", validate_zone, "utc", no_match},
    {"ZoneOneCapital", validate_zone, "Z", no_match},
    {"ZoneSigned", validate_zone, "Etc/GMT+5", no_match},

    {"Date", validate_date, "2021-02-31", acceptable},
    {"DateEmpty", validate_date, "", no_match},
    {"DateSlashes", validate_date, "2021/02/03", no_match},
    {"Time", validate_time, "23:59", acceptable},
    {"TimeWithSeconds", validate_time, "23:59:59", no_match},
    {"TimeEmpty", validate_time, "", no_match},

    {"DescriptionEmpty", validate_description, "", acceptable},
    {"DescriptionLineFeedInside", validate_description, "one\ntwo", no_match},
    {"DescriptionLineFeedAtEnd", validate_description, "one\n", acceptable},
    {"DescriptionTwoLineFeedsAtEnd", validate_description, "one\n\n", no_match},
    {"DescriptionFiftyBytesOfTwoByteCharacters", validate_description,
     "\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9"
     "\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9",
     acceptable},
    {"ExtensionLineFeeds", validate_entity_extension, "\n\n", acceptable},
};
INSTANTIATE_TEST_SUITE_P(UsersAndTexts, TextValue, testing::ValuesIn(users_and_texts), name_of<Case>);

TEST_F(Quiet, DateAndTimeAreJudgedInThatOrder) {
  EXPECT_EQ(validate_date_time("2021-1-1", "00:00"), acceptable);
  EXPECT_EQ(validate_date_time("2021-1-1", "24:00"), no_match);
  EXPECT_EQ(validate_date_time("1999-1-1", "00:00"), no_match);
  EXPECT_EQ(validate_date_time("", ""), no_match);
}

TEST_F(Quiet, TimeServersLeaveTheTokenizerOfTheCallerAlone) {
  char words[] = "one two";
  EXPECT_STREQ(strtok(words, " "), "one");
  EXPECT_EQ(validate_preferred_time_servers("10.0.0.1 timeserver"), acceptable);
  EXPECT_STREQ(strtok(nullptr, " "), "two");
}

// ---- Lengths

struct LengthCase {
  const char* name;
  TextValidator validate;
  int min;
  int max;
};

class Length : public testing::TestWithParam<LengthCase> {
  const LogLevel off_{0};
};

TEST_P(Length, IsBounded) {
  const auto& [name, validate, min, max] = GetParam();
  for (int length = 0; length <= max + 40; ++length) {
    const int32_t expected = length < min ? too_short : length > max ? too_long : acceptable;
    EXPECT_EQ(validate(std::string(static_cast<size_t>(length), 'a').c_str()), expected) << length;
  }
}

const LengthCase length_cases[] = {
    {"Description", validate_description, 0, 50},
    {"Username", validate_username, 4, 15},
    {"Password", validate_password, 4, 15},
    {"EntityExtension", validate_entity_extension, 0, 1000},
};
INSTANTIATE_TEST_SUITE_P(Fields, Length, testing::ValuesIn(length_cases), name_of<LengthCase>);

// ---- Numbers

struct NumberCase {
  const char* name;
  NumberValidator validate;
  int32_t min;
  int32_t max;
};

class Number : public testing::TestWithParam<NumberCase> {
  const LogLevel off_{0};
};

TEST_P(Number, IsWithinItsBoundsOrRefused) {
  const auto& [name, validate, min, max] = GetParam();
  for (int32_t value = min - 70; value <= max + 70; ++value) {
    EXPECT_EQ(validate(value), value >= min && value <= max ? acceptable : out_of_range) << value;
  }
  for (const int32_t value : {INT32_MIN, INT32_MIN + 1, INT32_MAX - 1, INT32_MAX, 65536 + 1}) {
    EXPECT_EQ(validate(value), out_of_range) << value;
  }
}

const NumberCase number_cases[] = {
    {"VlanId", validate_vlan_id, 1, 4050},
    {"UnitId", validate_unit_id, 1, 1},
    {"LaserId", validate_laser_id, 0, 7},
    {"OltId", validate_olt_id, 0, 7},
    {"OnuId", validate_onu_id, -1, 64},
    {"PortNumber", validate_port_number, 1, 64},
    {"PeriodicInterval", validate_periodic_interval, 1, 3600},
};
INSTANTIATE_TEST_SUITE_P(Fields, Number, testing::ValuesIn(number_cases), name_of<NumberCase>);

TEST_F(Quiet, AnyLinkSpeedIsAccepted) {
  for (const int32_t value : {INT32_MIN, -1, 0, 1, 7, 8, INT32_MAX}) {
    EXPECT_EQ(validate_port_link_speed(value), acceptable) << value;
  }
}

// ---- Options

struct OptionsCase {
  const char* name;
  TextValidator validate;
  std::vector<std::string> options;
};

class Options : public testing::TestWithParam<OptionsCase> {
  const LogLevel off_{0};
};

TEST_P(Options, AreAcceptedAsTheyAreAndNothingElseIs) {
  const auto& [name, validate, options] = GetParam();
  EXPECT_EQ(validate(""), not_an_option);
  EXPECT_EQ(validate("transparent"), not_an_option);
  EXPECT_EQ(validate("none"), not_an_option);
  for (const auto& option : options) {
    EXPECT_EQ(validate(option.c_str()), acceptable) << option;
    std::string other_case = option;
    for (char& c : other_case) c = static_cast<char>(std::islower(c) != 0 ? std::toupper(c) : std::tolower(c));
    for (const auto& near : {other_case, " " + option, option + " ", option + "\n", option.substr(1), option + "x"}) {
      EXPECT_EQ(validate(near.c_str()), not_an_option) << near;
    }
  }
}

const OptionsCase option_cases[] = {
    {"Status", validate_status, {"enable", "disable"}},
    {"VlanMode", validate_vlan_mode, {"local", "access", "trunk", "discovery"}},
    {"UnitSwBank", validate_unit_sw_bank, {"all", "current", "previous", "default"}},
    {"OecModel", validate_oec_model, {"unknown",       "VTR-E10",       "VTR-E20p",    "VTR-E20i",    "VTR-E200",
                                      "VTR-E30p",      "VTR-E6301p",    "Generic OEC", "VTR-E5301pi", "VTR-E3301pi",
                                      "VTR-E7301p",    "VTR-E2301i",    "VTR-E3310p",  "VTR-E2301i*", "EKI-7706G",
                                      "IPES-3408GSFP", "IPES-3416DSFP", "VTR-R6640XP", "VTR-D3340GP", "VTR-R6620GT"}},
};
INSTANTIATE_TEST_SUITE_P(Fields, Options, testing::ValuesIn(option_cases), name_of<OptionsCase>);

// ---- Bytes that a field may hold, at one place of an otherwise good value

const std::string digits = "0123456789";
const std::string lower = "abcdefghijklmnopqrstuvwxyz";
const std::string upper = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
const std::string letters = lower + upper;

std::string all_bytes_but(std::string_view excluded) {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) {
    if (excluded.find(static_cast<char>(byte)) == std::string_view::npos) bytes += static_cast<char>(byte);
  }
  return bytes;
}

struct BytesCase {
  const char* name;
  TextValidator validate;
  std::string before;
  std::string behind;
  std::string allowed;
};

class Bytes : public testing::TestWithParam<BytesCase> {
  const LogLevel off_{0};
};

TEST_P(Bytes, AreAllowedOrRefused) {
  const auto& [name, validate, before, behind, allowed] = GetParam();
  for (int byte = 1; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    const bool good = allowed.find(c) != std::string::npos;
    EXPECT_EQ(validate((before + c + behind).c_str()) == acceptable, good) << "byte " << byte;
  }
}

const BytesCase byte_cases[] = {
    {"Filename", validate_filename, "a", "b", letters + digits + ",._+@%/-"},
    {"FilenameAlone", validate_filename, "", "", letters + digits + ",._+@%/-"},
    {"OecImage", validate_oec_sw_upgrade_filename, "a", "b", letters + digits + ",._+@%/-"},
    {"UnitImageBehindTheVersion", validate_unit_sw_upgrade_filename, "vtr1.2.3-4.", "x", letters + digits + ",._+@%/-"},
    {"DatabaseFirst", validate_db_filename, "", "b", all_bytes_but("-")},
    {"DatabaseInside", validate_db_filename, "a", "b", letters + digits + ",._+@%-"},
    {"Hostname", validate_hostname, "a", "b", letters + digits + ".-"},
    {"Username", validate_username, "abc", "d", letters + digits},
    {"Password", validate_password, "abc", "d", letters + digits + "!?_@-"},
    {"Description", validate_description, "abc", "d", all_bytes_but("\n")},
    {"EntityExtension", validate_entity_extension, "abc", "d", all_bytes_but("")},
    {"ZoneName", validate_zone, "abcd", "e", letters + "/_"},
    {"ZoneCapitals", validate_zone, "A", "B", upper},
    {"Uuid", validate_uuid, "0123456", "-0123-0123-0123-0123456789ab", digits + "abcdefABCDEF"},
    {"UuidLast", validate_uuid, "01234567-0123-0123-0123-0123456789a", "", digits + "abcdefABCDEF"},
    {"UuidDash", validate_uuid, "01234567-0123-0123-0123", "0123456789ab", "-"},
    {"MacDigit", validate_mac_address, "0", ":00:00:00:00:00", digits + "abcdefABCDEF"},
    {"MacLastDigit", validate_mac_address, "00-00-00-00-00-0", "", digits + "abcdefABCDEF"},
    {"MacColon", validate_mac_address, "00:00", "00:00:00:00", ":"},
    {"MacDash", validate_mac_address, "00-00-00-00", "00-00", "-"},
    {"IpDot", validate_ip_address, "1.2.33", "4", "."},
    {"RangeSlash", validate_general_address_range, "1.2.3.4", "8", "/"},
    {"DhcpDash", validate_dhcp_range, "1.2.3.4", "1.2.3.4", "-"},
    {"DateDash", validate_date, "2021", "1-1", "-"},
    {"TimeColon", validate_time, "10", "30", ":"},
    {"CPortDash", validate_c_port_id, "c1", "1", "-"},
    {"CPortLetter", validate_c_port_id, "", "1-1", "cC"},
    {"OecLetter", validate_oec_id, "", "1", "cC"},
    {"VlanNameLetter", validate_vlan_name_id, "", "1", "v"},
    {"ImageVersionDot", validate_unit_sw_upgrade_filename, "vtr1.2", "3-4.x", "."},
};
INSTANTIATE_TEST_SUITE_P(Fields, Bytes, testing::ValuesIn(byte_cases), name_of<BytesCase>);

// ---- What the fields mean, written down a second time: every judgement must agree

// A decimal number written without needless zeros.
std::optional<int> number_in(std::string_view text) {
  if (text.empty() || (text.size() > 1 && text[0] == '0')) return std::nullopt;
  if (text.find_first_not_of(digits) != std::string_view::npos) return std::nullopt;
  int value = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc()) return std::nullopt;
  return value;
}

bool is_number(std::string_view text, int min, int max) {
  const auto value = number_in(text);
  return value.has_value() && *value >= min && *value <= max;
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  for (;;) {
    const size_t at = text.find(separator);
    parts.emplace_back(text.substr(0, at));
    if (at == std::string_view::npos) return parts;
    text.remove_prefix(at + 1);
  }
}

bool begins_with_c(std::string_view text) {
  return text.starts_with('c') || text.starts_with('C');
}

bool is_edge_switch(std::string_view text) {
  return begins_with_c(text) && (is_number(text.substr(1), 1, 512) || text.substr(1) == "10001");
}

bool is_c_port(std::string_view text) {
  if (!begins_with_c(text)) return false;
  const auto parts = split(text.substr(1), '-');
  return parts.size() == 2 && is_number(parts[0], 1, 512) && is_number(parts[1], 1, 99);
}

// The loose reading: a good beginning, a two-digit D-port anywhere, or the head-end form at the end.
bool is_d_port(std::string_view text) {
  for (size_t at = 0; at < text.size(); ++at) {
    if (text[at] != 'd' && text[at] != 'D') continue;
    if (at == 0 && is_number(text.substr(1, 1), 1, 9)) return true;
    if (text.size() >= at + 3 && is_number(text.substr(at + 1, 2), 10, 48)) return true;
  }
  const size_t head_end = text.rfind("c10001-");
  return head_end != std::string_view::npos && is_number(text.substr(head_end + 7), 0, 49);
}

bool is_ip(std::string_view text) {
  const auto parts = split(text, '.');
  return parts.size() == 4 &&
         std::all_of(parts.begin(), parts.end(), [](const std::string& part) { return is_number(part, 0, 255); });
}

bool is_mac(std::string_view text) {
  if (text.size() != 17 || (text[2] != ':' && text[2] != '-')) return false;
  for (size_t at = 0; at < text.size(); ++at) {
    const bool separator = at % 3 == 2;
    if (separator ? text[at] != text[2] : std::isxdigit(text[at]) == 0) return false;
  }
  return true;
}

bool is_zone(std::string_view text) {
  const auto all_of = [text](const std::string& set) { return text.find_first_not_of(set) == std::string_view::npos; };
  return text.empty() || (text.size() >= 2 && text.size() <= 5 && all_of(upper)) ||
         (text.size() >= 5 && all_of(letters + "/_"));
}

// Whether the text begins with numbers that these separators follow, one each.
bool begins_with_version(std::string_view text) {
  for (const char separator : std::string_view("..-.")) {
    const size_t end = std::min(text.find_first_not_of(digits), text.size());
    if (end == 0 || end == text.size() || text[end] != separator) return false;
    text.remove_prefix(end + 1);
  }
  return true;
}

bool is_image(std::string_view text) {
  const size_t family = text.find("vtr");
  if (family == std::string_view::npos) return false;
  for (text.remove_prefix(family + 3); !text.empty(); text.remove_prefix(1)) {
    if (begins_with_version(text)) return true;
  }
  return false;
}

// Texts of the pieces that the field is made of, in any order: some good, most not.
std::vector<std::string> mixed(const std::vector<std::string>& pieces, size_t most_pieces, int count) {
  std::mt19937 random(20210304);
  std::vector<std::string> texts;
  for (int i = 0; i < count; ++i) {
    std::string text;
    for (size_t n = random() % (most_pieces + 1); n > 0; --n) text += pieces[random() % pieces.size()];
    texts.push_back(text);
  }
  return texts;
}

// Good texts with one byte changed, taken out or put in.
std::vector<std::string> damaged(const std::vector<std::string>& good, std::string_view set, int count) {
  std::mt19937 random(170509);
  std::vector<std::string> texts;
  for (int i = 0; i < count; ++i) {
    std::string text = good[random() % good.size()];
    const size_t at = random() % text.size();
    const char c = set[random() % set.size()];
    switch (random() % 3) {
      case 0:
        text[at] = c;
        break;
      case 1:
        text.erase(at, 1);
        break;
      default:
        text.insert(at, 1, c);
    }
    texts.push_back(text);
  }
  return texts;
}

template <class Meaning>
void expect_agreement(TextValidator validate, Meaning meaning, const std::vector<std::string>& texts) {
  int accepted = 0;
  for (const auto& text : texts) {
    const bool good = meaning(text);
    accepted += good;
    ASSERT_EQ(validate(text.c_str()) == acceptable, good) << '"' << text << '"';
  }
  EXPECT_GT(accepted, 0);
  EXPECT_LT(accepted, static_cast<int>(texts.size()));
}

std::vector<std::string> numbered(std::string_view before, int last, std::string_view behind = "") {
  std::vector<std::string> texts;
  for (int i = 0; i <= last; ++i) {
    texts.push_back(std::string(before) + std::to_string(i) + std::string(behind));
    texts.push_back(std::string(before) + "0" + std::to_string(i) + std::string(behind));
  }
  return texts;
}

TEST_F(Quiet, EveryEdgeSwitchNumber) {
  expect_agreement(validate_oec_id, is_edge_switch, numbered("c", 11000));
  expect_agreement(validate_oec_id, is_edge_switch, numbered("C", 1100));
}

TEST_F(Quiet, EveryCPortNumber) {
  for (const TextValidator validate : {validate_c_port_id, validate_port_id}) {
    for (const auto* const behind : {"-1", "-99"}) expect_agreement(validate, is_c_port, numbered("c", 1100, behind));
    for (const auto* const before : {"c1-", "C512-"}) expect_agreement(validate, is_c_port, numbered(before, 1100));
  }
  for (const auto* const impossible : {"c1-0", "c1-100", "c0-1", "c513-1", "c1-1-1", "c-1", "c1-", "c1--1", "cc1-1"}) {
    EXPECT_EQ(validate_c_port_id(impossible), no_match) << impossible;
  }
}

TEST_F(Quiet, EveryDPortNumber) {
  expect_agreement(validate_d_port_id, is_d_port, numbered("d", 200));
  expect_agreement(validate_d_port_id, is_d_port, numbered("xD", 200));
  expect_agreement(validate_d_port_id, is_d_port, numbered("c10001-", 200));
  expect_agreement(validate_d_port_id, is_d_port, numbered("xc10001-", 200));
}

TEST_F(Quiet, EveryVlanNameNumber) {
  const auto is_vlan_name = [](std::string_view text) { return is_number(text.substr(1), 1, 4092); };
  expect_agreement(validate_vlan_name_id, is_vlan_name, numbered("v", 11000));
}

TEST_F(Quiet, EveryNumberAtEveryPlaceOfAnAddress) {
  for (const auto& [before, behind] : {std::pair{"", ".0.0.0"}, {"255.", ".1.99"}, {"1.2.", ".3"}, {"10.0.0.", ""}}) {
    expect_agreement(validate_ip_address, is_ip, numbered(before, 1100, behind));
  }
}

TEST_F(Quiet, EveryPrefixLength) {
  const auto prefix = [](std::string_view text) { return text.substr(text.find('/') + 1); };
  const auto is_range = [&](std::string_view text) {
    return prefix(text) == "16" || prefix(text) == "22" || prefix(text) == "24";
  };
  const auto is_general_range = [&](std::string_view text) { return is_number(prefix(text), 0, 32); };
  expect_agreement(validate_address_range, is_range, numbered("192.168.0.0/", 400));
  expect_agreement(validate_general_address_range, is_general_range, numbered("192.168.0.0/", 400));
}

TEST_F(Quiet, EveryAddressOfARange) {
  const auto texts = mixed({"1", "25", "255", "256", "0", "99", ".", ".", ".", "10.0.0.", "1.2.3.4"}, 7, 8000);
  for (const auto& text : texts) {
    const int32_t expected = is_ip(text) ? acceptable : no_match;
    ASSERT_EQ(validate_address_range((text + "/24").c_str()), expected) << text;
    ASSERT_EQ(validate_general_address_range((text + "/32").c_str()), expected) << text;
    ASSERT_EQ(validate_dhcp_range((text + "-1.2.3.4").c_str()), expected) << text;
    ASSERT_EQ(validate_dhcp_range(("1.2.3.4-" + text).c_str()), expected) << text;
  }
}

TEST_F(Quiet, MixedPorts) {
  const auto texts = mixed({"c", "C", "d", "D", "-", "1", "4", "8", "9", "0", "c10001-", "512", "x"}, 5, 20000);
  const auto is_port = [](std::string_view text) { return is_c_port(text) || is_d_port(text); };
  const auto is_vlan_name = [](std::string_view text) { return text[0] == 'v' && is_number(text.substr(1), 1, 4092); };
  const auto is_entity = [&](std::string_view text) {
    return is_edge_switch(text) || is_port(text) || (!text.empty() && is_vlan_name(text));
  };
  expect_agreement(validate_c_port_id, is_c_port, texts);
  expect_agreement(validate_d_port_id, is_d_port, texts);
  expect_agreement(validate_port_id, is_port, texts);
  expect_agreement(validate_oec_id, is_edge_switch, texts);
  expect_agreement(validate_entity_name, is_entity, texts);
}

TEST_F(Quiet, MixedAddresses) {
  expect_agreement(validate_ip_address, is_ip, mixed({"1", "25", "255", "256", "0", "99", "."}, 8, 30000));
  expect_agreement(validate_ip_address, is_ip, damaged({"192.168.100.200", "1.2.3.4"}, "0123456789.-a", 5000));
}

TEST_F(Quiet, MixedMacAddresses) {
  const std::vector<std::string> good = {"01:23:45:67:89:ab", "CD-EF-01-23-45-67", "aA:bB:cC:dD:eE:fF"};
  expect_agreement(validate_mac_address, is_mac, damaged(good, "0123456789abcdefABCDEFgG:-. ", 10000));
}

TEST_F(Quiet, MixedZones) {
  expect_agreement(validate_zone, is_zone, mixed({"A", "B", "z", "/", "_", "UTC", "1", " "}, 6, 10000));
}

TEST_F(Quiet, EveryDate) {
  const auto is_padded = [](std::string_view text, int max) {
    if (text.size() == 2 && text[0] == '0') text.remove_prefix(1);
    return text.size() <= 2 && is_number(text, 1, max);
  };
  const auto is_date = [&](std::string_view text) {
    const auto parts = split(text, '-');
    return is_number(parts[0], 2000, 2999) && is_padded(parts[1], 12) && is_padded(parts[2], 31);
  };
  expect_agreement(validate_date, is_date, numbered("", 3100, "-1-1"));
  expect_agreement(validate_date, is_date, numbered("2021-", 130, "-1"));
  expect_agreement(validate_date, is_date, numbered("2021-12-", 320));
  std::vector<std::string> calendar;
  for (const auto& month : numbered("2021-", 13, "-")) {
    for (const auto& date : numbered(month, 32)) calendar.push_back(date);
  }
  expect_agreement(validate_date, is_date, calendar);
}

TEST_F(Quiet, EveryTime) {
  const auto two_digits = [](int value) { return std::string(value < 10 ? "0" : "") + std::to_string(value); };
  for (int hour = 0; hour < 100; ++hour) {
    for (int minute = 0; minute < 100; ++minute) {
      const int32_t expected = hour < 24 && minute < 60 ? acceptable : no_match;
      ASSERT_EQ(validate_time((two_digits(hour) + ":" + two_digits(minute)).c_str()), expected) << hour << minute;
    }
  }
  for (const auto* const text : {"1:30", "01:3", "001:30", "01:030", "0130", ":", "-1:00"}) {
    EXPECT_EQ(validate_time(text), no_match) << text;
  }
}

TEST_F(Quiet, ImagesOfEveryKind) {
  const std::vector<std::string> pieces = {"vtr", "1.2.3-4.", "a", "-", "1.2.", "vt", "1.2.3-", "30-4", "."};
  expect_agreement(validate_unit_sw_upgrade_filename, is_image, mixed(pieces, 6, 20000));
}

// ---- Reserved user names

TEST_F(Quiet, EveryReservedNameIsRefused) {
  for (const auto* const name :
       {"root", "daemon", "sync", "mail", "proxy", "backup", "operator", "haldaemon", "dbus", "nobody", "sshd"}) {
    EXPECT_EQ(validate_username(name), not_an_option) << name;
    EXPECT_EQ(validate_username((name + std::string("1")).c_str()), acceptable) << name;
  }
  // These are no user names in the first place.
  EXPECT_EQ(validate_username("bin"), too_short);
  EXPECT_EQ(validate_username("sys"), too_short);
  EXPECT_EQ(validate_username("www-data"), no_match);
}

}  // namespace
}  // namespace kestro::test
