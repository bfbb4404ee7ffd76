#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "kestro_jrpc_utils.h"
#include "support/captured_stderr.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/request.hpp"
#include "support/scarce_json.hpp"

namespace kestro::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::Not;

constexpr const char* module = "kestro_jrpc_utils";

// A record that shows which of its bytes were written.
template <class Port>
Port marked() {
  Port port;
  memset(static_cast<void*>(&port), 0x55, sizeof(port));
  return port;
}

// As a number, whatever it is: these fields may hold none of their enumeration.
template <class Enum>
int32_t number(const Enum& field) {
  int32_t value = 0;
  memcpy(&value, &field, sizeof(value));
  return value;
}
constexpr int32_t mark = 0x55555555;

Json good_port() {
  return json_of(R"({"port_number":7,"port_status":1,"poe_status":2,"link_status":3,"link_speed":4,"vlan_mode":5,)"
                 R"("vlan_ids":[10,4050]})");
}
Json good_hardware() {
  return json_of(R"({"port_number":64,"poe_status":4,"link_status":2,"link_speed":7})");
}

Request list_of(std::initializer_list<const json_t*> elements) {
  Json list(json_array());
  for (const auto* each : elements) json_array_append_new(list.get(), json_deep_copy(each));
  return Request::of(std::move(list));
}

std::vector<int32_t> states(const kestro_data_port& port) {
  return {number(port.port_status), number(port.poe_status), number(port.link_status), number(port.link_speed),
          number(port.vlan_mode)};
}
std::vector<int32_t> states(const kestro_onu_port_hardware_info_t& port) {
  return {port.poe_status, port.link_status, port.link_speed};
}

int32_t retrieve(Request& request, kestro_data_port* ports, int32_t* count, int32_t room) {
  return kestro_jrpc_utils_retrieve_input_ports(request.params(), request.err_data(), "value", ports, count, room);
}
int32_t retrieve(Request& request, kestro_onu_port_hardware_info_t* ports, int32_t* count, int32_t room) {
  return kestro_jrpc_utils_retrieve_input_ports_hardware(request.params(), request.err_data(), "value", ports, count,
                                                         room);
}

