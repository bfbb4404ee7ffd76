// Parameters as they are typed, answers as they come, and what services say of themselves.

#include "kestroctl/params.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestroctl/client.hpp"
#include "kestroctl/services.hpp"
#include "support/captured_stderr.hpp"
#include "support/json.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using ctl::Answer;
using ctl::Exit;
using testing::HasSubstr;

template <class Action>
std::string failure_of(Exit status, Action&& action) {
  try {
    action();
  } catch (const ctl::Failure& failure) {
    EXPECT_EQ(failure.status(), status);
    return failure.what();
  }
  ADD_FAILURE() << "did not fail";
  return "";
}

// ---- Parameters ----

TEST(Params, AreAnObject) {
  EXPECT_EQ(text_of(ctl::read_params(R"( {"a": [1]} )").get()), R"({"a":[1]})");
  EXPECT_EQ(ctl::read_params(""), nullptr);
  for (const char* text : {"[]", "5", "\"a\"", "null"}) {
    EXPECT_THAT(failure_of(Exit::Usage, [&] { ctl::read_params(text); }), HasSubstr("must be a JSON object")) << text;
  }
}

TEST(Params, ComeFromAFile) {
  const TempDir dir;
  EXPECT_EQ(text_of(ctl::read_params("@" + dir.write("p", R"({"a":1})")).get()), R"({"a":1})");
  EXPECT_THAT(failure_of(Exit::Usage, [&] { ctl::read_params("@" + dir.file("none")); }),
              HasSubstr("No such file or directory"));
}

TEST(Params, AMistakeIsShownInItsPlace) {
  EXPECT_EQ(failure_of(Exit::Usage, [] { ctl::parse_params(R"({"a": x})"); }),
            "the parameters are no JSON: line 1, column 7: invalid token near 'x'\n"
            "  {\"a\": x}\n"
            "        ^");
  EXPECT_THAT(failure_of(Exit::Usage, [] { ctl::parse_params("{\n  \"a\": 1,\n  \"b\" 2\n}"); }),
              HasSubstr("line 3, column 7: ':' expected near '2'\n    \"b\" 2\n        ^"));
  EXPECT_THAT(failure_of(Exit::Usage, [] { ctl::parse_params(R"({"a":1,"a":2})"); }),
              HasSubstr("duplicate object key"));
}

TEST(Params, OfALongLineThePlaceIsShown) {
  const auto text = "{\"a\":\"" + std::string(500, 'x') + "\", oops, \"b\":\"" + std::string(500, 'y') + "\"}";
  const auto message = failure_of(Exit::Usage, [&] { ctl::parse_params(text); });
  EXPECT_THAT(message, HasSubstr("oops"));
  EXPECT_LT(message.size(), 400U);
}

TEST(Params, TextBehindThemIsAMistake) {
  EXPECT_THAT(failure_of(Exit::Usage, [] { ctl::parse_params("{} {}"); }), HasSubstr("end of file expected"));
}

// ---- Requests and answers ----

TEST(Request, HoldsWhatItIsGiven) {
  const Json id = json_of("7");
  EXPECT_EQ(text_of(ctl::make_request("m", json_of(R"({"a":1})").get(), id.get()).get()),
            R"({"jsonrpc":"2.0","method":"m","params":{"a":1},"id":7})");
  EXPECT_EQ(text_of(ctl::make_request("m", nullptr, nullptr).get()), R"({"jsonrpc":"2.0","method":"m"})");
  failure_of(Exit::Usage, [] { ctl::make_request("\xff", nullptr, nullptr); });
}

TEST(AnswerText, ResultsAndErrorsAreTold) {
  EXPECT_EQ(text_of(Answer(R"({"jsonrpc":"2.0","id":"m","result":[1]})").result()), "[1]");
  EXPECT_EQ(Answer(R"({"result":null})").status(), Exit::Done);
  const Answer error(R"({"error":{"code":-32030,"message":"m","data":{"message":"why"}}})");
  EXPECT_EQ(error.status(), Exit::Refused);
  EXPECT_EQ(error.code(), -32030);
  EXPECT_EQ(error.explanation(), "why");
  EXPECT_EQ(Answer(R"({"error":{"code":-32005,"message":"m","data":null}})").status(), Exit::NoAnswer);
  EXPECT_EQ(Answer(R"({"error":{"code":-32014,"message":"m","data":null}})").status(), Exit::Busy);
  EXPECT_EQ(Answer(R"({"error":{"code":-32014,"message":"m","data":null}})").data(), nullptr);
}

