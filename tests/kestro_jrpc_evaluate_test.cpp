#include "kestro_jrpc/evaluate.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/scripted_method.hpp"

namespace kestro::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* jrpc = "kestro_jrpc";
constexpr const char* no_echo = "[kestro_jrpc_create_error]: NULL pointer!\n";
constexpr const char* cannot_create = "kestro_jrpc_create_error: Failed to create JRPC response\n";
constexpr const char* no_transaction = "kestro_jrpc_eval_request: Failed to add Transaction ID to response\n";

// What *response holds before a call when a test asks whether it was written.
char untouched[] = "untouched";

struct Evaluated {
  int32_t status = 0;
  std::string response;  // "(null)" for none, "untouched" when it was not written
  std::string log;
};

Evaluated evaluate(const std::string& request, int32_t level = Verbose, char* before = untouched) {
  const LogLevel admitted(level);
  std::string writable = request;
  char* response = before;
  Evaluated seen;
  seen.log = stderr_of([&] { seen.status = kestro_jrpc_eval_request(writable.data(), scripted_table(), &response); });
  seen.response = response != nullptr ? response : "(null)";
  if (response != untouched) free(response);
  EXPECT_EQ(writable, request) << "the request was changed";
  return seen;
}

std::string error_object(const std::string& id, int code, const std::string& message, const std::string& data = "null",
                         const std::string& transaction = "") {
  return R"({"jsonrpc":"2.0","id":)" + id + transaction + R"(,"error":{"code":)" + std::to_string(code) +
         R"(,"message":")" + message + R"(","data":)" + data + "}}";
}

// ---- Requests that get no answer ----

struct Line {
  Severity severity;
  const char* text;
};

struct Refused {
  const char* name;
  const char* request;
  const char* response;
  std::vector<Line> lines;
};

class RefusedRequests : public testing::TestWithParam<Refused> {};

TEST_P(RefusedRequests, GetNoResponse) {
  const ScriptedMethod method;
  const auto seen = evaluate(GetParam().request);
  EXPECT_EQ(seen.status, -1);
  EXPECT_EQ(seen.response, GetParam().response);
  EXPECT_EQ(method.calls(), 0);
  for (const auto& line : GetParam().lines) EXPECT_THAT(seen.log, HasLog(line.severity, jrpc, line.text));
  const bool echo_told = std::ranges::any_of(GetParam().lines, [](const Line& line) { return line.text == no_echo; });
  EXPECT_EQ(count_log_lines(seen.log, Debug, jrpc, no_echo), echo_told ? 1 : 0);
}

const char* const invalid_id = "kestro_jrpc_eval_request: Invalid Request ID\n";
const char* const invalid_transaction = "kestro_jrpc_eval_request: Invalid Transaction ID\n";
const char* const not_json = "kestro_jrpc_eval_request: Cannot parse JSON data\n";
const char* const not_an_object = "kestro_jrpc_eval_request: Invalid JSON\n";

