// The methods of the configuration service: what each gives for good and for bad input.
#include "e2e/configd.hpp"
#include "support/description.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

constexpr const char* c1 =
    R"({"oec_id":"c1","model":"VTR-E30p","mac_address":"02:00:01:00:00:01","alias":"","description":"","ports":8,)"
    R"("cfg_pending":false})";

std::string port_object(const std::string& id, const std::string& enabled, const std::string& description,
                        const std::string& vlans, const std::string& poe, const std::string& filters = "[]") {
  return R"({"port_id":")" + id + R"(","enabled":)" + enabled + R"(,"description":")" + description +
         R"(","vlan_mode":)" + vlans + R"(,"poe":)" + poe + R"(,"mac_filters":)" + filters + "}";
}
const std::string local = R"("local","vlan_ids":[])";

struct GoodCase {
  std::string name;
  std::string method;
  std::string params;
  std::string result;
};

// One unit with c1, a VTR-E30p, and c2, a VTR-E10, for all rows; each row stands by itself.
class ConfigdMethods : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    unit = new Unit();
    unit->register_switch("VTR-E30p", 1);
    unit->register_switch("VTR-E10", 2);
    unit->register_switch("VTR-E20p", 4);
    unit->done("ports.SetVlanAccess", R"({"port_id":"d1","vlan_id":7})");
    unit->done("network.service.ApplyMgmtVlan", R"({"vlan_id":7})");
    unit->done("dhcp.SetService", R"({"service_name":"lobby","address_range":"10.0.0.0/24","dhcp_range":"",)"
                                  R"("static_leases":[{"ip":"10.0.0.2","mac":"02-00-00-00-00-0a"}]})");
  }
  static void TearDownTestSuite() {
    unit->expect_sound_database();
    delete unit;
    unit = nullptr;
  }
  static Unit* unit;
};
Unit* ConfigdMethods::unit = nullptr;

class ConfigdGood : public ConfigdMethods, public testing::WithParamInterface<GoodCase> {};

TEST_P(ConfigdGood, Result) {
  const auto& row = GetParam();
  const Answer answer = unit->call(row.method, row.params);
  EXPECT_EQ(answer.code, 0) << answer.message;
  EXPECT_EQ(answer.result, row.result);
}

std::string full_filters(int count) {
  std::string list;
  for (int i = 0; i < count; ++i) {
    list += std::string(i > 0 ? "," : "") + R"({"mac":")" + mac_of(i) + R"(","mask":"FF:FF:FF:FF:FF:FF"})";
  }
  return "[" + list + "]";
}

std::string numbers(int count) {
  std::string list;
  for (int i = 1; i <= count; ++i) list += (i > 1 ? "," : "") + std::to_string(i);
  return "[" + list + "]";
}

