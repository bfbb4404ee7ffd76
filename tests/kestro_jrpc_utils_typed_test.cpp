#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstring>
#include <set>
#include <string>

#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/error_data.hpp"
#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/request.hpp"
#include "support/scarce_json.hpp"

namespace {
int stack_traces = 0;
}
// The library's own is empty and weak: this one takes its place.
void print_stacktrace(void) noexcept {
  ++stack_traces;
}

namespace kestro::test {
namespace {

using testing::AllOf;
using testing::Not;

constexpr const char* module = "kestro_jrpc_utils";

// A reader with its output spelled out, "untouched" unless it was written.
using Read = int32_t (*)(const json_t* params, json_t** err_data, const char* name, std::string* output);

std::string spelled(const json_t* value, const json_t* untouched) {
  return value == untouched ? "untouched" : text_of(value);
}

int32_t read_bool(const json_t* params, json_t** err_data, const char* name, std::string* output) {
  json_t untouched{};
  json_t* value = &untouched;
  const int32_t status =
      kestro_jrpc_utils_parse_input_bool(params, err_data, name, output == nullptr ? nullptr : &value);
  if (output != nullptr) *output = spelled(value, &untouched);
  return status;
}

int32_t read_bool_val(const json_t* params, json_t** err_data, const char* name, std::string* output) {
  // Both start values show what was written.
  bool from_false = false;
  bool from_true = true;
  const bool no_output = output == nullptr;
  const int32_t status =
      kestro_jrpc_utils_parse_input_bool_val(params, err_data, name, no_output ? nullptr : &from_false);
  const LogLevel once(0);
  EXPECT_EQ(kestro_jrpc_utils_parse_input_bool_val(params, nullptr, name, no_output ? nullptr : &from_true), status);
  const bool untouched = !from_false && from_true;
  if (!no_output) *output = untouched ? "untouched" : from_true ? "true" : "false";
  return status;
}

int32_t read_string(const json_t* params, json_t** err_data, const char* name, std::string* output) {
  std::array<char, 100> text;
  text.fill('?');
  const int32_t status = kestro_jrpc_utils_parse_input_string(params, err_data, name,
                                                              output == nullptr ? nullptr : text.data(), text.size());
  if (output != nullptr) *output = text[0] == '?' ? "untouched" : std::string("\"") + text.data() + "\"";
  return status;
}

int32_t read_integer(const json_t* params, json_t** err_data, const char* name, std::string* output) {
  int32_t number = 4711;
  const int32_t status =
      kestro_jrpc_utils_parse_input_integer(params, err_data, name, output == nullptr ? nullptr : &number);
  if (output != nullptr) *output = number == 4711 ? "untouched" : std::to_string(number);
  return status;
}

int32_t read_array(const json_t* params, json_t** err_data, const char* name, std::string* output) {
  json_t untouched{};
  json_t* value = &untouched;
  const int32_t status = kestro_jrpc_utils_parse_input_array(params, err_data, name, &value);
  if (output != nullptr) *output = spelled(value, &untouched);
  return status;
}

int32_t read_uint64(const json_t* params, json_t** err_data, const char* name, std::string* output) {
  uint64_t number = 4711;
  const int32_t status =
      kestro_jrpc_utils_parse_input_uint64_t(params, err_data, name, output == nullptr ? nullptr : &number);
  if (output != nullptr) *output = number == 4711 ? "untouched" : std::to_string(number);
  return status;
}

int32_t read_float(const json_t* params, json_t** err_data, const char* name, std::string* output) {
  float number = 4711;
  const int32_t status =
      kestro_jrpc_utils_parse_input_float(params, err_data, name, output == nullptr ? nullptr : &number);
  if (output != nullptr) *output = number == 4711 ? "untouched" : std::to_string(number);
  return status;
}

struct Type {
  const char* word;
  const char* announcement;
  Severity absent_severity;
  const char* absent;
  const char* mismatch;
};

const Type bool_type{"bool", "Parsing input bool for parameter: value\n", Warning, "No parameter <value> found\n",
                     "parameter <value> is not a bool\n"};
const Type string_type{"string", "Parsing input string for parameter: value\n", Warning,
                       "No parameter by the name <value> found\n", "Given parameter <value> is not a string\n"};
const Type integer_type{"integer", "Parsing input integer for parameter: value\n", Error,
                        "No parameter by the name <value> found\n", "Given parameter <value> is not an integer\n"};
const Type array_type{"array", "Parsing input array for parameter: value\n", Error,
                      "No parameter by the name <value> found\n",
                      "The given parameter <value> is supposed to be an array.\n"};

struct Reader {
  const char* name;
  Read read;
  const Type& type;
  std::set<std::string> accepted;  // of the values below
  const char* empty;               // the output after a failure; null: the member itself
};

const Reader readers[] = {
    {"Bool", read_bool, bool_type, {"true", "false"}, nullptr},
    {"BoolVal", read_bool_val, bool_type, {"true", "false"}, "false"},
    {"String", read_string, string_type, {R"("")", R"("1")"}, R"("")"},
    {"Integer", read_integer, integer_type, {"0", "-7"}, "0"},
    {"Array", read_array, array_type, {"[]", "[1]"}, nullptr},
    {"Uint64", read_uint64, string_type, {R"("")", R"("1")"}, "0"},
    {"Float", read_float, string_type, {R"("")", R"("1")"}, "0.000000"},
};

const char* const values[] = {"true", "false", "null", "0",   "-7", "7.0",
                              "\"\"", "\"1\"", "[]",   "[1]", "{}", "{\"a\":1}"};

class Typed : public testing::TestWithParam<Reader> {
 protected:
  const LogLevel level{Verbose};
  const Reader& reader = GetParam();
  int32_t status = 1;
  std::string output;

