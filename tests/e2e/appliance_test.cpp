// One walk through the whole appliance, and what happens when parts of it are missing for a while.

#include "e2e/appliance.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/process.hpp"

namespace kestro::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

const std::string c1 = R"({"oec_id":"c1","model":"VTR-E30p","mac_address":"02:00:01:00:00:01"})";
const std::string c2 = R"({"oec_id":"c2","model":"VTR-E2301i","mac_address":"02:00:01:00:00:02"})";

// The hardware's view of a port, without what nobody sets.
std::string held(const std::string& port_id, int number, int enabled, int poe, int mode, const std::string& vlans) {
  return R"({"port_id":")" + port_id + R"(","configured":true,"port_number":)" + std::to_string(number) +
         R"(,"port_status":)" + std::to_string(enabled) + R"(,"poe_status":)" + std::to_string(poe) +
         R"(,"link_status":0,"link_speed":0,"vlan_mode":)" + std::to_string(mode) + R"(,"vlan_ids":)" + vlans +
         R"(,"mac_filters":[]})";
}

std::string port(const std::string& port_id) {
  return R"({"port_id":")" + port_id + R"("})";
}

TEST(Appliance, IsWalkedThrough) {
  Appliance appliance({.simd = {"--seed", "7"}});

  // Register.
  EXPECT_EQ(appliance.call("oec.Register", c1),
            R"({"oec_id":"c1","model":"VTR-E30p","mac_address":"02:00:01:00:00:01","alias":"","description":"",)"
            R"("ports":8,"cfg_pending":true})");
  EXPECT_THAT(appliance.call("oec.Register", c2), HasSubstr(R"("ports":4)"));
  EXPECT_THAT(appliance.call("oec.Register", c2), StartsWith(R"(error {"code":-32023,)"));

  // Set VLANs: the hardware agrees.
  EXPECT_EQ(appliance.call("ports.SetVlanTrunk", R"({"port_id":"c1-2","vlan_ids":[10,20]})"),
            R"({"port_id":"c1-2","enabled":true,"description":"","vlan_mode":"trunk","vlan_ids":[10,20],"poe":true,)"
            R"("mac_filters":[]})");
  EXPECT_EQ(appliance.call("ports.Get", port("c1-2")),
            R"([{"port_id":"c1-2","enabled":true,"description":"","vlan_mode":"trunk","vlan_ids":[10,20],"poe":true,)"
            R"("mac_filters":[]}])");
  EXPECT_EQ(appliance.call("sim.GetPort", port("c1-2")), held("c1-2", 2, 1, 2, 3, "[10,20]"));
  EXPECT_THAT(appliance.call("ports.SetVlanAccess", R"({"port_id":"c2-1","vlan_id":30})"), HasSubstr("[30]"));
  EXPECT_EQ(appliance.call("sim.GetPort", port("c2-1")), held("c2-1", 1, 1, 4, 2, "[30]"));
  EXPECT_THAT(appliance.call("ports.SetVlanAccess", R"({"port_id":"d3","vlan_id":30})"), HasSubstr("[30]"));
  EXPECT_EQ(appliance.call("sim.GetPort", port("d3")), held("d3", 3, 1, 4, 2, "[30]"));
  EXPECT_EQ(appliance.call("network.service.ApplyMgmtVlan", R"({"vlan_id":30})"), "0");
  EXPECT_EQ(appliance.call("sim.GetUnit"), R"({"mgmt_vlan_id":30,"faults":[]})");

  // Read, through two services: what the configuration service says is what the hardware reads.
  EXPECT_EQ(appliance.call("emac.service.CoreSwitchGetTemps"),
            R"({"temperatures":[{"sensor":"core","celsius":46.5},{"sensor":"phy","celsius":46.0},)"
            R"({"sensor":"board","celsius":32.0}]})");
  EXPECT_EQ(appliance.call("emac.service.EdgeSwitchGetPoePower", R"({"oec_number":1,"port_numbers":[1,2]})"),
            R"({"poe_power":[{"port_number":1,"milliwatts":13682},{"port_number":2,"milliwatts":3705}]})");
  EXPECT_EQ(appliance.call("ports.poe.GetInstantPower", port("c1-2")), R"([{"port_id":"c1-2","milliwatts":3705}])");
  EXPECT_THAT(appliance.call("ports.SetEnabled", R"({"port_id":"c1-2","enabled":false})"),
              HasSubstr(R"("enabled":false)"));
  EXPECT_EQ(appliance.call("ports.poe.GetInstantPower", port("c1-2")), R"([{"port_id":"c1-2","milliwatts":0}])");
  EXPECT_THAT(appliance.call("ports.poe.GetInstantPower", port("c2")), StartsWith(R"(error {"code":-32035,)"));

  // A refusal with its reason.
  EXPECT_EQ(
      appliance.call("dhcp.SetService", R"({"service_name":"lobby","address_range":"10.0.0.0/24","dhcp_range":"",)"
                                        R"("static_leases":[{"ip":"10.0.0.300","mac":"02:00:00:00:00:09"}]})"),
      R"-(error {"code":-32602,"message":"Invalid parameter(s)",)-"
      R"("data":{"message":"static lease IP (10.0.0.300) has invalid format"}})");
  EXPECT_EQ(appliance.call("dhcp.List"), "[]");

  // An event, and what it means for its switch.
  EXPECT_EQ(appliance.call("sim.SetFault", R"({"fault":"offline","oec_id":"c2"})"), "0");
  EXPECT_EQ(appliance.next_event(), "events.EdgeSwitchOffline c2");
  EXPECT_THAT(appliance.call("ports.SetVlanLocal", port("c2-1")), StartsWith(R"(error {"code":-32020,)"));
  EXPECT_THAT(appliance.call("ports.Get", port("c2-1")), HasSubstr(R"("vlan_ids":[30])"));
  EXPECT_EQ(appliance.call("sim.SetFault", R"({"fault":"none"})"), "0");
  EXPECT_EQ(appliance.next_event(), "events.EdgeSwitchOnline c2");
  EXPECT_THAT(appliance.call("ports.SetVlanLocal", port("c2-1")), HasSubstr(R"("vlan_ids":[])"));
}

