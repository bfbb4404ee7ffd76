// The simulated unit as the process that services meet on the bus.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "kestro_jrpc.h"
#include "kestro_lsyslog.h"
#include "support/bus_caller.hpp"
#include "support/description.hpp"
#include "support/json.hpp"
#include "support/named.hpp"
#include "support/process.hpp"

namespace kestro::test {
namespace {

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr auto briefly = 200ms;  // after which what is silent is taken for silent

// One simulated unit and one that calls it.
class Unit {
 public:
  explicit Unit(const std::vector<std::string>& options = {}, const std::string& seed = "7") {
    std::vector<std::string> arguments = {KESTRO_SIMD,       "--bus-publish", address_, "--bus-subscribe",
                                          caller_.address(), "--seed",        seed};
    arguments.insert(arguments.end(), options.begin(), options.end());
    process_ = std::make_unique<Process>(arguments);
    caller_.hear(address_);
    const bool up = eventually([this] { return !call("sim.GetUnit", "{}", briefly).empty(); });
    if (!up) throw std::runtime_error(process_->err());
  }

  std::string call(const std::string& method, const std::string& params = "{}",
                   std::chrono::milliseconds patience = 1min) {
    return caller_.call(KESTRO_JRPC_CHANNEL_DEFAULT, method, params, patience);
  }
  [[nodiscard]] BusCaller& caller() { return caller_; }
  [[nodiscard]] Process& process() { return *process_; }

 private:
  std::string address_ = free_bus_address();
  BusCaller caller_;
  std::unique_ptr<Process> process_;
};

// A port in the words of a request.
std::string port(const std::string& number, const std::string& more = "", const std::string& vlan_mode = "2") {
  return R"({"port_number":)" + number +
         R"(,"port_status":1,"poe_status":2,"link_status":2,"link_speed":6,"vlan_mode":)" + vlan_mode +
         R"(,"vlan_ids":[10])" + more + "}";
}
std::string ports(const std::string& oec_number, const std::string& list, const std::string& more = "") {
  return R"({"oec_number":)" + oec_number + R"(,"ports":[)" + list + "]" + more + "}";
}

std::string error(int code, const std::string& message, const std::string& why) {
  return R"(error {"code":)" + std::to_string(code) + R"(,"message":")" + message + R"(","data":{"message":")" + why +
         R"("}})";
}
std::string invalid(const std::string& why) {
  return error(-32602, "Invalid parameter(s)", why);
}
std::string no_port(const std::string& why) {
  return error(-32034, "The given id does not represent any existing port(s).", why);
}
const std::string switch_offline = error(
    -32020, "The Edge Switch for the given Edge Switch ID is offline, and is expected to be online.", "c3 is offline");
const std::string unit_offline = error(-32059, "The core switch is offline", "the unit is offline");

// ---- Answers ----

const std::string temperatures = "emac.service.CoreSwitchGetTemps";
const std::string info = "emac.service.CoreSwitchGetInfo";
const std::string configure = "emac.service.CoreSwitchConfigure";
const std::string poe_power = "emac.service.EdgeSwitchGetPoePower";
const std::string rssi = "omac.service.OltGetMultiRssi";

struct Call {
  std::string name;
  std::string method;
  std::string params;
  std::string answer;
};

class SimdAnswers : public testing::TestWithParam<Call> {
 protected:
  // One process serves them all: no case depends on what another one changes.
  static void SetUpTestSuite() { unit_ = new Unit({"--fault", "offline=c3"}); }
  static void TearDownTestSuite() {
    EXPECT_EQ(unit_->process().terminate(), 0);
    delete unit_;
  }
  static inline Unit* unit_ = nullptr;
};

TEST_P(SimdAnswers, Call) {
  EXPECT_EQ(unit_->call(GetParam().method, GetParam().params), GetParam().answer);
}

