#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;

const char* const module = "kestro_utils";

using Str = Owned<str_t, str_free>;

// ---- Port lists ----

struct OecPort {
  int oec;
  int port;
};

std::unique_ptr<cli_mw_vlan_struct> ports(const std::vector<OecPort>& list) {
  auto vlan = std::make_unique<cli_mw_vlan_struct>();
  for (const auto& [oec, port] : list) {
    vlan->oec[vlan->num_ports] = static_cast<int16_t>(oec);
    vlan->port[vlan->num_ports] = static_cast<int16_t>(port);
    ++vlan->num_ports;
  }
  return vlan;
}

// One line from `idx` on, in an allocation that just fits it.
std::string line(const cli_mw_vlan_struct& vlan, int32_t& idx, int32_t usable) {
  std::vector<char> out(static_cast<size_t>(std::max(usable, 0)) + 1, 'x');
  EXPECT_EQ(kestro_port_str_create(&vlan, &idx, out.data(), usable), 0);
  EXPECT_EQ(out.back(), '\0');
  return out.data();
}

TEST(PortList, AllOnOnePaddedLine) {
  const auto vlan = ports({{1, 1}, {1, 2}, {0, 5}});
  int32_t idx = 0;
  EXPECT_EQ(line(*vlan, idx, 20), "c1-1, c1-2, d5      ");
  EXPECT_EQ(idx, 3);
}

TEST(PortList, ExactFit) {
  const auto vlan = ports({{1, 1}, {1, 2}, {0, 5}});
  int32_t idx = 0;
  EXPECT_EQ(line(*vlan, idx, 14), "c1-1, c1-2, d5");
  EXPECT_EQ(idx, 3);
}

TEST(PortList, ThePortThatDoesNotFitIsPassedOver) {
  const auto vlan = ports({{1, 1}, {1, 2}, {0, 5}, {12, 34}});
  int32_t idx = 0;
  EXPECT_EQ(line(*vlan, idx, 10), "c1-1,     ");
  EXPECT_EQ(idx, 2);
  EXPECT_EQ(line(*vlan, idx, 10), "d5, c12-34");
  EXPECT_EQ(idx, 4);
}

TEST(PortList, TheFirstPortOfALineHasNoBlank) {
  const auto vlan = ports({{0, 1}, {0, 2}, {0, 3}});
  int32_t idx = 1;
  EXPECT_EQ(line(*vlan, idx, 10), "d2, d3    ");
}

TEST(PortList, EveryWidthPassesOverWhatDoesNotFit) {
  std::vector<OecPort> list;
  for (int i = 0; i < 30; ++i) list.push_back({i % 3 == 0 ? 0 : i * 37, i + 1});
  const auto vlan = ports(list);
  for (int32_t usable = 0; usable < 128; ++usable) {
    int32_t idx = 0;
    while (idx < vlan->num_ports) {
      // What the line ought to be, port by port.
      std::string expected;
      int32_t at = idx;
      while (at < vlan->num_ports) {
        const auto& [oec, port] = list[static_cast<size_t>(at)];
        std::string entry = at == idx ? "" : " ";
        entry += oec != 0 ? "c" + std::to_string(oec) + "-" + std::to_string(port) : "d" + std::to_string(port);
        if (at != vlan->num_ports - 1) entry += ",";
        ++at;
        if (expected.size() + entry.size() > static_cast<size_t>(usable)) break;
        expected += entry;
      }
      expected.resize(static_cast<size_t>(usable), ' ');
      ASSERT_EQ(line(*vlan, idx, usable), expected) << usable;
      ASSERT_EQ(idx, at);
    }
  }
}

TEST(PortList, NothingLeftGivesBlanks) {
  const auto vlan = ports({{1, 1}});
  int32_t idx = 1;
  EXPECT_EQ(line(*vlan, idx, 5), "     ");
  EXPECT_EQ(idx, 1);
  const auto empty = ports({});
  idx = 0;
  EXPECT_EQ(line(*empty, idx, 5), "     ");
}

TEST(PortList, NoWidthPrintsNothingButMovesOn) {
  const auto vlan = ports({{1, 1}, {1, 2}});
  for (const int32_t usable : {0, -1, INT_MIN}) {
    int32_t idx = 0;
    EXPECT_EQ(line(*vlan, idx, usable), "");
    EXPECT_EQ(idx, 1);
  }
}

