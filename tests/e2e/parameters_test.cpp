// What a client on the bus is told about the parameters of its request: real sockets, a service on a thread of its own,
// and one method per way to read a member, each of which reads "value" and answers with what it got.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jansson.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/owned.hpp"
#include "kestro.h"
#include "support/bus.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

// ---- Methods

constexpr int32_t text_length = 16;
constexpr int32_t long_text_length = 1002;

// Answers with what was read, unless it failed.
int32_t answer(int32_t status, json_t** result, json_t* value) {
  Json owned(value);
  if (status == 0) *result = owned.release();
  return status;
}

template <auto Read, int32_t length = text_length>
int32_t text_method(json_t* params, json_t** result, json_t** err_data) {
  std::array<char, static_cast<size_t>(length)> text;
  const int32_t status = Read(params, err_data, "value", text.data(), length);
  return answer(status, result, status == 0 ? json_string(text.data()) : nullptr);
}

template <auto Read>
int32_t number_method(json_t* params, json_t** result, json_t** err_data) {
  int32_t number = 0;
  const int32_t status = Read(params, err_data, "value", &number);
  return answer(status, result, json_integer(number));
}

template <auto Read>
int32_t member_method(json_t* params, json_t** result, json_t** err_data) {
  json_t* member = nullptr;  // borrowed
  const int32_t status = Read(params, err_data, "value", &member);
  return answer(status, result, json_incref(member));
}

int32_t bool_method(json_t* params, json_t** result, json_t** err_data) {
  bool value = false;
  const int32_t status = kestro_jrpc_utils_parse_input_bool_val(params, err_data, "value", &value);
  return answer(status, result, json_boolean(value));
}

int32_t uint64_method(json_t* params, json_t** result, json_t** err_data) {
  uint64_t value = 0;
  const int32_t status = kestro_jrpc_utils_parse_input_uint64_t(params, err_data, "value", &value);
  return answer(status, result, json_string(std::to_string(value).c_str()));
}

int32_t float_method(json_t* params, json_t** result, json_t** err_data) {
  float value = 0;
  const int32_t status = kestro_jrpc_utils_parse_input_float(params, err_data, "value", &value);
  return answer(status, result, json_real(static_cast<double>(value)));
}

template <int8_t include_all>
int32_t oec_id_method(json_t* params, json_t** result, json_t** err_data) {
  return text_method<[](const json_t* p, json_t** e, const char* name, char* out, int32_t length) {
    return kestro_jrpc_utils_retrieve_input_oec_id(p, e, name, out, length, include_all);
  }>(params, result, err_data);
}

template <int8_t include_oec_id, int8_t include_c_ports, int8_t include_d_ports>
int32_t port_id_method(json_t* params, json_t** result, json_t** err_data) {
  return text_method<[](const json_t* p, json_t** e, const char* name, char* out, int32_t length) {
    return kestro_jrpc_utils_retrieve_input_port_id(p, e, name, out, length, 0, include_oec_id, include_c_ports,
                                                    include_d_ports);
  }>(params, result, err_data);
}

int32_t vlan_ids_method(json_t* params, json_t** result, json_t** err_data) {
  std::array<int32_t, KESTRO_DATA_MAX_VLANS_PER_PORT> vlans;
  int32_t count = 0;
  const int32_t status = kestro_jrpc_utils_retrieve_input_vlan_ids(params, err_data, "value", vlans.data(), &count);
  if (status == 0) *result = kestro_jrpc_utils_populate_vid_array(vlans.data(), count);
  return status;
}

int32_t ports_method(json_t* params, json_t** result, json_t** err_data) {
  std::array<kestro_data_port, 2> ports;
  int32_t count = 0;
  const int32_t status = kestro_jrpc_utils_retrieve_input_ports(params, err_data, "value", ports.data(), &count, 2);
  return answer(status, result, json_integer(count));
}

int32_t mac_filters_method(json_t* params, json_t** result, json_t** err_data) {
  kestro_mac_filter* filters = nullptr;
  int32_t count = 0;
  const int32_t status =
      kestro_jrpc_utils_retrieve_input_mac_filters(params, err_data, "value", &filters, &count, 1, 1);
  if (status == 0) free(filters);
  return answer(status, result, json_integer(count));
}

