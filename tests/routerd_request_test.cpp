// What the router makes of a request, and of its answer.

#include "routerd/request.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <string>

#include "core/sanitized.hpp"
#include "kestro_jrpc.h"
#include "support/named.hpp"

namespace kestro::test {
namespace {

using routerd::Request;
using routerd::Response;

struct Objection {
  const char* name;
  const char* text;
  const char* word;
};

std::ostream& operator<<(std::ostream& out, const Objection& o) {
  return out << o.name;
}

const Objection objections[] = {
    {"Broken", "{", "no_json"},
    {"Nothing", "", "no_json"},
    {"DuplicateKey", R"({"method":"a","id":1,"id":2})", "no_json"},
    {"Array", "[1,2]", "no_object"},
    {"Number", "5", "no_object"},
    {"NoMethod", R"({"jsonrpc":"2.0","id":1})", "no_method"},
    {"MethodOfAnotherType", R"({"method":5,"id":1})", "no_method"},
    {"TrueAsId", R"({"method":"a","id":true})", "bad_id"},
    {"NullAsId", R"({"method":"a","id":null})", "bad_id"},
    {"ObjectAsId", R"({"method":"a","id":{}})", "bad_id"},
    {"MethodIsLookedAtBeforeTheId", R"({"id":true})", "no_method"},
    {"TextAsTransaction", R"({"method":"a","id":1,"transaction_id":"1"})", "bad_transaction_id"},
    {"NullAsTransaction", R"({"method":"a","id":1,"transaction_id":null})", "bad_transaction_id"},
    {"TrueAsTransaction", R"({"method":"a","id":1,"transaction_id":true})", "bad_transaction_id"},
};

class Objections : public testing::TestWithParam<Objection> {};

TEST_P(Objections, AreNamed) {
  EXPECT_STREQ(Request(GetParam().text).objection(), GetParam().word);
}

INSTANTIATE_TEST_SUITE_P(Requests, Objections, testing::ValuesIn(objections), name_of<Objection>);

TEST(RequestOf, SoundTextHasNoObjection) {
  for (const char* text : {R"({"jsonrpc":"2.0","method":"ports.Get","id":1})", R"({"method":"ports.Get","id":""})",
                           R"({"method":"ports.Get","id":1.5,"transaction_id":-2.5})"}) {
    const Request request(text);
    EXPECT_EQ(request.objection(), nullptr) << text;
    EXPECT_FALSE(request.is_notification()) << text;
    EXPECT_EQ(request.method(), "ports.Get") << text;
  }
}

TEST(RequestOf, MethodIsTheTextThatIsMeant) {
  EXPECT_EQ(Request(R"({"method":"ports.Get","id":1})").method(), "ports.Get");
  EXPECT_EQ(Request(R"({"method":"ports.G\u0065t","id":1})").method(), "ports.Get");
}

TEST(RequestOf, TextWithoutIdIsANotification) {
  const Request request(R"({"jsonrpc":"2.0","method":"logger.ReloadConf"})");
  EXPECT_EQ(request.objection(), nullptr);
  EXPECT_TRUE(request.is_notification());
}

TEST(RequestOnTheBus, CarriesTheRoutersOwnNumberAndChannel) {
  const Request request(R"({"jsonrpc":"2.0","method":"a","params":{"x":[1]},"id":"mine","transaction_id":9.5})");
  EXPECT_STREQ(request.addressed(77).get(),
               R"({"jsonrpc":"2.0","method":"a","params":{"x":[1]},"id":")" KESTRO_JRPC_CHANNEL_ROUTER_REPLY
               R"(","transaction_id":77})");
}

TEST(RequestOnTheBus, IsCompactAndOfAsciiOnly) {
  const Request request("{ \"method\" : \"a\",\n\"params\":{\"x\":\"\xe2\x82\xac\"},\"id\":1}");
  EXPECT_STREQ(request.addressed(77).get(),
               R"({"method":"a","params":{"x":"\u20AC"},"id":")" KESTRO_JRPC_CHANNEL_ROUTER_REPLY
               R"(","transaction_id":77})");
}