const Refused refused[] = {
    {"Empty", "", "untouched", {{Error, not_json}}},
    {"Blank", " \n", "untouched", {{Error, not_json}}},
    {"NoJson", "hello", "untouched", {{Error, not_json}}},
    {"Truncated", R"({"jsonrpc":"2.0","id":1,"method":"ports.Get")", "untouched", {{Error, not_json}}},
    {"DuplicateKey", R"({"jsonrpc":"2.0","id":1,"id":1,"method":"ports.Get"})", "untouched", {{Error, not_json}}},
    {"DuplicateKeyInParams",
     R"({"jsonrpc":"2.0","id":1,"method":"ports.Get","params":{"a":1,"a":1}})",
     "untouched",
     {{Error, not_json}}},
    {"InvalidUtf8", "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ports.Get\xff\"}", "untouched", {{Error, not_json}}},
    {"EscapedNul", R"({"jsonrpc":"2.0","id":1,"method":"ports.Get\u0000"})", "untouched", {{Error, not_json}}},
    {"Array", R"([{"jsonrpc":"2.0","id":1,"method":"ports.Get"}])", "untouched", {{Error, not_an_object}}},
    {"EmptyArray", "[]", "untouched", {{Error, not_an_object}}},
    {"Number", "5", "untouched", {{Error, not_an_object}}},
    {"Text", R"("text")", "untouched", {{Error, not_an_object}}},
    {"Null", "null", "untouched", {{Error, not_an_object}}},
    {"IdTrue",
     R"({"jsonrpc":"2.0","id":true,"method":"ports.Get"})",
     "(null)",
     {{Error, invalid_id}, {Debug, no_echo}}},
    {"IdNull",
     R"({"jsonrpc":"2.0","id":null,"method":"ports.Get"})",
     "(null)",
     {{Error, invalid_id}, {Debug, no_echo}}},
    {"IdObject",
     R"({"jsonrpc":"2.0","id":{},"method":"ports.Get"})",
     "(null)",
     {{Error, invalid_id}, {Debug, no_echo}}},
    {"IdArray",
     R"({"jsonrpc":"2.0","id":[1],"method":"ports.Get"})",
     "(null)",
     {{Error, invalid_id}, {Debug, no_echo}}},
    {"IdIsLookedAtFirst",
     R"({"jsonrpc":"1.0","id":false,"transaction_id":"x","params":[],"method":5})",
     "(null)",
     {{Error, invalid_id}, {Debug, no_echo}}},
    {"TransactionIdText",
     R"({"jsonrpc":"2.0","id":1,"transaction_id":"12","method":"ports.Get"})",
     "(null)",
     {{Error, invalid_transaction}, {Debug, no_echo}}},
    {"TransactionIdNull",
     R"({"jsonrpc":"2.0","id":1,"transaction_id":null,"method":"ports.Get"})",
     "(null)",
     {{Error, invalid_transaction}, {Debug, no_echo}}},
    {"TransactionIdOfANotification",
     R"({"jsonrpc":"2.0","transaction_id":[],"method":"ports.Get"})",
     "untouched",
     {{Error, invalid_transaction}}},
    {"NoVersion", R"({"id":1,"method":"ports.Get"})", "(null)", {{Debug, no_echo}}},
    {"OtherVersion", R"({"jsonrpc":"1.0","id":1,"method":"ports.Get"})", "(null)", {{Debug, no_echo}}},
    {"LongerVersion", R"({"jsonrpc":"2.0 ","id":1,"method":"ports.Get"})", "(null)", {{Debug, no_echo}}},
    {"NumericVersion", R"({"jsonrpc":2.0,"id":1,"method":"ports.Get"})", "(null)", {{Debug, no_echo}}},
    {"VersionOfANotification", R"({"jsonrpc":"1.0","method":"ports.Get"})", "untouched", {}},
    {"ParamsArray", R"({"jsonrpc":"2.0","id":1,"method":"ports.Get","params":[1,2]})", "(null)", {{Debug, no_echo}}},
    {"ParamsNull", R"({"jsonrpc":"2.0","id":1,"method":"ports.Get","params":null})", "(null)", {{Debug, no_echo}}},
    {"ParamsText", R"({"jsonrpc":"2.0","id":1,"method":"ports.Get","params":"a"})", "(null)", {{Debug, no_echo}}},
    {"ParamsOfANotification", R"({"jsonrpc":"2.0","method":"ports.Get","params":[1,2]})", "untouched", {}},
    {"NoMethod", R"({"jsonrpc":"2.0","id":1})", "(null)", {{Debug, no_echo}}},
    {"EmptyObject", "{}", "untouched", {}},
    {"NotificationOfANumberedMethod", R"({"jsonrpc":"2.0","method":5})", "untouched", {}},
    {"NotificationOfAnUnknownMethod",
     R"({"jsonrpc":"2.0","method":"ports.Lose"})",
     "untouched",
     {{Error, "invalid method occurred <ports.Lose>\n"}}},
};

INSTANTIATE_TEST_SUITE_P(Evaluate, RefusedRequests, testing::ValuesIn(refused), name_of<Refused>);

// ---- Requests that get one ----

struct Answered {
  const char* name;
  const char* request;
  int32_t handled;
  const char* result;
  const char* err_data;
  std::string response;
  int calls = 1;
};

class AnsweredRequests : public testing::TestWithParam<Answered> {};

TEST_P(AnsweredRequests, GetThisResponse) {
  const auto& it = GetParam();
  const ScriptedMethod method(it.handled, it.result, it.err_data);
  const auto seen = evaluate(it.request);
  EXPECT_EQ(seen.status, 0);
  EXPECT_EQ(seen.response, it.response);
  EXPECT_EQ(method.calls(), it.calls);
  EXPECT_TRUE(method.all_released());
}

