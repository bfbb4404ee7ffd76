// The configuration service and the hardware: what is stored is applied, or neither, and in the end both agree.
#include "e2e/configd.hpp"

#include <gmock/gmock.h>

#include <csignal>

#include "support/named.hpp"
#include "support/service_manager.hpp"

namespace kestro::test {
namespace {

constexpr const char* disable_c1_1 = R"({"port_id":"c1-1","enabled":false})";
constexpr const char* enabled_of_c1_1 = "SELECT enabled FROM port WHERE switch_number = 1 AND port_number = 1";

bool holds(Unit& unit, const std::string& port, const char* member, const std::string& value) {
  return eventually([&] { return unit.core_switch().held(port, member) == value; });
}

TEST(ConfigdHardware, AChangeIsStoredAndApplied) {
  Unit unit;
  unit.register_switch();
  unit.done("ports.SetEnabled", disable_c1_1);
  EXPECT_EQ(unit.stored(enabled_of_c1_1), "0");
  EXPECT_EQ(unit.core_switch().held("1-1", "port_status"), "0");
  EXPECT_FALSE(unit.is_pending("1"));
}

TEST(ConfigdHardware, AllOfANewSwitchIsAppliedByItself) {
  Unit unit;
  unit.register_switch();
  for (int port = 1; port <= 8; ++port) {
    EXPECT_EQ(unit.core_switch().held("1-" + std::to_string(port), "port_status"), "1") << port;
  }
  EXPECT_EQ(unit.core_switch().held("1-9", "port_status"), "");
}

TEST(ConfigdHardware, EveryMemberOfARecordIsTold) {
  Unit unit;
  unit.register_switch();
  unit.done("ports.SetVlanTrunk", R"({"port_id":"c1-2","vlan_ids":[30,20]})");
  unit.done("ports.SetMacFilters",
            R"({"port_id":"c1-2","mac_filters":[{"mac":"02-00-00-00-00-01","mask":"FF:FF:FF:FF:FF:FF"}]})");
  const std::map<const char*, std::string> expected = {
      {"port_number", "2"},    {"port_status", "1"},
      {"poe_status", "2"},     {"link_status", "0"},
      {"link_speed", "0"},     {"vlan_mode", "3"},
      {"vlan_ids", "[30,20]"}, {"mac_filters", R"([{"mac":"02:00:00:00:00:01","mask":"FF:FF:FF:FF:FF:FF"}])"},
  };
  for (const auto& [member, value] : expected) EXPECT_EQ(unit.core_switch().held("1-2", member), value) << member;
}

TEST(ConfigdHardware, ASilentCoreSwitchChangesNothing) {
  Unit unit("0.3");
  unit.register_switch();
  unit.core_switch().be(Mood::deaf);
  const Answer answer = unit.call("ports.SetEnabled", disable_c1_1);
  EXPECT_EQ(answer.code, -32059);
  EXPECT_NE(answer.message, "");
  EXPECT_EQ(unit.stored(enabled_of_c1_1), "1");
  EXPECT_TRUE(unit.is_pending("1"));  // nobody knows what the hardware did
  EXPECT_TRUE(unit.logs("the hardware did not answer emac.service.CoreSwitchConfigure within 0.3 s"));
}

TEST(ConfigdHardware, WhatASilentCoreSwitchDidIsTakenBackWhenItIsHeardAgain) {
  Unit unit("0.3");
  unit.register_switch();
  unit.core_switch().be(Mood::mute);
  EXPECT_EQ(unit.call("ports.SetEnabled", disable_c1_1).code, -32059);
  EXPECT_EQ(unit.core_switch().held("1-1", "port_status"), "0");
  unit.core_switch().be(Mood::obedient);
  EXPECT_TRUE(holds(unit, "1-1", "port_status", "1"));
  EXPECT_TRUE(eventually([&] { return !unit.is_pending("1"); }));
  unit.done("ports.SetEnabled", disable_c1_1);
}

TEST(ConfigdHardware, ATimeOutIsPaidOnceByABurst) {
  Unit unit("1");
  unit.register_switch();
  const int before = unit.core_switch().configured();
  unit.core_switch().be(Mood::deaf);
  std::vector<int64_t> numbers;
  for (int i = 0; i < 50; ++i) numbers.push_back(unit.send("ports.SetEnabled", disable_c1_1));
  std::vector<std::string> explanations;
  for (const auto number : numbers) {
    EXPECT_EQ(unit.receive(number).code, -32059);
    explanations.push_back(unit.receive(number).message);
  }
  EXPECT_THAT(explanations, testing::Contains("the hardware did not answer a moment ago, and was not asked again"));
  EXPECT_LT(unit.core_switch().configured() - before, 25);
  EXPECT_EQ(unit.stored(enabled_of_c1_1), "1");
}

TEST(ConfigdHardware, ReadingGoesOnWhileTheCoreSwitchIsSilent) {
  Unit unit("0.3");
  unit.register_switch();
  unit.core_switch().be(Mood::deaf);
  EXPECT_EQ(unit.call("ports.SetEnabled", disable_c1_1).code, -32059);
  EXPECT_NE(unit.done("ports.Get", R"({"port_id":"c1-1"})"), "");
  EXPECT_NE(unit.done("ports.SetDescription", R"({"port_id":"c1-1","description":"kept"})"), "");
}

// The late answer to the first call names the method that the second one waits for.
TEST(ConfigdHardware, ALateAnswerIsNotTakenForTheNext) {
  Unit unit("0.3");
  unit.register_switch();
  unit.core_switch().be(Mood::holding);
  EXPECT_EQ(unit.call("ports.SetEnabled", disable_c1_1).code, -32059);
  unit.core_switch().be(Mood::refusing, -32020);
  unit.core_switch().replay();
  // Until calls no longer fail at once, the refusal is the answer, and never the late success.
  EXPECT_TRUE(eventually([&] {
    const Answer answer = unit.call("ports.SetEnabled", disable_c1_1);
    EXPECT_NE(answer.code, 0);
    return answer.code == -32020;
  }));
  EXPECT_EQ(unit.stored(enabled_of_c1_1), "1");
}

struct RefusalCase {
  std::string name;
  int code;
  int expected;
};
class ConfigdRefusal : public testing::TestWithParam<RefusalCase> {};

TEST_P(ConfigdRefusal, ComesBackAndChangesNothing) {
  Unit unit;
  unit.register_switch();
  unit.core_switch().be(Mood::refusing, GetParam().code);
  const Answer answer = unit.call("ports.SetEnabled", disable_c1_1);
  EXPECT_EQ(answer.code, GetParam().expected);
  EXPECT_EQ(answer.message, "not today");
  EXPECT_EQ(unit.stored(enabled_of_c1_1), "1");
  EXPECT_FALSE(unit.is_pending("1"));  // it said that it did nothing
}

INSTANTIATE_TEST_SUITE_P(Codes, ConfigdRefusal,
                         testing::Values(RefusalCase{"Offline", -32020, -32020},
                                         RefusalCase{"CoreSwitchOffline", -32059, -32059},
                                         RefusalCase{"Parameters", -32602, -32602},
                                         RefusalCase{"NoStatusOfOurs", -32700, -32012},
                                         RefusalCase{"General", -32001, -32001}),
                         name_of<RefusalCase>);

TEST(ConfigdHardware, KilledBetweenStoringAndApplyingItAgreesAfterARestart) {
  Unit unit;
  unit.register_switch();
  const int before = unit.core_switch().configured();
  unit.core_switch().be(Mood::mute);
  unit.send("ports.SetEnabled", disable_c1_1);
  ASSERT_TRUE(eventually([&] { return unit.core_switch().configured() > before; }));
  unit.daemon().signal(SIGKILL);
  unit.daemon().wait();

  unit.expect_sound_database();
  EXPECT_EQ(unit.stored(enabled_of_c1_1), "1");
  EXPECT_TRUE(unit.is_pending("1"));
  EXPECT_EQ(unit.core_switch().held("1-1", "port_status"), "0");  // the hardware has what was not stored

  unit.core_switch().be(Mood::obedient);
  unit.start();
  EXPECT_TRUE(holds(unit, "1-1", "port_status", "1"));
  EXPECT_TRUE(eventually([&] { return !unit.is_pending("1"); }));
  EXPECT_TRUE(unit.logs("c1: stored configuration applied to the hardware"));
}

TEST(ConfigdHardware, AnIdleServiceThatIsKilledLeavesNothingToDo) {
  Unit unit;
  unit.register_switch();
  unit.done("ports.SetEnabled", disable_c1_1);
  unit.daemon().signal(SIGKILL);
  unit.daemon().wait();
  EXPECT_FALSE(unit.is_pending("1"));
  EXPECT_FALSE(std::filesystem::exists(unit.database() + "-journal"));
  unit.start();
  EXPECT_EQ(unit.stored(enabled_of_c1_1), "0");
}

TEST(ConfigdHardware, ASwitchThatRefusedIsConfiguredWhenItIsOnlineAgain) {
  Unit unit;
  unit.core_switch().be(Mood::refusing, -32020);
  unit.done("oec.Register", R"({"oec_id":"c3","model":"VTR-E10","mac_address":"02:00:01:00:00:03"})");
  ASSERT_TRUE(unit.logs("c3: stored configuration could not be applied: not today"));
  EXPECT_TRUE(unit.is_pending("3"));
  unit.core_switch().be(Mood::obedient);
  unit.core_switch().publish(
      KESTRO_JRPC_CHANNEL_505A5451,
      R"({"jsonrpc":"2.0","method":"events.EdgeSwitchOnline","params":{"oec_id":"c3","time":1}})");
  EXPECT_TRUE(unit.logs("c3 is online"));
  EXPECT_TRUE(eventually([&] { return !unit.is_pending("3"); }));
  EXPECT_EQ(unit.core_switch().held("3-1", "port_status"), "1");
}

TEST(ConfigdHardware, EventsOfAnyShapeAreSurvived) {
  Unit unit;
  for (const char* event : {"", "no JSON", "[]", "{}", R"({"method":5})", R"({"method":"events.EdgeSwitchOnline"})",
                            R"({"method":"events.EdgeSwitchOnline","params":{"oec_id":"nonsense"}})",
                            R"({"method":"events.EdgeSwitchOffline","params":{"oec_id":"c7"}})"}) {
    unit.core_switch().publish(KESTRO_JRPC_CHANNEL_505A5451, event);
  }
  EXPECT_TRUE(unit.logs("c7 is offline"));
  EXPECT_EQ(unit.done("oec.List", "{}"), "[]");
}

TEST(ConfigdHardware, ItEndsInGoodOrderWhileItWaitsForTheHardware) {
  Unit unit;
  unit.register_switch();
  const int before = unit.core_switch().configured();
  unit.core_switch().be(Mood::deaf);
  unit.send("ports.SetEnabled", disable_c1_1);
  ASSERT_TRUE(eventually([&] { return unit.core_switch().configured() > before; }));
  EXPECT_EQ(unit.daemon().terminate(), 0);
  EXPECT_EQ(unit.daemon().err().find("the hardware did not answer"), std::string::npos);  // it did not wait that long
  EXPECT_EQ(unit.stored(enabled_of_c1_1), "1");
  EXPECT_TRUE(unit.is_pending("1"));
}

// A service that says nothing for long is ended, in the middle of a change.
TEST(ConfigdHardware, ItIsAliveWhileItWaitsForTheHardware) {
#ifndef KESTRO_HAVE_SYSTEMD
  GTEST_SKIP() << "built without it";
#endif
  ServiceManager manager;
  Unit unit("60", {manager.environment()});
  unit.register_switch();
  const int before = unit.core_switch().configured();
  unit.core_switch().be(Mood::deaf);
  unit.send("ports.SetEnabled", disable_c1_1);
  ASSERT_TRUE(eventually([&] { return unit.core_switch().configured() > before; }));
  manager.forget();
  EXPECT_TRUE(manager.hears("WATCHDOG=1"));
  EXPECT_EQ(unit.daemon().err().find("the hardware did not answer"), std::string::npos);
}

TEST(ConfigdHardware, TheManagementVlanIsAppliedAgainAfterAKill) {
  Unit unit;
  unit.done("ports.SetVlanAccess", R"({"port_id":"d1","vlan_id":7})");
  const int before = unit.core_switch().configured();
  unit.core_switch().be(Mood::deaf);
  unit.send("network.service.ApplyMgmtVlan", R"({"vlan_id":7})");
  ASSERT_TRUE(eventually([&] { return unit.core_switch().configured() > before; }));
  unit.daemon().signal(SIGKILL);
  unit.daemon().wait();
  EXPECT_EQ(unit.stored("SELECT value FROM setting WHERE name = 'mgmt_vlan_id'"), "0");
  EXPECT_TRUE(unit.is_pending("10001"));

  unit.core_switch().be(Mood::obedient);
  unit.start();
  EXPECT_TRUE(eventually([&] { return !unit.is_pending("10001"); }));
  unit.done("network.service.ApplyMgmtVlan", R"({"vlan_id":7})");
  EXPECT_EQ(unit.core_switch().mgmt_vlan(), 7);
  EXPECT_EQ(unit.stored("SELECT value FROM setting WHERE name = 'mgmt_vlan_id'"), "7");
}

TEST(ConfigdHardware, LogLevelsAreReloadedEverywhere) {
  Unit unit;
  EXPECT_EQ(unit.done("logger.ReloadConf", "{}"), "0");
  EXPECT_TRUE(eventually([&] { return unit.core_switch().calls("logger.ReloadConf") == 1; }));
}

}  // namespace
}  // namespace kestro::test