TEST(AnswerText, NoAnswerIsARefusal) {
  const auto message = failure_of(Exit::Refused, [] { Answer(""); });
  EXPECT_THAT(message, HasSubstr("the router closed the connection without an answer"));
  EXPECT_THAT(message, HasSubstr("kestroctl stats"));
}

TEST(AnswerText, WhatIsNoAnswerIsTold) {
  EXPECT_THAT(failure_of(Exit::Refused, [] { Answer(R"({"jsonrpc":"2.0","id":"m","resu)"); }),
              HasSubstr("no JSON object (31 bytes"));
  EXPECT_THAT(failure_of(Exit::Refused, [] { Answer(R"({"id":"m"})"); }), HasSubstr("no JSON-RPC answer"));
}

TEST(ErrorAnswer, IsToldForTheNight) {
  const auto told = [](const char* text) { return stderr_of([&] { ctl::tell_error("ports.Get", Answer(text)); }); };
  EXPECT_EQ(told(R"({"error":{"code":-32030,"message":"Wrong.","data":{"message":"c9-9 is no port"}}})"),
            "kestroctl: ports.Get: error -32030\n  message  Wrong.\n  because  c9-9 is no port\n"
            "  more     `kestroctl explain -32030`\n");
  EXPECT_EQ(told(R"({"error":{"code":-32001,"message":"Wrong.","data":{"message":"a","b":2}}})"),
            "kestroctl: ports.Get: error -32001\n  message  Wrong.\n  data     {\"message\":\"a\",\"b\":2}\n"
            "  more     `kestroctl explain -32001`\n");
  EXPECT_THAT(told(R"({"error":{"code":-32005,"message":"Command timed out","data":null}})"),
              HasSubstr("the service's log"));
  EXPECT_THAT(told(R"({"error":{"code":-32014,"message":"System is busy.","data":null}})"), HasSubstr("maintenance"));
}

// ---- Descriptions of services ----

constexpr const char* description = R"({"service":"configd","version":"1","methods":[
  {"name":"ports.Get","description":"Ports.","params":[
    {"name":"port_id","type":"string","required":true,"description":"which"},
    {"name":"brief","type":"boolean","required":false,"description":"less"}]},
  {"name":"x.Y","description":"y","params":[]},
  {"description":"without a name"}, 7]})";

TEST(Description, IsRead) {
  const auto methods = ctl::read_description(json_of(description).get());
  ASSERT_EQ(methods.size(), 2U);
  EXPECT_EQ(methods[0].name, "ports.Get");
  EXPECT_EQ(methods[0].service, "configd");
  EXPECT_EQ(methods[0].description, "Ports.");
  ASSERT_EQ(methods[0].parameters.size(), 2U);
  EXPECT_EQ(methods[0].parameters[0].type, "string");
  EXPECT_TRUE(methods[0].parameters[0].required);
  EXPECT_FALSE(methods[0].parameters[1].required);
  EXPECT_TRUE(ctl::read_description(nullptr).empty());
}

TEST(Description, GivesAnExampleOfWhatIsRequired) {
  const auto methods = ctl::read_description(json_of(description).get());
  EXPECT_EQ(ctl::example_call(methods[0]), R"(kestroctl call ports.Get '{"port_id": "c1-1"}')");
  EXPECT_EQ(ctl::example_call(methods[1]), "kestroctl call x.Y");
  const ctl::Method odd{
      "o.D", "s", "", {{"a", "string", "", true}, {"b", "array", "", true}, {"c", "integer", "", true}}};
  EXPECT_EQ(ctl::example_call(odd), R"(kestroctl call o.D '{"a": "...", "b": [], "c": 1}')");
}

TEST(Description, OfSeveralTheOneThatIsReachedCounts) {
  const auto merged =
      ctl::merge({{"b", "one", "", {}, false}, {"b", "two", "", {}, true}, {"a", "one", "", {}, false}});
  ASSERT_EQ(merged.size(), 2U);
  EXPECT_EQ(merged[0].name, "a");
  EXPECT_EQ(merged[1].service, "two");
}

}  // namespace
}  // namespace kestro::test