const Answered answered[] = {
    {"Example", R"({"jsonrpc":"2.0","method":"ports.Get","params":{},"id":7,"transaction_id":12})", 0, R"(["c1-1"])",
     "", R"({"jsonrpc":"2.0","id":"ports.Get","result":["c1-1"],"transaction_id":12})"},
    {"IdText", R"({"jsonrpc":"2.0","method":"ports.Get","id":"channel"})", 0, R"({"z":1,"a":[2, 3]})", "",
     R"({"jsonrpc":"2.0","id":"ports.Get","result":{"z":1,"a":[2,3]}})"},
    {"IdReal", R"({"jsonrpc":"2.0","method":"ports.Get","id":2.5})", 0, "[]", "",
     R"({"jsonrpc":"2.0","id":"ports.Get","result":[]})"},
    {"IdEmptyText", R"({"jsonrpc":"2.0","method":"ports.Get","id":""})", 0, "[]", "",
     R"({"jsonrpc":"2.0","id":"ports.Get","result":[]})"},
    {"TransactionIdStaysReal", R"({"jsonrpc":"2.0","method":"ports.Get","id":1,"transaction_id":12.0})", 0, "[]", "",
     R"({"jsonrpc":"2.0","id":"ports.Get","result":[],"transaction_id":12.0})"},
    {"TransactionIdOf64Bits", R"({"jsonrpc":"2.0","method":"ports.Get","id":1,"transaction_id":-9223372036854775808})",
     0, "[]", "", R"({"jsonrpc":"2.0","id":"ports.Get","result":[],"transaction_id":-9223372036854775808})"},
    {"NoResultIsZero", R"({"jsonrpc":"2.0","method":"ports.Get","id":1})", 0, "", "",
     R"({"jsonrpc":"2.0","id":"ports.Get","result":0})"},
    {"PositiveStatusNoResult", R"({"jsonrpc":"2.0","method":"ports.Get","id":1})", 7, "", "",
     R"({"jsonrpc":"2.0","id":"ports.Get","result":0})"},
    {"PositiveStatusWithResult", R"({"jsonrpc":"2.0","method":"ports.Get","id":1})", INT_MAX, "[7]", "",
     R"({"jsonrpc":"2.0","id":"ports.Get","result":[7]})"},
    {"ErrorDataOfASuccessIsDropped", R"({"jsonrpc":"2.0","method":"ports.Get","id":1})", 0, "[1]", R"({"message":"m"})",
     R"({"jsonrpc":"2.0","id":"ports.Get","result":[1]})"},
    {"AsciiOnly", R"({"jsonrpc":"2.0","method":"ports.Get","id":1})", 0, R"(["\u00e9\ud83d\ude00/\u007f"])", "",
     R"({"jsonrpc":"2.0","id":"ports.Get","result":["\u00E9\uD83D\uDE00/)"
     "\x7f"
     R"("]})"},
    {"TrailingNewline", "{\"jsonrpc\":\"2.0\",\"method\":\"ports.Get\",\"id\":1}\n", 0, "[]", "",
     R"({"jsonrpc":"2.0","id":"ports.Get","result":[]})"},
    {"SecondObject", R"({"jsonrpc":"2.0","method":"ports.Get","id":1}{"jsonrpc":"2.0"})", 0, "[]", "",
     R"({"jsonrpc":"2.0","id":"ports.Get","result":[]})"},
    {"GarbageBehind", "{\"jsonrpc\":\"2.0\",\"method\":\"ports.Get\",\"id\":1}}\xff", 0, "[]", "",
     R"({"jsonrpc":"2.0","id":"ports.Get","result":[]})"},
    {"MembersBesidesAreIgnored", R"({"other":[],"jsonrpc":"2.0","method":"ports.Get","id":1})", 0, "[]", "",
     R"({"jsonrpc":"2.0","id":"ports.Get","result":[]})"},

    {"NoSuchMethod", R"({"jsonrpc":"2.0","method":"ports.Lose","params":{},"id":7,"transaction_id":12})", 0, "", "",
     error_object(R"("ports.Lose")", -32601, "Method not found", "null", R"(,"transaction_id":12)"), 0},
    {"MethodsAreCaseSensitive", R"({"jsonrpc":"2.0","method":"ports.get","id":7})", 0, "", "",
     error_object(R"("ports.get")", -32601, "Method not found"), 0},
    {"MethodPrefix", R"({"jsonrpc":"2.0","method":"ports.Ge","id":7})", 0, "", "",
     error_object(R"("ports.Ge")", -32601, "Method not found"), 0},
    {"EmptyMethod", R"({"jsonrpc":"2.0","method":"","id":7})", 0, "", "",
     error_object(R"("")", -32601, "Method not found"), 0},
    {"MethodNumber", R"({"jsonrpc":"2.0","method":5,"id":1})", 0, "", "", error_object("5", -32601, "Method not found"),
     0},
    {"MethodObjectWithTransaction", R"({"jsonrpc":"2.0","method":{"a":null},"id":1,"transaction_id":0.5})", 0, "", "",
     error_object(R"({"a":null})", -32601, "Method not found", "null", R"(,"transaction_id":0.5)"), 0},
    {"MethodNull", R"({"jsonrpc":"2.0","method":null,"id":1})", 0, "", "",
     error_object("null", -32601, "Method not found"), 0},
    {"MethodAsciiOnly", "{\"jsonrpc\":\"2.0\",\"method\":\"\xc3\xa9\",\"id\":1}", 0, "", "",
     error_object(R"("\u00E9")", -32601, "Method not found"), 0},

    {"Failure", R"({"jsonrpc":"2.0","method":"ports.Get","id":1})", -6, "", "",
     error_object(R"("ports.Get")", -32030, "The given Port ID is invalid.")},
    {"FailureWithData", R"({"jsonrpc":"2.0","method":"ports.Get","id":1,"transaction_id":3})", -35, "",
     R"({"message":"no \u00e9"})",
     error_object(R"("ports.Get")", -32602, "Invalid parameter(s)", R"({"message":"no \u00E9"})",
                  R"(,"transaction_id":3)")},
    {"FailureWithResult", R"({"jsonrpc":"2.0","method":"ports.Get","id":1})", -1, "[1,2]", "[3]",
     error_object(R"("ports.Get")", -32001, "Unknown Error", "[3]")},
    {"NullArgumentStatus", R"({"jsonrpc":"2.0","method":"ports.Get","id":1})", -20, "", "",
     error_object(R"("ports.Get")", -32001, "Unknown Error")},
    {"CoreSwitchOffline", R"({"jsonrpc":"2.0","method":"ports.Get","id":1})", -74, "", "",
     error_object(R"("ports.Get")", -32059, "The core switch is offline")},
    {"SharedCode", R"({"jsonrpc":"2.0","method":"ports.Get","id":1})", -12, "", "",
     error_object(R"("ports.Get")", -32010, "The database encountered an error while processing the data.")},
    {"StatusOfNoRow", R"({"jsonrpc":"2.0","method":"ports.Get","id":1})", INT_MIN, "", "",
     error_object(R"("ports.Get")", -32001, "Unknown Error")},
};

