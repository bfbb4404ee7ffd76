#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include "core/owned.hpp"
#include "kestro_jrpc_utils.h"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

// What a caller holds afterwards.
enum class Owned { nothing, leases, released_leases };

Json good_service() {
  return json_of(R"({"service_name":"lobby","address_range":"10.0.0.0/24","dhcp_range":"10.0.0.10-10.0.0.20",)"
                 R"("static_leases":[{"ip":"10.0.0.2","mac":"AA:BB:CC:DD:EE:FF"},)"
                 R"({"ip":"10.0.0.3","mac":"aa-bb-cc-dd-ee-ff"}]})");
}

// The service with one of its members in another form.
Json service_with(const char* name, const std::string& value) {
  Json service = good_service();
  json_object_set_new(service.get(), name, json_of(value).release());
  return service;
}
Json service_without(const char* name) {
  Json service = good_service();
  json_object_del(service.get(), name);
  return service;
}

// A call, and the release of what it left to the caller: leaks and second releases are found by the sanitizer.
class Parsed {
 public:
  explicit Parsed(const Json& service, Owned owned) : owned_(owned) {
    memset(&pool, '?', sizeof(pool));
    strcpy(err.msg, "untouched");
    const LogLevel off(0);
    status = kestro_jrpc_utils_parse_service_dhcp(service.get(), &pool, &err);
    EXPECT_EQ(pool.static_leases == nullptr, owned == Owned::nothing);
  }
  Parsed(const Parsed&) = delete;
  Parsed& operator=(const Parsed&) = delete;
  ~Parsed() {
    if (owned_ == Owned::leases) free(pool.static_leases);
  }

  int32_t status = 1;
  address_pool pool;
  error err;

 private:
  Owned owned_;
};

TEST(Dhcp, ServiceIsReadWhole) {
  const Parsed got(good_service(), Owned::leases);
  ASSERT_EQ(got.status, 0);
  EXPECT_STREQ(got.pool.service_name, "lobby");
  EXPECT_STREQ(got.pool.address_range, "10.0.0.0/24");
  EXPECT_STREQ(got.pool.dhcp_range, "10.0.0.10-10.0.0.20");
  ASSERT_EQ(got.pool.n_leases, 2);
  EXPECT_STREQ(got.pool.static_leases[0].ip, "10.0.0.2");
  EXPECT_STREQ(got.pool.static_leases[0].mac, "AA:BB:CC:DD:EE:FF");
  EXPECT_STREQ(got.pool.static_leases[1].ip, "10.0.0.3");
  EXPECT_STREQ(got.pool.static_leases[1].mac, "aa-bb-cc-dd-ee-ff");  // as it was written
  EXPECT_STREQ(got.err.msg, "untouched");
}

TEST(Dhcp, WithoutLeasesThereIsStorageForOne) {
  const Parsed got(service_with("static_leases", "[]"), Owned::leases);
  ASSERT_EQ(got.status, 0);
  EXPECT_EQ(got.pool.n_leases, 0);
  const static_lease zeros{};
  EXPECT_EQ(memcmp(got.pool.static_leases, &zeros, sizeof(zeros)), 0);
}

TEST(Dhcp, WithoutADynamicRange) {
  const Parsed got(service_with("dhcp_range", "\"\""), Owned::leases);
  EXPECT_EQ(got.status, 0);
  EXPECT_STREQ(got.pool.dhcp_range, "");
}

TEST(Dhcp, LongNamesAreCut) {
  for (const size_t length : {0U, 49U, 50U, 51U, 60U}) {
    const std::string name(length, 'n');
    const Parsed got(service_with("service_name", "\"" + name + "\""), Owned::leases);
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.pool.service_name, name.substr(0, 50));
  }
}

// A copy is what is validated: what was cut off does not count.
TEST(Dhcp, AnAddressThatIsCutIsJudgedWithoutItsEnd) {
  const Parsed fits(service_with("static_leases", R"([{"ip":"100.100.100.100","mac":"AA:BB:CC:DD:EE:FF"}])"),
                    Owned::leases);
  EXPECT_EQ(fits.status, 0);
  const Parsed cut(service_with("static_leases", R"([{"ip":"100.100.100.1001","mac":"AA:BB:CC:DD:EE:FF"}])"),
                   Owned::leases);
  EXPECT_EQ(cut.status, 0);
  EXPECT_STREQ(cut.pool.static_leases[0].ip, "100.100.100.100");
}