TEST(PortList, NumbersAreShownUnsigned) {
  const auto vlan = ports({{-1, -2}, {10001, 32767}});
  int32_t idx = 0;
  EXPECT_EQ(line(*vlan, idx, 25), "c65535-65534,            ");
  idx = 0;
  EXPECT_EQ(line(*vlan, idx, 26), "c65535-65534, c10001-32767");
}

TEST(PortList, AThousandPortsAndNoMore) {
  auto vlan = std::make_unique<cli_mw_vlan_struct>();
  std::fill_n(vlan->port, CLI_MW_MAX_PORTS, int16_t{7});
  for (const int16_t count : {int16_t{1000}, int16_t{1001}, int16_t{INT16_MAX}}) {
    vlan->num_ports = count;
    int32_t idx = 998;
    char out[16];
    EXPECT_EQ(kestro_port_str_create(vlan.get(), &idx, out, 10), 0);
    EXPECT_EQ(idx, 1000);
    EXPECT_STREQ(out, count == 1000 ? "d7, d7    " : "d7, d7,   ");
  }
}

TEST(PortList, RefusesWhatWouldLeaveItsBounds) {
  const auto vlan = ports({{1, 1}});
  char out[200] = "before";
  int32_t idx = -1;
  EXPECT_EQ(kestro_port_str_create(vlan.get(), &idx, out, 10), -4);
  EXPECT_EQ(idx, -1);
  for (const int32_t usable : {128, 129, INT_MAX}) {
    idx = 0;
    EXPECT_EQ(kestro_port_str_create(vlan.get(), &idx, out, usable), -4);
    EXPECT_EQ(idx, 0);
  }
  EXPECT_STREQ(out, "before");
}

TEST(PortList, RefusesNull) {
  const auto vlan = ports({{1, 1}});
  char out[16] = "before";
  int32_t idx = 0;
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_port_str_create(nullptr, &idx, out, 10), -20);
    EXPECT_EQ(kestro_port_str_create(vlan.get(), nullptr, out, 10), -20);
    EXPECT_EQ(kestro_port_str_create(vlan.get(), &idx, nullptr, 10), -20);
  });
  EXPECT_STREQ(out, "before");
  EXPECT_EQ(idx, 0);
  for (const char* index : {"0", "1", "2"}) {
    const auto message = std::string("Found a null input parameter at varg index <") + index + ">\n";
    EXPECT_EQ(count_log_lines(log, Warning, module, message), 1);
  }
}

// ---- VLAN lists ----

std::vector<int32_t> read_vlans(std::string csv) {
  std::vector<int32_t> vids(KESTRO_DATA_MAX_VLANS_PER_PORT, -99);
  int16_t count = -1;
  EXPECT_EQ(vlan_csv_to_array(csv.data(), vids.data(), &count), 0);
  EXPECT_THAT(std::vector<int32_t>(vids.begin() + count, vids.end()), Each(-99));
  vids.resize(static_cast<size_t>(count));
  return vids;
}

TEST(VlanCsvToArray, Texts) {
  EXPECT_THAT(read_vlans("10,20,,30"), ElementsAre(10, 20, 30));
  EXPECT_THAT(read_vlans("4050"), ElementsAre(4050));
  EXPECT_THAT(read_vlans(""), ElementsAre());
  EXPECT_THAT(read_vlans(",,,"), ElementsAre());
  EXPECT_THAT(read_vlans(",1,"), ElementsAre(1));
  EXPECT_THAT(read_vlans("x, 7,8y,-9"), ElementsAre(0, 7, 8, -9));
}

TEST(VlanCsvToArray, CountsNearTheBound) {
  for (const int count : {1, 129, 130, 131, 200}) {
    std::string csv;
    for (int i = 0; i < count; ++i) csv += std::to_string(i + 1) + ",";
    std::vector<int32_t> expected(static_cast<size_t>(std::min(count, 130)));
    std::iota(expected.begin(), expected.end(), 1);
    EXPECT_EQ(read_vlans(csv), expected) << count;
  }
}

