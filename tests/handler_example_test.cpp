// examples/handler.cpp through the evaluation of requests: how what it reads becomes the answer, and how "data" in an
// error object comes about.
#include "handler.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "core/owned.hpp"
#include "kestro_jrpc/evaluate.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/scarce_json.hpp"

namespace kestro::test {
namespace {

constexpr const char* good_params =
    R"({"oec_id":"c12","ports":[)"
    R"({"port_number":1,"port_status":1,"poe_status":0,"link_status":0,"link_speed":0,"vlan_mode":3,)"
    R"("vlan_ids":[10,20]},)"
    R"({"port_number":2,"port_status":0,"poe_status":0,"link_status":0,"link_speed":0,"vlan_mode":2,"vlan_ids":[]}],)"
    R"("secure_port":1,"mac_filters":[{"mac":"02-00-00-00-00-0a","mask":"FF:FF:FF:FF:FF:FF"}],)"
    R"("dhcp":{"service_name":"lobby","address_range":"10.0.0.0/24","dhcp_range":"10.0.0.10-10.0.0.20",)"
    R"("static_leases":[{"ip":"10.0.0.2","mac":"02:00:00:00:00:01"},{"ip":"10.0.0.3","mac":"02:00:00:00:00:02"}]}})";

constexpr const char* good_answer =
    R"({"jsonrpc":"2.0","id":"oec.Provision","result":{"oec_id":"c12","vlans":{"c12-1":[10,20],"c12-2":[]},)"
    R"("allowed":["02:00:00:00:00:0A"],"leases":["10.0.0.2","10.0.0.3"]}})";

std::string request_of(const json_t* params) {
  return R"({"jsonrpc":"2.0","method":"oec.Provision","params":)" + text_of(params) + R"(,"id":1})";
}

// The text of the response, empty where there is none.
std::string answer_to(std::string request) {
  kestro_jrpc_mapping_t table[] = {{"oec.Provision", provision}, {nullptr, nullptr}};
  char* response = nullptr;
  kestro_jrpc_eval_request(request.data(), table, &response);
  const Text text(response);
  return text ? text.get() : "";
}

TEST(HandlerExample, AnswersWithWhatItRead) {
  const LogLevel off(0);
  EXPECT_EQ(answer_to(request_of(json_of(good_params).get())), good_answer);
}

TEST(HandlerExample, EmptyListsGiveEmptyLists) {
  const LogLevel off(0);
  const Json params = json_of(good_params);
  json_object_set_new(params.get(), "ports", json_array());
  json_object_set_new(params.get(), "mac_filters", json_array());
  json_object_set_new(json_object_get(params.get(), "dhcp"), "static_leases", json_array());
  EXPECT_EQ(answer_to(request_of(params.get())),
            R"({"jsonrpc":"2.0","id":"oec.Provision","result":{"oec_id":"c12","vlans":{},"allowed":[],"leases":[]}})");
}

struct Case {
  const char* name;
  const char* member;  // of the parameters, or of "dhcp"
  const char* value;   // null: the member is missing
  std::string data;    // an explanation; empty: null
};

std::string missing(const char* name) {
  return "Missing expected parameter: '" + std::string(name) + "'";
}
std::string of_type(const char* name, const char* type) {
  return "Parameter '" + std::string(name) + "' is not of type '" + type + "'.";
}

const Case cases[] = {
    {"NoSwitch", "oec_id", nullptr, missing("oec_id")},
    {"SwitchIsANumber", "oec_id", "12", of_type("oec_id", "string")},
    {"SwitchIsNone", "oec_id", R"("d12")", "oec_id: an edge switch is expected, like c12"},
    {"SwitchIsTooLong", "oec_id", R"("c1234567")",
     "oec_id: overflow detected: 8 characters written, 8 characters allowed."},
    {"NoPorts", "ports", nullptr, missing("ports")},
    {"PortsAreNoList", "ports", "{}", of_type("ports", "array")},
    {"PortWithoutMembers", "ports", "[{}]", missing("port_number")},
    {"PortHasNoMode", "ports",
     R"([{"port_number":1,"port_status":1,"poe_status":0,"link_status":0,"link_speed":0,"vlan_ids":[]}])",
     missing("vlan_mode")},
    {"PortWithARepeatedVlan", "ports",
     R"([{"port_number":1,"port_status":1,"poe_status":0,"link_status":0,"link_speed":0,"vlan_mode":1,)"
     R"("vlan_ids":[1,1]}])",
     ""},
    {"NoSecurePort", "secure_port", nullptr, missing("secure_port")},
    {"SecurePortOutOfRange", "secure_port", "65", ""},
    {"NoFilters", "mac_filters", nullptr, missing("mac_filters")},
    {"FilterWithoutMask", "mac_filters", R"([{"mac":"02:00:00:00:00:01"}])", missing("mask")},
    {"FilterIsNoMac", "mac_filters", R"([{"mac":"02","mask":"FF:FF:FF:FF:FF:FF"}])", ""},
    {"NoDhcp", "dhcp", nullptr, "DHCP obj field service_name either does not exist or is not a string"},
    {"AddressRange", "address_range", R"("10.0.0.0/8")", "DHCP address_range (10.0.0.0/8) has invalid format"},
    {"LeaseWithoutMac", "static_leases", R"([{"ip":"10.0.0.2"}])",
     "static lease object mac field is either missing or not a string"},
    {"LeaseWithoutAnAddress", "static_leases", R"([{"ip":"10.0.0.300","mac":"02:00:00:00:00:01"}])",
     "static lease IP (10.0.0.300) has invalid format"},
};

class BrokenRequest : public testing::TestWithParam<Case> {};

TEST_P(BrokenRequest, IsExplainedInData) {
  const LogLevel off(0);
  const Json params = json_of(good_params);
  json_t* const dhcp = json_object_get(params.get(), "dhcp");
  const char* const member = GetParam().member;
  json_t* const object = json_object_get(dhcp, member) != nullptr ? dhcp : params.get();
  if (GetParam().value == nullptr) {
    json_object_del(object, member);
  } else {
    json_object_set_new(object, member, json_of(GetParam().value).release());
  }
  const std::string data = GetParam().data.empty() ? "null" : R"({"message":")" + GetParam().data + "\"}";
  const std::string error = R"--({"code":-32602,"message":"Invalid parameter(s)","data":)--" + data + "}";
  EXPECT_EQ(answer_to(request_of(params.get())), R"({"jsonrpc":"2.0","id":"oec.Provision","error":)" + error + "}");
}
INSTANTIATE_TEST_SUITE_P(All, BrokenRequest, testing::ValuesIn(cases), name_of<Case>);

TEST(HandlerExample, IsWholeOrAnErrorWhenMemoryRunsOut) {
  const LogLevel off(0);
  const std::string request = request_of(json_of(good_params).get());
  std::string answer;
  for (int nth = 1; answer != good_answer; ++nth) {
    const ScarceJson scarce(nth);
    answer = answer_to(request);
    // Without memory for the request or the error object there is no answer.
    const bool failed = answer.empty() || answer.find(R"("error":{"code":-32)") != std::string::npos;
    EXPECT_TRUE(failed || answer == good_answer) << nth << ": " << answer;
    EXPECT_TRUE(scarce.fired() || answer == good_answer) << nth;
    ASSERT_LT(nth, 2000);
  }
}

}  // namespace
}  // namespace kestro::test