const Call readings[] = {
    {"Temperatures", temperatures, "{}",
     R"({"temperatures":[{"sensor":"core","celsius":46.5},{"sensor":"phy","celsius":46.0},)"
     R"({"sensor":"board","celsius":32.0}]})"},
    {"Info", info, "{}",
     R"({"model":"VTR-H9","serial":"H9-951184","mac_address":"02:00:01:90:3A:70",)"
     R"("sw_version":"4.3.0","hw_version":"rev B"})"},
    {"Rssi", rssi, R"({"olt_id":1})",
     R"({"rssi":[{"onu_id":1,"dbm":-17.25},{"onu_id":2,"dbm":-15.5},{"onu_id":3,"dbm":-21.0},)"
     R"({"onu_id":4,"dbm":-18.25}]})"},
    {"RssiOfAnotherLine", rssi, R"({"olt_id":7})",
     R"({"rssi":[{"onu_id":1,"dbm":-19.75},{"onu_id":2,"dbm":-25.25},{"onu_id":3,"dbm":-18.0},)"
     R"({"onu_id":4,"dbm":-25.25},{"onu_id":5,"dbm":-18.75},{"onu_id":6,"dbm":-26.5}]})"},
    {"RssiWithoutLine", rssi, "{}", invalid("Missing expected parameter: 'olt_id'")},
    {"RssiOfNoLine", rssi, R"({"olt_id":8})", invalid("olt_id: 0 to 7 is expected")},
    {"RssiOfAText", rssi, R"({"olt_id":"1"})", invalid("Parameter 'olt_id' is not of type 'integer'.")},
    {"PoePower", poe_power, R"({"oec_number":1,"port_numbers":[1,2]})",
     R"({"poe_power":[{"port_number":1,"milliwatts":13682},{"port_number":2,"milliwatts":3705}]})"},
    {"PoePowerOfNoPorts", poe_power, R"({"oec_number":1,"port_numbers":[]})", R"({"poe_power":[]})"},
    {"PoePowerOfTheHeadEnd", poe_power, R"({"oec_number":10001,"port_numbers":[1]})",
     invalid("oec_number: 1 to 512 is expected")},
    {"PoePowerOfSwitchZero", poe_power, R"({"oec_number":0,"port_numbers":[1]})",
     invalid("oec_number: 1 to 512 is expected")},
    {"PoePowerWithoutSwitch", poe_power, R"({"port_numbers":[1]})",
     invalid("Missing expected parameter: 'oec_number'")},
    {"PoePowerWithoutPorts", poe_power, R"({"oec_number":1})", invalid("Missing expected parameter: 'port_numbers'")},
    {"PoePowerOfPort65", poe_power, R"({"oec_number":1,"port_numbers":[1,65]})",
     invalid("port_numbers: 1 to 64 is expected")},
    {"PoePowerOfPort0", poe_power, R"({"oec_number":1,"port_numbers":[0]})",
     invalid("port_numbers: 1 to 64 is expected")},
    {"PoePowerOfATextPort", poe_power, R"({"oec_number":1,"port_numbers":["1"]})",
     invalid("port_numbers: numbers are expected")},
    {"PoePowerOfAnOfflineSwitch", poe_power, R"({"oec_number":3,"port_numbers":[1]})", switch_offline},
};
INSTANTIATE_TEST_SUITE_P(Readings, SimdAnswers, testing::ValuesIn(readings), name_of<Call>);