TEST(Ports, AreReadWholeAndNothingElseIsWritten) {
  const LogLevel off(0);
  Request request = list_of({good_port().get()});
  std::array ports{marked<kestro_data_port>(), marked<kestro_data_port>()};
  int32_t count = -1;
  EXPECT_EQ(retrieve(request, ports.data(), &count, 2), 0);
  EXPECT_EQ(count, 1);
  const auto& port = ports[0];
  EXPECT_EQ(port.port_number, 7);
  EXPECT_THAT(states(port), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_EQ(port.num_of_vlan_ids, 2);
  EXPECT_EQ(port.vlan_id[0], 10);
  EXPECT_EQ(port.vlan_id[1], 4050);
  EXPECT_EQ(port.vlan_id[2], mark);
  for (const int32_t other : {port.oec_number, port.pair_oec, port.pair_port, port.filter_enabled, port.filter_count}) {
    EXPECT_EQ(other, mark);
  }
  EXPECT_THAT(port.description, Each(0x55));
  const auto untouched = marked<kestro_data_port>();
  EXPECT_EQ(memcmp(&ports[1], &untouched, sizeof(untouched)), 0);
  EXPECT_EQ(request.explanation(), "");
}

TEST(PortsHardware, AreReadWhole) {
  const LogLevel off(0);
  Request request = list_of({good_hardware().get()});
  std::array ports{marked<kestro_onu_port_hardware_info_t>(), marked<kestro_onu_port_hardware_info_t>()};
  int32_t count = -1;
  EXPECT_EQ(retrieve(request, ports.data(), &count, 2), 0);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(ports[0].port_number, 64);
  EXPECT_THAT(states(ports[0]), ElementsAre(4, 2, 7));
  EXPECT_EQ(ports[1].port_number, mark);
}

TEST(Ports, StatesAreNotComparedWithTheirEnumerations) {
  const LogLevel off(0);
  Json port = good_port();
  for (const char* const name : {"port_status", "poe_status", "link_status", "link_speed", "vlan_mode"}) {
    json_object_set_new(port.get(), name, json_integer(-70000));
  }
  Request request = list_of({port.get()});
  auto record = marked<kestro_data_port>();
  int32_t count = 0;
  EXPECT_EQ(retrieve(request, &record, &count, 1), 0);
  EXPECT_THAT(states(record), ElementsAre(-70000, -70000, -70000, -70000, -70000));
}

TEST(Ports, APortWithoutVlansHasNone) {
  const LogLevel off(0);
  Json port = good_port();
  json_object_set_new(port.get(), "vlan_ids", json_array());
  Request request = list_of({port.get()});
  auto record = marked<kestro_data_port>();
  int32_t count = 0;
  EXPECT_EQ(retrieve(request, &record, &count, 1), 0);
  EXPECT_EQ(record.num_of_vlan_ids, 0);
}

// ---- Room

template <class Port>
struct Kind;
template <>
struct Kind<kestro_data_port> {
  static Json good() { return good_port(); }
  static constexpr const char* ports = "ports";
  static constexpr const char* port = "port";
};
template <>
struct Kind<kestro_onu_port_hardware_info_t> {
  static Json good() { return good_hardware(); }
  static constexpr const char* ports = "ports hardware";
  static constexpr const char* port = "port hardware";
};

template <class Port>
class PortList : public testing::Test {};
using Ports = testing::Types<kestro_data_port, kestro_onu_port_hardware_info_t>;
TYPED_TEST_SUITE(PortList, Ports);

// `size` ports, numbered from 1.
template <class Port>
Request numbered(int size) {
  Json list(json_array());
  for (int i = 1; i <= size; ++i) {
    Json port = Kind<Port>::good();
    json_object_set_new(port.get(), "port_number", json_integer(i));
    json_array_append_new(list.get(), port.release());
  }
  return Request::of(std::move(list));
}

TYPED_TEST(PortList, TakesWhatThereIsRoomFor) {
  const LogLevel off(0);
  for (int size = 0; size <= 10; ++size) {
    for (int room = 0; room <= 10; ++room) {
      SCOPED_TRACE(std::to_string(size) + " into " + std::to_string(room));
      Request request = numbered<TypeParam>(size);
      std::vector ports(11, marked<TypeParam>());
      int32_t count = -1;
      EXPECT_EQ(retrieve(request, ports.data(), &count, room), 0);
      EXPECT_EQ(count, std::min(size, room));
      for (int i = 0; i < 11; ++i) {
        EXPECT_EQ(ports[static_cast<size_t>(i)].port_number, i < count ? i + 1 : mark);
      }
    }
  }
}

TYPED_TEST(PortList, WhatThereIsNoRoomForIsNotInspected) {
  const LogLevel off(0);
  const Json good = Kind<TypeParam>::good();
  const Json bad = json_of("[\"no port\"]");
  Request request = list_of({good.get(), bad.get(), bad.get()});
  std::array ports{marked<TypeParam>()};
  int32_t count = 0;
  EXPECT_EQ(retrieve(request, ports.data(), &count, 1), 0);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(request.explanation(), "");
}

TYPED_TEST(PortList, WithoutAnyRoomWritesNothing) {
  const LogLevel off(0);
  Request request = numbered<TypeParam>(2);
  auto port = marked<TypeParam>();
  int32_t count = 1;
  EXPECT_EQ(retrieve(request, &port, &count, -1), 0);
  EXPECT_LE(count, 0);
  EXPECT_EQ(port.port_number, mark);
}

TYPED_TEST(PortList, TellsItsProgressFromZero) {
  const LogLevel level(Verbose);
  Request request = numbered<TypeParam>(2);
  std::array ports{marked<TypeParam>(), marked<TypeParam>()};
  int32_t count = 0;
  const auto log = stderr_of([&] { retrieve(request, ports.data(), &count, 2); });
  const std::string kind = Kind<TypeParam>::ports;
  const std::string one = Kind<TypeParam>::port;
  for (const auto& line : {"Retrieving " + kind + " input...\n", "Retrieving " + one + " #0...\n",
                           "Retrieving " + one + " #1...\n", "Successfully retrieved 2 " + kind + ".\n"}) {
    EXPECT_EQ(count_log_lines(log, Verbose, module, line), 1) << line;
  }
}

TYPED_TEST(PortList, NullsAreRefused) {
  const LogLevel level(Debug);
  Request request = numbered<TypeParam>(1);
  auto port = marked<TypeParam>();
  int32_t count = 4711;
  EXPECT_THAT(stderr_of([&] { EXPECT_EQ(retrieve(request, static_cast<TypeParam*>(nullptr), &count, 1), -4); }),
              HasLog(Debug, module, "NULL pointer!\n"));
  EXPECT_EQ(count, 4711);
  const LogLevel off(0);
  // The number of ports is not among what must be there.
  EXPECT_EQ(retrieve(request, &port, nullptr, 1), 0);
  EXPECT_EQ(port.port_number, 1);
  Request none("{}");
  EXPECT_EQ(retrieve(none, &port, nullptr, 1), -35);
}

TEST(Ports, NullNameIsRefused) {
  const LogLevel off(0);
  kestro_data_port port;
  kestro_onu_port_hardware_info_t hardware;
  int32_t count = 4711;
  const Json params = json_of("{}");
  EXPECT_EQ(kestro_jrpc_utils_retrieve_input_ports(params.get(), nullptr, nullptr, &port, &count, 1), -4);
  EXPECT_EQ(kestro_jrpc_utils_retrieve_input_ports_hardware(params.get(), nullptr, nullptr, &hardware, &count, 1), -4);
  EXPECT_EQ(count, 4711);
}

TYPED_TEST(PortList, FailuresOfTheListItselfKeepTheirStatus) {
  const LogLevel off(0);
  auto port = marked<TypeParam>();
  int32_t count = 4711;
  Request missing("{}");
  EXPECT_EQ(retrieve(missing, &port, &count, 1), -35);
  EXPECT_EQ(missing.explanation(), "Missing expected parameter: 'value'");
  EXPECT_EQ(count, 0);
  count = 4711;
  Request no_list = Request::of("text");
  EXPECT_EQ(retrieve(no_list, &port, &count, 1), -31);
  EXPECT_EQ(no_list.explanation(), "Parameter 'value' is not of type 'array'.");
  EXPECT_EQ(count, 0);
  EXPECT_EQ(port.port_number, mark);
}

// ---- Elements with a fault

struct Fault {
  const char* name;
  const char* member;
  const char* value;  // null: the member is missing
  std::string explanation;
};

Fault missing(const char* name, const char* member) {
  return {name, member, nullptr, "Missing expected parameter: '" + std::string(member) + "'"};
}
Fault no_integer(const char* name, const char* member, const char* value) {
  return {name, member, value, "Parameter '" + std::string(member) + "' is not of type 'integer'."};
}

void break_port(json_t* port, const Fault& fault) {
  if (fault.value == nullptr) {
    json_object_del(port, fault.member);
  } else {
    json_object_set_new(port, fault.member, json_of(fault.value).release());
  }
}

const Fault hardware_faults[] = {
    missing("NoPortNumber", "port_number"),
    missing("NoPoeStatus", "poe_status"),
    missing("NoLinkStatus", "link_status"),
    missing("NoLinkSpeed", "link_speed"),
    no_integer("TextPortNumber", "port_number", "\"7\""),
    no_integer("RealPoeStatus", "poe_status", "1.0"),
    no_integer("NullLinkStatus", "link_status", "null"),
    no_integer("ListLinkSpeed", "link_speed", "[4]"),
    {"PortNumberZero", "port_number", "0", ""},
    {"PortNumberBeyondTheLast", "port_number", "65", ""},
};
const Fault port_faults[] = {
    missing("NoPortStatus", "port_status"),
    missing("NoVlanMode", "vlan_mode"),
    no_integer("BoolPortStatus", "port_status", "true"),
    no_integer("TextVlanMode", "vlan_mode", "\"trunk\""),
    {"NoVlanIds", "vlan_ids", nullptr, ""},
    {"RepeatedVlan", "vlan_ids", "[10,20,10]", ""},
    {"NoSuchVlan", "vlan_ids", "[4051]", ""},
};

class BrokenPort : public testing::TestWithParam<Fault> {};

// The port before the broken one is complete; of the broken one, number and VLANs may be there, states never are.
template <class Port>
void expect_stop_at_second(const Json& good, const Fault& fault) {
  const LogLevel off(0);
  const Json broken(json_deep_copy(good.get()));
  break_port(broken.get(), fault);
  Request request = list_of({good.get(), broken.get(), good.get()});
  std::array ports{marked<Port>(), marked<Port>(), marked<Port>()};
  int32_t count = 0;
  EXPECT_EQ(retrieve(request, ports.data(), &count, 3), -4);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(request.explanation(), fault.explanation);
  EXPECT_THAT(states(ports[0]), Not(testing::Contains(mark)));
  EXPECT_THAT(states(ports[1]), Each(mark));
  if (strcmp(fault.member, "port_number") != 0) {
    EXPECT_EQ(ports[1].port_number, ports[0].port_number);
  }
  if constexpr (std::is_same_v<Port, kestro_data_port>) {
    if (strcmp(fault.member, "vlan_ids") != 0) {
      EXPECT_EQ(ports[1].num_of_vlan_ids, 2);
      EXPECT_EQ(ports[1].vlan_id[1], 4050);
    }
  }
  const auto untouched = marked<Port>();
  EXPECT_EQ(memcmp(&ports[2], &untouched, sizeof(untouched)), 0);
}

TEST_P(BrokenPort, EndsTheList) {
  expect_stop_at_second<kestro_data_port>(good_port(), GetParam());
}
INSTANTIATE_TEST_SUITE_P(Common, BrokenPort, testing::ValuesIn(hardware_faults), name_of<Fault>);
INSTANTIATE_TEST_SUITE_P(Own, BrokenPort, testing::ValuesIn(port_faults), name_of<Fault>);

class BrokenPortHardware : public testing::TestWithParam<Fault> {};
TEST_P(BrokenPortHardware, EndsTheList) {
  expect_stop_at_second<kestro_onu_port_hardware_info_t>(good_hardware(), GetParam());
}
INSTANTIATE_TEST_SUITE_P(All, BrokenPortHardware, testing::ValuesIn(hardware_faults), name_of<Fault>);

TYPED_TEST(PortList, AnElementThatIsNoObjectHasNoMembers) {
  const LogLevel off(0);
  for (const char* const element : {"null", "7", "\"c1-1\"", "[1]"}) {
    Request request = list_of({json_of(element).get()});
    auto port = marked<TypeParam>();
    int32_t count = 0;
    EXPECT_EQ(retrieve(request, &port, &count, 1), -4) << element;
    EXPECT_EQ(request.explanation(), "Missing expected parameter: 'port_number'");
  }
}

// Everything that is wrong with a port is told at once.
TEST(Ports, MembersAreReadInOrderAlsoAfterOneFailed) {
  const LogLevel level(Error);
  Request request("{\"value\":[{}]}");
  kestro_data_port port;
  int32_t count = 0;
  const auto log = stderr_of([&] { EXPECT_EQ(retrieve(request, &port, &count, 1), -4); });
  size_t at = 0;
  for (const char* const name :
       {"<port_number>", "<port_status>", "<poe_status>", "<link_status>", "<link_speed>", "<vlan_mode>", "vlan ID"}) {
    const size_t found = log.find(name, at);
    EXPECT_NE(found, std::string::npos) << name << " after " << at << " in\n" << log;
    at = found;
  }
  EXPECT_EQ(request.explanation(), "Missing expected parameter: 'port_number'");
}

TEST(PortsHardware, MembersAreReadInOrderAlsoAfterOneFailed) {
  const LogLevel level(Error);
  Request request("{\"value\":[{}]}");
  kestro_onu_port_hardware_info_t port;
  int32_t count = 0;
  const auto log = stderr_of([&] { EXPECT_EQ(retrieve(request, &port, &count, 1), -4); });
  size_t at = 0;
  for (const char* const name : {"<port_number>", "<poe_status>", "<link_status>", "<link_speed>"}) {
    const size_t found = log.find(name, at);
    EXPECT_NE(found, std::string::npos) << name << " after " << at << " in\n" << log;
    at = found;
  }
}

TYPED_TEST(PortList, WithoutAPlaceForTheExplanation) {
  const LogLevel off(0);
  const Json params = json_of("{\"value\":[{}]}");
  auto port = marked<TypeParam>();
  int32_t count = 0;
  if constexpr (std::is_same_v<TypeParam, kestro_data_port>) {
    EXPECT_EQ(kestro_jrpc_utils_retrieve_input_ports(params.get(), nullptr, "value", &port, &count, 1), -4);
  } else {
    EXPECT_EQ(kestro_jrpc_utils_retrieve_input_ports_hardware(params.get(), nullptr, "value", &port, &count, 1), -4);
  }
}

TYPED_TEST(PortList, TheStatusIsTheSameWhenMemoryRunsOut) {
  const LogLevel off(0);
  bool fired = true;
  for (int nth = 1; fired; ++nth) {
    Request request("{\"value\":[{}]}");
    auto port = marked<TypeParam>();
    int32_t count = 0;
    {
      const ScarceJson scarce(nth);
      EXPECT_EQ(retrieve(request, &port, &count, 1), -4) << nth;
      fired = scarce.fired();
    }
    ASSERT_LT(nth, 100);
  }
}

}  // namespace
}  // namespace kestro::test