  std::string log_of_reading(Request& request, const char* name = "value") {
    return stderr_of([&] { status = reader.read(request.params(), request.err_data(), name, &output); });
  }
};
INSTANTIATE_TEST_SUITE_P(All, Typed, testing::ValuesIn(readers), name_of<Reader>);

TEST_P(Typed, TakesItsTypeAndNoOther) {
  for (const std::string value : values) {
    SCOPED_TRACE(value);
    Request request = Request::of(json_of(value));
    const auto log = log_of_reading(request);
    EXPECT_THAT(log, HasLog(Verbose, module, reader.type.announcement));
    if (reader.accepted.count(value) != 0) {
      EXPECT_EQ(status, 0);
      EXPECT_EQ(request.explanation(), "");
      EXPECT_THAT(log, Not(HasLog(Error, module, reader.type.mismatch)));
      continue;
    }
    const std::string explanation = std::string("Parameter 'value' is not of type '") + reader.type.word + "'.";
    EXPECT_EQ(status, -31);
    EXPECT_EQ(request.explanation(), explanation);
    EXPECT_EQ(output, reader.empty != nullptr ? reader.empty : value);
    EXPECT_THAT(log, HasLog(Error, module, reader.type.mismatch));
    EXPECT_THAT(log, HasLog(Debug, module, "Sending debug message: " + explanation + "\n"));
  }
}

TEST_P(Typed, MissingMember) {
  for (const char* const params : {"{}", "{\"Value\":1,\"value \":2}", "[]", "null"}) {
    SCOPED_TRACE(params);
    Request request(params);
    const auto log = log_of_reading(request);
    EXPECT_EQ(status, -35);
    EXPECT_EQ(output, reader.empty != nullptr ? reader.empty : "null");
    EXPECT_EQ(request.explanation(), "Missing expected parameter: 'value'");
    EXPECT_THAT(log, HasLog(Verbose, module, reader.type.announcement));
    EXPECT_EQ(count_log_lines(log, reader.type.absent_severity, module, reader.type.absent), 1);
    EXPECT_THAT(log, HasLog(Debug, module, "Sending debug message: Missing expected parameter: 'value'\n"));
  }
}

TEST_P(Typed, NoParametersAreMissingOnes) {
  Request request(Json{});
  log_of_reading(request);
  EXPECT_EQ(status, -35);
  EXPECT_EQ(request.explanation(), "Missing expected parameter: 'value'");
}

TEST_P(Typed, ReadsTheNamedMemberAndLeavesTheRequestAsItIs) {
  const std::string value = *reader.accepted.rbegin();
  const std::string params = R"({"other":{},"value":)" + value + "}";
  Request request(params);
  log_of_reading(request);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(text_of(request.params()), params);
  const json_t* const member = json_object_get(request.params(), "value");
  EXPECT_EQ(member->refcount, json_is_boolean(member) ? SIZE_MAX : 1);
}

TEST_P(Typed, NullNameIsRefused) {
  Request request("{}");
  const auto log = log_of_reading(request, nullptr);
  EXPECT_EQ(status, -4);
  EXPECT_EQ(output, "untouched");
  EXPECT_EQ(request.explanation(), "");
  EXPECT_THAT(log, AllOf(HasLog(Debug, module, "NULL pointer!\n"), Not(testing::HasSubstr("Parsing"))));
}

TEST_P(Typed, NullOutputIsRefused) {
  if (reader.read == read_array) GTEST_SKIP() << "the caller sees to it";
  Request request(R"({"value":"1"})");
  const auto log = stderr_of([&] { status = reader.read(request.params(), request.err_data(), "value", nullptr); });
  EXPECT_EQ(status, -4);
  EXPECT_EQ(request.explanation(), "");
  EXPECT_THAT(log, AllOf(HasLog(Debug, module, "NULL pointer!\n"), Not(testing::HasSubstr("Parsing"))));
}

TEST_P(Typed, NoExplanationIsWanted) {
  for (const std::string value : values) {
    const Request request = Request::of(json_of(value));
    const auto ignored = stderr_of([&] { status = reader.read(request.params(), nullptr, "value", &output); });
    EXPECT_EQ(status, reader.accepted.count(value) != 0 ? 0 : -31) << value;
  }
  const auto ignored = stderr_of([&] { status = reader.read(nullptr, nullptr, "value", &output); });
  EXPECT_EQ(status, -35);
}

TEST_P(Typed, TheFirstExplanationStays) {
  Request wrong_type(R"({"value":null})");
  log_of_reading(wrong_type.explain("earlier"));
  EXPECT_EQ(status, -31);
  EXPECT_EQ(wrong_type.explanation(), "earlier");

  Request missing("{}");
  const auto log = log_of_reading(missing.explain("earlier"));
  EXPECT_EQ(status, -35);
  EXPECT_EQ(missing.explanation(), "earlier");
  EXPECT_THAT(log, HasLog(Debug, module, "Sending debug message: Missing expected parameter: 'value'\n"));
}

TEST_P(Typed, LongExplanationsAreCut) {
  const std::string name(200, 'n');
  Request request("{}");
  log_of_reading(request, name.c_str());
  EXPECT_EQ(status, -35);
  EXPECT_EQ(request.explanation(), ("Missing expected parameter: '" + name).substr(0, 99));

  Json params(json_object());
  json_object_set_new(params.get(), name.c_str(), json_null());
  Request mismatch(std::move(params));
  log_of_reading(mismatch, name.c_str());
  EXPECT_EQ(status, -31);
  EXPECT_EQ(mismatch.explanation(), ("Parameter '" + name).substr(0, 99));
}

TEST_P(Typed, MemoryRunsOut) {
  const LogLevel off(0);
  for (const char* const params : {"{}", R"({"value":null})"}) {
    Request plenty(params);
    const int32_t expected = reader.read(plenty.params(), plenty.err_data(), "value", &output);
    bool fired = true;
    for (int nth = 1; fired; ++nth) {
      SCOPED_TRACE(nth);
      Request request(params);
      {
        const ScarceJson scarce(nth);
        status = reader.read(request.params(), request.err_data(), "value", &output);
        fired = scarce.fired();
      }
      EXPECT_EQ(status, expected);
      if (!fired || !request.explanation().empty()) {
        EXPECT_EQ(request.explanation(), plenty.explanation());
      }
      ASSERT_LT(nth, 100);
    }
  }
}

// ---- Booleans

TEST(TypedBool, GivesTheMemberItself) {
  const LogLevel off(0);
  const Request request(R"({"yes":true,"no":false})");
  json_t* value = nullptr;
  EXPECT_EQ(kestro_jrpc_utils_parse_input_bool(request.params(), nullptr, "yes", &value), 0);
  EXPECT_EQ(value, json_object_get(request.params(), "yes"));
  EXPECT_EQ(kestro_jrpc_utils_parse_input_bool(request.params(), nullptr, "no", &value), 0);
  EXPECT_EQ(value, json_object_get(request.params(), "no"));

  bool flag = false;
  EXPECT_EQ(kestro_jrpc_utils_parse_input_bool_val(request.params(), nullptr, "yes", &flag), 0);
  EXPECT_TRUE(flag);
  EXPECT_EQ(kestro_jrpc_utils_parse_input_bool_val(request.params(), nullptr, "no", &flag), 0);
  EXPECT_FALSE(flag);
}

TEST(TypedArray, GivesTheMemberItself) {
  const LogLevel off(0);
  const Request request(R"({"list":[1,2]})");
  json_t* value = nullptr;
  EXPECT_EQ(kestro_jrpc_utils_parse_input_array(request.params(), nullptr, "list", &value), 0);
  EXPECT_EQ(value, json_object_get(request.params(), "list"));
}

// ---- Strings

// A buffer of `length` bytes between guards.
class GuardedBuffer {
 public:
  explicit GuardedBuffer(size_t length) : bytes_(length + 2, '?') {}
  char* text() { return bytes_.data() + 1; }
  [[nodiscard]] std::string bytes() const { return bytes_.substr(1, bytes_.size() - 2); }
  [[nodiscard]] bool guards_stand() const { return bytes_.front() == '?' && bytes_.back() == '?'; }