const GoodCase good[] = {
    {"SwitchByNumber", "oec.Get", R"({"oec_id":"c1"})", c1},
    {"SwitchInCapitals", "oec.Get", R"({"oec_id":"C1"})", c1},
    {"Enable", "ports.SetEnabled", R"({"port_id":"c1-1","enabled":true})",
     port_object("c1-1", "true", "", local, "true")},
    {"Disable", "ports.SetEnabled", R"({"port_id":"c1-2","enabled":false})",
     port_object("c1-2", "false", "", local, "true")},
    {"PortInCapitals", "ports.SetEnabled", R"({"port_id":"C1-1","enabled":true})",
     port_object("c1-1", "true", "", local, "true")},
    {"WithoutPoe", "ports.SetEnabled", R"({"port_id":"c2-1","enabled":true})",
     port_object("c2-1", "true", "", local, "false")},
    {"HeadEndPort", "ports.SetEnabled", R"({"port_id":"d8","enabled":false})",
     port_object("d8", "false", "", local, "false")},
    {"Description", "ports.SetDescription", R"({"port_id":"c1-3","description":"O'Neill \"x\" \u00e9"})",
     port_object("c1-3", "true", R"(O'Neill \"x\" é)", local, "true")},
    {"LongestDescription", "ports.SetDescription",
     R"({"port_id":"c1-4","description":"12345678901234567890123456789012345678901234567890"})",
     port_object("c1-4", "true", "12345678901234567890123456789012345678901234567890", local, "true")},
    {"Access", "ports.SetVlanAccess", R"({"port_id":"c1-5","vlan_id":4050})",
     port_object("c1-5", "true", "", R"("access","vlan_ids":[4050])", "true")},
    {"TrunkKeepsItsOrder", "ports.SetVlanTrunk", R"({"port_id":"c1-6","vlan_ids":[30,10,20]})",
     port_object("c1-6", "true", "", R"("trunk","vlan_ids":[30,10,20])", "true")},
    {"FullTrunk", "ports.SetVlanTrunk", R"({"port_id":"c1-6","vlan_ids":)" + numbers(130) + "}",
     port_object("c1-6", "true", "", R"("trunk","vlan_ids":)" + numbers(130), "true")},
    {"BackToLocal", "ports.SetVlanLocal", R"({"port_id":"c1-6"})", port_object("c1-6", "true", "", local, "true")},
    {"SixteenFilters", "ports.SetMacFilters", R"({"port_id":"c1-7","mac_filters":)" + full_filters(16) + "}",
     port_object("c1-7", "true", "", local, "true", full_filters(16))},
    {"FiltersOfTheSamePortAgain", "ports.SetMacFilters", R"({"port_id":"c1-7","mac_filters":)" + full_filters(16) + "}",
     port_object("c1-7", "true", "", local, "true", full_filters(16))},
    {"NoFilters", "ports.SetMacFilters", R"({"port_id":"c1-7","mac_filters":[]})",
     port_object("c1-7", "true", "", local, "true")},
    {"OnePort", "ports.Get", R"({"port_id":"c2-1"})", "[" + port_object("c2-1", "true", "", local, "false") + "]"},
    {"PortsOfASwitch", "ports.Get", R"({"port_id":"c2"})", "[" + port_object("c2-1", "true", "", local, "false") + "]"},
    {"PowerOfAPort", "ports.poe.GetInstantPower", R"({"port_id":"c1-2"})", R"([{"port_id":"c1-2","milliwatts":2000}])"},
    {"PowerOfASwitch", "ports.poe.GetInstantPower", R"({"port_id":"c4"})",
     R"([{"port_id":"c4-1","milliwatts":1000},{"port_id":"c4-2","milliwatts":2000},)"
     R"({"port_id":"c4-3","milliwatts":3000},{"port_id":"c4-4","milliwatts":4000}])"},
    {"LeasesAsTheyWereWritten", "dhcp.GetService", R"({"service_name":"lobby"})",
     R"({"service_name":"lobby","address_range":"10.0.0.0/24","dhcp_range":"",)"
     R"("static_leases":[{"ip":"10.0.0.2","mac":"02-00-00-00-00-0a"}]})"},
    {"ManagementVlanAgain", "network.service.ApplyMgmtVlan", R"({"vlan_id":7})", "0"},
};
INSTANTIATE_TEST_SUITE_P(Rows, ConfigdGood, testing::ValuesIn(good), name_of<GoodCase>);

struct BadCase {
  std::string name;
  std::string method;
  std::string params;
  int code;
  std::string message;
};
class ConfigdBad : public ConfigdMethods, public testing::WithParamInterface<BadCase> {};

TEST_P(ConfigdBad, CodeAndExplanation) {
  const auto& row = GetParam();
  const std::string revision = unit->stored("SELECT value FROM setting WHERE name = 'revision'");
  const int configured = unit->core_switch().configured();
  const Answer answer = unit->call(row.method, row.params);
  EXPECT_EQ(answer.code, row.code);
  EXPECT_EQ(answer.message, row.message);
  EXPECT_EQ(unit->core_switch().configured(), configured);
  // Nothing was changed but the mark that something might.
  const bool refused_by_what_is_stored = row.code == -32058;
  if (!refused_by_what_is_stored) {
    EXPECT_EQ(unit->stored("SELECT value FROM setting WHERE name = 'revision'"), revision);
  }
  EXPECT_EQ(unit->stored("SELECT count(*) FROM edge_switch WHERE cfg_pending = 1"), "0");
}

