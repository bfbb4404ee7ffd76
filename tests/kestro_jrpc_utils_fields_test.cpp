// Fields that differ in their validator and their log lines, and text fields with a rule of their own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <string>
#include <string_view>

#include "kestro_jrpc_utils.h"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/request.hpp"
#include "support/scarce_json.hpp"

namespace kestro::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* module = "kestro_jrpc_utils";

// The line as it is logged with its value.
std::string with_value(std::string_view line, const std::string& value) {
  const size_t at = line.find('%');
  return std::string(line.substr(0, at)) + value + std::string(line.substr(at + 2));
}

// ---- Text fields

using RetrieveText = int32_t (*)(const json_t*, json_t**, const char*, char*, int32_t);

int32_t retrieve_oec_id(const json_t* params, json_t** err_data, const char* name, char* out, int32_t length) {
  return kestro_jrpc_utils_retrieve_input_oec_id(params, err_data, name, out, length, 0);
}

int32_t retrieve_port_id(const json_t* params, json_t** err_data, const char* name, char* out, int32_t length) {
  return kestro_jrpc_utils_retrieve_input_port_id(params, err_data, name, out, length, 0, 0, 1, 1);
}

struct TextCase {
  const char* name;
  RetrieveText retrieve;
  std::string good;
  std::string bad;  // refused by the validator; "any": nothing is
  const char* retrieving;
  const char* retrieved;
  std::string result;       // where it is not the value itself
  std::string explanation;  // of a refusal
};

const TextCase text_cases[] = {
    {"Status", kestro_jrpc_utils_retrieve_input_status, "enable", "Enable", "Retrieving status...\n",
     "Retrieved and validated status: %s\n", "", ""},
    {"Description", kestro_jrpc_utils_retrieve_input_description, std::string(50, 'x'), std::string(51, 'x'),
     "Retrieving description...\n", "Retrieved and validated description: %s\n", "", ""},
    {"VlanMode", kestro_jrpc_utils_retrieve_input_vlan_mode, "discovery", "transparent", "Retrieving vlan mode...\n",
     "Retrieved and validated vlan mode: %s\n", "", ""},
    {"OecModel", kestro_jrpc_utils_retrieve_input_oec_model, "Generic OEC", "generic OEC", "Retrieving oec model...\n",
     "Retrieved and validated oec model: %s\n", "", ""},
    {"OecSwUpgradeFilename", kestro_jrpc_utils_retrieve_input_oec_sw_upgrade_filename, "dir/image-1.2.bin", "image 1",
     "Retrieving oec sw upgrade filename...\n", "Retrieved and validated oec sw upgrade filename: %s\n", "", ""},
    {"UnitSwBank", kestro_jrpc_utils_retrieve_input_unit_sw_bank, "previous", "next", "Retrieving sw bank...\n",
     "Retrieved and validated sw bank: %s\n", "", ""},
    {"IpAddress", kestro_jrpc_utils_retrieve_input_ip_address, "255.255.255.255", "10.0.0.256",
     "Retrieving ip address...\n", "Retrieved and validated ip address: %s\n", "", ""},
    {"Username", kestro_jrpc_utils_retrieve_input_username, "admin", "root", "Retrieving username...\n",
     "Retrieved and validated username: %s\n", "", ""},
    {"Password", kestro_jrpc_utils_retrieve_input_password, "secret_1", "sec", "Retrieving password...\n",
     "Retrieved and validated password: %s\n", "", ""},
    {"Date", kestro_jrpc_utils_retrieve_input_date, "2021-03-04", "1999-03-04", "Retrieving date...\n",
     "Retrieved and validated date: %s\n", "", ""},
    {"TimeZone", kestro_jrpc_utils_retrieve_input_time_zone, "America/New_York", "utc", "Retrieving time zone...\n",
     "Retrieved and validated time zone: %s\n", "", ""},
    {"Time", kestro_jrpc_utils_retrieve_input_time, "23:59", "24:00", "Retrieving time...\n",
     "Retrieved and validated time: %s\n", "", ""},
    {"EntityExtension", kestro_jrpc_utils_retrieve_input_entity_extension, std::string(1000, 'x'),
     std::string(1001, 'x'), "Retrieving entity extension...\n", "Retrieved and validated entity extension: %s\n", "",
     ""},
    {"EntityName", kestro_jrpc_utils_retrieve_input_entity_name, "no entity at all", "any",
     "Retrieving entity name...\n", "Retrieved and validated entity name: %s\n", "", ""},
    {"MacAddress", kestro_jrpc_utils_retrieve_input_mac_address, "aa-bb-cc-dd-ee-ff", "aa:bb-cc:dd:ee:ff",
     "Retrieving mac address...\n", "Retrieved and validated mac address: %s\n", "AA:BB:CC:DD:EE:FF", ""},
    {"MacaddrAllowed", kestro_jrpc_utils_retrieve_input_macaddr_allowed, "aa:bb:cc:dd:ee:0f", "None",
     "Retrieving mac address...\n", "Retrieved and validated mac address allowed: %s\n", "AA:BB:CC:DD:EE:0F", ""},
    {"Alias", kestro_jrpc_utils_retrieve_input_alias, "abcdefgh", "abcdefghi", "Retrieving alias\n",
     "Retrieved and validated alias: %s\n", "ABCDEFGH", "Alias must be 8 characters or fewer."},
    {"UnitSwUpgradeFilename", kestro_jrpc_utils_retrieve_input_unit_sw_upgrade_filename, "vtr-h9-1.20.3-4.tar.gz",
     "vtr-h9-1.20.3-4 (1).tar.gz", "Retrieving unit sw upgrade filename...\n",
     "Retrieved and validated unit sw upgrade filename: %s\n", "",
     "Invalid filename. If you accidentally downloaded multiple copies, only the first will work."},
    {"DbFilename", kestro_jrpc_utils_retrieve_input_db_filename, "cfg.db", "cfg 1.db",
     "Retrieving database filename...\n", "Retrieved and validated database filename: %s\n", "", ""},
    {"OecId", retrieve_oec_id, "c10001", "c513", "Retrieving oec id...\n", "Retrieved and validated oec id: %s\n", "",
     ""},
    {"PortId", retrieve_port_id, "c12-4", "c12", "Retrieving port id...\n", "Retrieved and validated port id: %s\n", "",
     ""},
};