const Call configurations[] = {
    {"OnePort", configure, ports("100", port("1")), "0"},
    {"NoPort", configure, ports("100", ""), "0"},
    {"Port64", configure, ports("100", port("64")), "0"},
    {"ThePortsOfTheUnit", configure, ports("10001", port("8")), "0"},
    {"Port9OfTheUnit", configure, ports("10001", port("9")), no_port("the unit's own ports are 1 to 8")},
    {"WithoutSwitch", configure, R"({"ports":[]})", invalid("Missing expected parameter: 'oec_number'")},
    {"SwitchZero", configure, ports("0", port("1")),
     invalid("oec_number: 1 to 512 is expected, or 10001 for the unit's own ports")},
    {"Switch513", configure, ports("513", port("1")),
     invalid("oec_number: 1 to 512 is expected, or 10001 for the unit's own ports")},
    {"WithoutPorts", configure, R"({"oec_number":100})", invalid("Missing expected parameter: 'ports'")},
    {"PortsOfAnotherType", configure, R"({"oec_number":100,"ports":1})",
     invalid("Parameter 'ports' is not of type 'array'.")},
    {"IncompletePort", configure, ports("100", R"({"port_number":1})"),
     invalid("Missing expected parameter: 'port_status'")},
    {"Port65", configure, ports("100", port("65")), invalid("ports: a member of a port is missing or not acceptable")},
    {"PortNumberOfMoreThan32Bits", configure, ports("100", port("4294967297")), no_port("ports are 1 to 64")},
    {"UnknownVlanMode", configure, ports("100", port("2", "", "7")), invalid("c100-2: vlan_mode cannot be 7")},
    {"NegativeVlanMode", configure, ports("100", port("2", "", "-1")), invalid("c100-2: vlan_mode cannot be -1")},
    {"BadFilter", configure, ports("100", port("2", R"(,"mac_filters":[{"mac":"no","mask":"no"}])")),
     invalid(R"(mac_filters: a list of {\"mac\", \"mask\"} is expected)")},
    {"FiltersOfAnotherType", configure, ports("100", port("2", R"(,"mac_filters":"none")")),
     invalid("Parameter 'mac_filters' is not of type 'array'.")},
    {"BadManagementVlan", configure, ports("10001", "", R"(,"mgmt_vlan_id":4051)"),
     invalid("mgmt_vlan_id: 1 to 4050 is expected")},
    {"OfflineSwitch", configure, ports("3", port("1")), switch_offline},
};
INSTANTIATE_TEST_SUITE_P(Configurations, SimdAnswers, testing::ValuesIn(configurations), name_of<Call>);

const Call steering[] = {
    {"PortNeverSet", "sim.GetPort", R"({"port_id":"c200-1"})", R"({"port_id":"c200-1","configured":false})"},
    {"OwnPortNeverSet", "sim.GetPort", R"({"port_id":"D1"})", R"({"port_id":"d1","configured":false})"},
    {"GetPortWithoutPort", "sim.GetPort", "{}", invalid("Missing expected parameter: 'port_id'")},
    {"GetPortOfASwitch", "sim.GetPort", R"({"port_id":"c1"})", invalid("port_id: a port is expected, like c1-1 or d1")},
    {"GetPort9OfTheUnit", "sim.GetPort", R"({"port_id":"d9"})", no_port("the unit's own ports are 1 to 8")},
    {"GetPort65", "sim.GetPort", R"({"port_id":"c1-65"})", no_port("ports are 1 to 64")},
    {"FaultWithoutName", "sim.SetFault", "{}", invalid("Missing expected parameter: 'fault'")},
    {"FaultUnknown", "sim.SetFault", R"({"fault":"broken"})",
     invalid("fault: offline, silent, late or none is expected")},
    {"FaultOfALongName", "sim.SetFault", R"({"fault":"broken beyond repair"})",
     invalid("fault: overflow detected: 20 characters written, 16 characters allowed.")},
    {"LateWithoutDelay", "sim.SetFault", R"({"fault":"late"})", invalid("Missing expected parameter: 'milliseconds'")},
    {"LateByZero", "sim.SetFault", R"({"fault":"late","milliseconds":0})",
     invalid("milliseconds: 1 to 600000 is expected")},
    {"LateByTooMuch", "sim.SetFault", R"({"fault":"late","milliseconds":600001})",
     invalid("milliseconds: 1 to 600000 is expected")},
    {"SilentSwitch", "sim.SetFault", R"({"fault":"silent","oec_id":"c3"})",
     invalid("oec_id: the whole unit is silent or late")},
    {"OfflinePort", "sim.SetFault", R"({"fault":"offline","oec_id":"c3-1"})",
     invalid("oec_id: an edge switch is expected, like c3")},
    {"OfflineHeadEnd", "sim.SetFault", R"({"fault":"offline","oec_id":"c10001"})",
     invalid("oec_id: an edge switch is expected, like c3")},
    {"UnknownMethod", "sim.Fly", "{}", R"(error {"code":-32601,"message":"Method not found","data":null})"},
};
INSTANTIATE_TEST_SUITE_P(Steering, SimdAnswers, testing::ValuesIn(steering), name_of<Call>);

// ---- What the hardware holds ----