int32_t secure_option_method(json_t* params, json_t** result, json_t** err_data) {
  kestro_data_secure_options option = KESTRO_DATA_SECURE_CURRENT;
  const int32_t status = kestro_jrpc_utils_parse_input_secure_option(params, err_data, "value", &option);
  return answer(status, result, json_integer(option));
}

// Reads on after a failure, as methods do that want to log everything: the last status counts.
int32_t several_method(json_t* params, json_t** result, json_t** err_data) {
  int32_t number = 0;
  kestro_jrpc_utils_parse_input_integer(params, err_data, "number", &number);
  return text_method<kestro_jrpc_utils_parse_input_string>(params, result, err_data);
}

// ---- What is expected

struct Method {
  const char* name;
  int32_t (*handler)(json_t*, json_t**, json_t**);
  const char* type;  // the word for it in explanations
  const char* good;
  std::string result;
  int32_t length = 0;  // of the buffer for a text; 0: not limited
};

// clang-format off
const Method methods[] = {
    {"ports.Bool", member_method<kestro_jrpc_utils_parse_input_bool>, "bool", "true", "true"},
    {"ports.BoolVal", bool_method, "bool", "true", "true"},
    {"ports.String", text_method<kestro_jrpc_utils_parse_input_string>, "string", R"("fifteen letters")",
     R"("fifteen letters")", text_length},
    {"ports.Integer", number_method<kestro_jrpc_utils_parse_input_integer>, "integer", "4294967297", "1"},
    {"ports.Array", member_method<kestro_jrpc_utils_parse_input_array>, "array", "[1,[2]]", "[1,[2]]"},
    {"ports.Uint64", uint64_method, "string", R"("0x10")", R"("16")", 100},
    {"ports.Float", float_method, "string", R"("-0.5 dB")", "-0.5", 100},
    {"ports.Status", text_method<kestro_jrpc_utils_retrieve_input_status>, "string", R"("enable")", R"("enable")",
     text_length},
    {"ports.Description", text_method<kestro_jrpc_utils_retrieve_input_description, 52>, "string", R"("roof")",
     R"("roof")", 52},
    {"ports.VlanMode", text_method<kestro_jrpc_utils_retrieve_input_vlan_mode>, "string", R"("trunk")", R"("trunk")",
     text_length},
    {"ports.VlanId", number_method<kestro_jrpc_utils_retrieve_input_vlan_id>, "integer", "4050", "4050"},
    {"oec.Model", text_method<kestro_jrpc_utils_retrieve_input_oec_model>, "string", R"("VTR-E30p")", R"("VTR-E30p")",
     text_length},
    {"oec.SwUpgradeFilename", text_method<kestro_jrpc_utils_retrieve_input_oec_sw_upgrade_filename>, "string",
     R"("image-1.2.bin")", R"("image-1.2.bin")", text_length},
    {"ports.UnitId", number_method<kestro_jrpc_utils_retrieve_input_unit_id>, "integer", "1", "1"},
    {"ports.UnitSwBank", text_method<kestro_jrpc_utils_retrieve_input_unit_sw_bank>, "string", R"("previous")",
     R"("previous")", text_length},
    {"ports.IpAddress", text_method<kestro_jrpc_utils_retrieve_input_ip_address>, "string", R"("255.255.255.255")",
     R"("255.255.255.255")", text_length},
    {"ports.PeriodicInterval", number_method<kestro_jrpc_utils_retrieve_input_periodic_interval>, "integer", "3600",
     "3600"},
    {"ports.Username", text_method<kestro_jrpc_utils_retrieve_input_username>, "string", R"("admin")", R"("admin")",
     text_length},
    {"ports.Password", text_method<kestro_jrpc_utils_retrieve_input_password>, "string", R"("secret_1")",
     R"("secret_1")", text_length},
    {"ports.Date", text_method<kestro_jrpc_utils_retrieve_input_date>, "string", R"("2021-03-04")", R"("2021-03-04")",
     text_length},
    {"ports.TimeZone", text_method<kestro_jrpc_utils_retrieve_input_time_zone, 20>, "string", R"("America/New_York")",
     R"("America/New_York")", 20},
    {"ports.Time", text_method<kestro_jrpc_utils_retrieve_input_time>, "string", R"("23:59")", R"("23:59")",
     text_length},
    {"ports.LaserId", number_method<kestro_jrpc_utils_retrieve_input_laser_id>, "integer", "7", "7"},
    {"ports.OltId", number_method<kestro_jrpc_utils_retrieve_input_olt_id>, "integer", "0", "0"},
    {"ports.OnuId", number_method<kestro_jrpc_utils_retrieve_input_onu_id>, "integer", "-1", "-1"},
    {"ports.PortNumber", number_method<kestro_jrpc_utils_retrieve_input_port_number>, "integer", "64", "64"},
    {"ports.PortLinkSpeed", number_method<kestro_jrpc_utils_retrieve_input_port_link_speed>, "integer", "-5", "-5"},
    {"ports.EntityExtension", text_method<kestro_jrpc_utils_retrieve_input_entity_extension, long_text_length>,
     "string", R"("x")", R"("x")", long_text_length},
    {"ports.Enable", number_method<kestro_jrpc_utils_retrieve_input_enable>, "integer", "2", "2"},
    {"ports.EntityName", text_method<kestro_jrpc_utils_retrieve_input_entity_name>, "string", R"("any text")",
     R"("any text")", text_length},
    {"ports.MacAddress", text_method<kestro_jrpc_utils_retrieve_input_mac_address, 20>, "string",
     R"("aa-bb-cc-dd-ee-ff")", R"("AA:BB:CC:DD:EE:FF")", 20},
    {"ports.MacaddrAllowed", text_method<kestro_jrpc_utils_retrieve_input_macaddr_allowed, 20>, "string", R"("none")",
     R"("none")", 20},
    {"ports.Alias", text_method<kestro_jrpc_utils_retrieve_input_alias>, "string", R"("abcdefgh")", R"("ABCDEFGH")",
     text_length},
    {"ports.UnitSwUpgradeFilename", text_method<kestro_jrpc_utils_retrieve_input_unit_sw_upgrade_filename, 64>,
     "string", R"("vtr-h9-1.20.3-4.tar.gz")", R"("vtr-h9-1.20.3-4.tar.gz")", 64},
    {"ports.DbFilename", text_method<kestro_jrpc_utils_retrieve_input_db_filename>, "string", R"("cfg.db")",
     R"("cfg.db")", text_length},
    {"oec.Id", oec_id_method<0>, "string", R"("c12")", R"("c12")", text_length},
    {"oec.IdOrAll", oec_id_method<1>, "string", R"("all")", R"("all")", text_length},
    {"ports.CPort", port_id_method<0, 1, 0>, "string", R"("c3-4")", R"("c3-4")", text_length},
    {"ports.DPort", port_id_method<0, 0, 1>, "string", R"("d3")", R"("d3")", text_length},
    {"ports.AnyPort", port_id_method<0, 1, 1>, "string", R"("d3")", R"("d3")", text_length},
    {"ports.PortOrSwitch", port_id_method<1, 1, 1>, "string", R"("c3")", R"("c3")", text_length},
    {"ports.Ports", ports_method, "array",
     R"([{"port_number":1,"port_status":1,"poe_status":1,"link_status":1,"link_speed":1,"vlan_mode":1,)"
     R"("vlan_ids":[1]}])",
     "1"},
    {"ports.MacFilters", mac_filters_method, "array",
     R"([{"mac":"02:00:00:00:00:01","mask":"ff-ff-ff-ff-ff-ff"}])", "1"},
    {"ports.SecureOption", secure_option_method, "string", R"("disable")", "2", 100},
};
// clang-format on