class TextField : public testing::TestWithParam<TextCase> {
 protected:
  const LogLevel level{Verbose};
  const TextCase& field = GetParam();
  const std::string expected = field.result.empty() ? field.good : field.result;
  std::array<char, 2000> out{};
  int32_t status = 1;

  void SetUp() override { out.fill('?'); }

  std::string log_of_retrieving(Request& request, int32_t length = 2000, const char* name = "value") {
    return stderr_of([&] { status = field.retrieve(request.params(), request.err_data(), name, out.data(), length); });
  }
  [[nodiscard]] bool untouched() const {
    return std::string_view(out.data(), out.size()) == std::string(out.size(), '?');
  }
};
INSTANTIATE_TEST_SUITE_P(All, TextField, testing::ValuesIn(text_cases), name_of<TextCase>);

TEST_P(TextField, AcceptedValue) {
  Request request = Request::of(field.good);
  const auto log = log_of_retrieving(request);
  EXPECT_EQ(status, 0);
  EXPECT_STREQ(out.data(), expected.c_str());
  EXPECT_EQ(request.explanation(), "");
  EXPECT_EQ(count_log_lines(log, Verbose, module, field.retrieving), 1);
  EXPECT_EQ(count_log_lines(log, Debug, module, with_value(field.retrieved, expected)), 1);
  EXPECT_LT(log.find(field.retrieving), log.find("Parsing input string for parameter: value\n"));
}

TEST_P(TextField, AcceptedValueIsNotToldBelowDebug) {
  const LogLevel info(Info);
  Request request = Request::of(field.good);
  EXPECT_EQ(log_of_retrieving(request), "");
  EXPECT_EQ(status, 0);
}

TEST_P(TextField, RefusedValue) {
  if (field.bad == "any") GTEST_SKIP() << "every text is a value";
  Request request = Request::of(field.bad);
  const auto log = log_of_retrieving(request);
  EXPECT_EQ(status, -34);
  EXPECT_STREQ(out.data(), "");
  EXPECT_EQ(request.explanation(), field.explanation);
  EXPECT_EQ(count_log_lines(log, Verbose, module, field.retrieving), 1);
  EXPECT_THAT(log, Not(HasSubstr("Retrieved and")));
}