TEST(Simd, HoldsTheLastStateOfEachPort) {
  Unit unit;
  const auto filters = R"(,"mac_filters":[{"mac":"02-00-00-00-00-0a","mask":"FF:FF:FF:FF:FF:FF"}])";
  ASSERT_EQ(unit.call(configure, ports("1", port("1", filters) + "," + port("2"))), "0");
  EXPECT_EQ(unit.call("sim.GetPort", R"({"port_id":"c1-1"})"),
            R"({"port_id":"c1-1","configured":true,"port_number":1,"port_status":1,"poe_status":2,"link_status":2,)"
            R"("link_speed":6,"vlan_mode":2,"vlan_ids":[10],)"
            R"("mac_filters":[{"mac":"02:00:00:00:00:0A","mask":"FF:FF:FF:FF:FF:FF"}]})");

  const std::string off =
      R"({"port_number":1,"port_status":0,"poe_status":1,"link_status":1,"link_speed":2,"vlan_mode":3,)"
      R"("vlan_ids":[10,20],"mac_filters":[]})";
  ASSERT_EQ(unit.call(configure, ports("1", off)), "0");
  EXPECT_EQ(unit.call("sim.GetPort", R"({"port_id":"c1-1"})"),
            R"({"port_id":"c1-1","configured":true,"port_number":1,"port_status":0,"poe_status":1,"link_status":1,)"
            R"("link_speed":2,"vlan_mode":3,"vlan_ids":[10,20],"mac_filters":[]})");
  EXPECT_THAT(unit.call("sim.GetPort", R"({"port_id":"c1-2"})"), HasSubstr(R"("vlan_ids":[10],"mac_filters":[])"));
  EXPECT_THAT(unit.call(poe_power, R"({"oec_number":1,"port_numbers":[1]})"),
              R"({"poe_power":[{"port_number":1,"milliwatts":0}]})");
}

TEST(Simd, ARefusedRequestChangesNothing) {
  Unit unit;
  EXPECT_THAT(unit.call(configure, ports("1", port("1") + "," + port("2", "", "7"), R"(,"mgmt_vlan_id":10)")),
              StartsWith("error"));
  EXPECT_THAT(unit.call(configure, ports("1", port("1"), R"(,"mgmt_vlan_id":0)")), StartsWith("error"));
  EXPECT_EQ(unit.call("sim.GetPort", R"({"port_id":"c1-1"})"), R"({"port_id":"c1-1","configured":false})");
  EXPECT_EQ(unit.call("sim.GetUnit"), R"({"mgmt_vlan_id":0,"faults":[]})");
}

TEST(Simd, HoldsTheManagementVlan) {
  Unit unit;
  EXPECT_EQ(unit.call(configure, ports("10001", "", R"(,"mgmt_vlan_id":10)")), "0");
  EXPECT_EQ(unit.call("sim.GetUnit"), R"({"mgmt_vlan_id":10,"faults":[]})");
  EXPECT_EQ(unit.call(configure, ports("10001", port("1"))), "0");
  EXPECT_EQ(unit.call("sim.GetUnit"), R"({"mgmt_vlan_id":10,"faults":[]})");
}

TEST(Simd, TooManyPortsAreRefused) {
  Unit unit;
  std::string list = port("1");
  for (int i = 0; i < 64; ++i) list += "," + port("1");
  EXPECT_EQ(unit.call(configure, ports("1", list)), invalid("ports: at most 64 are expected"));
}

// ---- The seed ----

std::string everything(Unit& unit) {
  std::string text = unit.call(temperatures) + unit.call(info);
  for (int i = 0; i < 8; ++i) {
    const auto number = std::to_string(i + 1);
    text += unit.call(rssi, R"({"olt_id":)" + std::to_string(i) + "}");
    text += unit.call(poe_power, R"({"oec_number":)" + number + R"(,"port_numbers":[1,2,3,4,5,6,7,8]})");
  }
  return text;
}

TEST(Simd, OneSeedOneUnit) {
  Unit first;
  Unit second;
  Unit other({}, "8");
  second.call(temperatures);  // neither the number nor the order of calls counts
  const auto text = everything(first);
  EXPECT_EQ(text, everything(first));
  EXPECT_EQ(text, everything(second));
  EXPECT_NE(text, everything(other));
}