TEST(VlanCsvToArray, CutsTheTextInPlace) {
  std::string csv = "10,20";
  int32_t vids[KESTRO_DATA_MAX_VLANS_PER_PORT];
  int16_t count = 0;
  vlan_csv_to_array(csv.data(), vids, &count);
  EXPECT_STREQ(csv.data(), "10");
}

TEST(VlanCsvToArray, LeavesTheTokenizerOfTheCallerAlone) {
  char words[] = "one two";
  EXPECT_STREQ(strtok(words, " "), "one");
  EXPECT_THAT(read_vlans("10,20"), ElementsAre(10, 20));
  EXPECT_STREQ(strtok(nullptr, " "), "two");
}

TEST(VlanCsvToArray, RefusesNullCount) {
  char csv[] = "1";
  int32_t vids[KESTRO_DATA_MAX_VLANS_PER_PORT];
  const auto log = stderr_of([&] { EXPECT_EQ(vlan_csv_to_array(csv, vids, nullptr), -20); });
  EXPECT_THAT(log, HasLog(Warning, module, "Found a null input parameter at varg index <0>\n"));
}

TEST(VlanCsvToArrayDeathTest, NullTextOrArrayIsAFailedAssertion) {
  char csv[] = "1";
  int32_t vids[KESTRO_DATA_MAX_VLANS_PER_PORT];
  int16_t count = 0;
  EXPECT_EXIT(vlan_csv_to_array(nullptr, vids, &count), testing::KilledBySignal(SIGABRT),
              HasSubstr("`s != NULL && vids != NULL'"));
  EXPECT_EXIT(vlan_csv_to_array(csv, nullptr, &count), testing::KilledBySignal(SIGABRT),
              HasSubstr("`s != NULL && vids != NULL'"));
}

std::string joined(const std::vector<int32_t>& vids) {
  const Str csv(vlan_array_to_csv(vids.data(), static_cast<int32_t>(vids.size())));
  EXPECT_EQ(str_slen(csv.get()), std::string(str_s(csv.get())).size());
  return str_s(csv.get());
}

TEST(VlanArrayToCsv, JoinsWithCommas) {
  EXPECT_EQ(joined({}), "");
  EXPECT_EQ(joined({7}), "7");
  EXPECT_EQ(joined({10, 20, -30}), "10,20,-30");
}

TEST(VlanArrayToCsv, AFullPortFitsWithoutGrowing) {
  const std::vector<int32_t> full(KESTRO_DATA_MAX_VLANS_PER_PORT, 4050);
  const Str csv(vlan_array_to_csv(full.data(), KESTRO_DATA_MAX_VLANS_PER_PORT));
  EXPECT_EQ(str_slen(csv.get()), 649U);
  EXPECT_EQ(csv->bufsz, 650U);
}

TEST(VlanArrayToCsv, ReadsBackWhatItJoined) {
  std::vector<int32_t> vids(KESTRO_DATA_MAX_VLANS_PER_PORT);
  std::iota(vids.begin(), vids.end(), 3921);
  EXPECT_EQ(read_vlans(joined(vids)), vids);
}

TEST(VlanArrayToCsv, NegativeCountGivesTheEmptyText) {
  const Str csv(vlan_array_to_csv(nullptr, -1));
  EXPECT_STREQ(str_s(csv.get()), "");
}

TEST(VlanArrayToCsvDeathTest, EndsTheProcessWithoutMemory) {
  EXPECT_EXIT(
      {
        const Fault no_memory("malloc", ENOMEM);
        vlan_array_to_csv(nullptr, 0);
      },
      testing::KilledBySignal(SIGABRT), "");
}

TEST(Int32InArray, LooksAtTheFirstEntriesOnly) {
  const int32_t numbers[] = {5, -1, INT32_MAX};
  EXPECT_TRUE(int32_in_array(5, numbers, 3));
  EXPECT_TRUE(int32_in_array(-1, numbers, 3));
  EXPECT_TRUE(int32_in_array(INT32_MAX, numbers, 3));
  EXPECT_FALSE(int32_in_array(INT32_MAX, numbers, 2));
  EXPECT_FALSE(int32_in_array(6, numbers, 3));
  EXPECT_FALSE(int32_in_array(5, numbers, 0));
  EXPECT_FALSE(int32_in_array(5, nullptr, 0));
}

}  // namespace
}  // namespace kestro::test