TEST_P(TextField, RefusedValueWithoutAPlaceForTheExplanation) {
  if (field.bad == "any") GTEST_SKIP() << "every text is a value";
  const Request request = Request::of(field.bad);
  const LogLevel off(0);
  EXPECT_EQ(field.retrieve(request.params(), nullptr, "value", out.data(), 2000), -34);
  EXPECT_STREQ(out.data(), "");
}

TEST_P(TextField, MissingMember) {
  Request request("{}");
  const auto log = log_of_retrieving(request);
  EXPECT_EQ(status, -35);
  EXPECT_STREQ(out.data(), "");
  EXPECT_EQ(request.explanation(), "Missing expected parameter: 'value'");
  EXPECT_EQ(count_log_lines(log, Verbose, module, field.retrieving), 1);
  EXPECT_THAT(log, HasLog(Warning, module, "No parameter by the name <value> found\n"));
}

TEST_P(TextField, OtherType) {
  for (const char* const value : {"null", "true", "7", "7.5", "[]", "{}"}) {
    Request request = Request::of(json_of(value));
    const auto log = log_of_retrieving(request);
    EXPECT_EQ(status, -31) << value;
    EXPECT_STREQ(out.data(), "");
    EXPECT_EQ(request.explanation(), "Parameter 'value' is not of type 'string'.");
    EXPECT_THAT(log, AllOf(HasLog(Error, module, "Given parameter <value> is not a string\n"),
                           Not(HasSubstr("Retrieved and"))));
  }
}

TEST_P(TextField, ExactFit) {
  Request request = Request::of(field.good);
  const auto length = static_cast<int32_t>(field.good.size() + 1);
  log_of_retrieving(request, length);
  EXPECT_EQ(status, 0);
  EXPECT_STREQ(out.data(), expected.c_str());
  EXPECT_EQ(out[field.good.size() + 1], '?');
}

TEST_P(TextField, OneCharacterTooMany) {
  Request request = Request::of(field.good);
  const size_t length = field.good.size();
  const auto log = log_of_retrieving(request.explain("earlier"), static_cast<int32_t>(length));
  EXPECT_EQ(status, -31);
  EXPECT_EQ(out.data(), field.good.substr(0, length - 1));
  EXPECT_EQ(out[length], '?');
  EXPECT_EQ(request.explanation(), "value: overflow detected: " + std::to_string(length) + " characters written, " +
                                       std::to_string(length) + " characters allowed.");
  EXPECT_THAT(log, Not(HasSubstr("Retrieved and")));
}

TEST_P(TextField, NullPointers) {
  Request request = Request::of(field.good);
  EXPECT_THAT(log_of_retrieving(request, 2000, nullptr),
              AllOf(HasLog(Debug, module, "NULL pointer!\n"), Not(HasSubstr("Retrieving"))));
  EXPECT_EQ(status, -4);
  EXPECT_TRUE(untouched());
  EXPECT_THAT(
      stderr_of([&] { EXPECT_EQ(field.retrieve(request.params(), request.err_data(), "value", nullptr, 2000), -4); }),
      AllOf(HasLog(Debug, module, "NULL pointer!\n"), Not(HasSubstr("Retrieving"))));
  EXPECT_EQ(request.explanation(), "");
}

TEST_P(TextField, NoParametersAreMissingOnes) {
  Request request(Json{});
  log_of_retrieving(request);
  EXPECT_EQ(status, -35);
  EXPECT_EQ(request.explanation(), "Missing expected parameter: 'value'");
}

TEST_P(TextField, MemoryRunsOut) {
  const LogLevel off(0);
  for (const Json& value : {Json(json_string(field.bad.c_str())), Json(json_null())}) {
    Request plenty = Request::of(Json(json_incref(value.get())));
    const auto expected_status =
        field.retrieve(plenty.params(), plenty.err_data(), "value", out.data(), static_cast<int32_t>(out.size()));
    bool fired = true;
    for (int nth = 1; fired; ++nth) {
      Request request = Request::of(Json(json_incref(value.get())));
      {
        const ScarceJson scarce(nth);
        status = field.retrieve(request.params(), request.err_data(), "value", out.data(), 2000);
        fired = scarce.fired();
      }
      EXPECT_EQ(status, expected_status);
      EXPECT_EQ(request.explanation(), fired ? "" : plenty.explanation());
      ASSERT_LT(nth, 100);
    }
  }
}

// ---- Number fields

using RetrieveNumber = int32_t (*)(const json_t*, json_t**, const char*, int32_t*);