// ---- Faults ----

TEST(Simd, AnOfflineSwitchFailsAlone) {
  Unit unit;
  EXPECT_EQ(unit.call("sim.SetFault", R"({"fault":"offline","oec_id":"c3"})"), "0");
  EXPECT_EQ(unit.call(poe_power, R"({"oec_number":3,"port_numbers":[1]})"), switch_offline);
  EXPECT_EQ(unit.call(configure, ports("3", port("1"))), switch_offline);
  EXPECT_EQ(unit.call("sim.GetPort", R"({"port_id":"c3-1"})"), R"({"port_id":"c3-1","configured":false})");
  EXPECT_THAT(unit.call(poe_power, R"({"oec_number":4,"port_numbers":[1]})"), HasSubstr("milliwatts"));
  EXPECT_THAT(unit.call(temperatures), HasSubstr("celsius"));
  EXPECT_EQ(unit.call("sim.SetFault", R"({"fault":"none","oec_id":"c3"})"), "0");
  EXPECT_EQ(unit.call(configure, ports("3", port("1"))), "0");
}

TEST(Simd, AnOfflineUnitFailsAsAWhole) {
  Unit unit;
  EXPECT_EQ(unit.call("sim.SetFault", R"({"fault":"offline"})"), "0");
  EXPECT_EQ(unit.call(temperatures), unit_offline);
  EXPECT_EQ(unit.call(info), unit_offline);
  EXPECT_EQ(unit.call(rssi, R"({"olt_id":1})"), unit_offline);
  EXPECT_EQ(unit.call(poe_power, R"({"oec_number":4,"port_numbers":[1]})"), unit_offline);
  EXPECT_EQ(unit.call(configure, ports("10001", port("1"))), unit_offline);
  EXPECT_THAT(unit.call("rpc.discover"), HasSubstr("methods"));
  EXPECT_EQ(unit.call("sim.SetFault", R"({"fault":"none"})"), "0");
  EXPECT_THAT(unit.call(temperatures), HasSubstr("celsius"));
}

TEST(Simd, ASilentUnitAnswersNobody) {
  Unit unit;
  EXPECT_EQ(unit.call("sim.SetFault", R"({"fault":"silent"})"), "0");
  const auto before = unit.caller().ask(KESTRO_JRPC_CHANNEL_DEFAULT, temperatures);
  EXPECT_EQ(unit.call("rpc.discover", "{}", briefly), "");
  EXPECT_EQ(unit.call(configure, ports("1", port("1")), briefly), "");
  EXPECT_EQ(unit.call("sim.GetPort", R"({"port_id":"c1-1"})"), R"({"port_id":"c1-1","configured":false})");
  EXPECT_EQ(unit.call("sim.SetFault", R"({"fault":"none"})"), "0");
  EXPECT_THAT(unit.call(temperatures), HasSubstr("celsius"));
  EXPECT_EQ(unit.caller().await(before, 0ms), "");
}

TEST(Simd, ALateUnitAnswersInTheEndWithoutHoldingUpOthers) {
  Unit unit;
  EXPECT_EQ(unit.call("sim.SetFault", R"({"fault":"late","milliseconds":300})"), "0");
  const auto asked = std::chrono::steady_clock::now();
  const auto first = unit.caller().ask(KESTRO_JRPC_CHANNEL_DEFAULT, temperatures);
  const auto second = unit.caller().ask(KESTRO_JRPC_CHANNEL_DEFAULT, info);
  EXPECT_EQ(unit.call("sim.GetUnit"), R"({"mgmt_vlan_id":0,"faults":["late=300"]})");
  EXPECT_THAT(unit.caller().await(second), HasSubstr("serial"));
  EXPECT_THAT(unit.caller().await(first), HasSubstr("celsius"));
  EXPECT_GE(std::chrono::steady_clock::now() - asked, 300ms);
}

TEST(Simd, FaultsFromTheStartAreThoseOfTheCommandLine) {
  Unit unit({"--fault", "offline=c3", "--fault", "late=20", "--fault", "offline=c1", "--fault", "offline"});
  EXPECT_EQ(unit.call("sim.GetUnit"), R"({"mgmt_vlan_id":0,"faults":["offline","offline=c1","offline=c3","late=20"]})");
}