struct Travelling {
  const char* name;
  const char* sent;
  const char* published;  // @ stands for the router's channel
};

std::ostream& operator<<(std::ostream& out, const Travelling& t) {
  return out << t.name;
}

// The first ones as they came, but for two values; the others encoded anew.
const Travelling travelling[] = {
    {"Usual", R"({"method":"a","params":{"x":[1]},"id":"mine","transaction_id":9})",
     R"({"method":"a","params":{"x":[1]},"id":@,"transaction_id":77})"},
    {"NumberFirst", R"({"transaction_id":-9,"id":5,"method":"a"})", R"({"transaction_id":77,"id":@,"method":"a"})"},
    {"NoNumber", R"({"id":5,"method":"a"})", R"({"id":@,"method":"a","transaction_id":77})"},
    {"OnlyTheOutermost", R"({"params":{"id":1,"transaction_id":2,"method":"b"},"method":"a","id":3})",
     R"({"params":{"id":1,"transaction_id":2,"method":"b"},"method":"a","id":@,"transaction_id":77})"},
    {"OtherValuesAreKept", R"({"method":"a","params":[1.10,1E2,"\/\u0041"],"id":1})",
     R"({"method":"a","params":[1.10,1E2,"\/\u0041"],"id":@,"transaction_id":77})"},
    {"WhatFollowsIsDropped",
     R"({"method":"a","id":1})"
     "{}",
     R"({"method":"a","id":@,"transaction_id":77})"},
    {"EmptyTexts", R"({"method":"","id":""})", R"({"method":"","id":@,"transaction_id":77})"},

    {"BlankInside", R"({"method": "a","params":[1.50],"id":1})",
     R"({"method":"a","params":[1.5],"id":@,"transaction_id":77})"},
    {"BlankInAText", R"({"method":"a b","id":" "})", R"({"method":"a b","id":@,"transaction_id":77})"},
    {"BeyondAscii", "{\"method\":\"a\",\"p\":\"\xc3\xa9\",\"id\":1}",
     R"({"method":"a","p":"\u00E9","id":@,"transaction_id":77})"},
    {"EscapedMethod", R"({"method":"\u0061","id":1})", R"({"method":"a","id":@,"transaction_id":77})"},
    {"EscapedId", R"({"method":"a","id":"\n"})", R"({"method":"a","id":@,"transaction_id":77})"},
    {"EscapedKey", R"({"method":"a","id":1,"transaction\u005fid":5})", R"({"method":"a","id":@,"transaction_id":77})"},
    {"RealNumber", R"({"method":"a","id":1.5,"transaction_id":1e2})", R"({"method":"a","id":@,"transaction_id":77})"},
};

class OnTheBus : public testing::TestWithParam<Travelling> {};

TEST_P(OnTheBus, IsTheRequestUnderTheRoutersName) {
  const Request request{std::string(GetParam().sent)};
  ASSERT_EQ(request.objection(), nullptr);
  std::string published = GetParam().published;
  published.replace(published.find('@'), 1, "\"" KESTRO_JRPC_CHANNEL_ROUTER_REPLY "\"");
  EXPECT_EQ(request.addressed(77).get(), published);
}

INSTANTIATE_TEST_SUITE_P(Requests, OnTheBus, testing::ValuesIn(travelling), name_of<Travelling>);

struct Answer {
  const char* name;
  const char* request;
  const char* from_service;
  const char* to_client;
  const char* with_strict_id;
};

std::ostream& operator<<(std::ostream& out, const Answer& a) {
  return out << a.name;
}

