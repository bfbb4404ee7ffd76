// What the monitor is made of: frames, the pairing of requests and responses, and the masking of secrets.

#include <gtest/gtest.h>

#include "kestro_jrpc.h"
#include "kestroctl/bus_tap.hpp"
#include "kestroctl/mask.hpp"
#include "kestroctl/pairing.hpp"
#include "support/json.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

using namespace std::chrono_literals;
using ctl::Pairing;

// ---- Frames ----

TEST(Frame, EndsItsChannelAtTheFirstBar) {
  const auto frame = ctl::split_frame(R"(abc|{"a":"|"})");
  EXPECT_EQ(frame.channel, "abc");
  EXPECT_EQ(frame.text, R"({"a":"|"})");
}

TEST(Frame, WithoutABarHasNoChannel) {
  const auto frame = ctl::split_frame("abc");
  EXPECT_EQ(frame.channel, "");
  EXPECT_EQ(frame.text, "abc");
}

TEST(Channel, IsCalledByItsService) {
  EXPECT_EQ(ctl::name_of_channel(KESTRO_JRPC_CHANNEL_3A6F8F51), "config");
  EXPECT_EQ(ctl::name_of_channel(KESTRO_JRPC_CHANNEL_505A5451), "events");
  EXPECT_EQ(ctl::name_of_channel(KESTRO_JRPC_CHANNEL_B4469F46), "cache");
  EXPECT_EQ(ctl::name_of_channel(KESTRO_JRPC_CHANNEL_DEFAULT), "hardware");
  EXPECT_EQ(ctl::name_of_channel(KESTRO_JRPC_CHANNEL_ROUTER_REPLY), "reply");
  EXPECT_EQ(ctl::name_of_channel("caller-12"), "caller-12");
}

// ---- Pairing ----

class PairingTest : public testing::Test {
 protected:
  void request(const std::string& text) { pairing.request(json_of(text).get(), now); }
  // Milliseconds, or -1.
  long response(const std::string& channel, const std::string& text) {
    const auto waited = pairing.response(channel, json_of(text).get(), now);
    return waited ? std::chrono::duration_cast<std::chrono::milliseconds>(*waited).count() : -1;
  }
  void pass(std::chrono::milliseconds time) { now += time; }

  Pairing pairing{4};
  Pairing::Clock::time_point now;
};

TEST_F(PairingTest, ByTransactionId) {
  request(R"({"method":"m","id":"r","transaction_id":1})");
  pass(5ms);
  request(R"({"method":"m","id":"r","transaction_id":2})");
  pass(1ms);
  EXPECT_EQ(response("r", R"({"id":"m","transaction_id":2})"), 1);
  EXPECT_EQ(response("r", R"({"id":"m","transaction_id":1})"), 6);
}

TEST_F(PairingTest, ByChannelAndMethodInTheirOrder) {
  request(R"({"method":"m","id":"r"})");
  pass(5ms);
  request(R"({"method":"m","id":"r"})");
  pass(1ms);
  EXPECT_EQ(response("r", R"({"id":"m"})"), 6);
  EXPECT_EQ(response("r", R"({"id":"m"})"), 1);
  EXPECT_EQ(response("r", R"({"id":"m"})"), -1);
}

TEST_F(PairingTest, OnlyOnTheChannelThatWasAskedFor) {
  request(R"({"method":"m","id":"r","transaction_id":1})");
  EXPECT_EQ(response("other", R"({"id":"m","transaction_id":1})"), -1);
  EXPECT_EQ(response("r", R"({"id":"other","transaction_id":1})"), -1);
  EXPECT_EQ(response("r", R"({"id":"m","transaction_id":2})"), -1);
  EXPECT_EQ(response("r", R"({"id":"m"})"), -1);
  EXPECT_EQ(response("r", R"({"id":"m","transaction_id":1})"), 0);
}

TEST_F(PairingTest, AResponseIsPairedOnce) {
  request(R"({"method":"m","id":"r","transaction_id":1})");
  EXPECT_EQ(response("r", R"({"id":"m","transaction_id":1})"), 0);
  EXPECT_EQ(response("r", R"({"id":"m","transaction_id":1})"), -1);
  EXPECT_EQ(pairing.waiting(), 0U);
}