const std::string no_port = "port_id: a port is expected, like c1-4 or d5";
const std::string no_ports = "port_id: a port or a switch is expected, like c1-4 or c1";
const std::string no_switch = "oec_id: an edge switch is expected, c1 to c512";
const std::string no_filter =
    "mac_filters: a list of objects with \"mac\" and \"mask\", two MAC addresses, is expected";
const std::string no_vlans = "vlan_ids: a list of 1 to 130 different VLANs, 1 to 4050, is expected";

const std::string no_group = "mac_address: the address of one device is expected, no multicast or broadcast";
const std::string no_alias = "alias: one line of at most 8 characters is expected";

const BadCase bad[] = {
    {"RegisterWithoutId", "oec.Register", "{}", -32602, "Missing expected parameter: 'oec_id'"},
    {"RegisterTwice", "oec.Register", R"({"oec_id":"c1","model":"VTR-E10","mac_address":"02:00:01:00:00:77"})", -32023,
     "c1 is registered already"},
    {"RegisterMacTwice", "oec.Register", R"({"oec_id":"c9","model":"VTR-E10","mac_address":"02-00-01-00-00-02"})",
     -32040, "02:00:01:00:00:02 is that of c2"},
    {"RegisterUnknownModel", "oec.Register", R"({"oec_id":"c9","model":"VTR-X","mac_address":"02:00:01:00:00:77"})",
     -32042, R"(there is no model "VTR-X")"},
    {"RegisterModelUnknown", "oec.Register", R"({"oec_id":"c9","model":"unknown","mac_address":"02:00:01:00:00:77"})",
     -32042, R"(there is no model "unknown")"},
    {"RegisterModelOfNoName", "oec.Register", R"({"oec_id":"c9","model":"","mac_address":"02:00:01:00:00:77"})", -32042,
     R"(there is no model "")"},
    {"RegisterWithoutModel", "oec.Register", R"({"oec_id":"c9","mac_address":"02:00:01:00:00:77"})", -32602,
     "Missing expected parameter: 'model'"},
    {"RegisterNumberTooHigh", "oec.Register",
     R"({"oec_id":"c513","model":"VTR-E10","mac_address":"02:00:01:00:00:77"})", -32602, no_switch},
    {"RegisterHeadEnd", "oec.Register", R"({"oec_id":"c10001","model":"VTR-E10","mac_address":"02:00:01:00:00:77"})",
     -32602, no_switch},
    {"RegisterBadMac", "oec.Register", R"({"oec_id":"c9","model":"VTR-E10","mac_address":"02:00:01"})", -32602,
     "mac_address: a MAC address is expected, like 02:00:01:00:00:01"},
    {"RegisterBroadcast", "oec.Register", R"({"oec_id":"c9","model":"VTR-E10","mac_address":"FF:FF:FF:FF:FF:FF"})",
     -32602, no_group},
    {"RegisterMulticast", "oec.Register", R"({"oec_id":"c9","model":"VTR-E10","mac_address":"01-00-5e-00-00-01"})",
     -32602, no_group},
    {"RegisterMulticastOfOneself", "oec.Register",
     R"({"oec_id":"c9","model":"VTR-E10","mac_address":"0b:00:00:00:00:01"})", -32602, no_group},
    {"RegisterAliasOfTwoLines", "oec.Register",
     R"({"oec_id":"c9","model":"VTR-E10","mac_address":"02:00:01:00:00:77","alias":"a\nb"})", -32602, no_alias},
    {"RegisterAliasWithItsEnd", "oec.Register",
     R"({"oec_id":"c9","model":"VTR-E10","mac_address":"02:00:01:00:00:77","alias":"lobby\n"})", -32602, no_alias},
    {"RegisterDescriptionWithItsEnd", "oec.Register",
     R"({"oec_id":"c9","model":"VTR-E10","mac_address":"02:00:01:00:00:77","description":"lobby\n"})", -32602,
     "description: one line of at most 50 bytes is expected"},
    {"RegisterLongAlias", "oec.Register",
     R"({"oec_id":"c9","model":"VTR-E10","mac_address":"02:00:01:00:00:77","alias":"123456789"})", -32602,
     "Alias must be 8 characters or fewer."},
    {"RegisterAliasOfAnotherType", "oec.Register",
     R"({"oec_id":"c9","model":"VTR-E10","mac_address":"02:00:01:00:00:77","alias":5})", -32602,
     "Parameter 'alias' is not of type 'string'."},
    {"GetUnknown", "oec.Get", R"({"oec_id":"c9"})", -32022, "there is no edge switch c9"},
    {"GetNonsense", "oec.Get", R"({"oec_id":"9"})", -32602, no_switch},
    {"RemoveUnknown", "oec.Remove", R"({"oec_id":"c9"})", -32022, "there is no edge switch c9"},
    {"PortsOfUnknownSwitch", "ports.Get", R"({"port_id":"c9"})", -32022, "there is no edge switch c9"},
    {"PortOfUnknownSwitch", "ports.Get", R"({"port_id":"c9-1"})", -32022, "there is no edge switch c9"},
    {"UnknownPort", "ports.Get", R"({"port_id":"c1-9"})", -32034, "there is no port c1-9"},
    {"UnknownHeadEndPort", "ports.Get", R"({"port_id":"d9"})", -32034, "there is no port d9"},
    {"LooselyAPort", "ports.Get", R"({"port_id":"zd12"})", -32034, "there is no port zd12"},
    {"PortsOfNonsense", "ports.Get", R"({"port_id":"ports"})", -32024, no_ports},
    {"SetAll", "ports.SetEnabled", R"({"port_id":"all","enabled":true})", -32602, no_port},
    {"SetSwitch", "ports.SetEnabled", R"({"port_id":"c1","enabled":true})", -32602, no_port},
    {"SetUnknownPort", "ports.SetEnabled", R"({"port_id":"c2-2","enabled":true})", -32034, "there is no port c2-2"},
    {"SetOfUnknownSwitch", "ports.SetEnabled", R"({"port_id":"c9-1","enabled":true})", -32022,
     "there is no edge switch c9"},
    {"SetWithoutState", "ports.SetEnabled", R"({"port_id":"c1-1"})", -32602, "Missing expected parameter: 'enabled'"},
    {"SetToANumber", "ports.SetEnabled", R"({"port_id":"c1-1","enabled":1})", -32602,
     "Parameter 'enabled' is not of type 'bool'."},
    {"LongDescription", "ports.SetDescription",
     R"({"port_id":"c1-1","description":"123456789012345678901234567890123456789012345678901"})", -32602,
     "description: one line of at most 50 bytes is expected"},
    {"TwoLines", "ports.SetDescription", R"({"port_id":"c1-1","description":"a\nb"})", -32602,
     "description: one line of at most 50 bytes is expected"},
    {"LineWithItsEnd", "ports.SetDescription", R"({"port_id":"c1-1","description":"lobby\n"})", -32602,
     "description: one line of at most 50 bytes is expected"},
    {"VlanTooHigh", "ports.SetVlanAccess", R"({"port_id":"c1-1","vlan_id":4051})", -32602,
     "vlan_id: a VLAN is expected, 1 to 4050"},
    {"NoVlans", "ports.SetVlanTrunk", R"({"port_id":"c1-1","vlan_ids":[]})", -32602, no_vlans},
    {"TooManyVlans", "ports.SetVlanTrunk", R"({"port_id":"c1-1","vlan_ids":)" + numbers(131) + "}", -32033, no_vlans},
    {"VlanTwice", "ports.SetVlanTrunk", R"({"port_id":"c1-1","vlan_ids":[10,10]})", -32007, no_vlans},
    {"VlanNoNumber", "ports.SetVlanTrunk", R"({"port_id":"c1-1","vlan_ids":["10"]})", -32602, no_vlans},
    {"ModelWithoutFilters", "ports.SetMacFilters", R"({"port_id":"c2-1","mac_filters":[]})", -32026,
     "c2 takes no MAC filters"},
    {"HeadEndWithoutFilters", "ports.SetMacFilters", R"({"port_id":"d1","mac_filters":[]})", -32026,
     "the unit takes no MAC filters"},
    {"TooManyFilters", "ports.SetMacFilters", R"({"port_id":"c1-1","mac_filters":)" + full_filters(17) + "}", -32039,
     "the model takes 16 MAC filters on a port and 64 in all; other ports have 0"},
    {"FilterTwice", "ports.SetMacFilters",
     R"({"port_id":"c1-1","mac_filters":[{"mac":"02:00:00:00:00:01","mask":"FF:FF:FF:FF:FF:FF"},)"
     R"({"mac":"02-00-00-00-00-01","mask":"ff-ff-ff-ff-ff-ff"}]})",
     -32007, "MAC filter 02:00:00:00:00:01 is given twice"},
    {"FilterWithoutMask", "ports.SetMacFilters", R"({"port_id":"c1-1","mac_filters":[{"mac":"02:00:00:00:00:01"}]})",
     -32602, "Missing expected parameter: 'mask'"},
    {"FilterWithBadMac", "ports.SetMacFilters",
     R"({"port_id":"c1-1","mac_filters":[{"mac":"02:00","mask":"FF:FF:FF:FF:FF:FF"}]})", -32602, no_filter},
    {"FiltersNoList", "ports.SetMacFilters", R"({"port_id":"c1-1","mac_filters":{}})", -32602,
     "Parameter 'mac_filters' is not of type 'array'."},
    {"PowerWithoutPoe", "ports.poe.GetInstantPower", R"({"port_id":"c2"})", -32035, "c2 does not support PoE"},
    {"PowerOfHeadEnd", "ports.poe.GetInstantPower", R"({"port_id":"d1"})", -32035, "the unit does not support PoE"},
    {"PowerOfAll", "ports.poe.GetInstantPower", R"({"port_id":"all"})", -32024, no_ports},
    {"PowerOfUnknownPort", "ports.poe.GetInstantPower", R"({"port_id":"c1-9"})", -32034, "there is no port c1-9"},
    {"DhcpWithoutName", "dhcp.SetService", "{}", -32602,
     "DHCP obj field service_name either does not exist or is not a string"},
    {"DhcpEmptyName", "dhcp.SetService",
     R"({"service_name":"","address_range":"10.0.0.0/24","dhcp_range":"","static_leases":[]})", -32602,
     "service_name: 1 to 50 bytes are expected"},
    {"DhcpNameCutInsideACharacter", "dhcp.SetService",
     R"({"service_name":"1234567890123456789012345678901234567890123456789é","address_range":"10.0.0.0/24",)"
     R"("dhcp_range":"","static_leases":[]})",
     -32602, "service_name: 1 to 50 bytes are expected"},
    {"DhcpWideRange", "dhcp.SetService",
     R"({"service_name":"x","address_range":"10.0.0.0/8","dhcp_range":"","static_leases":[]})", -32602,
     "DHCP address_range (10.0.0.0/8) has invalid format"},
    {"DhcpBadLeaseIp", "dhcp.SetService",
     R"({"service_name":"x","address_range":"10.0.0.0/24","dhcp_range":"",)"
     R"("static_leases":[{"ip":"10.0.0.300","mac":"02:00:00:00:00:01"}]})",
     -32602, "static lease IP (10.0.0.300) has invalid format"},
    {"DhcpLeaseWithoutMac", "dhcp.SetService",
     R"({"service_name":"x","address_range":"10.0.0.0/24","dhcp_range":"","static_leases":[{"ip":"10.0.0.3"}]})",
     -32602, "static lease object mac field is either missing or not a string"},
    {"DhcpLeaseNoObject", "dhcp.SetService",
     R"({"service_name":"x","address_range":"10.0.0.0/24","dhcp_range":"","static_leases":[5]})", -32602,
     "static lease entry is not an object"},
    {"DhcpGetUnknown", "dhcp.GetService", R"({"service_name":"x"})", -32013, "there is no DHCP service x"},
    {"DhcpGetWithoutName", "dhcp.GetService", "{}", -32602, "Missing expected parameter: 'service_name'"},
    {"ModelTooLong", "oec.Register",
     R"({"oec_id":"c9","model":")" + std::string(300, 'x') + R"(","mac_address":"02:00:01:00:00:77"})", -32602,
     "model: overflow detected: 300 characters written, 256 characters allowed."},
    {"DhcpRemoveUnknown", "dhcp.Remove", R"({"service_name":"x"})", -32013, "there is no DHCP service x"},
    {"ManagementVlanOnNoPort", "network.service.ApplyMgmtVlan", R"({"vlan_id":8})", -32058,
     "management VLAN 8 would be on no D port"},
    {"ManagementVlanLosesItsPort", "ports.SetVlanLocal", R"({"port_id":"d1"})", -32058,
     "management VLAN 7 would be on no D port"},
    {"ManagementVlanTooHigh", "network.service.ApplyMgmtVlan", R"({"vlan_id":0})", -32602,
     "vlan_id: a VLAN is expected, 1 to 4050"},
    {"UnknownMethod", "ports.Fly", "{}", -32601, ""},
};
INSTANTIATE_TEST_SUITE_P(Rows, ConfigdBad, testing::ValuesIn(bad), name_of<BadCase>);

