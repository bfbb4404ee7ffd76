#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <string>

#include "kestro_jrpc_utils.h"
#include "support/captured_stderr.hpp"
#include "support/json.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

constexpr const char* module = "kestro_jrpc_utils";

// ---- The status in an answer

TEST(ApiResult, TheLower32BitsAreTaken) {
  const LogLevel level(Verbose);
  const struct {
    const char* answer;
    int32_t expected;
  } cases[] = {
      {R"({"result":0})", 0},
      {R"({"jsonrpc":"2.0","id":"ports.Get","result":-34})", -34},
      {R"({"result":2147483647})", INT_MAX},
      {R"({"result":4294967297})", 1},
      {R"({"result":2147483648})", INT_MIN},
  };
  for (const auto& each : cases) {
    const Json answer = json_of(each.answer);
    int32_t code = 4711;
    const auto log =
        stderr_of([&] { EXPECT_EQ(kestro_jrpc_utils_api_decode_api_result(answer.get(), &code), 0) << each.answer; });
    EXPECT_EQ(code, each.expected) << each.answer;
    EXPECT_THAT(log, HasLog(Verbose, module, "Parsed result: " + std::to_string(each.expected) + "\n"));
  }
}

TEST(ApiResult, FailuresAreToldApart) {
  const LogLevel level(Debug);
  const std::string function = "[kestro_jrpc_utils_api_decode_api_result]";
  const std::string absent = function + " No JSON result\n";
  const std::string no_integer = function + ": Return result was expected to be an integer but was not.\n";
  const struct {
    const char* answer;
    std::string line;
  } cases[] = {
      {"{}", absent},
      {"[0]", absent},
      {R"({"error":{"code":-32601}})", absent},
      {R"({"result":0.0})", no_integer},
      {R"({"result":"0"})", no_integer},
      {R"({"result":null})", no_integer},
      {R"({"result":true})", no_integer},
  };
  for (const auto& each : cases) {
    const Json answer = json_of(each.answer);
    int32_t code = 4711;
    const auto log =
        stderr_of([&] { EXPECT_EQ(kestro_jrpc_utils_api_decode_api_result(answer.get(), &code), -31) << each.answer; });
    EXPECT_EQ(code, 0);
    EXPECT_THAT(log, HasLog(Debug, module, each.line));
  }
}

TEST(ApiResult, NullsAreRefused) {
  const LogLevel level(Debug);
  const Json answer = json_of(R"({"result":0})");
  int32_t code = 4711;
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_utils_api_decode_api_result(nullptr, &code), -4);
    EXPECT_EQ(kestro_jrpc_utils_api_decode_api_result(answer.get(), nullptr), -4);
  });
  EXPECT_EQ(code, 4711);
  EXPECT_EQ(count_log_lines(log, Debug, module, "[kestro_jrpc_utils_api_decode_api_result]: NULL pointer!\n"), 2);
}

// ---- A text of an array

constexpr const char* truncated = "kestro_jrpc_utils_api_get_string_from_array: output truncated!\n";

TEST(StringFromArray, IsCutToTheBuffer) {
  const LogLevel level(Warning);
  const Json array = json_of(R"(["abcdef"])");
  for (int32_t size = 1; size <= 8; ++size) {
    SCOPED_TRACE(size);
    std::string buffer(9, '?');
    const auto log = stderr_of(
        [&] { EXPECT_EQ(kestro_jrpc_utils_api_get_string_from_array(array.get(), 0, buffer.data(), size), 0); });
    EXPECT_STREQ(buffer.c_str(), std::string("abcdef").substr(0, static_cast<size_t>(size) - 1).c_str());
    EXPECT_EQ(buffer[static_cast<size_t>(size)], '?');
    EXPECT_EQ(count_log_lines(log, Warning, module, truncated), size > 6 ? 0 : 1);
  }
}

TEST(StringFromArray, BufferWithoutAnyRoomHoldsNothing) {
  const LogLevel level(Warning);
  const Json array = json_of(R"([""])");
  for (const int32_t size : {0, -1, INT_MIN}) {
    char buffer = '?';
    EXPECT_THAT(
        stderr_of([&] { EXPECT_EQ(kestro_jrpc_utils_api_get_string_from_array(array.get(), 0, &buffer, size), 0); }),
        HasLog(Warning, module, truncated));
    EXPECT_EQ(buffer, '?');
  }
}

TEST(StringFromArray, FailuresAreToldApart) {
  const struct {
    const char* array;
    int32_t index;
    const char* line;
  } cases[] = {
      {R"({"0":"text"})", 0, "JSON is not array\n"},
      {R"("text")", 0, "JSON is not array\n"},
      {R"(["text"])", 1, "Index did not exist\n"},
      {R"(["text"])", -1, "Index did not exist\n"},
      {"[]", 0, "Index did not exist\n"},
      {"[1]", 0, "Member is not string\n"},
      {"[null]", 0, "Member is not string\n"},
  };
  for (const auto& each : cases) {
    const Json array = json_of(each.array);
    char buffer[] = "earlier";
    const auto log = stderr_of([&] {
      EXPECT_EQ(kestro_jrpc_utils_api_get_string_from_array(array.get(), each.index, buffer, sizeof(buffer)), -31);
    });
    EXPECT_THAT(log, HasLog(Error, module, each.line));
    EXPECT_STREQ(buffer, "");
  }
}