const Answer answers[] = {
    {"Integer", R"({"method":"a","id":5,"transaction_id":12})",
     R"({"jsonrpc":"2.0","id":"a","result":0,"transaction_id":77})",
     R"({"jsonrpc":"2.0","id":"a","result":0,"transaction_id":12})",
     R"({"jsonrpc":"2.0","id":5,"result":0,"transaction_id":12})"},
    {"Real", R"({"method":"a","id":"x","transaction_id":13.5})",
     R"({"jsonrpc":"2.0","id":"a","result":0,"transaction_id":77})",
     R"({"jsonrpc":"2.0","id":"a","result":0,"transaction_id":13.5})",
     R"({"jsonrpc":"2.0","id":"x","result":0,"transaction_id":13.5})"},
    {"RealWithoutFraction", R"({"method":"a","id":1.0,"transaction_id":1e2})",
     R"({"jsonrpc":"2.0","id":"a","result":0,"transaction_id":77})",
     R"({"jsonrpc":"2.0","id":"a","result":0,"transaction_id":100.0})",
     R"({"jsonrpc":"2.0","id":1.0,"result":0,"transaction_id":100.0})"},
    {"Wide", R"({"method":"a","id":-9223372036854775808,"transaction_id":9223372036854775807})",
     R"({"jsonrpc":"2.0","id":"a","result":0,"transaction_id":77})",
     R"({"jsonrpc":"2.0","id":"a","result":0,"transaction_id":9223372036854775807})",
     R"({"jsonrpc":"2.0","id":-9223372036854775808,"result":0,"transaction_id":9223372036854775807})"},
    {"MinusZero", R"({"method":"a","id":-0,"transaction_id":-0})",
     R"({"jsonrpc":"2.0","id":"a","result":0,"transaction_id":77})",
     R"({"jsonrpc":"2.0","id":"a","result":0,"transaction_id":0})",
     R"({"jsonrpc":"2.0","id":0,"result":0,"transaction_id":0})"},
    {"Absent", R"({"method":"a","id":5})", R"({"jsonrpc":"2.0","id":"a","result":0,"transaction_id":77})",
     R"({"jsonrpc":"2.0","id":"a","result":0})", R"({"jsonrpc":"2.0","id":5,"result":0})"},
    {"InTheMiddle", R"({"method":"a","id":5,"transaction_id":12})",
     R"({"jsonrpc":"2.0","id":"a","transaction_id":77,"error":{"code":1}})",
     R"({"jsonrpc":"2.0","id":"a","transaction_id":12,"error":{"code":1}})",
     R"({"jsonrpc":"2.0","id":5,"transaction_id":12,"error":{"code":1}})"},
    {"OnlyTheOutermost", R"({"method":"a","id":5})",
     R"({"jsonrpc":"2.0","id":"a","result":{"id":1,"transaction_id":77},"transaction_id":77})",
     R"({"jsonrpc":"2.0","id":"a","result":{"id":1,"transaction_id":77}})",
     R"({"jsonrpc":"2.0","id":5,"result":{"id":1,"transaction_id":77}})"},
    {"BytesOfTheServiceAreKept", R"({"method":"a","id":5,"transaction_id":1})",
     "{ \"id\" : \"a\",\n\"result\":1.50, \"transaction_id\" :77 }",
     "{ \"id\" : \"a\",\n\"result\":1.50, \"transaction_id\" :1 }",
     "{ \"id\" : 5,\n\"result\":1.50, \"transaction_id\" :1 }"},
    {"EscapedKeys", R"({"method":"a","id":5,"transaction_id":12})",
     R"({"\u0069d":"a","result":0,"transaction\u005fid":77})", R"({"id":"a","result":0,"transaction_id":12})",
     R"({"id":5,"result":0,"transaction_id":12})"},
    {"EscapedKeyThatGoes", R"({"method":"a","id":"\u20ac"})", R"({"id":"a","transaction\u005fid":77,"result":0})",
     R"({"id":"a","result":0})", R"({"id":"\u20AC","result":0})"},
};

class Answers : public testing::TestWithParam<Answer> {
 protected:
  Request request_{GetParam().request};
  const std::string from_service_ = GetParam().from_service;
};

TEST_P(Answers, AreRestored) {
  EXPECT_EQ(request_.restore(Response(from_service_), false), GetParam().to_client);
}

TEST_P(Answers, CarryTheClientsIdWhereThatIsAskedFor) {
  EXPECT_EQ(request_.restore(Response(from_service_), true), GetParam().with_strict_id);
}