TEST_F(ConfigdMethods, DhcpAddressesAreLeasedOnce) {
  const std::string start = R"({"service_name":"x","address_range":"10.0.0.0/24","dhcp_range":"","static_leases":[)";
  const Answer ip = unit->call("dhcp.SetService", start + R"({"ip":"10.0.0.2","mac":"02:00:00:00:00:01"},)"
                                                          R"({"ip":"10.0.0.2","mac":"02:00:00:00:00:02"}]})");
  EXPECT_EQ(ip.code, -32044);
  const Answer mac = unit->call("dhcp.SetService", start + R"({"ip":"10.0.0.2","mac":"02:00:00:00:00:0a"},)"
                                                           R"({"ip":"10.0.0.3","mac":"02-00-00-00-00-0A"}]})");
  EXPECT_EQ(mac.code, -32040);
  EXPECT_EQ(unit->stored("SELECT count(*) FROM dhcp_service WHERE name = 'x'"), "0");
}

TEST_F(ConfigdMethods, DhcpServicesAreReplacedListedAndRemoved) {
  const std::string first = R"({"service_name":"a","address_range":"10.1.0.0/16","dhcp_range":"10.1.0.1-10.1.0.9",)"
                            R"("static_leases":[{"ip":"10.1.0.2","mac":"02:00:00:00:00:01"}]})";
  const std::string second = R"({"service_name":"a","address_range":"10.2.0.0/22","dhcp_range":"","static_leases":[]})";
  EXPECT_EQ(unit->done("dhcp.SetService", first), first);
  EXPECT_EQ(unit->done("dhcp.SetService", second), second);
  EXPECT_EQ(unit->done("dhcp.List", "{}"),
            "[" + second + "," + unit->done("dhcp.GetService", R"({"service_name":"lobby"})") + "]");
  EXPECT_EQ(unit->done("dhcp.Remove", R"({"service_name":"a"})"), "0");
  EXPECT_EQ(unit->call("dhcp.GetService", R"({"service_name":"a"})").code, -32013);
}