struct NumberCase {
  const char* name;
  RetrieveNumber retrieve;
  int32_t first;
  int32_t last;
  const char* retrieving;
  const char* retrieved;
  Severity severity = Debug;
};

const NumberCase number_cases[] = {
    {"VlanId", kestro_jrpc_utils_retrieve_input_vlan_id, 1, 4050, "Retrieving vlan id...\n",
     "Retrieved and validated vlan id: %d\n"},
    {"UnitId", kestro_jrpc_utils_retrieve_input_unit_id, 1, 1, "Retrieving unit id...\n",
     "Retrieved and validated unit id: %d\n"},
    {"PeriodicInterval", kestro_jrpc_utils_retrieve_input_periodic_interval, 1, 3600,
     "Retrieving periodic interval...\n", "Retrieved and validated periodic interval: %d\n"},
    {"LaserId", kestro_jrpc_utils_retrieve_input_laser_id, 0, 7, "Retrieving laser_id...\n",
     "Retrieved and validated laser_id: %d\n", Verbose},
    {"OltId", kestro_jrpc_utils_retrieve_input_olt_id, 0, 7, "Retrieving olt id...\n",
     "Retrieved and validated olt id: %d\n"},
    {"OnuId", kestro_jrpc_utils_retrieve_input_onu_id, -1, 64, "Retrieving onu id...\n",
     "Retrieved and validated onu id: %d\n"},
    {"PortNumber", kestro_jrpc_utils_retrieve_input_port_number, 1, 64, "Retrieving port number...\n",
     "Retrieved and validated port_number: %d\n"},
    {"PortLinkSpeed", kestro_jrpc_utils_retrieve_input_port_link_speed, INT_MIN, INT_MAX,
     "Retrieving port link speed...\n", "Retrieved and validated port link_speed: %d\n"},
    {"Enable", kestro_jrpc_utils_retrieve_input_enable, INT_MIN, INT_MAX, "Retrieving enable...\n",
     "Retrieved and enable value: %d\n"},
};

class NumberField : public testing::TestWithParam<NumberCase> {
 protected:
  static constexpr int32_t nothing = 4711;
  const LogLevel level{Verbose};
  const NumberCase& field = GetParam();
  int32_t number = nothing;
  int32_t status = 1;

  std::string log_of_retrieving(Request& request, const char* name = "value") {
    number = nothing;
    return stderr_of([&] { status = field.retrieve(request.params(), request.err_data(), name, &number); });
  }
};
INSTANTIATE_TEST_SUITE_P(All, NumberField, testing::ValuesIn(number_cases), name_of<NumberCase>);

TEST_P(NumberField, AcceptedValue) {
  for (const int32_t value : {field.first, field.last}) {
    Request request = Request::of(json_int_t{value});
    const auto log = log_of_retrieving(request);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(number, value);
    EXPECT_EQ(request.explanation(), "");
    EXPECT_EQ(count_log_lines(log, Verbose, module, field.retrieving), 1);
    EXPECT_EQ(count_log_lines(log, field.severity, module, with_value(field.retrieved, std::to_string(value))), 1);
    EXPECT_LT(log.find(field.retrieving), log.find("Parsing input integer for parameter: value\n"));
  }
}

TEST_P(NumberField, RefusedValue) {
  if (field.first == INT_MIN) GTEST_SKIP() << "every number is a value";
  for (const int32_t value : {field.first - 1, field.last + 1}) {
    Request request = Request::of(json_int_t{value});
    const auto log = log_of_retrieving(request);
    EXPECT_EQ(status, -34) << value;
    EXPECT_EQ(number, 0);
    EXPECT_EQ(request.explanation(), "");
    EXPECT_EQ(count_log_lines(log, Verbose, module, field.retrieving), 1);
    EXPECT_THAT(log, Not(HasSubstr("Retrieved and")));
  }
}

TEST_P(NumberField, OnlyTheLower32BitsAreChecked) {
  Request request = Request::of((json_int_t{1} << 32) + 1);
  log_of_retrieving(request);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(number, 1);
}

TEST_P(NumberField, MissingMember) {
  Request request("{}");
  const auto log = log_of_retrieving(request);
  EXPECT_EQ(status, -35);
  EXPECT_EQ(number, 0);
  EXPECT_EQ(request.explanation(), "Missing expected parameter: 'value'");
  EXPECT_EQ(count_log_lines(log, Verbose, module, field.retrieving), 1);
  EXPECT_THAT(log, HasLog(Error, module, "No parameter by the name <value> found\n"));
}