// What was to be changed is as it was, here and there; once the hardware answers again, changes go through.
TEST(Appliance, SilentHardwareChangesNothing) {
  Appliance appliance({.configd = {"--hardware-timeout", "0.5"}});
  ASSERT_THAT(appliance.call("oec.Register", c1), StartsWith(R"({"oec_id":"c1")"));
  ASSERT_TRUE(eventually([&] {
    return appliance.call("ports.SetVlanAccess", R"({"port_id":"c1-1","vlan_id":10})").rfind("error", 0) != 0;
  }));
  const auto stored = appliance.call("ports.Get", port("c1"));

  ASSERT_EQ(appliance.call("sim.SetFault", R"({"fault":"silent"})"), "0");
  EXPECT_EQ(appliance.call("ports.SetVlanAccess", R"({"port_id":"c1-1","vlan_id":20})"),
            R"(error {"code":-32059,"message":"The core switch is offline",)"
            R"("data":{"message":"the hardware did not answer within 0.5 s"}})");
  EXPECT_EQ(appliance.call("ports.Get", port("c1")), stored);
  EXPECT_EQ(appliance.call("sim.GetPort", port("c1-1")), held("c1-1", 1, 1, 2, 2, "[10]"));

  ASSERT_EQ(appliance.call("sim.SetFault", R"({"fault":"none"})"), "0");
  EXPECT_TRUE(eventually([&] {
    return appliance.call("ports.SetVlanAccess", R"({"port_id":"c1-1","vlan_id":20})").rfind("error", 0) != 0;
  }));
  EXPECT_EQ(appliance.call("sim.GetPort", port("c1-1")), held("c1-1", 1, 1, 2, 2, "[20]"));
}

// The configuration survives its service, which is there again under its old address.
TEST(Appliance, TheConfigurationServiceComesBack) {
  Appliance appliance;
  ASSERT_THAT(appliance.call("oec.Register", c1), StartsWith(R"({"oec_id":"c1")"));
  ASSERT_THAT(appliance.call("ports.SetVlanAccess", R"({"port_id":"c1-1","vlan_id":10})"), HasSubstr("[10]"));
  const auto stored = appliance.call("ports.Get", port("all"));

  ASSERT_EQ(appliance.configd().terminate(), 0);
  EXPECT_THAT(appliance.call("network.service.Discover"), StartsWith(R"(error {"code":-32005,)"));
  EXPECT_THAT(appliance.call("emac.service.CoreSwitchGetTemps"), HasSubstr("celsius"));

  appliance.start_configd();
  ASSERT_TRUE(eventually([&] { return appliance.is_whole(); })) << appliance.logs();
  EXPECT_EQ(appliance.call("ports.Get", port("all")), stored);
}

}  // namespace
}  // namespace kestro::test