TEST_F(ConfigdMethods, ALongDhcpNameIsFoundAsItWasGiven) {
  const std::string name(60, 'n');
  unit->done("dhcp.SetService",
             R"({"service_name":")" + name + R"(","address_range":"10.2.0.0/22","dhcp_range":"","static_leases":[]})");
  EXPECT_EQ(unit->done("dhcp.GetService", R"({"service_name":")" + name + R"("})"),
            R"({"service_name":")" + name.substr(0, 50) +
                R"(","address_range":"10.2.0.0/22","dhcp_range":"","static_leases":[]})");
  unit->done("dhcp.Remove", R"({"service_name":")" + name + R"("})");
}

TEST_F(ConfigdMethods, ASwitchIsRegisteredAndRemovedWithAllThatIsItsOwn) {
  const std::string registered =
      unit->done("oec.Register", R"({"oec_id":"C3","model":"VTR-E30p","mac_address":"02-00-01-00-00-0c",)"
                                 R"("alias":"Lobby","description":"by the door"})");
  EXPECT_EQ(registered, R"({"oec_id":"c3","model":"VTR-E30p","mac_address":"02:00:01:00:00:0C","alias":"LOBBY",)"
                        R"("description":"by the door","ports":8,"cfg_pending":true})");
  EXPECT_TRUE(eventually([&] { return !unit->is_pending("3"); }));
  unit->done("ports.SetVlanTrunk", R"({"port_id":"c3-1","vlan_ids":[5,6]})");
  unit->done("ports.SetMacFilters", R"({"port_id":"c3-1","mac_filters":)" + full_filters(3) + "}");
  EXPECT_EQ(unit->done("oec.Remove", R"({"oec_id":"c3"})"), "0");
  for (const char* table : {"port", "port_vlan", "mac_filter"}) {
    EXPECT_EQ(unit->stored(std::string("SELECT count(*) FROM ") + table + " WHERE switch_number = 3"), "0") << table;
  }
  EXPECT_EQ(unit->call("oec.Get", R"({"oec_id":"c3"})").code, -32022);
}