TEST_P(NumberField, OtherType) {
  for (const char* const value : {"null", "true", "\"1\"", "1.0", "[1]", "{}"}) {
    Request request = Request::of(json_of(value));
    log_of_retrieving(request);
    EXPECT_EQ(status, -31) << value;
    EXPECT_EQ(number, 0);
    EXPECT_EQ(request.explanation(), "Parameter 'value' is not of type 'integer'.");
  }
}

TEST_P(NumberField, NullPointers) {
  Request request(R"({"value":1})");
  EXPECT_THAT(log_of_retrieving(request, nullptr),
              AllOf(HasLog(Debug, module, "NULL pointer!\n"), Not(HasSubstr("Retrieving"))));
  EXPECT_EQ(status, -4);
  EXPECT_EQ(number, nothing);
  EXPECT_THAT(stderr_of([&] { EXPECT_EQ(field.retrieve(request.params(), request.err_data(), "value", nullptr), -4); }),
              AllOf(HasLog(Debug, module, "NULL pointer!\n"), Not(HasSubstr("Retrieving"))));
  EXPECT_EQ(request.explanation(), "");
}

// ---- Rules of single fields

// What a retrieval gives: its output, or its status.
std::string outcome(RetrieveText retrieve, const char* value) {
  const LogLevel off(0);
  const Request request = Request::of(value);
  char out[100];
  const int32_t status = retrieve(request.params(), nullptr, "value", out, sizeof(out));
  return status == 0 ? out : std::to_string(status);
}

TEST(TextFieldRules, EmptyTextsWhereTheyAreValues) {
  EXPECT_EQ(outcome(kestro_jrpc_utils_retrieve_input_description, ""), "");
  EXPECT_EQ(outcome(kestro_jrpc_utils_retrieve_input_time_zone, ""), "");
  EXPECT_EQ(outcome(kestro_jrpc_utils_retrieve_input_entity_name, ""), "");
  EXPECT_EQ(outcome(kestro_jrpc_utils_retrieve_input_alias, ""), "");
  EXPECT_EQ(outcome(kestro_jrpc_utils_retrieve_input_status, ""), "-34");
  EXPECT_EQ(outcome(kestro_jrpc_utils_retrieve_input_macaddr_allowed, ""), "-34");
}

TEST(MacAddressField, IsBroughtToItsNormalForm) {
  for (const auto retrieve :
       {kestro_jrpc_utils_retrieve_input_mac_address, kestro_jrpc_utils_retrieve_input_macaddr_allowed}) {
    EXPECT_EQ(outcome(retrieve, "aa-bb-cc-dd-ee-ff"), "AA:BB:CC:DD:EE:FF");
    EXPECT_EQ(outcome(retrieve, "aA:bB:cC:dD:eE:0f"), "AA:BB:CC:DD:EE:0F");
    EXPECT_EQ(outcome(retrieve, "aa:bb:cc:dd:ee:f"), "-34");
    EXPECT_EQ(outcome(retrieve, "aa:bb:cc:dd:ee:ff0"), "-34");
    EXPECT_EQ(outcome(retrieve, "aa:bb:cc:dd:ee:fg"), "-34");
  }
}

TEST(MacAddressField, NoneIsAValueWhereAddressesAreAllowed) {
  EXPECT_EQ(outcome(kestro_jrpc_utils_retrieve_input_macaddr_allowed, "none"), "none");
  EXPECT_EQ(outcome(kestro_jrpc_utils_retrieve_input_macaddr_allowed, "none "), "-34");
  EXPECT_EQ(outcome(kestro_jrpc_utils_retrieve_input_macaddr_allowed, "NONE"), "-34");
  EXPECT_EQ(outcome(kestro_jrpc_utils_retrieve_input_mac_address, "none"), "-34");
}

TEST(MacAddressField, NoneIsNotTold) {
  const LogLevel level(Verbose);
  const Request request = Request::of("none");
  char out[18];
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_utils_retrieve_input_macaddr_allowed(request.params(), nullptr, "value", out, 18), 0);
  });
  EXPECT_THAT(log, AllOf(HasLog(Verbose, module, "Retrieving mac address...\n"), Not(HasSubstr("Retrieved and")),
                         Not(HasSubstr("reformatting"))));
}