// ---- Events ----

// "Offline c3", from the next notification; its time must be the present.
std::string next_event(Unit& unit) {
  const Json event = unit.caller().notification();
  if (!event) return "none";
  const json_t* const params = json_object_get(event.get(), "params");
  const std::string method = json_string_value(json_object_get(event.get(), "method"));
  const std::string oec_id = json_string_value(json_object_get(params, "oec_id"));
  EXPECT_LE(std::abs(json_integer_value(json_object_get(params, "time")) - time(nullptr)), 60);
  EXPECT_EQ(text_of(event.get()), R"({"jsonrpc":"2.0","method":")" + method + R"(","params":{"oec_id":")" + oec_id +
                                      R"(","time":)" + text_of(json_object_get(params, "time")) + "}}");
  EXPECT_THAT(method, StartsWith("events.EdgeSwitch"));
  return method.substr(std::string("events.EdgeSwitch").size()) + " " + oec_id;
}

TEST(Simd, TransitionsAreEvents) {
  Unit unit;
  const auto set = [&](const std::string& params) { EXPECT_EQ(unit.call("sim.SetFault", params), "0"); };
  set(R"({"fault":"offline","oec_id":"c3"})");
  EXPECT_EQ(next_event(unit), "Offline c3");
  set(R"({"fault":"offline","oec_id":"c3"})");  // is no transition
  set(R"({"fault":"offline","oec_id":"C5"})");
  EXPECT_EQ(next_event(unit), "Offline c5");
  set(R"({"fault":"none","oec_id":"c3"})");
  EXPECT_EQ(next_event(unit), "Online c3");
  set(R"({"fault":"offline"})");  // nor is this one of an edge switch
  set(R"({"fault":"none"})");
  EXPECT_EQ(next_event(unit), "Online c5");
}

TEST(Simd, SwitchesGoAndComeBackByThemselves) {
  Unit unit({"--event-interval", "0.02"});
  auto event = next_event(unit);
  if (event.rfind("Online", 0) == 0) event = next_event(unit);  // the first ones may have been before our time
  for (int i = 0; i < 5; ++i) {
    EXPECT_THAT(event, StartsWith("Offline "));
    EXPECT_EQ(next_event(unit), "Online " + event.substr(std::string("Offline ").size()));
    event = next_event(unit);
  }
}

TEST(Simd, WithoutAnIntervalNothingHappens) {
  Unit unit;
  EXPECT_EQ(unit.caller().notification(briefly), nullptr);
}

// ---- The process ----

TEST(Simd, DescribesEveryMethod) {
  Unit unit;
  const Json description = json_of(unit.call("rpc.discover"));
  EXPECT_STREQ(json_string_value(json_object_get(description.get(), "service")), "simd");
  expect_sentences(description.get());
  std::vector<std::string> names;
  for (size_t i = 0; i < json_array_size(json_object_get(description.get(), "methods")); ++i) {
    const json_t* const method = json_array_get(json_object_get(description.get(), "methods"), i);
    names.emplace_back(json_string_value(json_object_get(method, "name")));
    EXPECT_THAT(unit.call(names.back()), Not(HasSubstr("Method not found"))) << names.back();
  }
  EXPECT_THAT(names, testing::ElementsAre(temperatures, info, configure, poe_power, rssi, "sim.SetFault", "sim.GetPort",
                                          "sim.GetUnit", "rpc.discover", "logger.ReloadConf"));
}

TEST(Simd, ReloadsItsLogLevelAlsoByANotification) {
  std::filesystem::create_directories(std::filesystem::path(KESTRO_LSYSLOG_CONF_FILE).parent_path());
  const Finally remove_conf([]() noexcept { std::filesystem::remove(KESTRO_LSYSLOG_CONF_FILE); });
  std::ofstream(KESTRO_LSYSLOG_CONF_FILE) << "[logging_levels]\nsimd=debug\n";
  Unit unit;
  EXPECT_EQ(unit.call("sim.SetFault", R"({"fault":"silent"})"), "0");  // of the unit, not of its process
  std::ofstream(KESTRO_LSYSLOG_CONF_FILE) << "[logging_levels]\nsimd=info\n";
  unit.caller().publish(KESTRO_JRPC_CHANNEL_DEFAULT, R"({"jsonrpc":"2.0","method":"logger.ReloadConf"})");
  EXPECT_TRUE(eventually(
      [&] { return unit.process().err().find("[simd] Logging level set to info.\n") != std::string::npos; }));
}

