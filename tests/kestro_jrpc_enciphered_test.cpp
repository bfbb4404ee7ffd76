// Enciphered requests in a program that links a library for them, here the stand-in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "forge_stand_in.h"
#include "forge_utils.h"
#include "kestro_jrpc.h"
#include "kestro_mq.h"
#include "support/bus.hpp"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"
#include "support/scripted_method.hpp"

namespace kestro::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* jrpc = "kestro_jrpc";

// "FAKE:" and the letters 13 further.
std::string encipher(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') {
      c = static_cast<char>('a' + (c - 'a' + 13) % 26);
    } else if (c >= 'A' && c <= 'Z') {
      c = static_cast<char>('A' + (c - 'A' + 13) % 26);
    }
  }
  return "FAKE:" + text;
}

class Enciphered : public testing::Test {
 protected:
  Enciphered() : pusher_(KESTRO_MQ_SP_PUSH), before_(forge_stand_in_books()) {
    kestro_jrpc_pull_socket_init(address_.c_str(), &pull_);
    kestro_mq_socket_set_timeout(pull_, 10'000);
    pusher_.connect(address_);
  }
  ~Enciphered() override { kestro_mq_socket_close(pull_); }

  int32_t run(const std::string& frame) {
    EXPECT_EQ(kestro_mq_socket_send(pusher_.handle(), frame.c_str()), 0);
    int32_t status = 0;
    const LogLevel all(Verbose);
    log_ = stderr_of([&] { status = kestro_jrpc_pull_socket_run_encrypted(pull_, scripted_table()); });
    return status;
  }

  // Every text that was handed out came back, and nothing else did.
  void expect_given_back(int texts) const {
    const auto books = forge_stand_in_books();
    EXPECT_EQ(books.handed_out - before_.handed_out, texts);
    EXPECT_EQ(books.given_back - before_.given_back, texts);
    EXPECT_EQ(books.strangers - before_.strangers, 0);
  }

  std::string address_ = free_bus_address();
  BusSocket pusher_;
  forge_stand_in_counts before_;
  int32_t pull_ = -1;
  std::string log_;
};

TEST_F(Enciphered, RequestIsEvaluated) {
  const ScriptedMethod method(0, "[1]");
  EXPECT_EQ(run(encipher(R"({"jsonrpc":"2.0","method":"ports.Get","id":1,"params":{"text":"Hello"}})")), 0);
  EXPECT_EQ(method.params(), R"({"text":"Hello"})");
  EXPECT_TRUE(method.all_released());
  expect_given_back(1);
}

TEST_F(Enciphered, StatusOfTheEvaluationIsReturned) {
  const ScriptedMethod failing(-6);
  EXPECT_EQ(run(encipher(R"({"jsonrpc":"2.0","method":"ports.Get","id":1})")), 0);
  EXPECT_EQ(run(encipher(R"({"jsonrpc":"2.0","method":"ports.Get"})")), -1);
  EXPECT_EQ(run(encipher("nonsense")), -1);
  EXPECT_EQ(run(encipher("")), -1);
  expect_given_back(4);
}

TEST_F(Enciphered, ARefusalIsLoggedAsItStands) {
  const ScriptedMethod method;
  for (const char* const frame : {R"({"jsonrpc":"2.0","method":"ports.Get","id":1})", "", "fake:", "FAKE"}) {
    EXPECT_EQ(run(frame), -1);
    EXPECT_THAT(log_, HasLog(Error, jrpc, "ERROR: not a text of the stand-in's cipher"));
  }
  EXPECT_EQ(method.calls(), 0);
  expect_given_back(4);
}

TEST_F(Enciphered, AnyPlainTextThatBeginsWithErrorIsARefusal) {
  const ScriptedMethod method;
  for (const char* const plain : {"ERROR", "ERRORS of 100%s and %n"}) {
    EXPECT_EQ(run(encipher(plain)), -1);
    EXPECT_THAT(log_, HasLog(Error, jrpc, plain));
    EXPECT_THAT(log_, Not(HasSubstr("Cannot parse"))) << "it was evaluated";
  }
  expect_given_back(2);
}

TEST_F(Enciphered, OtherTextsAreNoRefusal) {
  for (const char* const plain : {"error", "ERRO", " ERROR"}) {
    EXPECT_EQ(run(encipher(plain)), -1);
    EXPECT_THAT(log_, HasSubstr("Cannot parse JSON data"));
  }
  expect_given_back(3);
}

TEST(ForgeStandIn, KnowsWhatItHandedOut) {
  const auto before = forge_stand_in_books();
  char other[] = "other";
  char* const text = ksto_decrypt_str("FAKE:Uryyb");
  EXPECT_STREQ(text, "Hello");
  kestro_free_forge_string(other);
  kestro_free_forge_string(text);
  const auto after = forge_stand_in_books();
  EXPECT_EQ(after.handed_out - before.handed_out, 1);
  EXPECT_EQ(after.given_back - before.given_back, 1);
  EXPECT_EQ(after.strangers - before.strangers, 1);
}

}  // namespace
}  // namespace kestro::test
