#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "kestro_jrpc_utils.h"
#include "support/captured_stderr.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/scarce_json.hpp"

namespace kestro::test {
namespace {

using testing::IsEmpty;

constexpr const char* module = "kestro_jrpc_utils";

// Runs an encoder again and again, each time with one allocation less to go wrong, until none does. It returns what it
// made, or null, and must then have released everything (the address sanitizer counts).
template <class Encode>
std::vector<std::string> results_when_memory_runs_out(Encode&& encode) {
  const LogLevel off(0);
  std::vector<std::string> results;
  for (bool fired = true; fired && results.size() < 1000;) {
    const ScarceJson scarce(static_cast<int>(results.size()) + 1);
    const Json made(encode());
    fired = scarce.fired();
    if (fired) results.push_back(text_of(made.get()));
  }
  EXPECT_GT(results.size(), 0U);
  return results;
}

// What an allocation that fails at the nth place makes an encoder say.
template <class Encode>
std::string log_when_memory_runs_out(int nth, Encode&& encode) {
  const LogLevel level(Debug);
  const ScarceJson scarce(nth);
  auto log = stderr_of([&] { const Json made(encode()); });
  EXPECT_TRUE(scarce.fired());
  return log;
}

// `count` addresses, numbered.
std::vector<std::array<char, sizeof(mac_str)>> addresses(size_t count) {
  std::vector<std::array<char, sizeof(mac_str)>> list(count);
  for (size_t i = 0; i < count; ++i) {
    snprintf(list[i].data(), list[i].size(), "00:00:00:00:%02X:%02X", static_cast<uint8_t>(i / 256),
             static_cast<uint8_t>(i));
  }
  return list;
}
mac_str* as_macs(std::vector<std::array<char, sizeof(mac_str)>>& list) {
  return reinterpret_cast<mac_str*>(list.data());
}

// ---- MAC addresses of one port

int32_t populate(JsonOut& out, std::vector<std::array<char, sizeof(mac_str)>>& list) {
  return kestro_jrpc_utils_populate_json_mac_addresses_array(out, as_macs(list), static_cast<int32_t>(list.size()));
}

TEST(MacArray, HoldsTheFirst512) {
  const LogLevel off(0);
  for (const size_t count : {0U, 1U, 511U, 512U, 513U, 600U}) {
    auto list = addresses(count);
    JsonOut out;
    EXPECT_EQ(populate(out, list), 0);
    const size_t listed = std::min<size_t>(count, 512);
    ASSERT_EQ(json_array_size(out.get()), listed);
    for (size_t i = 0; i < listed; ++i) EXPECT_STREQ(json_string_value(json_array_get(out.get(), i)), list[i].data());
  }
}

TEST(MacArray, NullsAreRefused) {
  mac_str mac = "00:00:00:00:00:01";
  EXPECT_THAT(stderr_of([&] {
                const LogLevel level(Debug);
                EXPECT_EQ(kestro_jrpc_utils_populate_json_mac_addresses_array(nullptr, &mac, 1), -20);
              }),
              HasLog(Debug, module, "NULL pointer!\n"));
  const LogLevel off(0);
  for (const int32_t count : {1, -1}) {
    JsonOut out;
    EXPECT_EQ(kestro_jrpc_utils_populate_json_mac_addresses_array(out, nullptr, count), -20);
    EXPECT_TRUE(out.empty());
  }
  JsonOut out;
  EXPECT_EQ(kestro_jrpc_utils_populate_json_mac_addresses_array(out, nullptr, 0), 0);
  EXPECT_EQ(out.text(), "[]");
}

TEST(MacArray, LessThanNoneAreNone) {
  mac_str mac = "00:00:00:00:00:01";
  JsonOut out;
  EXPECT_EQ(kestro_jrpc_utils_populate_json_mac_addresses_array(out, &mac, -1), 0);
  EXPECT_EQ(out.text(), "[]");
}

TEST(MacArray, EndsEarlyAtWhatIsNoText) {
  auto list = addresses(3);
  strcpy(list[1].data(), "\xff");
  JsonOut out;
  EXPECT_THAT(stderr_of([&] {
                const LogLevel level(Warning);
                EXPECT_EQ(populate(out, list), 0);
              }),
              HasLog(Warning, module, "Failed to create JSON object for MAC address 1\n"));
  EXPECT_EQ(out.text(), R"(["00:00:00:00:00:00"])");
}

TEST(MacArray, IsNotReadBeyondAnAddress) {
  auto list = addresses(2);
  list[0].fill('A');
  JsonOut out;
  EXPECT_EQ(populate(out, list), 0);
  EXPECT_EQ(out.text(), "[\"" + std::string(20, 'A') + "\",\"00:00:00:00:00:01\"]");
}

// An array has room for eight values at first; the ninth makes it grow.
TEST(MacArray, EveryAllocationFailsOnce) {
  const LogLevel level(Warning);
  auto list = addresses(9);
  int created = 0;
  int grown = 0;
  bool fired = true;
  for (int nth = 1; fired; ++nth) {
    JsonOut out;
    int32_t status = 1;
    const auto log = stderr_of([&] {
      const ScarceJson scarce(nth);
      status = populate(out, list);
      fired = scarce.fired();
    });
    if (status == -22) {
      EXPECT_THAT(log, HasLog(Error, module, "Unable to create JSON array for MAC addresses\n"));
      EXPECT_TRUE(out.empty());
      ++created;
    } else if (status == -1) {
      EXPECT_THAT(log, HasLog(Error, module, "Failed to append MAC address 8 to array\n"));
      EXPECT_TRUE(out.empty());
      ++grown;
    } else {
      EXPECT_EQ(status, 0);
      const size_t size = json_array_size(out.get());
      EXPECT_EQ(count_log_lines(log, Warning, module,
                                "Failed to create JSON object for MAC address " + std::to_string(size) + "\n"),
                fired ? 1 : 0);
      EXPECT_EQ(size == 9, !fired);
    }
    ASSERT_LT(nth, 1000);
  }
  EXPECT_GT(created, 0);
  EXPECT_EQ(grown, 1);
}

// ---- VLANs

TEST(VidArray, HoldsTheNumbersInOrder) {
  const int32_t vids[] = {4050, 1, 1, -7, INT32_MAX};
  EXPECT_EQ(text_of(Json(kestro_jrpc_utils_populate_vid_array(vids, 5)).get()), "[4050,1,1,-7,2147483647]");
  EXPECT_EQ(text_of(Json(kestro_jrpc_utils_populate_vid_array(vids, 1)).get()), "[4050]");
  EXPECT_EQ(text_of(Json(kestro_jrpc_utils_populate_vid_array(vids, 0)).get()), "[]");
  EXPECT_EQ(text_of(Json(kestro_jrpc_utils_populate_vid_array(vids, -1)).get()), "[]");
  EXPECT_EQ(text_of(Json(kestro_jrpc_utils_populate_vid_array(nullptr, 0)).get()), "[]");
}

TEST(VidArray, NullIsRefused) {
  const LogLevel level(Debug);
  EXPECT_THAT(stderr_of([] { EXPECT_EQ(kestro_jrpc_utils_populate_vid_array(nullptr, 1), nullptr); }),
              HasLog(Debug, module, "NULL pointer!\n"));
}

constexpr int32_t nine_vids[] = {1, 2, 3, 4, 5, 6, 7, 8, 9};

TEST(VidArray, IsNullWhenMemoryRunsOut) {
  const auto encode = [] { return kestro_jrpc_utils_populate_vid_array(nine_vids, 9); };
  const auto results = results_when_memory_runs_out(encode);
  EXPECT_THAT(results, testing::Each("null"));
  EXPECT_EQ(results.size(), 2U + 9U + 1U);  // the array in two pieces, the numbers, and its growth
  EXPECT_THAT(log_when_memory_runs_out(1, encode), HasLog(Error, module, "Failed allocation\n"));
  for (const int nth : {3, 11, 12}) {
    EXPECT_THAT(log_when_memory_runs_out(nth, encode),
                HasLog(Error, module, "Unable to append VID to VID json array\n"));
  }
}

TEST(SetVidArray, ReplacesTheMember) {
  const Json root = json_of(R"({"a":1,"vids":"earlier"})");
  EXPECT_EQ(kestro_jrpc_utils_json_obj_set_vid_array(root.get(), "vids", nine_vids, 2), 0);
  EXPECT_EQ(text_of(root.get()), R"({"a":1,"vids":[1,2]})");
  EXPECT_EQ(kestro_jrpc_utils_json_obj_set_vid_array(root.get(), "more", nine_vids, 0), 0);
  EXPECT_EQ(text_of(root.get()), R"({"a":1,"vids":[1,2],"more":[]})");
}

TEST(SetVidArray, WhatCannotBeSetIsReleased) {
  const LogLevel level(Debug);
  const Json no_object(json_array());
  const Json object(json_object());
  const struct {
    json_t* root;
    const char* name;
  } cases[] = {{nullptr, "vids"}, {no_object.get(), "vids"}, {object.get(), nullptr}, {object.get(), "\xff"}};
  for (const auto& each : cases) {
    EXPECT_THAT(stderr_of([&] {
                  EXPECT_EQ(kestro_jrpc_utils_json_obj_set_vid_array(each.root, each.name, nine_vids, 2), -30);
                }),
                HasLog(Debug, module, "Unable to append VID json array to object\n"));
  }
  EXPECT_EQ(text_of(object.get()), "{}");
  EXPECT_EQ(kestro_jrpc_utils_json_obj_set_vid_array(object.get(), "vids", nullptr, 1), -30);
}

TEST(SetVidArray, LeavesTheObjectWhenMemoryRunsOut) {
  const LogLevel off(0);
  bool fired = true;
  for (int nth = 1; fired; ++nth) {
    const Json root = json_of(R"({"a":1})");
    int32_t status = 1;
    {
      const ScarceJson scarce(nth);
      status = kestro_jrpc_utils_json_obj_set_vid_array(root.get(), "vids", nine_vids, 2);
      fired = scarce.fired();
    }
    EXPECT_EQ(status, fired ? -30 : 0) << nth;
    EXPECT_EQ(text_of(root.get()), fired ? R"({"a":1})" : R"({"a":1,"vids":[1,2]})") << nth;
    ASSERT_LT(nth, 100);
  }
}

// ---- Texts

TEST(AppendString, AppendsACopy) {
  const Json array = json_of("[1]");
  char text[] = "c1-1";
  EXPECT_EQ(kestro_jrpc_utils_append_string_array(array.get(), text), 0);
  text[0] = 'd';
  EXPECT_EQ(kestro_jrpc_utils_append_string_array(array.get(), ""), 0);
  EXPECT_EQ(text_of(array.get()), R"([1,"c1-1",""])");
}

TEST(AppendString, FailuresAreToldApart) {
  const Json array = json_of("[]");
  const Json object = json_of("{}");
  for (const char* const no_text : {static_cast<const char*>(nullptr), "\xff"}) {
    EXPECT_THAT(stderr_of([&] { EXPECT_EQ(kestro_jrpc_utils_append_string_array(array.get(), no_text), -30); }),
                HasLog(Error, module, "json_string\n"));
  }
  for (json_t* const no_array : {static_cast<json_t*>(nullptr), object.get()}) {
    EXPECT_THAT(stderr_of([&] { EXPECT_EQ(kestro_jrpc_utils_append_string_array(no_array, "x"), -30); }),
                HasLog(Error, module, "append new\n"));
  }
  EXPECT_EQ(text_of(array.get()), "[]");
}

TEST(AppendString, LeavesTheArrayWhenMemoryRunsOut) {
  const LogLevel off(0);
  bool fired = true;
  for (int nth = 1; fired; ++nth) {
    const Json array = json_of("[1,2,3,4,5,6,7,8]");
    int32_t status = 1;
    {
      const ScarceJson scarce(nth);
      status = kestro_jrpc_utils_append_string_array(array.get(), "x");
      fired = scarce.fired();
    }
    EXPECT_EQ(status, fired ? -30 : 0) << nth;
    EXPECT_EQ(json_array_size(array.get()), fired ? 8U : 9U) << nth;
    ASSERT_LT(nth, 100);
  }
}

// ---- Counters

kestro_counter_strings numbered_counters() {
  kestro_counter_strings counters{};
  auto* const fields = reinterpret_cast<char(*)[21]>(&counters);
  for (size_t i = 0; i < 12; ++i) snprintf(fields[i], 21, "%zu", i + 1);
  return counters;
}
constexpr const char* numbered_counters_text =
    R"({"tx_frames":"1","rx_frames":"2","tx_bytes":"3","rx_bytes":"4","rx_error_frames":"5","rx_discard_frames":"6",)"
    R"("tx_unicast_frames":"7","rx_unicast_frames":"8","tx_multicast_frames":"9","rx_multicast_frames":"10",)"
    R"("tx_broadcast_frames":"11","rx_broadcast_frames":"12"})";

TEST(CounterStrings, StandUnderTheirNamesInTheirOrder) {
  auto counters = numbered_counters();
  const Json object(kestro_jrpc_utils_encode_olt_counter_strings(&counters));
  EXPECT_EQ(text_of(object.get()), numbered_counters_text);
  for (const char* const name : kestro_counter_strings_fields) {
    EXPECT_NE(json_object_get(object.get(), name), nullptr) << name;
  }
}

TEST(CounterStrings, EmptyOnesAreThereToo) {
  kestro_counter_strings counters{};
  const Json object(kestro_jrpc_utils_encode_olt_counter_strings(&counters));
  EXPECT_EQ(json_object_size(object.get()), 12U);
  EXPECT_STREQ(json_string_value(json_object_get(object.get(), "rx_broadcast_frames")), "");
}

TEST(CounterStrings, TheLargestNumberFits) {
  kestro_counter_strings counters{};
  strcpy(counters.tx_bytes, "18446744073709551615");
  const Json object(kestro_jrpc_utils_encode_olt_counter_strings(&counters));
  EXPECT_STREQ(json_string_value(json_object_get(object.get(), "tx_bytes")), "18446744073709551615");
}

TEST(CounterStrings, FailWithoutAWord) {
  const LogLevel level(Verbose);
  auto counters = numbered_counters();
  strcpy(counters.rx_broadcast_frames, "\xff");
  EXPECT_THAT(stderr_of([&] {
                EXPECT_EQ(kestro_jrpc_utils_encode_olt_counter_strings(&counters), nullptr);
                EXPECT_EQ(kestro_jrpc_utils_encode_olt_counter_strings(nullptr), nullptr);
              }),
              IsEmpty());
}

TEST(CounterStrings, AreNullWhenMemoryRunsOut) {
  auto counters = numbered_counters();
  EXPECT_THAT(results_when_memory_runs_out([&] { return kestro_jrpc_utils_encode_olt_counter_strings(&counters); }),
              testing::Each("null"));
}

// ---- MAC addresses of all ports

TEST(AllMacAddresses, OneArrayPerPort) {
  auto first = addresses(2);
  auto third = addresses(1);
  const port_macs ports[] = {{as_macs(first), 2}, {nullptr, 0}, {as_macs(third), 1}};
  const auto encoded = [&](int32_t count) {
    return text_of(Json(kestro_jrpc_utils_encode_all_mac_addresses_connected(count, ports)).get());
  };
  EXPECT_EQ(encoded(3), R"([["00:00:00:00:00:00","00:00:00:00:00:01"],[],["00:00:00:00:00:00"]])");
  EXPECT_EQ(encoded(1), R"([["00:00:00:00:00:00","00:00:00:00:00:01"]])");
  EXPECT_EQ(encoded(0), "[]");
  EXPECT_EQ(encoded(-1), "[]");
}

TEST(AllMacAddresses, AllOfThemAreListed) {
  auto many = addresses(513);
  const port_macs port{as_macs(many), 513};
  const Json ports(kestro_jrpc_utils_encode_all_mac_addresses_connected(1, &port));
  const json_t* const listed = json_array_get(ports.get(), 0);
  ASSERT_EQ(json_array_size(listed), 513U);
  EXPECT_STREQ(json_string_value(json_array_get(listed, 512)), "00:00:00:00:02:00");
}

TEST(AllMacAddresses, AreAllOrNone) {
  auto good = addresses(2);
  auto bad = addresses(2);
  strcpy(bad[1].data(), "\xff");
  const port_macs no_text[] = {{as_macs(good), 2}, {as_macs(bad), 2}};
  const port_macs no_list[] = {{as_macs(good), 2}, {nullptr, 1}};
  EXPECT_EQ(kestro_jrpc_utils_encode_all_mac_addresses_connected(2, no_text), nullptr);
  EXPECT_EQ(kestro_jrpc_utils_encode_all_mac_addresses_connected(2, no_list), nullptr);
  EXPECT_EQ(kestro_jrpc_utils_encode_all_mac_addresses_connected(2, nullptr), nullptr);
  EXPECT_EQ(kestro_jrpc_utils_encode_all_mac_addresses_connected(0, nullptr), nullptr);
}

TEST(AllMacAddresses, AreNullWhenMemoryRunsOut) {
  auto list = addresses(9);
  std::vector<port_macs> ports(9, port_macs{as_macs(list), 1});
  ports[4].n_macs = 9;
  EXPECT_THAT(results_when_memory_runs_out(
                  [&] { return kestro_jrpc_utils_encode_all_mac_addresses_connected(9, ports.data()); }),
              testing::Each("null"));
}

}  // namespace
}  // namespace kestro::test