// ---- The road

class Parameters : public testing::Test {
 protected:
  static void SetUpTestSuite() { service_ = std::make_unique<Service>(); }
  static void TearDownTestSuite() { service_.reset(); }

  // The text of the answer to a request.
  static std::string call(const std::string& method, const std::string& params) {
    return call_text(R"({"jsonrpc":"2.0","method":")" + method + R"(","params":)" + params + R"(,"id":"reply"})");
  }
  static std::string call_text(const std::string& request) { return service_->call(request); }
  static std::string call_with(const std::string& method, const std::string& value) {
    return call(method, R"({"value":)" + value + "}");
  }
  static void notify(const std::string& method, const std::string& params) {
    service_->publish(R"({"jsonrpc":"2.0","method":")" + method + R"(","params":)" + params + "}");
  }

  static std::string success(const std::string& method, const std::string& result) {
    return R"({"jsonrpc":"2.0","id":")" + method + R"(","result":)" + result + "}";
  }
  // An empty explanation: null.
  static std::string error(const std::string& method, const std::string& explanation = "", int code = -32602,
                           const std::string& message = "Invalid parameter(s)") {
    const std::string data = explanation.empty() ? "null" : R"({"message":")" + explanation + "\"}";
    return R"({"jsonrpc":"2.0","id":")" + method + R"(","error":{"code":)" + std::to_string(code) + R"(,"message":")" +
           message + R"(","data":)" + data + "}}";
  }

 private:
  // Serves until it is destroyed; the client's sockets stand beside it.
  class Service {
   public:
    Service() : client_out_(KESTRO_MQ_SP_PUB), client_in_(KESTRO_MQ_SP_SUB) {
      for (const auto& each : methods) table_.push_back({each.name, each.handler});
      table_.push_back({"ports.VlanIds", vlan_ids_method});
      table_.push_back({"ports.Several", several_method});
      table_.push_back({nullptr, nullptr});
      const std::string requests = free_bus_address();
      client_out_.bind(requests);
      const std::string responses = free_bus_address();
      EXPECT_EQ(kestro_jrpc_mq_pub_init(responses.c_str(), &out_), 0);
      EXPECT_EQ(kestro_jrpc_mq_sub_init(&in_, 1), 0);
      EXPECT_EQ(kestro_jrpc_mq_sub_set_channel(requests.c_str(), KESTRO_JRPC_CHANNEL_3A6F8F51, &in_), 0);
      client_in_.connect(responses).subscribe("reply").timeout(60'000);
      await_link(client_out_.handle(), in_);
      await_link(out_, client_in_.handle());
      thread_ = std::thread([this] {
        while (!stop_) kestro_jrpc_mq_run(&in_, &out_, table_.data(), 0);
      });
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    ~Service() {
      stop_ = true;
      thread_.join();
      kestro_mq_socket_close(in_);
      kestro_mq_socket_close(out_);
    }

    void publish(const std::string& request) {
      EXPECT_EQ(kestro_jrpc_mq_pub(client_out_.address_of_handle(), KESTRO_JRPC_CHANNEL_3A6F8F51, request.c_str()), 0);
    }

    std::string call(const std::string& request) {
      publish(request);
      char* frame = nullptr;
      int32_t length = 0;
      if (kestro_mq_socket_recv(client_in_.handle(), &frame, &length, 0) != 0) return "no answer";
      const Text owned_frame(frame);
      char* text = nullptr;
      EXPECT_EQ(kestro_jrpc_parse_msg(frame, length, &text), 0);
      return Text(text).get();
    }

   private:
    LogLevel quiet_{0};
    BusSocket client_out_;
    BusSocket client_in_;
    int32_t out_ = -1;
    int32_t in_ = -1;
    std::vector<kestro_jrpc_mapping_t> table_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
  };

  static inline std::unique_ptr<Service> service_;
};

// ---- Every method

class EveryMethod : public Parameters, public testing::WithParamInterface<Method> {};

std::string method_name(const testing::TestParamInfo<Method>& info) {
  const std::string name = info.param.name;
  return name.substr(0, name.find('.')) + name.substr(name.find('.') + 1);
}

TEST_P(EveryMethod, AnswersWithWhatItRead) {
  EXPECT_EQ(call_with(GetParam().name, GetParam().good), success(GetParam().name, GetParam().result));
}

TEST_P(EveryMethod, MissesItsMember) {
  const std::string expected = error(GetParam().name, "Missing expected parameter: 'value'");
  EXPECT_EQ(call(GetParam().name, "{}"), expected);
  EXPECT_EQ(call(GetParam().name, R"({"Value":1})"), expected);  // names are compared exactly
}

TEST_P(EveryMethod, RefusesOtherTypes) {
  const std::string type = GetParam().type;
  const std::string expected = error(GetParam().name, "Parameter 'value' is not of type '" + type + "'.");
  const struct {
    const char* type;
    const char* value;
  } values[] = {{"null", "null"},       {"bool", "false"}, {"integer", "1"}, {"real", "1.0"},
                {"string", "\"true\""}, {"array", "[1]"},  {"object", "{}"}};
  for (const auto& each : values) {
    if (type == each.type) continue;
    EXPECT_EQ(call_with(GetParam().name, each.value), expected) << each.value;
  }
}

TEST_P(EveryMethod, RefusesATextThatIsTooLong) {
  const int32_t length = GetParam().length;
  if (length == 0) return;
  const std::string size = std::to_string(length);
  const std::string text(static_cast<size_t>(length), 'x');
  EXPECT_EQ(call_with(GetParam().name, "\"" + text + "\""),
            error(GetParam().name,
                  "value: overflow detected: " + size + " characters written, " + size + " characters allowed."));
}

INSTANTIATE_TEST_SUITE_P(All, EveryMethod, testing::ValuesIn(methods), method_name);

// ---- Values that are read and then refused

struct Refusal {
  const char* name;
  const char* method;
  std::string value;
  std::string explanation = {};
  int code = -32602;
  const char* message = "Invalid parameter(s)";
};

std::string list_of_vlans(int count) {
  std::string list = "[1";
  for (int i = 2; i <= count; ++i) list += "," + std::to_string(i);
  return list + "]";
}

constexpr const char* vlan_ids = "ports.VlanIds";
constexpr const char* no_such_port = "The given id does not represent any existing port(s).";
constexpr const char* no_c_port = "The given Port ID does not represent a C-port.";
constexpr const char* no_d_port = "The given Port ID does not represent a D-port.";
constexpr const char* duplicate_file =
    "Invalid filename. If you accidentally downloaded multiple copies, only the first will work.";

const Refusal refusals[] = {
    {"Status", "ports.Status", R"("Enable")"},
    {"Description", "ports.Description", "\"" + std::string(51, 'x') + "\""},
    {"VlanMode", "ports.VlanMode", R"("transparent")"},
    {"VlanIdZero", "ports.VlanId", "0"},
    {"VlanIdBeyondTheLast", "ports.VlanId", "4051"},
    {"OecModel", "oec.Model", R"("VTR-E30P")"},
    {"OecSwUpgradeFilename", "oec.SwUpgradeFilename", R"("image 1")"},
    {"UnitId", "ports.UnitId", "2"},
    {"UnitSwBank", "ports.UnitSwBank", R"("next")"},
    {"IpAddress", "ports.IpAddress", R"("10.0.0.256")"},
    {"PeriodicInterval", "ports.PeriodicInterval", "3601"},
    {"Username", "ports.Username", R"("root")"},
    {"Password", "ports.Password", R"("sec")"},
    {"Date", "ports.Date", R"("1999-03-04")"},
    {"TimeZone", "ports.TimeZone", R"("utc")"},
    {"Time", "ports.Time", R"("24:00")"},
    {"LaserId", "ports.LaserId", "8"},
    {"OltId", "ports.OltId", "-1"},
    {"OnuId", "ports.OnuId", "65"},
    {"PortNumber", "ports.PortNumber", "65"},
    {"EntityExtension", "ports.EntityExtension", "\"" + std::string(1001, 'x') + "\""},
    {"MacAddress", "ports.MacAddress", R"("none")"},
    {"MacaddrAllowed", "ports.MacaddrAllowed", R"("None")"},
    {"Alias", "ports.Alias", R"("abcdefghi")", "Alias must be 8 characters or fewer."},
    {"UnitSwUpgradeFilename", "ports.UnitSwUpgradeFilename", R"("vtr-h9-1.20.3-4.tar (1).gz")", duplicate_file},
    {"DbFilename", "ports.DbFilename", R"("cfg 1.db")"},
    {"DbFileIsNotThere", "ports.DbFilename", R"("--nothing.db")", "", -32001, "Unknown Error"},
    {"OecId", "oec.Id", R"("c513")"},
    {"AllOecs", "oec.Id", R"("all")"},
    {"DPortForCPort", "ports.CPort", R"("d3")", "", -32032, no_c_port},
    {"CPortForDPort", "ports.DPort", R"("c3-4")", "", -32031, no_d_port},
    {"NoSuchDPort", "ports.DPort", R"("d0")", "", -32034, no_such_port},
    {"NoSuchXPort", "ports.AnyPort", R"("x9")", "", -32034, no_such_port},
    {"SwitchForPort", "ports.AnyPort", R"("c3")"},
    {"NoSuchSwitch", "ports.PortOrSwitch", R"("c600")", "", -32024, "An Edge Switch ID was expected."},
    {"PortWithoutNumber", "ports.Ports", "[{}]", "Missing expected parameter: 'port_number'"},
    {"PortNumberIsAText", "ports.Ports", R"([{"port_number":"1"}])",
     "Parameter 'port_number' is not of type 'integer'."},
    {"PortWithARepeatedVlan", "ports.Ports",
     R"([{"port_number":1,"port_status":1,"poe_status":1,"link_status":1,"link_speed":1,"vlan_mode":1,)"
     R"("vlan_ids":[1,1]}])"},
    {"FilterWithoutMask", "ports.MacFilters", R"([{"mac":"02:00:00:00:00:01"}])", "Missing expected parameter: 'mask'"},
    {"FilterWithAnInvalidMask", "ports.MacFilters", R"([{"mac":"02:00:00:00:00:01","mask":"none"}])"},
    {"SecureOption", "ports.SecureOption", R"("Enable")"},
};

class RefusedValue : public Parameters, public testing::WithParamInterface<Refusal> {};

TEST_P(RefusedValue, IsToldByCodeMessageAndData) {
  const auto& refusal = GetParam();
  EXPECT_EQ(call_with(refusal.method, refusal.value),
            error(refusal.method, refusal.explanation, refusal.code, refusal.message));
}
INSTANTIATE_TEST_SUITE_P(All, RefusedValue, testing::ValuesIn(refusals), name_of<Refusal>);

// The one reader that never explains anything, and takes what is no list for an empty one.
const Refusal vlan_refusals[] = {
    {"NoSuchVlan", vlan_ids, "[0]"},
    {"NoNumber", vlan_ids, R"(["10"])"},
    {"OneTooMany", vlan_ids, list_of_vlans(131), "", -32033,
     "The number of VLAN IDs entered exceed the maximum number allowed."},
    {"Repeated", vlan_ids, "[10,20,10]", "", -32007,
     "Attempted to set unique parameter to a value that already exists."},
};
INSTANTIATE_TEST_SUITE_P(VlanIds, RefusedValue, testing::ValuesIn(vlan_refusals), name_of<Refusal>);

TEST_F(Parameters, VlanIdsAreAnsweredInTheirOrder) {
  EXPECT_EQ(call_with(vlan_ids, "[20,10,4050]"), success(vlan_ids, "[20,10,4050]"));
  EXPECT_EQ(call_with(vlan_ids, list_of_vlans(130)), success(vlan_ids, list_of_vlans(130)));
  EXPECT_EQ(call_with(vlan_ids, "7"), success(vlan_ids, "[]"));
  EXPECT_EQ(call(vlan_ids, "{}"), error(vlan_ids));
}

// ---- Several at once

TEST_F(Parameters, TheFirstExplanationIsSent) {
  EXPECT_EQ(call("ports.Several", "{}"), error("ports.Several", "Missing expected parameter: 'number'"));
  EXPECT_EQ(call("ports.Several", R"({"number":"1","value":2})"),
            error("ports.Several", "Parameter 'number' is not of type 'integer'."));
}

TEST_F(Parameters, ATextThatIsTooLongIsExplainedInPlaceOfTheFirst) {
  EXPECT_EQ(call("ports.Several", R"({"value":"0123456789abcdef"})"),
            error("ports.Several", "value: overflow detected: 16 characters written, 16 characters allowed."));
}

TEST_F(Parameters, AnExplanationIsNotSentWithASuccess) {
  EXPECT_EQ(call("ports.Several", R"({"value":"x"})"), success("ports.Several", R"("x")"));
}

TEST_F(Parameters, NotificationsAreNotAnswered) {
  notify("ports.VlanId", R"({"value":0})");
  notify("ports.VlanId", R"({"value":1})");
  // Frames keep their order: had one of them been answered, this would get that answer.
  EXPECT_EQ(call_with("ports.Integer", "5"), success("ports.Integer", "5"));
}

TEST_F(Parameters, RequestWithoutParametersMissesItsMember) {
  EXPECT_EQ(call_text(R"({"jsonrpc":"2.0","method":"ports.VlanId","id":"reply"})"),
            error("ports.VlanId", "Missing expected parameter: 'value'"));
}

TEST_F(Parameters, TransactionComesBackWithAnError) {
  EXPECT_EQ(call_text(R"({"jsonrpc":"2.0","method":"ports.VlanId","params":{"value":0},"id":"reply",)"
                      R"("transaction_id":12})"),
            R"({"jsonrpc":"2.0","id":"ports.VlanId","transaction_id":12,)"
            R"--("error":{"code":-32602,"message":"Invalid parameter(s)","data":null}})--");
}

}  // namespace
}  // namespace kestro::test