TEST_F(ConfigdMethods, FiltersOfAllPortsCountTogether) {
  for (int port = 1; port <= 4; ++port) {
    unit->done("ports.SetMacFilters",
               R"({"port_id":"c1-)" + std::to_string(port) + R"(","mac_filters":)" + full_filters(16) + "}");
  }
  EXPECT_EQ(unit->call("ports.SetMacFilters", R"({"port_id":"c1-5","mac_filters":)" + full_filters(1) + "}").code,
            -32039);
  for (int port = 1; port <= 4; ++port) {
    unit->done("ports.SetMacFilters", R"({"port_id":"c1-)" + std::to_string(port) + R"(","mac_filters":[]})");
  }
}

TEST_F(ConfigdMethods, AllPortsAreThoseOfTheSwitchesAndOfTheUnit) {
  const Json ports = json_of(unit->done("ports.Get", R"({"port_id":"all"})"));
  EXPECT_EQ(json_array_size(ports.get()), 8U + 1U + 4U + 8U);
  EXPECT_STREQ(json_string_value(json_object_get(json_array_get(ports.get(), 0), "port_id")), "c1-1");
  EXPECT_STREQ(json_string_value(json_object_get(json_array_get(ports.get(), 20), "port_id")), "d8");
  EXPECT_EQ(json_array_size(json_of(unit->done("ports.Get", R"({"port_id":"c10001"})")).get()), 8U);
}

