#include "kestro_map.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "support/faults.hpp"

namespace kestro::test {
namespace {

class IpSet : public testing::Test {
 protected:
  ~IpSet() override { kestro_set_ip_delete_all(&set); }
  ip_set* set = nullptr;
};

TEST_F(IpSet, TellsWhetherAnAddressWasThere) {
  EXPECT_FALSE(kestro_set_ip_add(&set, "10.0.0.1"));
  EXPECT_TRUE(kestro_set_ip_add(&set, "10.0.0.1"));
  EXPECT_FALSE(kestro_set_ip_add(&set, "10.0.0.2"));
  EXPECT_TRUE(kestro_set_ip_add(&set, "10.0.0.1"));
  EXPECT_EQ(HASH_COUNT(set), 2U);
}

TEST_F(IpSet, EntriesHoldTheirTextAndTrue) {
  kestro_set_ip_add(&set, "255.255.255.255");
  ASSERT_NE(set, nullptr);
  EXPECT_STREQ(set->ip, "255.255.255.255");
  EXPECT_TRUE(set->val);
}

TEST_F(IpSet, TheTextIsCopied) {
  std::string ip = "10.0.0.1";
  kestro_set_ip_add(&set, ip.c_str());
  ip[7] = '2';
  EXPECT_FALSE(kestro_set_ip_add(&set, ip.c_str()));
}

TEST_F(IpSet, TextsAreComparedAsTheyAre) {
  for (const char* ip : {"10.0.0.1", "010.0.0.1", "10.0.0.1 ", "10.0.0.10", "", "a", "A"}) {
    EXPECT_FALSE(kestro_set_ip_add(&set, ip)) << ip;
    EXPECT_TRUE(kestro_set_ip_add(&set, ip)) << ip;
  }
}

TEST_F(IpSet, DeletedAddressesAreNew) {
  kestro_set_ip_add(&set, "10.0.0.1");
  kestro_set_ip_delete_all(&set);
  EXPECT_EQ(set, nullptr);
  EXPECT_FALSE(kestro_set_ip_add(&set, "10.0.0.1"));
}

TEST_F(IpSet, DeletingTheEmptySetDoesNothing) {
  kestro_set_ip_delete_all(&set);
  EXPECT_EQ(set, nullptr);
}

TEST_F(IpSet, GrowsOverManyAddresses) {
  for (int round = 0; round < 2; ++round) {
    for (int n = 0; n < 65536; ++n) {
      const auto ip = "10.0." + std::to_string(n / 256) + "." + std::to_string(n % 256);
      ASSERT_EQ(kestro_set_ip_add(&set, ip.c_str()), round == 1) << ip;
    }
  }
  EXPECT_EQ(HASH_COUNT(set), 65536U);
}

TEST_F(IpSet, SetsAreIndependent) {
  ip_set* other = nullptr;
  kestro_set_ip_add(&set, "10.0.0.1");
  EXPECT_FALSE(kestro_set_ip_add(&other, "10.0.0.1"));
  kestro_set_ip_delete_all(&other);
  EXPECT_TRUE(kestro_set_ip_add(&set, "10.0.0.1"));
}

// An entry, the table and its buckets are allocated in this order.
TEST(IpSetDeathTest, RunningOutOfMemoryEndsTheProcess) {
  for (int nth = 1; nth <= 3; ++nth) {
    EXPECT_EXIT(
        {
          ip_set* set = nullptr;
          const Fault no_memory("malloc", ENOMEM, nth);
          kestro_set_ip_add(&set, "10.0.0.1");
        },
        testing::ExitedWithCode(255), "")
        << nth;
  }
}

TEST(IpSetDeathTest, RunningOutOfMemoryWhileGrowingEndsTheProcess) {
  EXPECT_EXIT(
      {
        ip_set* set = nullptr;
        kestro_set_ip_add(&set, "10.0.0.0");
        const unsigned buckets = set->hh.tbl->num_buckets;
        for (int n = 1; set->hh.tbl->num_buckets == buckets; ++n) {
          // The first allocation is the entry's; where there is a second, the buckets grow.
          const Fault no_memory("malloc", ENOMEM, 2);
          kestro_set_ip_add(&set, ("10.0.0." + std::to_string(n)).c_str());
        }
      },
      testing::ExitedWithCode(255), "");
}

TEST(IpSetDeathTest, TextsThatDoNotFitAreAProgrammingError) {
  ip_set* set = nullptr;
  EXPECT_EXIT(kestro_set_ip_add(&set, "255.255.255.2555"), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
}  // namespace kestro::test