INSTANTIATE_TEST_SUITE_P(Evaluate, AnsweredRequests, testing::ValuesIn(answered), name_of<Answered>);

const std::string get_ports = R"({"jsonrpc":"2.0","method":"ports.Get","id":7,"transaction_id":12})";
const std::string notify_ports = R"({"jsonrpc":"2.0","method":"ports.Get"})";

TEST(Evaluate, NullArguments) {
  char request[] = "{}";
  char* response = untouched;
  kestro_jrpc_mapping_t* const table = scripted_table();
  const char* const text = "kestro_jrpc_eval_request: NULL pointer!\n";
  const std::string log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_eval_request(nullptr, table, &response), -1);
    EXPECT_EQ(kestro_jrpc_eval_request(request, nullptr, &response), -1);
    EXPECT_EQ(kestro_jrpc_eval_request(request, table, nullptr), -1);
  });
  EXPECT_EQ(count_log_lines(log, Error, jrpc, text), 3);
}

TEST(Evaluate, AnEmptyTableHasNoMethods) {
  kestro_jrpc_mapping_t table[] = {{nullptr, nullptr}};
  std::string request = get_ports;
  char* response = nullptr;
  stderr_of([&] { EXPECT_EQ(kestro_jrpc_eval_request(request.data(), table, &response), 0); });
  const Text owned(response);
  EXPECT_THAT(response, HasSubstr("-32601"));
}

TEST(Evaluate, ParamsReachTheHandler) {
  const ScriptedMethod method;
  evaluate(R"({"jsonrpc":"2.0","method":"ports.Get","id":1,"params":{"port":"c1-1","deep":[{}]}})");
  EXPECT_EQ(method.params(), R"({"port":"c1-1","deep":[{}]})");
  EXPECT_TRUE(method.all_released());
}

TEST(Evaluate, AbsentParamsAreNullAndEmptyOnesAreNot) {
  const ScriptedMethod method;
  evaluate(get_ports);
  EXPECT_EQ(method.params(), "(null)");
  evaluate(R"({"jsonrpc":"2.0","method":"ports.Get","id":1,"params":{}})");
  EXPECT_EQ(method.params(), "{}");
}

TEST(Evaluate, ASuccessfulNotificationIsNotAnswered) {
  for (const int32_t status : {0, 7}) {
    const ScriptedMethod method(status, "[1]", "[2]");
    const auto seen = evaluate(notify_ports);
    EXPECT_EQ(seen.status, 0);
    EXPECT_EQ(seen.response, "(null)");
    EXPECT_EQ(method.calls(), 1);
    EXPECT_TRUE(method.all_released());
    EXPECT_THAT(seen.log, Not(HasLog(Verbose, jrpc, "creating response\n")));
  }
}

TEST(Evaluate, AFailedNotificationIsNotAnswered) {
  const ScriptedMethod method(-6, "[1]", "[2]");
  const auto seen = evaluate(notify_ports);
  EXPECT_EQ(seen.status, -1);
  EXPECT_EQ(seen.response, "untouched");
  EXPECT_EQ(method.calls(), 1);
  EXPECT_TRUE(method.all_released());
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "Received error code <-6> to convert to jrpc error\n"));
  EXPECT_THAT(seen.log, Not(HasLog(Debug, jrpc, no_echo)));
}