TEST(StringFromArray, NullsAreRefused) {
  const Json array = json_of(R"(["text"])");
  char buffer[] = "earlier";
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_utils_api_get_string_from_array(nullptr, 0, buffer, sizeof(buffer)), -20);
    EXPECT_EQ(kestro_jrpc_utils_api_get_string_from_array(array.get(), 0, nullptr, 8), -20);
  });
  EXPECT_EQ(count_log_lines(log, Error, module, "NULL input\n"), 2);
  EXPECT_STREQ(buffer, "");
}

// ---- Several texts

struct Buffers {
  std::array<std::array<char, 8>, 3> bytes{{{"one"}, {"two"}, {"three"}}};
  std::array<char*, 3> pointers{bytes[0].data(), bytes[1].data(), bytes[2].data()};

  int32_t retrieve(const char* result, int32_t count, int32_t size = 8) {
    const Json object = json_of(result);
    return kestro_jrpc_utils_retrieve_string_array(object.get(), "list", pointers.data(), count, size);
  }
};

TEST(StringArray, FillsTheBuffers) {
  const LogLevel off(0);
  Buffers buffers;
  EXPECT_EQ(buffers.retrieve(R"({"list":["a","","c","d"]})", 3), 0);
  EXPECT_STREQ(buffers.pointers[0], "a");
  EXPECT_STREQ(buffers.pointers[1], "");
  EXPECT_STREQ(buffers.pointers[2], "c");
}

TEST(StringArray, NothingIsAskedFor) {
  const LogLevel off(0);
  Buffers buffers;
  EXPECT_EQ(buffers.retrieve(R"({"list":["a"]})", 0), 0);
  EXPECT_EQ(buffers.retrieve("{}", 0), 0);
  EXPECT_STREQ(buffers.pointers[0], "one");
}

TEST(StringArray, EachIsCutToItsBuffer) {
  const LogLevel level(Warning);
  Buffers buffers;
  const auto log = stderr_of([&] { EXPECT_EQ(buffers.retrieve(R"({"list":["1234567","12345678"]})", 2), 0); });
  EXPECT_STREQ(buffers.pointers[0], "1234567");
  EXPECT_STREQ(buffers.pointers[1], "1234567");
  EXPECT_EQ(count_log_lines(log, Warning, module, truncated), 1);
}

TEST(StringArray, StopsAtTheFirstFailure) {
  const LogLevel off(0);
  for (const char* const result : {R"({"list":["a",2,"c"]})", R"({"list":["a"]})"}) {
    Buffers buffers;
    EXPECT_EQ(buffers.retrieve(result, 3), -31) << result;
    EXPECT_STREQ(buffers.pointers[0], "a");
    EXPECT_STREQ(buffers.pointers[1], "");
    EXPECT_STREQ(buffers.pointers[2], "three");
  }
}

TEST(StringArray, AbsentMemberCountsAsNull) {
  Buffers buffers;
  EXPECT_THAT(stderr_of([&] { EXPECT_EQ(buffers.retrieve("{}", 3), -20); }), HasLog(Error, module, "NULL input\n"));
  EXPECT_STREQ(buffers.pointers[1], "two");
}

TEST(StringArray, WhatIsNoObjectIsRefused) {
  const LogLevel off(0);
  Buffers buffers;
  EXPECT_EQ(buffers.retrieve(R"(["a"])", 1), -30);
  EXPECT_STREQ(buffers.pointers[0], "one");
}

TEST(StringArray, NullsAreRefusedAndCounted) {
  const LogLevel level(Warning);
  const Json object = json_of(R"({"list":["a"]})");
  Buffers buffers;
  const auto refused = [&](int index, json_t* result, const char* name, char** bufs) {
    const auto log =
        stderr_of([&] { EXPECT_EQ(kestro_jrpc_utils_retrieve_string_array(result, name, bufs, 1, 8), -20); });
    EXPECT_THAT(log, HasLog(Error, module, "NULL\n"));
    EXPECT_THAT(log, HasLog(Warning, "kestro_utils",
                            "Found a null input parameter at varg index <" + std::to_string(index) + ">\n"));
  };
  refused(0, nullptr, "list", buffers.pointers.data());
  refused(1, object.get(), nullptr, buffers.pointers.data());
  refused(2, object.get(), "list", nullptr);
  char* no_buffer = nullptr;
  EXPECT_EQ(kestro_jrpc_utils_retrieve_string_array(object.get(), "list", &no_buffer, 1, 8), -20);
}

}  // namespace
}  // namespace kestro::test