TEST(Dhcp, EachLeaseIsReadOnce) {
  std::string leases;
  for (int i = 0; i < 200; ++i) {
    leases +=
        (i == 0 ? "" : ",") + std::string(R"({"mac":"AA:BB:CC:DD:EE:FF","ip":"10.0.0.)") + std::to_string(i) + "\"}";
  }
  const Parsed got(service_with("static_leases", "[" + leases + "]"), Owned::leases);
  ASSERT_EQ(got.status, 0);
  ASSERT_EQ(got.pool.n_leases, 200);
  EXPECT_STREQ(got.pool.static_leases[199].ip, "10.0.0.199");
}

// ---- Faults

struct Case {
  const char* name;
  const char* member;
  std::string value;  // empty: the member is missing
  std::string why;
  Owned owned;
};

constexpr const char* no_name = "DHCP obj field service_name either does not exist or is not a string";
constexpr const char* no_address = "DHCP obj field address_range either does not exist or is not a string";
constexpr const char* no_range = "DHCP obj field dhcp_range either does not exist or is not a string";
constexpr const char* no_leases = "DHCP obj field static_leases either does not exist or is not an array";
constexpr const char* no_entry = "static lease entry is not an object";
constexpr const char* no_ip = "static lease object ip field is either missing or not a string";
constexpr const char* no_mac = "static lease object mac field is either missing or not a string";

const Case cases[] = {
    {"NoName", "service_name", "", no_name, Owned::nothing},
    {"NumberForName", "service_name", "1", no_name, Owned::nothing},
    {"NullForName", "service_name", "null", no_name, Owned::nothing},
    {"NoAddressRange", "address_range", "", no_address, Owned::nothing},
    {"ListForAddressRange", "address_range", "[]", no_address, Owned::nothing},
    {"AddressRangeOfAnotherSize", "address_range", R"("10.0.0.0/8")",
     "DHCP address_range (10.0.0.0/8) has invalid format", Owned::nothing},
    {"EmptyAddressRange", "address_range", R"("")", "DHCP address_range () has invalid format", Owned::nothing},
    {"AddressRangeIsCut", "address_range", "\"" + std::string(51, '1') + "\"",
     "DHCP address_range (" + std::string(50, '1') + ") has invalid format", Owned::nothing},
    {"NoDhcpRange", "dhcp_range", "", no_range, Owned::nothing},
    {"BoolForDhcpRange", "dhcp_range", "true", no_range, Owned::nothing},
    {"DhcpRangeOfOne", "dhcp_range", R"("10.0.0.10")", "DHCP dhcp_range (10.0.0.10) has invalid format",
     Owned::nothing},
    {"DhcpRangeIsCut", "dhcp_range", "\"" + std::string(51, '-') + "\"",
     "DHCP dhcp_range (" + std::string(50, '-') + ") has invalid format", Owned::nothing},
    {"NoLeases", "static_leases", "", no_leases, Owned::nothing},
    {"ObjectForLeases", "static_leases", "{}", no_leases, Owned::nothing},
    {"TextForLease", "static_leases", R"(["10.0.0.2"])", no_entry, Owned::released_leases},
    {"NullForLease", "static_leases", "[null]", no_entry, Owned::released_leases},
    {"NoIp", "static_leases", R"([{"mac":"AA:BB:CC:DD:EE:FF"}])", no_ip, Owned::released_leases},
    {"NumberForIp", "static_leases", R"([{"ip":1,"mac":"AA:BB:CC:DD:EE:FF"}])", no_ip, Owned::released_leases},
    {"InvalidIp", "static_leases", R"([{"ip":"10.0.0.300","mac":"AA:BB:CC:DD:EE:FF"}])",
     "static lease IP (10.0.0.300) has invalid format", Owned::leases},
    {"IpIsCut", "static_leases", R"([{"ip":"1000.1000.1000.1000","mac":"AA:BB:CC:DD:EE:FF"}])",
     "static lease IP (1000.1000.1000.) has invalid format", Owned::leases},
    {"InvalidIpAndNoMac", "static_leases", R"([{"ip":"x"}])", "static lease IP (x) has invalid format", Owned::leases},
    {"NoMac", "static_leases", R"([{"ip":"10.0.0.2"}])", no_mac, Owned::released_leases},
    {"ListForMac", "static_leases", R"([{"ip":"10.0.0.2","mac":[]}])", no_mac, Owned::released_leases},
    {"InvalidMac", "static_leases", R"([{"ip":"10.0.0.2","mac":"AA:BB:CC:DD:EE"}])",
     "static lease MAC address (AA:BB:CC:DD:EE) has invalid format", Owned::leases},
    {"MacIsCut", "static_leases", R"([{"ip":"10.0.0.2","mac":"AA:BB:CC:DD:EE:FF:00"}])",
     "static lease MAC address (AA:BB:CC:DD:EE:FF:0) has invalid format", Owned::leases},
    {"FaultInTheLastLease", "static_leases", R"([{"ip":"10.0.0.2","mac":"AA:BB:CC:DD:EE:FF"},{"ip":"10.0.0.3"}])",
     no_mac, Owned::released_leases},
    {"InvalidIpInTheLastLease", "static_leases", R"([{"ip":"10.0.0.2","mac":"AA:BB:CC:DD:EE:FF"},{"ip":"","mac":""}])",
     "static lease IP () has invalid format", Owned::leases},
};