// ---- What is told about it ----

TEST(EvaluateLog, ParseErrorWithItsLine) {
  const auto seen = evaluate("{\n  \"jsonrpc\": nonsense\n}");
  json_error_t error;
  const Json none(json_loads("{\n  \"jsonrpc\": nonsense\n}", JSON_DECODE_ANY, &error));
  EXPECT_THAT(seen.log, HasLog(Error, jrpc, "error: on line 2: " + std::string(error.text) + "\n"));
}

TEST(EvaluateLog, SuccessfulRequest) {
  const ScriptedMethod method(0, "[1]");
  const auto seen = evaluate(notify_ports.substr(0, notify_ports.size() - 1) + ",\"id\":1}");
  EXPECT_THAT(seen.log, HasLog(Verbose, jrpc, "Valid JSON received, of length 64\n"));
  EXPECT_THAT(seen.log,
              HasLog(Verbose, jrpc,
                     "JSON Data:\n{\n    \"jsonrpc\": \"2.0\",\n    \"method\": \"ports.Get\",\n    \"id\": 1\n}\n"));
  EXPECT_THAT(seen.log, HasLog(Verbose, jrpc, "creating response\n"));
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "JSON response sent, of string length 47\n"));
  EXPECT_THAT(seen.log, HasLog(Verbose, jrpc, "The JSON Response was:\n" + seen.response + "\n"));
  EXPECT_EQ(seen.response.size(), 47U);
}

TEST(EvaluateLog, FailedRequest) {
  const ScriptedMethod method(-8);
  const auto seen = evaluate(get_ports, Debug);
  EXPECT_THAT(seen.log, HasLog(Debug, jrpc, "Received error code <-8> to convert to jrpc error\n"));
  EXPECT_THAT(seen.log, HasLog(Warning, jrpc, "JSON Response: " + seen.response + "\n"));
  EXPECT_THAT(seen.log, Not(HasSubstr("Valid JSON received")));
  EXPECT_THAT(seen.log, Not(HasSubstr("JSON response sent")));
}

TEST(EvaluateLog, UnknownMethod) {
  const auto seen = evaluate(R"({"jsonrpc":"2.0","method":"ports.Lose","id":7})", Debug);
  EXPECT_THAT(seen.log, HasLog(Error, jrpc, "invalid method occurred <ports.Lose>\n"));
  EXPECT_THAT(seen.log, Not(HasSubstr("Received error code")));
}

// ---- Memory that runs out ----

// Makes allocations of the JSON library fail while it lives: from the nth on after arm(), as many as told.
class JsonMemory {
 public:
  JsonMemory() { json_set_alloc_funcs(allocate, std::free); }
  JsonMemory(const JsonMemory&) = delete;
  JsonMemory& operator=(const JsonMemory&) = delete;
  ~JsonMemory() { json_set_alloc_funcs(std::malloc, std::free); }

  static void arm(int nth, int how_many) {
    before_ = nth - 1;
    to_fail_ = how_many;
    failed_ = 0;
  }
  static void disarm() { to_fail_ = 0; }
  static int failed() { return failed_; }

 private:
  static void* allocate(size_t size) {
    if (to_fail_ == 0) return std::malloc(size);
    if (before_ > 0) {
      --before_;
      return std::malloc(size);
    }
    --to_fail_;
    ++failed_;
    return nullptr;
  }

  static inline int before_ = 0;
  static inline int to_fail_ = 0;
  static inline int failed_ = 0;
};

constexpr int all_that_follow = INT_MAX;

struct Starved {
  const char* name;
  int32_t handled;
  const char* result;
  const char* err_data;
  int how_many;
};

// Runs the request with every allocation of its answer failing in turn, until one run sees no failure.
template <class Check>
int for_each_failed_allocation(const Starved& it, Check&& check) {
  for (int nth = 1;; ++nth) {
    SCOPED_TRACE(nth);
    ScriptedMethod method(it.handled, it.result, it.err_data);
    method.meanwhile([&] { JsonMemory::arm(nth, it.how_many); });
    const auto seen = evaluate(get_ports);
    JsonMemory::disarm();
    EXPECT_TRUE(method.all_released());
    if (JsonMemory::failed() == 0) {
      EXPECT_EQ(seen.status, 0);
      return nth - 1;
    }
    check(seen);
    if (testing::Test::HasFailure()) return 0;
  }
}

class StarvedAnswers : public testing::TestWithParam<Starved> {
 protected:
  JsonMemory memory_;
};

using StarvedOnce = StarvedAnswers;
using StarvedForGood = StarvedAnswers;

