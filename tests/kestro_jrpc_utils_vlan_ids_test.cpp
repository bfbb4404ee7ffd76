// The VLAN list of a port.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "kestro_jrpc_utils.h"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"
#include "support/request.hpp"

namespace kestro::test {
namespace {

using testing::Not;

constexpr const char* module = "kestro_jrpc_utils";
constexpr size_t capacity = 130;
constexpr int32_t unwritten = -7;

struct Outcome {
  int32_t status = 1;
  int32_t count = unwritten;
  std::vector<int32_t> stored;  // up to the first number that was not written
  std::string log;
};

Outcome retrieve(Request& request, const char* name = "value") {
  Outcome outcome;
  outcome.stored.assign(capacity, unwritten);
  outcome.log = stderr_of([&] {
    outcome.status = kestro_jrpc_utils_retrieve_input_vlan_ids(request.params(), request.err_data(), name,
                                                               outcome.stored.data(), &outcome.count);
  });
  const auto end = std::find(outcome.stored.begin(), outcome.stored.end(), unwritten);
  EXPECT_TRUE(std::all_of(end, outcome.stored.end(), [](int32_t each) { return each == unwritten; }));
  outcome.stored.erase(end, outcome.stored.end());
  EXPECT_EQ(request.explanation(), "");
  return outcome;
}

Outcome retrieve(const std::string& list) {
  Request request(R"({"value":)" + list + "}");
  return retrieve(request);
}

Outcome retrieve(const std::vector<int32_t>& list) {
  Json array(json_array());
  for (const int32_t each : list) json_array_append_new(array.get(), json_integer(each));
  Request request = Request::of(std::move(array));
  return retrieve(request);
}

std::vector<int32_t> numbers(size_t count) {
  std::vector<int32_t> list(count);
  std::iota(list.begin(), list.end(), 1000);
  return list;
}

class VlanIds : public testing::Test {
  const LogLevel level_{Error};
};

TEST_F(VlanIds, UpTo130AreTaken) {
  for (const size_t size : {0U, 1U, 2U, 129U, 130U}) {
    SCOPED_TRACE(size);
    const auto outcome = retrieve(numbers(size));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.count, static_cast<int32_t>(size));
    EXPECT_EQ(outcome.stored, numbers(size));
    EXPECT_EQ(outcome.log, "");
  }
}

TEST_F(VlanIds, MoreThan130AreRefusedAtOnce) {
  for (const size_t size : {131U, 132U, 1000U}) {
    SCOPED_TRACE(size);
    const auto outcome = retrieve(numbers(size));
    EXPECT_EQ(outcome.status, -19);
    EXPECT_EQ(outcome.count, static_cast<int32_t>(size));
    EXPECT_THAT(outcome.stored, testing::IsEmpty());
  }
}

TEST_F(VlanIds, TheFirstRepetitionEndsTheList) {
  const struct {
    const char* name;
    size_t original;
    size_t repeated;
  } cases[] = {
      {"Adjacent", 0, 1},         {"FirstAndThird", 0, 2}, {"AdjacentInside", 63, 64},
      {"AdjacentLast", 128, 129}, {"FirstIsLast", 0, 129}, {"InsideIsLast", 64, 129},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    auto list = numbers(capacity);
    list[each.repeated] = list[each.original];
    const auto outcome = retrieve(list);
    EXPECT_EQ(outcome.status, -72);
    EXPECT_EQ(outcome.count, 130);
    EXPECT_EQ(outcome.stored, numbers(each.repeated));
    EXPECT_EQ(count_log_lines(outcome.log, Error, module, "Received duplicate Vlan id's.\n"), 1);
  }
}

TEST_F(VlanIds, RepetitionInAShortList) {
  const auto outcome = retrieve(std::vector<int32_t>{10, 20, 10});
  EXPECT_EQ(outcome.status, -72);
  EXPECT_EQ(outcome.count, 3);
  EXPECT_EQ(outcome.stored, (std::vector<int32_t>{10, 20}));
}

TEST_F(VlanIds, SizeGoesBeforeContents) {
  EXPECT_EQ(retrieve(std::vector<int32_t>(131, 0)).status, -19);
  EXPECT_EQ(retrieve(std::vector<int32_t>(131, 7)).status, -19);
}

TEST_F(VlanIds, ElementsAreValidated) {
  const struct {
    const char* list;
    int32_t status;
    std::vector<int32_t> stored;
  } cases[] = {
      {"[1,4050]", 0, {1, 4050}},
      {"[0]", -31, {}},
      {"[-1]", -31, {}},
      {"[10,4051,20]", -31, {10}},
      {"[10,20,0]", -31, {10, 20}},
      {"[10,\"20\"]", -31, {10}},
      {"[10,20.0]", -31, {10}},
      {"[10,null]", -31, {10}},
      {"[10,[20]]", -31, {10}},
      {"[0,0]", -31, {}},
      {"[4294967306]", 0, {10}},
      {"[10,4294967306]", -72, {10}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.list);
    const auto outcome = retrieve(each.list);
    EXPECT_EQ(outcome.status, each.status);
    EXPECT_EQ(outcome.count, static_cast<int32_t>(json_array_size(json_of(each.list).get())));
    EXPECT_EQ(outcome.stored, each.stored);
    EXPECT_THAT(outcome.log, Not(testing::HasSubstr("null")));
  }
}

TEST_F(VlanIds, WhatIsNoListIsAnEmptyOne) {
  for (const char* const value : {"null", "true", "7", "\"10\"", "{}", "{\"0\":10}"}) {
    const auto outcome = retrieve(value);
    EXPECT_EQ(outcome.status, 0) << value;
    EXPECT_EQ(outcome.count, 0);
    EXPECT_THAT(outcome.stored, testing::IsEmpty());
    EXPECT_EQ(outcome.log, "");
  }
}

TEST_F(VlanIds, MissingMember) {
  Request empty("{}");
  Request no_object("[]");
  Request nothing(Json{});
  for (Request* const request : {&empty, &no_object, &nothing}) {
    const auto outcome = retrieve(*request);
    EXPECT_EQ(outcome.status, -35);
    EXPECT_EQ(outcome.count, 0);
    EXPECT_THAT(outcome.log, HasLog(Error, module, "Failed, vlan ID is null.\n"));
  }
}

TEST_F(VlanIds, TheEarlierExplanationStays) {
  for (const char* const params : {"{}", R"({"value":[0]})", R"({"value":[7,7]})"}) {
    Request request(params);
    int32_t ids[capacity];
    int32_t count = 0;
    const auto ignored = stderr_of([&] {
      EXPECT_LT(kestro_jrpc_utils_retrieve_input_vlan_ids(request.explain("earlier").params(), request.err_data(),
                                                          "value", ids, &count),
                0);
    });
    EXPECT_EQ(request.explanation(), "earlier");
  }
}

TEST_F(VlanIds, NullPointers) {
  const LogLevel level(Verbose);
  Request request(R"({"value":[7]})");
  int32_t ids[capacity] = {unwritten};
  int32_t count = unwritten;
  const auto log = stderr_of([&] {
    const json_t* const params = request.params();
    EXPECT_EQ(kestro_jrpc_utils_retrieve_input_vlan_ids(params, request.err_data(), nullptr, ids, &count), -4);
    EXPECT_EQ(kestro_jrpc_utils_retrieve_input_vlan_ids(params, request.err_data(), "value", nullptr, &count), -4);
    EXPECT_EQ(kestro_jrpc_utils_retrieve_input_vlan_ids(params, request.err_data(), "value", ids, nullptr), -4);
  });
  EXPECT_EQ(count_log_lines(log, Debug, module, "NULL pointer!\n"), 3);
  EXPECT_EQ(count, unwritten);
  EXPECT_EQ(ids[0], unwritten);
}

TEST_F(VlanIds, NoPlaceForAnExplanationIsNeeded) {
  const Request request(R"({"value":[7]})");
  int32_t ids[capacity] = {unwritten};
  int32_t count = unwritten;
  EXPECT_EQ(kestro_jrpc_utils_retrieve_input_vlan_ids(request.params(), nullptr, "value", ids, &count), 0);
  EXPECT_EQ(ids[0], 7);
}

}  // namespace
}  // namespace kestro::test