class BrokenDhcp : public testing::TestWithParam<Case> {
 protected:
  static Json service() {
    return GetParam().value.empty() ? service_without(GetParam().member)
                                    : service_with(GetParam().member, GetParam().value);
  }
};

TEST_P(BrokenDhcp, IsExplainedAndLeavesWhatIsOwned) {
  const Parsed got(service(), GetParam().owned);
  EXPECT_EQ(got.status, -4);
  EXPECT_EQ(got.err.msg, GetParam().why);
}

TEST_P(BrokenDhcp, KeepsWhatWasReadBefore) {
  const Parsed got(service(), GetParam().owned);
  const std::string member = GetParam().member;
  EXPECT_STREQ(got.pool.service_name, member == "service_name" ? "" : "lobby");
  if (member == "dhcp_range" || member == "static_leases") {
    EXPECT_STREQ(got.pool.address_range, "10.0.0.0/24");
  }
  if (member == "static_leases") {
    EXPECT_STREQ(got.pool.dhcp_range, "10.0.0.10-10.0.0.20");
  }
  if (GetParam().owned == Owned::nothing) {
    EXPECT_EQ(got.pool.n_leases, 0);
  } else {
    EXPECT_EQ(got.pool.n_leases, static_cast<int32_t>(json_array_size(json_of(GetParam().value).get())));
  }
}

INSTANTIATE_TEST_SUITE_P(All, BrokenDhcp, testing::ValuesIn(cases), name_of<Case>);

// What the caller owns after an invalid lease can be read: the leases before it, what was refused, and empty ones.
TEST(Dhcp, LeasesAreThereAfterAnInvalidOne) {
  const Parsed got(service_with("static_leases", R"([{"ip":"10.0.0.2","mac":"AA:BB:CC:DD:EE:FF"},{"ip":"none"},{}])"),
                   Owned::leases);
  ASSERT_EQ(got.status, -4);
  EXPECT_STREQ(got.pool.static_leases[0].mac, "AA:BB:CC:DD:EE:FF");
  EXPECT_STREQ(got.pool.static_leases[1].ip, "none");
  EXPECT_STREQ(got.pool.static_leases[1].mac, "");
  ASSERT_EQ(got.pool.n_leases, 3);
  const static_lease zeros{};
  EXPECT_EQ(memcmp(&got.pool.static_leases[2], &zeros, sizeof(zeros)), 0);
}

TEST(Dhcp, WhatIsNoObjectHasNoMembers) {
  EXPECT_STREQ(Parsed(nullptr, Owned::nothing).err.msg, no_name);
  EXPECT_STREQ(Parsed(json_of("[]"), Owned::nothing).err.msg, no_name);
}

TEST(Dhcp, OfSeveralFaultsTheFirstIsExplained) {
  EXPECT_STREQ(Parsed(json_of("{}"), Owned::nothing).err.msg, no_name);
  EXPECT_STREQ(Parsed(json_of(R"({"service_name":"","static_leases":[1]})"), Owned::nothing).err.msg, no_address);
}

TEST(Dhcp, NullsAreRefused) {
  const LogLevel level(Debug);
  const Json service = good_service();
  address_pool pool{};
  error err{};
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_utils_parse_service_dhcp(service.get(), nullptr, &err), -4);
    EXPECT_EQ(kestro_jrpc_utils_parse_service_dhcp(service.get(), &pool, nullptr), -4);
  });
  EXPECT_EQ(count_log_lines(log, Debug, "kestro_jrpc_utils", "NULL pointer!\n"), 2);
  EXPECT_EQ(pool.static_leases, nullptr);
}

TEST(DhcpDeathTest, MemoryRunsOut) {
  const Json service = good_service();
  EXPECT_EXIT(
      {
        const Fault no_memory("calloc", ENOMEM);
        Parsed(service, Owned::nothing);
      },
      testing::KilledBySignal(SIGABRT), "calloc 72 unsuccessful");
}

}  // namespace
}  // namespace kestro::test