TEST_P(StarvedOnce, ASuccessBecomesAnInternalError) {
  const auto expected = error_object(R"("ports.Get")", -32603, "Internal error", "null", R"(,"transaction_id":12)");
  const auto failures = for_each_failed_allocation(GetParam(), [&](const Evaluated& seen) {
    EXPECT_EQ(seen.status, 0);
    EXPECT_EQ(seen.response, expected);
    EXPECT_THAT(seen.log, HasLog(Warning, jrpc, "JSON Response: " + expected + "\n"));
    EXPECT_THAT(seen.log, Not(HasSubstr("JSON response sent")));
  });
  EXPECT_GT(failures, 5);
}

INSTANTIATE_TEST_SUITE_P(Evaluate, StarvedOnce,
                         testing::Values(Starved{"NoResult", 0, "", "", 1}, Starved{"Array", 0, "[1,2]", "", 1},
                                         Starved{"Object", 0, R"({"a":{"b":["c"]}})", "", 1}),
                         name_of<Starved>);

TEST_P(StarvedForGood, NothingIsSent) {
  const auto failures = for_each_failed_allocation(GetParam(), [&](const Evaluated& seen) {
    EXPECT_EQ(seen.status, -1);
    EXPECT_EQ(seen.response, "(null)");
    EXPECT_THAT(seen.log, HasLog(Error, jrpc, cannot_create));
    EXPECT_THAT(seen.log, Not(HasSubstr("JSON Response: ")));
  });
  EXPECT_GT(failures, 5);
}

INSTANTIATE_TEST_SUITE_P(Evaluate, StarvedForGood,
                         testing::Values(Starved{"NoResult", 0, "", "", all_that_follow},
                                         Starved{"Result", 0, "[1]", "", all_that_follow},
                                         Starved{"Failure", -6, "", "", all_that_follow},
                                         Starved{"FailureWithData", -6, "", R"({"message":"m"})", all_that_follow},
                                         Starved{"FailureOnce", -6, "", "", 1},
                                         Starved{"FailureWithDataOnce", -6, "", R"({"message":"m"})", 1}),
                         name_of<Starved>);

// One of the failures above falls on the transaction id, and is told.
TEST(EvaluateMemory, ATransactionIdThatCannotBeAddedIsTold) {
  const JsonMemory memory;
  int success_lines = 0;
  for_each_failed_allocation({"", 0, "[1]", "", 1}, [&](const Evaluated& seen) {
    const int added = count_log_lines(seen.log, Error, jrpc, no_transaction);
    EXPECT_EQ(count_log_lines(seen.log, Error, jrpc, "kestro_jrpc_create_response: Failed to create JRPC response\n"),
              added);
    success_lines += added;
  });
  EXPECT_GT(success_lines, 0);

  int error_lines = 0;
  for_each_failed_allocation({"", -6, "", "", 1}, [&](const Evaluated& seen) {
    error_lines += count_log_lines(seen.log, Error, jrpc, no_transaction);
    EXPECT_THAT(seen.log, Not(HasSubstr("kestro_jrpc_create_response")));
  });
  EXPECT_GT(error_lines, 0);
}

// Tokens of up to 15 characters: the JSON library does not survive that the buffer of a longer one cannot grow.
TEST(EvaluateMemory, WhileTheRequestIsRead) {
  const JsonMemory memory;
  const std::string short_tokens = R"({"jsonrpc":"2.0","method":"ports.Get","id":7})";
  int not_read = 0;
  int not_shown = 0;
  for (int nth = 1;; ++nth) {
    SCOPED_TRACE(nth);
    const ScriptedMethod method;
    JsonMemory::arm(nth, 1);
    const auto seen = evaluate(short_tokens);
    JsonMemory::disarm();
    if (method.calls() > 0) break;
    ASSERT_EQ(JsonMemory::failed(), 1);
    EXPECT_EQ(seen.status, -1);
    EXPECT_EQ(seen.response, "untouched");
    not_read += count_log_lines(seen.log, Error, jrpc, not_json);
    not_shown += count_log_lines(seen.log, Error, jrpc, "kestro_jrpc_eval_request: Could not print JSON\n");
    EXPECT_EQ(not_read + not_shown, nth);
  }
  EXPECT_GT(not_read, 0);
  EXPECT_GT(not_shown, 0);
}

TEST(EvaluateMemory, WhileTheTextOfTheAnswerIsWritten) {
  std::optional<Fault> fault;
  ScriptedMethod method(0, "[1]");
  method.meanwhile([&] { fault.emplace("malloc", ENOMEM); });
  EXPECT_EQ(evaluate(get_ports).response,
            error_object(R"("ports.Get")", -32603, "Internal error", "null", R"(,"transaction_id":12)"));

  ScriptedMethod failing(-1);
  failing.meanwhile([&] { fault.emplace("malloc", ENOMEM); });
  const auto seen = evaluate(get_ports);
  EXPECT_EQ(seen.status, -1);
  EXPECT_EQ(seen.response, "(null)");
  EXPECT_THAT(seen.log, HasLog(Error, jrpc, cannot_create));
}