TEST(AliasField, BecomesUpperCase) {
  EXPECT_EQ(outcome(kestro_jrpc_utils_retrieve_input_alias, "abcdefgh"), "ABCDEFGH");
  EXPECT_EQ(outcome(kestro_jrpc_utils_retrieve_input_alias, "Lab-1"), "LAB-1");
  EXPECT_EQ(outcome(kestro_jrpc_utils_retrieve_input_alias, "abcdefghi"), "-34");
}

TEST(AliasField, ItsExplanationReplacesTheOneThatStands) {
  const LogLevel off(0);
  Request request = Request::of("abcdefghi");
  char out[20];
  EXPECT_EQ(kestro_jrpc_utils_retrieve_input_alias(request.explain("earlier").params(), request.err_data(), "value",
                                                   out, sizeof(out)),
            -34);
  EXPECT_EQ(request.explanation(), "Alias must be 8 characters or fewer.");
}

TEST(AliasField, ItsExplanationIsNotAnnounced) {
  const LogLevel level(Verbose);
  Request request = Request::of("abcdefghi");
  char out[20];
  EXPECT_THAT(stderr_of([&] {
                kestro_jrpc_utils_retrieve_input_alias(request.params(), request.err_data(), "value", out, 20);
              }),
              Not(HasSubstr("Sending debug message")));
}

TEST(AliasField, TheEarlierExplanationStaysWhenMemoryRunsOut) {
  const LogLevel off(0);
  bool fired = true;
  for (int nth = 1; fired; ++nth) {
    Request request = Request::of("abcdefghi");
    request.explain("earlier");
    char out[20];
    {
      const ScarceJson scarce(nth);
      EXPECT_EQ(kestro_jrpc_utils_retrieve_input_alias(request.params(), request.err_data(), "value", out, 20), -34);
      fired = scarce.fired();
    }
    EXPECT_EQ(request.explanation(), fired ? "earlier" : "Alias must be 8 characters or fewer.");
    ASSERT_LT(nth, 100);
  }
}

TEST(UnitSwUpgradeFilenameField, TheHintGivesWayToWhatStands) {
  const LogLevel off(0);
  Request request = Request::of("vtr-h9-1.20.3-4 (1).tar.gz");
  char out[100];
  EXPECT_EQ(kestro_jrpc_utils_retrieve_input_unit_sw_upgrade_filename(request.explain("earlier").params(),
                                                                      request.err_data(), "value", out, sizeof(out)),
            -34);
  EXPECT_EQ(request.explanation(), "earlier");
}

TEST(OecIdField, AllIsAValueWhereItIsIncluded) {
  const auto all_included = [](const json_t* params, json_t** err_data, const char* name, char* out, int32_t length) {
    return kestro_jrpc_utils_retrieve_input_oec_id(params, err_data, name, out, length, 1);
  };
  EXPECT_EQ(outcome(all_included, "all"), "all");
  EXPECT_EQ(outcome(all_included, "ALL"), "-34");
  EXPECT_EQ(outcome(all_included, "all "), "-34");
  EXPECT_EQ(outcome(all_included, "c512"), "c512");
  EXPECT_EQ(outcome(all_included, "c513"), "-34");
  EXPECT_EQ(outcome(retrieve_oec_id, "all"), "-34");
  EXPECT_EQ(outcome(retrieve_oec_id, "C7"), "C7");
}

TEST(OecIdField, AnyFlagButZeroIncludesAll) {
  const LogLevel off(0);
  const Request request = Request::of("all");
  char out[10];
  for (const int flag : {-128, -1, 2, 127}) {
    EXPECT_EQ(
        kestro_jrpc_utils_retrieve_input_oec_id(request.params(), nullptr, "value", out, 10, static_cast<int8_t>(flag)),
        0);
  }
}

TEST(OecIdField, AllIsToldAndNotValidated) {
  const LogLevel level(Verbose);
  const Request request = Request::of("all");
  char out[10];
  const auto log = stderr_of(
      [&] { kestro_jrpc_utils_retrieve_input_oec_id(request.params(), nullptr, "value", out, sizeof(out), 1); });
  EXPECT_THAT(log, AllOf(HasLog(Debug, module, "Retrieved and validated oec id: all\n"), Not(HasSubstr("Validating"))));
}

}  // namespace
}  // namespace kestro::test
