// The unit without its faults.

#include "simd/hardware.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>
#include <vector>

namespace kestro::simd {
namespace {

using testing::AllOf;
using testing::Ge;
using testing::Le;
using testing::MatchesRegex;

constexpr int seeds = 200;

Port port_of(int32_t number, kestro_data_port_status status, kestro_data_port_poe_status poe) {
  Port port;
  port.record.port_number = number;
  port.record.port_status = status;
  port.record.poe_status = poe;
  return port;
}

TEST(SimdHardware, TemperaturesArePlausible) {
  std::set<double> cores;
  for (uint64_t seed = 0; seed < seeds; ++seed) {
    const auto temperatures = Hardware(seed).temperatures();
    ASSERT_EQ(temperatures.size(), 3U);
    EXPECT_STREQ(temperatures[0].sensor, "core");
    EXPECT_STREQ(temperatures[1].sensor, "phy");
    EXPECT_STREQ(temperatures[2].sensor, "board");
    for (const auto& temperature : temperatures) {
      EXPECT_THAT(temperature.celsius, AllOf(Ge(30.0), Le(56.0)));
      EXPECT_EQ(std::fmod(temperature.celsius, 0.5), 0.0);
    }
    cores.insert(temperatures[0].celsius);
  }
  EXPECT_GT(cores.size(), 20U);
}

TEST(SimdHardware, IdentityIsPlausible) {
  std::set<std::string> serials;
  for (uint64_t seed = 0; seed < seeds; ++seed) {
    const auto identity = Hardware(seed).identity();
    EXPECT_THAT(identity.serial, MatchesRegex("H9-[0-9]{6}"));
    EXPECT_THAT(identity.mac_address, MatchesRegex("02:00:01(:[0-9A-F]{2}){3}"));
    EXPECT_THAT(identity.sw_version, MatchesRegex("4\\.[0-9]\\.0"));
    EXPECT_THAT(identity.hw_version, MatchesRegex("rev [A-D]"));
    serials.insert(identity.serial);
  }
  EXPECT_GT(serials.size(), seeds * 9U / 10);
}

TEST(SimdHardware, SignalsAreThoseOfTheOpticalUnitsInOrder) {
  std::set<size_t> counts;
  for (uint64_t seed = 0; seed < seeds; ++seed) {
    const auto signals = Hardware(seed).signals(static_cast<int32_t>(seed % 8));
    int32_t onu_id = 0;
    for (const auto& signal : signals) {
      EXPECT_EQ(signal.onu_id, ++onu_id);
      EXPECT_THAT(signal.dbm, AllOf(Ge(-28.0), Le(-15.0)));
    }
    counts.insert(signals.size());
  }
  EXPECT_EQ(counts, (std::set<size_t>{4, 5, 6, 7, 8}));
}

TEST(SimdHardware, LinesAndPortsDifferFromEachOther) {
  const Hardware hardware(1);
  std::set<int64_t> powers;
  for (int32_t port = 1; port <= 8; ++port) {
    for (int32_t oec = 1; oec <= 8; ++oec) powers.insert(hardware.poe_milliwatts(oec, port));
  }
  EXPECT_GT(powers.size(), 60U);
  EXPECT_GE(*powers.begin(), 1'800);
  EXPECT_LE(*powers.rbegin(), 15'400);
  EXPECT_NE(hardware.signals(0)[0].dbm, hardware.signals(1)[0].dbm);
}

TEST(SimdHardware, NothingIsDeliveredWhereItIsOff) {
  Hardware hardware(1);
  const auto power = hardware.poe_milliwatts(3, 1);
  const auto with = [&](kestro_data_port_status status, kestro_data_port_poe_status poe) {
    hardware.configure(3, {port_of(1, status, poe)});
    return hardware.poe_milliwatts(3, 1);
  };
  EXPECT_GT(power, 0);
  EXPECT_EQ(with(KESTRO_DATA_PORT_STATUS_DISABLED, KESTRO_DATA_PORT_POE_STATUS_ENABLED), 0);
  EXPECT_EQ(with(KESTRO_DATA_PORT_STATUS_ENABLED, KESTRO_DATA_PORT_POE_STATUS_DISABLED), 0);
  EXPECT_EQ(with(KESTRO_DATA_PORT_STATUS_ENABLED, KESTRO_DATA_PORT_POE_STATUS_UNSUPPORTED), 0);
  EXPECT_EQ(with(KESTRO_DATA_PORT_STATUS_ENABLED, KESTRO_DATA_PORT_POE_STATUS_UNKNOWN), power);
  EXPECT_EQ(with(KESTRO_DATA_PORT_STATUS_ENABLED, KESTRO_DATA_PORT_POE_STATUS_ENABLED), power);
  EXPECT_GT(hardware.poe_milliwatts(3, 2), 0);
}

TEST(SimdHardware, PortsHoldTheirLastState) {
  Hardware hardware(1);
  EXPECT_EQ(hardware.port(3, 1), nullptr);
  const auto disabled = KESTRO_DATA_PORT_STATUS_DISABLED;
  const auto enabled = KESTRO_DATA_PORT_STATUS_ENABLED;
  const auto poe = KESTRO_DATA_PORT_POE_STATUS_UNKNOWN;
  hardware.configure(3, {port_of(1, enabled, poe), port_of(2, enabled, poe)});
  hardware.configure(3, {port_of(1, disabled, poe)});
  ASSERT_NE(hardware.port(3, 1), nullptr);
  EXPECT_EQ(hardware.port(3, 1)->record.port_status, disabled);
  EXPECT_EQ(hardware.port(3, 2)->record.port_status, enabled);
  EXPECT_EQ(hardware.port(4, 1), nullptr);
}

TEST(SimdHardware, ManagementVlanIsHeld) {
  Hardware hardware(1);
  EXPECT_EQ(hardware.mgmt_vlan_id(), 0);
  hardware.set_mgmt_vlan_id(4050);
  EXPECT_EQ(hardware.mgmt_vlan_id(), 4050);
}

}  // namespace
}  // namespace kestro::simd