// Blocks that an ordinary free() would not take.
void* allocate_odd(size_t size) {
  auto* const block = static_cast<char*>(std::malloc(size + sizeof(max_align_t)));
  return block != nullptr ? block + sizeof(max_align_t) : nullptr;
}
void free_odd(void* memory) {
  if (memory != nullptr) std::free(static_cast<char*>(memory) - sizeof(max_align_t));
}

TEST(EvaluateMemory, TheAnswerIsFreedOrdinarilyWhateverAllocatorTheJsonLibraryHas) {
  json_set_alloc_funcs(allocate_odd, free_odd);
  {
    const ScriptedMethod method(0, "[1]");
    EXPECT_EQ(evaluate(get_ports).status, 0);
    EXPECT_EQ(evaluate("{}").status, -1);
  }
  json_set_alloc_funcs(std::malloc, std::free);
}

// ---- Any bytes ----

bool is_number_or_text(const json_t* value) {
  return json_is_string(value) || json_is_number(value);
}

enum class Fate { NotRead, Stopped, Called, NotFound };

// What the rules say of a text, told by the JSON library alone.
Fate fate_of(const json_t* root) {
  if (!json_is_object(root)) return Fate::NotRead;
  const json_t* const id = json_object_get(root, "id");
  const json_t* const transaction = json_object_get(root, "transaction_id");
  const json_t* const version = json_object_get(root, "jsonrpc");
  const json_t* const params = json_object_get(root, "params");
  const json_t* const method = json_object_get(root, "method");
  if (id != nullptr && !is_number_or_text(id)) return Fate::Stopped;
  if (transaction != nullptr && !json_is_number(transaction)) return Fate::Stopped;
  if (!json_is_string(version) || std::string(json_string_value(version)) != "2.0") return Fate::Stopped;
  if (params != nullptr && !json_is_object(params)) return Fate::Stopped;
  if (method == nullptr) return Fate::Stopped;
  const bool known = json_is_string(method) && std::string(json_string_value(method)) == "ports.Get";
  return known ? Fate::Called : Fate::NotFound;
}

struct Tally {
  int refused = 0;
  int answered = 0;
};

// Evaluates a text and compares what comes with the rules. Handlers succeed.
void check_text(const std::string& text, Tally& tally) {
  const ScriptedMethod method(0, "[1]");
  std::string request = text;
  char* raw = nullptr;
  const auto status = kestro_jrpc_eval_request(request.data(), scripted_table(), &raw);
  const Text response(raw);

  const Json root(json_loads(text.c_str(), JSON_REJECT_DUPLICATES | JSON_DISABLE_EOF_CHECK | JSON_DECODE_ANY, nullptr));
  const Fate fate = fate_of(root.get());
  const bool wants_answer = json_object_get(root.get(), "id") != nullptr;
  const bool responds = wants_answer && (fate == Fate::Called || fate == Fate::NotFound);
  ASSERT_EQ(status, responds || fate == Fate::Called ? 0 : -1) << text;
  ASSERT_EQ(method.calls(), fate == Fate::Called ? 1 : 0) << text;
  ASSERT_EQ(response != nullptr, responds) << text;
  ++(responds ? tally.answered : tally.refused);
  if (!responds) return;

  const std::string answer = response.get();
  ASSERT_TRUE(std::all_of(answer.begin(), answer.end(), [](char c) { return c >= ' '; })) << answer;
  const Json object = json_of(answer);
  ASSERT_TRUE(json_equal(json_object_get(object.get(), "id"), json_object_get(root.get(), "method"))) << answer;
  ASSERT_TRUE(
      json_equal(json_object_get(object.get(), "transaction_id"), json_object_get(root.get(), "transaction_id")) != 0 ||
      json_object_get(root.get(), "transaction_id") == nullptr)
      << answer;
  const char* const kind = fate == Fate::Called ? "result" : "error";
  ASSERT_NE(json_object_get(object.get(), kind), nullptr) << answer;
}

const std::string seeds[] = {
    R"({"jsonrpc":"2.0","method":"ports.Get","params":{"port":"c1-1","n":[1,2.5,true,null]},"id":7,"transaction_id":12})",
    "{\"jsonrpc\":\"2.0\",\"method\":\"ports.G\xc3\xa9t\",\"id\":\"channel\"}\n",
    R"({"id":1e3,"transaction_id":-0.5,"method":"ports.Get","jsonrpc":"2.0"} behind)",
    R"({"jsonrpc":"2.0","method":"ports.Get"})",
};