 private:
  std::string bytes_;
};

std::string overflow_text(size_t needed, int32_t length) {
  return "value: overflow detected: " + std::to_string(needed) + " characters written, " + std::to_string(length) +
         " characters allowed.";
}

TEST(TypedString, EverySizeAgainstEveryLength) {
  for (size_t length = 1; length <= 12; ++length) {
    for (size_t size = 0; size <= 13; ++size) {
      SCOPED_TRACE(std::to_string(size) + " into " + std::to_string(length));
      const std::string text = std::string("abcdefghijklm").substr(0, size);
      Request request = Request::of(text);
      GuardedBuffer out(length);
      int32_t status = 1;
      stack_traces = 0;
      const auto log = stderr_of([&] {
        status = kestro_jrpc_utils_parse_input_string(request.params(), request.err_data(), "value", out.text(),
                                                      static_cast<int32_t>(length));
      });
      const bool fits = size < length;
      const std::string kept = text.substr(0, length - 1);
      EXPECT_EQ(status, fits ? 0 : -31);
      EXPECT_EQ(out.bytes(), kept + std::string(length - kept.size(), '\0'));
      EXPECT_TRUE(out.guards_stand());
      EXPECT_EQ(request.explanation(), fits ? "" : overflow_text(size, static_cast<int32_t>(length)));
      EXPECT_EQ(stack_traces, fits ? 0 : 1);
      EXPECT_EQ(count_log_lines(log, Error, "kestro_utils",
                                "OVERFLOW: wbytes " + std::to_string(size) + " sz " + std::to_string(length) + "\n"),
                fits ? 0 : 1);
    }
  }
}

TEST(TypedString, BufferWithoutAnyRoomHoldsNothing) {
  const LogLevel off(0);
  for (const int32_t length : {0, -1, INT_MIN}) {
    for (const char* const text : {"", "text"}) {
      Request request = Request::of(text);
      GuardedBuffer out(0);
      EXPECT_EQ(kestro_jrpc_utils_parse_input_string(request.params(), request.err_data(), "value", out.text(), length),
                -31);
      EXPECT_TRUE(out.guards_stand());
      EXPECT_EQ(request.explanation(), overflow_text(strlen(text), length));
    }
  }
}

TEST(TypedString, SuccessIsToldAtVerboseAndOverflowIsNot) {
  const LogLevel level(Verbose);
  const Request request = Request::of("12345");
  char out[6];
  EXPECT_THAT(stderr_of([&] { kestro_jrpc_utils_parse_input_string(request.params(), nullptr, "value", out, 6); }),
              HasLog(Verbose, module, "Parsed value: 12345\n"));
  Request too_long = Request::of("123456");
  EXPECT_THAT(
      stderr_of([&] { kestro_jrpc_utils_parse_input_string(too_long.params(), too_long.err_data(), "value", out, 6); }),
      AllOf(Not(testing::HasSubstr("Parsed")), Not(testing::HasSubstr("Sending"))));
}

TEST(TypedString, OverflowReplacesTheExplanation) {
  const LogLevel off(0);
  Request request = Request::of("123456");
  char out[6];
  EXPECT_EQ(kestro_jrpc_utils_parse_input_string(request.explain("earlier").params(), request.err_data(), "value", out,
                                                 sizeof(out)),
            -31);
  EXPECT_EQ(request.explanation(), overflow_text(6, 6));
  EXPECT_STREQ(out, "12345");
}

TEST(TypedString, OverflowWithoutAPlaceForTheExplanation) {
  const LogLevel off(0);
  const Request request = Request::of("123456");
  char out[6];
  EXPECT_EQ(kestro_jrpc_utils_parse_input_string(request.params(), nullptr, "value", out, sizeof(out)), -31);
  EXPECT_STREQ(out, "12345");
}

TEST(TypedString, OneRequestSeveralFailures) {
  const LogLevel off(0);
  Request request(R"({"number":7.0,"text":"123456"})");
  char out[6];
  int32_t number = 0;
  EXPECT_EQ(kestro_jrpc_utils_parse_input_integer(request.params(), request.err_data(), "number", &number), -31);
  EXPECT_EQ(request.explanation(), "Parameter 'number' is not of type 'integer'.");
  EXPECT_EQ(kestro_jrpc_utils_parse_input_integer(request.params(), request.err_data(), "none", &number), -35);
  EXPECT_EQ(request.explanation(), "Parameter 'number' is not of type 'integer'.");
  EXPECT_EQ(kestro_jrpc_utils_parse_input_string(request.params(), request.err_data(), "text", out, 6), -31);
  EXPECT_EQ(request.explanation(), "text: overflow detected: 6 characters written, 6 characters allowed.");
  EXPECT_EQ(kestro_jrpc_utils_parse_input_string(request.params(), request.err_data(), "text", out, 2), -31);
  EXPECT_EQ(request.explanation(), "text: overflow detected: 6 characters written, 2 characters allowed.");
  EXPECT_EQ(kestro_jrpc_utils_parse_input_integer(request.params(), request.err_data(), "none", &number), -35);
  EXPECT_EQ(request.explanation(), "text: overflow detected: 6 characters written, 2 characters allowed.");
}

TEST(TypedString, LongOverflowTextsAreCut) {
  const LogLevel off(0);
  const std::string name(80, 'n');
  Request request(R"({")" + name + R"(":"abc"})");
  char out[2];
  EXPECT_EQ(kestro_jrpc_utils_parse_input_string(request.params(), request.err_data(), name.c_str(), out, 2), -31);
  EXPECT_EQ(request.explanation(), (name + ": overflow detected: 3 characters").substr(0, 99));
}

TEST(TypedString, TakesLargeValuesWhole) {
  const LogLevel off(0);
  const std::string text(1 << 20, 'x');
  const Request request = Request::of(text);
  std::string out(text.size() + 1, '?');
  EXPECT_EQ(kestro_jrpc_utils_parse_input_string(request.params(), nullptr, "value", out.data(),
                                                 static_cast<int32_t>(out.size())),
            0);
  EXPECT_STREQ(out.c_str(), text.c_str());
}

TEST(TypedString, MemoryRunsOutWhileTheExplanationIsReplaced) {
  const LogLevel off(0);
  bool fired = true;
  for (int nth = 1; fired; ++nth) {
    SCOPED_TRACE(nth);
    Request request = Request::of("123456");
    request.explain("earlier");
    char out[6];
    {
      const ScarceJson scarce(nth);
      EXPECT_EQ(kestro_jrpc_utils_parse_input_string(request.params(), request.err_data(), "value", out, 6), -31);
      fired = scarce.fired();
    }
    EXPECT_EQ(request.explanation(), fired ? "earlier" : overflow_text(6, 6));
    EXPECT_STREQ(out, "12345");
    ASSERT_LT(nth, 100);
  }
}

// ---- Numbers

TEST(TypedInteger, TheLower32BitsAreTaken) {
  const struct {
    const char* text;
    int32_t expected;
  } cases[] = {
      {"0", 0},
      {"2147483647", INT_MAX},
      {"2147483648", INT_MIN},
      {"-2147483648", INT_MIN},
      {"-2147483649", INT_MAX},
      {"4294967295", -1},
      {"4294967297", 1},
      {"9223372036854775807", -1},
      {"-9223372036854775808", 0},
  };
  const LogLevel level(Verbose);
  for (const auto& each : cases) {
    const Request request = Request::of(json_of(each.text));
    int32_t number = 4711;
    const auto log = stderr_of(
        [&] { EXPECT_EQ(kestro_jrpc_utils_parse_input_integer(request.params(), nullptr, "value", &number), 0); });
    EXPECT_EQ(number, each.expected) << each.text;
    EXPECT_THAT(log, HasLog(Verbose, module, "Parsed value: " + std::to_string(each.expected) + "\n"));
  }
}

TEST(TypedUint64, IsReadFromAText) {
  const struct {
    const char* text;
    uint64_t expected;
  } cases[] = {
      {"16", 16},
      {"0x10", 16},
      {"0XfF", 255},
      {"020", 16},
      {"08", 0},
      {" 7", 7},
      {"", 0},
      {"none", 0},
      {"12 ports", 12},
      {"3.9", 3},
      {"18446744073709551615", UINT64_MAX},
      {"0xffffffffffffffff", UINT64_MAX},
      {"0000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000077", 0},
  };
  const LogLevel off(0);
  for (const auto& each : cases) {
    const Request request = Request::of(each.text);
    uint64_t number = 4711;
    const bool fits = strlen(each.text) < 100;
    EXPECT_EQ(kestro_jrpc_utils_parse_input_uint64_t(request.params(), nullptr, "value", &number), fits ? 0 : -31);
    EXPECT_EQ(number, each.expected) << each.text;
  }
}

TEST(TypedFloat, IsReadFromAText) {
  const struct {
    const char* text;
    float expected;
  } cases[] = {
      {"1.5", 1.5F},
      {"-2", -2.0F},
      {"1e3", 1000.0F},
      {"0x1p4", 16.0F},
      {"", 0.0F},
      {"none", 0.0F},
      {"2.5 dB", 2.5F},
      {"0.1", 0.1F},
      {"16777217", 16777216.0F},
      {"1e300", HUGE_VALF},
      {"1e-300", 0.0F},
      {"inf", HUGE_VALF},
      // Just above the middle of two floats, but by less than a double can tell: it is a double first.
      {"1.00000005960464477539062500001", 1.0F},
  };
  const LogLevel off(0);
  for (const auto& each : cases) {
    const Request request = Request::of(each.text);
    float number = 4711;
    EXPECT_EQ(kestro_jrpc_utils_parse_input_float(request.params(), nullptr, "value", &number), 0);
    EXPECT_EQ(number, each.expected) << each.text;
  }
}

TEST(TypedNumberText, HasAtMost99Characters) {
  const LogLevel off(0);
  const std::string fits = std::string(98, ' ') + "7";
  const std::string too_long = std::string(99, ' ') + "7";
  uint64_t number = 4711;
  float real = 4711;
  Request good = Request::of(fits);
  EXPECT_EQ(kestro_jrpc_utils_parse_input_uint64_t(good.params(), good.err_data(), "value", &number), 0);
  EXPECT_EQ(number, 7U);
  EXPECT_EQ(kestro_jrpc_utils_parse_input_float(good.params(), good.err_data(), "value", &real), 0);
  EXPECT_EQ(real, 7.0F);

  Request bad = Request::of(too_long);
  EXPECT_EQ(kestro_jrpc_utils_parse_input_uint64_t(bad.params(), bad.err_data(), "value", &number), -31);
  EXPECT_EQ(number, 0U);
  EXPECT_EQ(bad.explanation(), overflow_text(100, 100));
  EXPECT_EQ(kestro_jrpc_utils_parse_input_float(bad.params(), bad.err_data(), "value", &real), -31);
  EXPECT_EQ(real, 0.0F);
}

// ---- Explanations

TEST(ErrorData, WithoutAPlaceIsRefused) {
  const auto log = stderr_of([] {
    EXPECT_EQ(kestro_jrpc_utils_generate_error_debug_message_missing_param(nullptr, "x"), -20);
    EXPECT_EQ(kestro_jrpc_utils_generate_error_debug_message_incorrect_type(nullptr, "x", "bool"), -20);
    EXPECT_EQ(offer_error_data(nullptr, "x"), -20);
    replace_error_data(nullptr, "x");
  });
  EXPECT_THAT(log, Not(testing::HasSubstr("Sending")));
}

TEST(ErrorData, WhatIsNoTextIsNotExplained) {
  const LogLevel off(0);
  Request request("{}");
  EXPECT_EQ(kestro_jrpc_utils_generate_error_debug_message_missing_param(request.err_data(), "\xff"), -30);
  EXPECT_EQ(kestro_jrpc_utils_generate_error_debug_message_incorrect_type(request.err_data(), "\xff", "bool"), -30);
  EXPECT_EQ(request.explanation(), "");
  replace_error_data(request.explain("earlier").err_data(), "\xff");
  EXPECT_EQ(request.explanation(), "earlier");
}

TEST(ErrorData, GeneratorsTellWhatTheyDid) {
  const LogLevel off(0);
  Request request("{}");
  EXPECT_EQ(kestro_jrpc_utils_generate_error_debug_message_incorrect_type(request.err_data(), "a", "bool"), 0);
  EXPECT_EQ(request.explanation(), "Parameter 'a' is not of type 'bool'.");
  EXPECT_EQ(kestro_jrpc_utils_generate_error_debug_message_missing_param(request.err_data(), "b"), 0);
  EXPECT_EQ(request.explanation(), "Parameter 'a' is not of type 'bool'.");
}

TEST(ErrorData, GeneratorsReportThatMemoryRanOut) {
  const LogLevel off(0);
  bool fired = true;
  for (int nth = 1; fired; ++nth) {
    Request request("{}");
    int32_t status = 1;
    {
      const ScarceJson scarce(nth);
      status = kestro_jrpc_utils_generate_error_debug_message_missing_param(request.err_data(), "x");
      fired = scarce.fired();
    }
    EXPECT_EQ(status, fired ? -30 : 0) << nth;
    ASSERT_LT(nth, 100);
  }
}

TEST(SimpleErrorObj, HoldsTheMessage) {
  EXPECT_EQ(text_of(Json(kestro_jrpc_utils_simple_error_obj("no such port")).get()), R"({"message":"no such port"})");
  EXPECT_EQ(text_of(Json(kestro_jrpc_utils_simple_error_obj("")).get()), R"({"message":""})");
  const std::string text(300, 'x');
  EXPECT_EQ(text_of(Json(kestro_jrpc_utils_simple_error_obj(text.c_str())).get()), R"({"message":")" + text + "\"}");
}

TEST(SimpleErrorObj, IsNullForWhatIsNoText) {
  EXPECT_EQ(kestro_jrpc_utils_simple_error_obj(nullptr), nullptr);
  EXPECT_EQ(kestro_jrpc_utils_simple_error_obj("\xff"), nullptr);
}

TEST(SimpleErrorObj, IsNullWhenMemoryRunsOut) {
  bool fired = true;
  for (int nth = 1; fired; ++nth) {
    const ScarceJson scarce(nth);
    const Json object(kestro_jrpc_utils_simple_error_obj("text"));
    fired = scarce.fired();
    EXPECT_EQ(object == nullptr, fired) << nth;
    ASSERT_LT(nth, 100);
  }
}

// ---- Results as text

TEST(DumpsValidate, IsCompactAndAscii) {
  const struct {
    const char* value;
    const char* text;
  } cases[] = {
      {"{ }", "{}"},
      {"[ ]", "[]"},
      {R"({ "z": 1, "a": [true, null, 2.5] })", R"({"z":1,"a":[true,null,2.5]})"},
      {"[\"\xc3\xa4\"]", R"(["\u00E4"])"},
  };
  for (const auto& each : cases) {
    const Text text(kestro_jrpc_utils_dumps_validate(json_of(each.value).release()));
    EXPECT_STREQ(text.get(), each.text);
  }
}

TEST(DumpsValidate, TakesTheReference) {
  const Json kept = json_of("[1]");
  json_incref(kept.get());
  const Text text(kestro_jrpc_utils_dumps_validate(kept.get()));
  EXPECT_EQ(kept->refcount, 1U);
}

TEST(DumpsValidate, NullIsTold) {
  EXPECT_THAT(stderr_of([] { EXPECT_EQ(kestro_jrpc_utils_dumps_validate(nullptr), nullptr); }),
              HasLog(Error, module, "NULL\n"));
}

TEST(DumpsValidateDeathTest, WhatCannotBeEncodedEndsTheProcess) {
  for (const char* const value : {"1", "\"text\"", "null"}) {
    EXPECT_EXIT(kestro_jrpc_utils_dumps_validate(json_of(value).release()), testing::KilledBySignal(SIGABRT),
                "PANIC: could not dump out JSON");
  }
}

TEST(DumpsValidate, GivesNullWhenTheProcessSurvives) {
  void (*const before)(int) = signal(SIGABRT, SIG_IGN);
  const Json kept = json_of("7");
  json_incref(kept.get());
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_jrpc_utils_dumps_validate(kept.get()), nullptr); });
  signal(SIGABRT, before);
  EXPECT_EQ(kept->refcount, 1U);
  EXPECT_THAT(log, HasLog(Error, "kestro_utils", "PANIC: could not dump out JSON\n"));
}

TEST(DumpsValidate, IsWholeOrNothingWhenMemoryRunsOut) {
  void (*const before)(int) = signal(SIGABRT, SIG_IGN);
  const LogLevel off(0);
  bool fired = true;
  for (int nth = 1; fired; ++nth) {
    Json value = json_of(R"({"port":"c1-2","vlans":[1,2]})");
    Text text;
    {
      const ScarceJson scarce(nth);
      text.reset(kestro_jrpc_utils_dumps_validate(value.release()));
      fired = scarce.fired();
    }
    if (text || !fired) {
      EXPECT_STREQ(text.get(), R"({"port":"c1-2","vlans":[1,2]})") << nth;
    }
    ASSERT_LT(nth, 100);
  }
  signal(SIGABRT, before);
}

}  // namespace
}  // namespace kestro::test