TEST(Simd, EndsInGoodOrder) {
  for (const int signal : {SIGTERM, SIGINT}) {
    Unit unit({"--fault", "late=60000", "--event-interval", "0.05"});
    unit.caller().ask(KESTRO_JRPC_CHANNEL_DEFAULT, temperatures);
    EXPECT_EQ(unit.call("sim.GetUnit").empty(), false);
    unit.process().signal(signal);
    EXPECT_EQ(unit.process().wait(), 0) << unit.process().err();
  }
}

TEST(Simd, SaysWhereItCannotPublish) {
  const auto address = free_bus_address();
  BusSocket taken(KESTRO_MQ_SP_PUB);
  taken.bind(address);
  Process process({KESTRO_SIMD, "--bus-publish", address, "--bus-subscribe", free_bus_address()});
  EXPECT_EQ(process.wait(), 1);
  EXPECT_THAT(process.err(), HasSubstr("kestro-simd: cannot publish at " + address + ": Address already in use"));
}

struct CommandLine {
  std::string name;
  std::vector<std::string> arguments;
  std::string complaint;
};

class SimdUsage : public testing::TestWithParam<CommandLine> {};

TEST_P(SimdUsage, IsTold) {
  std::vector<std::string> arguments = {KESTRO_SIMD};
  const auto& given = GetParam().arguments;
  arguments.insert(arguments.end(), given.begin(), given.end());
  Process process(arguments);
  EXPECT_EQ(process.wait(), 2);
  EXPECT_THAT(process.err(), HasSubstr(GetParam().complaint));
}

std::vector<std::string> on_the_bus(const std::vector<std::string>& more) {
  std::vector<std::string> arguments = {"--bus-publish", "tcp://127.0.0.1:1", "--bus-subscribe", "tcp://127.0.0.1:2"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, SimdUsage,
    testing::Values(CommandLine{"NoBus", {}, "kestro-simd: --bus-publish is required\n"},
                    CommandLine{"UnknownFault", on_the_bus({"--fault", "broken"}),
                                "--fault: \"broken\" is none of offline, offline=SWITCH, silent, late=MILLISECONDS"},
                    CommandLine{"NoSeed", on_the_bus({"--seed", "x"}), "--seed"},
                    CommandLine{"NegativeSeed", on_the_bus({"--seed", "-1"}),
                                "--seed: a number is expected, 0 or more\n"},
                    CommandLine{"NegativeInterval", on_the_bus({"--event-interval", "-1"}),
                                "--event-interval: 0, or 0.01 to 604800 seconds"},
                    CommandLine{"IntervalTooShort", on_the_bus({"--event-interval", "0.001"}),
                                "--event-interval: 0, or 0.01 to 604800 seconds"},
                    CommandLine{"NoInterval", on_the_bus({"--event-interval", "often"}),
                                "--event-interval: 0, or 0.01 to 604800 seconds"},
                    CommandLine{"UnknownOption", on_the_bus({"--fast"}), "--fast"}),
    name_of<CommandLine>);

TEST(Simd, HelpHasAnExample) {
  Process process({KESTRO_SIMD, "--help"});
  EXPECT_EQ(process.wait(), 0);
  EXPECT_THAT(process.out(), HasSubstr("Example:\n  kestro-simd --bus-publish "));
  EXPECT_THAT(process.out(), HasSubstr("--event-interval"));
  EXPECT_THAT(process.out(), HasSubstr("2 the command line is wrong"));
  Process version({KESTRO_SIMD, "--version"});
  EXPECT_EQ(version.wait(), 0);
  EXPECT_THAT(version.out(), EndsWith("kestro-simd " KESTRO_VERSION "\n"));
}

}  // namespace
}  // namespace kestro::test