TEST_F(ConfigdMethods, TheServiceDescribesItself) {
  const std::string description = unit->done("rpc.discover", "{}");
  EXPECT_EQ(unit->done("network.service.Discover", "{}"), description);
  const Json object = json_of(description);
  EXPECT_EQ(text_of(json_object_get(object.get(), "service")), R"("configd")");
  EXPECT_EQ(json_array_size(json_object_get(object.get(), "methods")), 22U);
  expect_sentences(object.get());
}

TEST_F(ConfigdMethods, PowerOfASwitchThatIsOffline) {
  unit->core_switch().be(Mood::refusing, -32020);
  EXPECT_EQ(unit->call("ports.poe.GetInstantPower", R"({"port_id":"c1"})").code, -32020);
  unit->core_switch().be(Mood::obedient);
}

TEST_F(ConfigdMethods, ParametersMayBeMissingAltogether) {
  EXPECT_EQ(unit->call("ports.SetMacFilters", "{}").code, -32602);
}

TEST(ConfigdLimit, The513thSwitchIsRefused) {
  Unit unit;
  unit.core_switch().be(Mood::deaf);
  std::vector<int64_t> requests;
  for (int i = 1; i <= 512; ++i) {
    requests.push_back(unit.send("oec.Register", R"({"oec_id":"c)" + std::to_string(i) +
                                                     R"(","model":"VTR-E10","mac_address":")" + mac_of(i) + R"("})"));
  }
  for (const auto request : requests) EXPECT_EQ(unit.receive(request).code, 0);
  const Answer answer =
      unit.call("oec.Register", R"({"oec_id":"c512","model":"VTR-E10","mac_address":"02:00:01:00:0F:FF"})");
  EXPECT_EQ(answer.code, -32025);
  EXPECT_EQ(json_array_size(json_of(unit.done("oec.List", "{}")).get()), 512U);
}