TEST(EvaluateAnyBytes, EveryTruncation) {
  const LogLevel quiet(0);
  Tally tally;
  for (const auto& seed : seeds) {
    for (size_t length = 0; length <= seed.size(); ++length) check_text(seed.substr(0, length), tally);
  }
  EXPECT_GT(tally.answered, 2);
  EXPECT_GT(tally.refused, 100);
}

TEST(EvaluateAnyBytes, EveryFlippedBit) {
  const LogLevel quiet(0);
  Tally tally;
  for (const auto& seed : seeds) {
    for (size_t bit = 0; bit < seed.size() * 8; ++bit) {
      std::string text = seed;
      text[bit / 8] = static_cast<char>(text[bit / 8] ^ (1 << (bit % 8)));
      check_text(text, tally);
    }
  }
  EXPECT_GT(tally.answered, 100);
  EXPECT_GT(tally.refused, 100);
}

TEST(EvaluateAnyBytes, RandomBytesInAndInsteadOfRequests) {
  const LogLevel quiet(0);
  std::mt19937 random(20'261);
  Tally tally;
  const auto below = [&](size_t bound) { return std::uniform_int_distribution<size_t>(0, bound - 1)(random); };
  for (int round = 0; round < 20'000; ++round) {
    std::string text = round % 4 == 0 ? std::string(below(64), ' ') : seeds[below(std::size(seeds))];
    const size_t changes = round % 4 == 0 ? text.size() : 1 + below(3);
    for (size_t i = 0; i < changes && !text.empty(); ++i) {
      const size_t at = below(text.size());
      const char byte = static_cast<char>(below(256));
      switch (below(3)) {
        case 0:
          text[at] = byte;
          break;
        case 1:
          text.insert(at, 1, byte);
          break;
        default:
          text.erase(at, 1 + below(4));
          break;
      }
    }
    check_text(text, tally);
  }
  EXPECT_GT(tally.answered, 100);
  EXPECT_GT(tally.refused, 100);
}

TEST(EvaluateAnyBytes, AreShownAtVerbose) {
  const LogLevel all(Verbose);
  CapturedStderr capture;
  Tally tally;
  for (const auto& seed : seeds) {
    for (size_t at = 0; at < seed.size(); ++at) {
      std::string text = seed;
      text[at] = '%';
      check_text(text, tally);
      text[at] = '\x80';
      check_text(text, tally);
    }
    EXPECT_THAT(capture.text(), HasSubstr("Valid JSON received"));
    capture.clear();
  }
}

// A request whose values lie `depth` deep, itself the first.
std::string nested(int depth) {
  const auto arrays = static_cast<size_t>(depth - 2);
  return R"({"jsonrpc":"2.0","id":1,"method":"ports.Get","params":{"a":)" + std::string(arrays, '[') +
         std::string(arrays, ']') + "}}";
}

TEST(EvaluateAnyBytes, NestingEndsAt2048) {
  struct {
    int depth;
    int status;
  } const cases[] = {{2047, 0}, {2048, 0}, {2049, -1}, {100'000, -1}};
  for (const auto& it : cases) {
    SCOPED_TRACE(it.depth);
    const ScriptedMethod method;
    EXPECT_EQ(evaluate(nested(it.depth)).status, it.status);
    EXPECT_EQ(evaluate(nested(it.depth), 0).status, it.status);
    EXPECT_EQ(method.calls(), it.status == 0 ? 2 : 0);
  }
}

TEST(EvaluateAnyBytes, OpenBracketsWithoutEnd) {
  EXPECT_EQ(evaluate(std::string(1'000'000, '[')).status, -1);
  EXPECT_EQ(evaluate(std::string(1'000'000, '{')).status, -1);
}

TEST(EvaluateAnyBytes, TextsOfAMegabyte) {
  const std::string megabyte(1'000'000, 'x');
  const ScriptedMethod method(0, "[\"" + megabyte + "\"]");
  EXPECT_EQ(evaluate(R"({"jsonrpc":"2.0","id":1,"method":"ports.Get","params":{"text":")" + megabyte + "\"}}").response,
            R"({"jsonrpc":"2.0","id":"ports.Get","result":[")" + megabyte + "\"]}");
  EXPECT_EQ(method.params().size(), megabyte.size() + 11);
  EXPECT_EQ(evaluate(R"({"jsonrpc":"2.0","id":")" + megabyte + R"(","method":"ports.Get"})").status, 0);
  EXPECT_EQ(evaluate(R"({"jsonrpc":"2.0","id":1,"method":")" + megabyte + "\"}").response,
            error_object("\"" + megabyte + "\"", -32601, "Method not found"));
  EXPECT_EQ(evaluate(megabyte).status, -1);
  EXPECT_EQ(evaluate(std::string(1'000'000, ' ')).status, -1);
}

}  // namespace
}  // namespace kestro::test