TEST_F(PairingTest, TheOldestAreForgotten) {
  for (int i = 0; i < 6; ++i) request(R"({"method":"m","id":"r","transaction_id":)" + std::to_string(i) + "}");
  EXPECT_EQ(pairing.waiting(), 4U);
  EXPECT_EQ(response("r", R"({"id":"m","transaction_id":1})"), -1);
  EXPECT_EQ(response("r", R"({"id":"m","transaction_id":2})"), 0);
}

TEST_F(PairingTest, TheOldestOfSeveralAlikeAreForgotten) {
  for (int i = 0; i < 6; ++i) {
    request(R"({"method":"m","id":"r"})");
    pass(1ms);
  }
  EXPECT_EQ(pairing.waiting(), 4U);
  EXPECT_EQ(response("r", R"({"id":"m"})"), 4);
}

TEST_F(PairingTest, WhatAwaitsNoAnswerIsNotKept) {
  request(R"({"method":"m"})");
  request(R"({"method":"m","id":5})");
  EXPECT_EQ(pairing.waiting(), 0U);
}

// ---- Secrets ----

struct Secret {
  const char* name;
  const char* text;
  const char* masked;
};

std::ostream& operator<<(std::ostream& out, const Secret& c) {
  return out << c.name;
}

const Secret secrets[] = {
    {"Password", R"({"password":"p","a":1})", R"({"password":"***","a":1})"},
    {"Credential", R"({"credential":"p"})", R"({"credential":"***"})"},
    {"Credentials", R"({"credentials":{"user":"u","key":"k"}})", R"({"credentials":"***"})"},
    {"Secret", R"({"shared_secret":"p"})", R"({"shared_secret":"***"})"},
    {"Passphrase", R"({"wifi_passphrase":"p"})", R"({"wifi_passphrase":"***"})"},
    {"Community", R"({"snmp_community":"p"})", R"({"snmp_community":"***"})"},
    {"Token", R"({"token":"p"})", R"({"token":"***"})"},
    {"AnyCase", R"({"NewPassWord":"p"})", R"({"NewPassWord":"***"})"},
    {"AnySeparator", R"({"pass_word":"p","pass-word":"q","Pass Word":"r","a.pass.word":"s"})",
     R"({"pass_word":"***","pass-word":"***","Pass Word":"***","a.pass.word":"***"})"},
    {"Keys", R"({"private-key":"p","preSharedKey":"q","API_KEY":"r","auth_key":"s","encryption-key":"t","key":"u"})",
     R"({"private-key":"***","preSharedKey":"***","API_KEY":"***","auth_key":"***","encryption-key":"***","key":"u"})"},
    {"ShortWords", R"({"wpa_psk":"p","pwd":"q","Passwd":"r","passcode":"s"})",
     R"({"wpa_psk":"***","pwd":"***","Passwd":"***","passcode":"***"})"},
    {"EscapedName", R"({"\u0070assword":"p"})", R"({"password":"***"})"},
    {"Number", R"({"password":1234})", R"({"password":"***"})"},
    {"List", R"({"passwords":["a","b"]})", R"({"passwords":"***"})"},
    {"Deep", R"({"a":[{"b":[[{"secret":"p","c":2}]]}]})", R"({"a":[{"b":[[{"secret":"***","c":2}]]}]})"},
    {"InAListAtTheTop", R"([{"password":"p"}])", R"([{"password":"***"}])"},
    {"Several", R"({"password":"p","x":{"password":"q"},"old_password":"r"})",
     R"({"password":"***","x":{"password":"***"},"old_password":"***"})"},
    {"Nothing", R"({"port_id":"c1-1","word":"password"})", R"({"port_id":"c1-1","word":"password"})"},
    {"NoObject", R"("password")", R"("password")"},
};

class Masking : public testing::TestWithParam<Secret> {};

TEST_P(Masking, HidesTheValue) {
  const Json value = json_of(GetParam().text);
  ctl::mask_secrets(value.get());
  EXPECT_EQ(text_of(value.get()), GetParam().masked);
}

INSTANTIATE_TEST_SUITE_P(Members, Masking, testing::ValuesIn(secrets), name_of<Secret>);

}  // namespace
}  // namespace kestro::test