TEST_P(Answers, AreRestoredWhenTheRequestIsForgotten) {
  ASSERT_TRUE(request_.addressed(77));
  request_.forget_object();
  EXPECT_EQ(request_.restore(Response(from_service_), true), GetParam().with_strict_id);
}

INSTANTIATE_TEST_SUITE_P(OfServices, Answers, testing::ValuesIn(answers), name_of<Answer>);

size_t bytes_in_use() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

TEST(Requests, KeepLittleMemoryWhileTheirClientWaits) {
  if (sanitized) GTEST_SKIP() << "the sanitizers count no memory here";
  for (const char* const blank : {"", " "}) {  // with it the text is parsed
    const std::string text =
        "{" + std::string(blank) + R"("method":"a","id":5,"params":{"note":")" + std::string(1'000'000, 'x') + "\"}}";
    const size_t before = bytes_in_use();
    Request request{text};
    EXPECT_GT(bytes_in_use() - before, 900'000U);
    ASSERT_TRUE(request.addressed(77));
    request.forget_object();
    EXPECT_LT(bytes_in_use() - before, 10'000U);
  }
}

struct Canned {
  const char* name;
  const char* members;    // of the request
  const char* in_answer;  // the client's "id" in the router's own answers
  const char* strict;     // and with strict ids
  const char* number;     // the "transaction_id" in them, or null
};

std::ostream& operator<<(std::ostream& out, const Canned& c) {
  return out << c.name;
}

const Canned canned[] = {
    {"Text", R"("id":"mine")", R"("mine")", R"("mine")", nullptr},
    {"EmptyText", R"("id":"")", R"("")", R"("")", nullptr},
    {"Number", R"("id":7)", R"("7")", "7", nullptr},
    {"Negative", R"("id":-7)", R"("-7")", "-7", nullptr},
    {"Fraction", R"("id":7.5)", R"("7.5")", "7.5", nullptr},
    {"Transaction", R"("id":7,"transaction_id":12)", R"("7")", "7", "12"},
    {"ZeroTransaction", R"("id":7,"transaction_id":0)", R"("7")", "7", "0"},
    {"RealTransaction", R"("id":7,"transaction_id":12.5)", R"("7")", "7", "12.5"},
    {"WideTransaction", R"("id":7,"transaction_id":4294967296)", R"("7")", "7", "4294967296"},
};

class CannedAnswers : public testing::TestWithParam<Canned> {
 protected:
  static std::string member(const char* name, const char* value) {
    return value != nullptr ? std::string(",\"") + name + "\":" + value : "";
  }
  Request request_{std::string(R"({"jsonrpc":"2.0","method":"ports.Get",)") + GetParam().members + "}"};
};

TEST_P(CannedAnswers, Busy) {
  const auto busy = [](const char* id) {
    return std::string(R"({"jsonrpc":"2.0","id":)") + id +
           R"(,"error":{"code":-32014,"message":"System is busy.","data":null})" +
           member("transaction_id", GetParam().number) + "}";
  };
  EXPECT_EQ(request_.busy(false), busy(GetParam().in_answer));
  EXPECT_EQ(request_.busy(true), busy(GetParam().strict));
}

TEST_P(CannedAnswers, TimedOut) {
  const auto timed_out = [](const char* id) {
    return std::string(R"({"jsonrpc":"2.0")") + member("transaction_id", GetParam().number) + R"(,"id":)" + id +
           R"(,"error":{"code":-32005,"message":"Command timed out","data":null}})";
  };
  EXPECT_EQ(request_.timed_out(false), timed_out(GetParam().in_answer));
  EXPECT_EQ(request_.timed_out(true), timed_out(GetParam().strict));
}

TEST_P(CannedAnswers, StandAlsoOnceTheRequestIsOnTheBus) {
  const auto before = request_.timed_out(false);
  ASSERT_TRUE(request_.addressed(77));
  EXPECT_EQ(request_.timed_out(false), before);
  request_.forget_object();
  EXPECT_EQ(request_.timed_out(false), before);
}

INSTANTIATE_TEST_SUITE_P(OfTheRouter, CannedAnswers, testing::ValuesIn(canned), name_of<Canned>);

}  // namespace
}  // namespace kestro::test