TEST(ConfigdConcurrency, TwoHundredCallsAtOnceLeaveAConsistentDatabase) {
  Unit unit;
  for (int i = 1; i <= 4; ++i) unit.register_switch("VTR-E30p", i);
  std::vector<int64_t> requests;
  for (int i = 0; i < 200; ++i) {
    const std::string port =
        R"({"port_id":"c)" + std::to_string(1 + i % 4) + "-" + std::to_string(1 + i / 4 % 8) + "\",";
    const std::string vlan = std::to_string(1 + i);
    switch (i % 3) {
      case 0:
        requests.push_back(unit.send("ports.SetVlanAccess", port + R"("vlan_id":)" + vlan + "}"));
        break;
      case 1:
        requests.push_back(unit.send("ports.SetVlanTrunk", port + R"("vlan_ids":[)" + vlan + ",4000,4001]}"));
        break;
      default:
        requests.push_back(
            unit.send("ports.SetEnabled", port + R"("enabled":)" + (i % 2 == 0 ? "true" : "false") + "}"));
    }
  }
  for (const auto request : requests) EXPECT_EQ(unit.receive(request).code, 0);

  unit.expect_sound_database();
  EXPECT_EQ(unit.stored("SELECT count(*) FROM edge_switch WHERE cfg_pending = 1"), "0");
  // A port has the VLANs of one call, never of two: one in access mode, three in trunk mode, none in local mode.
  EXPECT_EQ(unit.stored("SELECT count(*) FROM port p WHERE (SELECT count(*) FROM port_vlan v WHERE v.switch_number ="
                        " p.switch_number AND v.port_number = p.port_number) <> CASE vlan_mode WHEN 1 THEN 0 WHEN 2 "
                        "THEN 1 ELSE 3 END"),
            "0");
  // The last call about c1-1 that set VLANs was number 192 (access, VLAN 193), its state was set last by number 128.
  EXPECT_EQ(unit.done("ports.Get", R"({"port_id":"c1-1"})"),
            "[" + port_object("c1-1", "true", "", R"("access","vlan_ids":[193])", "true") + "]");
  // And the hardware holds what is stored.
  const Json ports = json_of(unit.done("ports.Get", R"({"port_id":"c4"})"));
  for (size_t i = 0; i < json_array_size(ports.get()); ++i) {
    EXPECT_EQ(unit.core_switch().held("4-" + std::to_string(i + 1), "vlan_ids"),
              text_of(json_object_get(json_array_get(ports.get(), i), "vlan_ids")));
  }
}

}  // namespace
}  // namespace kestro::test
