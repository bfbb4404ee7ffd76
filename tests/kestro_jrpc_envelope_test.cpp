#include "kestro_jrpc/envelope.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <cerrno>
#include <climits>
#include <random>
#include <string>
#include <string_view>

#include "core/owned.hpp"
#include "kestro_jrpc.h"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

constexpr const char* jrpc = "kestro_jrpc";

// A text that a function hands out. Not null at first, so that a function must clear it.
class TextOut {
 public:
  TextOut() : text_(static_cast<char*>(calloc(1, 16))), first_(text_) {}
  TextOut(const TextOut&) = delete;
  TextOut& operator=(const TextOut&) = delete;
  ~TextOut() {
    if (text_ != first_) free(text_);
    free(first_);
  }
  operator char**() { return &text_; }
  [[nodiscard]] std::string text() const { return text_ != nullptr ? text_ : "(null)"; }
  [[nodiscard]] const char* get() const { return text_; }

 private:
  char* text_;
  char* first_;
};

// ---- Putting the channel in front ----

TEST(AddChannel, ChannelBarText) {
  const Text frame(kestro_jrpc_add_channel("abc", "{}"));
  EXPECT_STREQ(frame.get(), "abc|{}");
#ifdef __SANITIZE_ADDRESS__  // tells the size that was asked for
  EXPECT_EQ(malloc_usable_size(frame.get()), 7U);
#endif
}

TEST(AddChannel, EmptyParts) {
  EXPECT_STREQ(Text(kestro_jrpc_add_channel("", "")).get(), "|");
  EXPECT_STREQ(Text(kestro_jrpc_add_channel("abc", "")).get(), "abc|");
  EXPECT_STREQ(Text(kestro_jrpc_add_channel("", "{}")).get(), "|{}");
}

TEST(AddChannel, BarsInTheTextStay) {
  EXPECT_STREQ(Text(kestro_jrpc_add_channel("abc", R"({"a":"b|c"})")).get(), R"(abc|{"a":"b|c"})");
}

TEST(AddChannel, NullArguments) {
  const std::string log = stderr_of([] {
    EXPECT_EQ(kestro_jrpc_add_channel(nullptr, "{}"), nullptr);
    EXPECT_EQ(kestro_jrpc_add_channel("abc", nullptr), nullptr);
  });
  EXPECT_EQ(count_log_lines(log, Debug, jrpc, "[kestro_api_router_json_add_channel]: Null Pointer!\n"), 2);
}

TEST(AddChannel, NoMemory) {
  const Fault no_memory("calloc", ENOMEM);
  const std::string log = stderr_of([] { EXPECT_EQ(kestro_jrpc_add_channel("abc", "{}"), nullptr); });
  EXPECT_THAT(log, HasLog(Debug, jrpc, "[kestro_api_router_json_add_channel]: Failed to allocate memory\n"));
}

// ---- Taking it off ----

struct Frame {
  const char* name;
  std::string bytes;
  int32_t status;
  std::string json;
};

class Frames : public testing::TestWithParam<Frame> {};

TEST_P(Frames, AreOpened) {
  const auto& it = GetParam();
  // In a block of exactly its size, so that a read past the end is seen.
  const Text bytes(static_cast<char*>(malloc(it.bytes.size() + (it.bytes.empty() ? 1 : 0))));
  it.bytes.copy(bytes.get(), it.bytes.size());
  TextOut json;
  const std::string log = stderr_of(
      [&] { EXPECT_EQ(kestro_jrpc_parse_msg(bytes.get(), static_cast<int32_t>(it.bytes.size()), json), it.status); });
  EXPECT_EQ(json.text(), it.json);
  EXPECT_EQ(count_log_lines(log, Debug, jrpc, "[kestro_connect_parse_msg]: Failed to parse JSON message\n"),
            it.status == 0 ? 0 : 1);
}

const Frame frames[] = {
    {"Plain", "abc|{}", 0, "{}"},
    {"OnlyTheFirstBarSeparates", R"(abc|{"a":"b|c"})", 0, R"({"a":"b|c"})"},
    {"BarFirst", "|{}", 0, "{}"},
    {"BarLast", "abc|", 0, ""},
    {"BarAlone", "|", 0, ""},
    {"BarsOnly", "|||", 0, "||"},
    {"NoBar", "abc{}", -1, "(null)"},
    {"Empty", "", -1, "(null)"},
    {"TextNeedNotBeJson", "abc|\xff\x01", 0, "\xff\x01"},
    {"ZeroByteBeforeTheBar", std::string("a\0b|{}", 6), 0, "{}"},
};

INSTANTIATE_TEST_SUITE_P(ParseMsg, Frames, testing::ValuesIn(frames), name_of<Frame>);

TEST(ParseMsg, LooksOnlyAtTheGivenLength) {
  TextOut json;
  EXPECT_EQ(kestro_jrpc_parse_msg("abc|{}trailing", 6, json), 0);
  EXPECT_EQ(json.text(), "{}");

  stderr_of([] {
    TextOut none;
    EXPECT_EQ(kestro_jrpc_parse_msg("abc|{}", 3, none), -1);
    EXPECT_EQ(none.text(), "(null)");
    TextOut empty;
    EXPECT_EQ(kestro_jrpc_parse_msg("abc|{}", 4, empty), 0);
    EXPECT_EQ(empty.text(), "");
  });
}

TEST(ParseMsg, ALengthBelowZeroHoldsNothing) {
  stderr_of([] {
    for (const int32_t length : {0, -1, INT_MIN}) {
      TextOut json;
      EXPECT_EQ(kestro_jrpc_parse_msg("abc|{}", length, json), -1);
      EXPECT_EQ(json.text(), "(null)");
    }
  });
}

TEST(ParseMsg, ZeroBytesInTheTextAreKept) {
  TextOut json;
  ASSERT_EQ(kestro_jrpc_parse_msg("c|a\0b", 5, json), 0);
  EXPECT_EQ(std::string(json.get(), 4), std::string("a\0b\0", 4));
}

TEST(ParseMsg, NullArguments) {
  TextOut json;
  const std::string log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_parse_msg(nullptr, 3, json), -20);
    EXPECT_EQ(kestro_jrpc_parse_msg("a|b", 3, nullptr), -20);
  });
  EXPECT_EQ(json.text(), "(null)");
  EXPECT_EQ(count_log_lines(log, Debug, jrpc, "[kestro_connect_parse_msg]: Null Pointer!\n"), 2);
}

TEST(ParseMsg, NoMemory) {
  TextOut json;
  const Fault no_memory("calloc", ENOMEM);
  const std::string log = stderr_of([&] { EXPECT_EQ(kestro_jrpc_parse_msg("a|b", 3, json), -1); });
  EXPECT_EQ(json.text(), "(null)");
  EXPECT_THAT(log, HasLog(Debug, jrpc, "[kestro_connect_parse_msg]: Failed to allocate memory\n"));
}

TEST(ParseMsg, WhatWasPutInComesOut) {
  const std::string json = "{\"text\":\"" + std::string(1'000'000, '|') + "\"}";
  const Text frame(kestro_jrpc_add_channel(KESTRO_JRPC_CHANNEL_ROUTER_REPLY, json.c_str()));
  TextOut out;
  ASSERT_EQ(kestro_jrpc_parse_msg(frame.get(), static_cast<int32_t>(strlen(frame.get())), out), 0);
  EXPECT_EQ(out.text(), json);
}

// ---- The reply channel ----

struct Reply {
  const char* name;
  const char* request;
  int32_t status;
  const char* channel;
  Severity severity = Debug;
  const char* line = nullptr;
};

class ReplyChannels : public testing::TestWithParam<Reply> {};

TEST_P(ReplyChannels, AreRead) {
  const LogLevel all(Verbose);
  const auto& it = GetParam();
  TextOut channel;
  const std::string log = stderr_of([&] { EXPECT_EQ(kestro_jrpc_parse_channel(it.request, channel), it.status); });
  EXPECT_EQ(channel.text(), it.channel);
  if (it.line != nullptr) {
    EXPECT_THAT(log, HasLog(it.severity, jrpc, it.line));
  } else {
    EXPECT_EQ(log, "");
  }
}

const char* const no_id = "[kestro_jrpc_parse_channel]: No ID\n";
const char* const invalid_id = "[kestro_jrpc_parse_channel]: Invalid ID\n";
const char* const no_object = "[kestro_jrpc_parse_channel]: Invalid JSON\n";
const char* const no_json = "[kestro_jrpc_parse_channel]: Cannot parse JSON message.\n";

const Reply replies[] = {
    {"Text", R"({"id":"2524546b"})", 0, "2524546b"},
    {"EmptyText", R"({"id":""})", 0, ""},
    {"Utf8", "{\"id\":\"\\u00e9\"}", 0, "\xc3\xa9"},
    {"OtherMembersDoNotCount", R"({"jsonrpc":5,"id":"a","method":[]})", 0, "a"},
    {"TextBehindDoesNotCount", "{\"id\":\"a\"}\n{", 0, "a"},
    {"NoId", R"({"jsonrpc":"2.0"})", -44, "(null)", Verbose, no_id},
    {"EmptyObject", "{}", -44, "(null)", Verbose, no_id},
    {"IdInsideDoesNotCount", R"({"params":{"id":"a"}})", -44, "(null)", Verbose, no_id},
    {"Number", R"({"id":5})", -1, "(null)", Debug, invalid_id},
    {"Real", R"({"id":5.5})", -1, "(null)", Debug, invalid_id},
    {"Null", R"({"id":null})", -1, "(null)", Debug, invalid_id},
    {"Object", R"({"id":{}})", -1, "(null)", Debug, invalid_id},
    {"RootArray", R"([{"id":"a"}])", -1, "(null)", Debug, no_object},
    {"RootText", R"("id")", -1, "(null)", Debug, no_object},
    {"RootNumber", "5", -1, "(null)", Debug, no_object},
    {"NoJson", "id", -1, "(null)", Debug, no_json},
    {"NothingAtAll", "", -1, "(null)", Debug, no_json},
    {"DuplicateKey", R"({"id":"a","id":"a"})", -1, "(null)", Debug, no_json},
    {"InvalidUtf8", "{\"id\":\"\xc3\"}", -1, "(null)", Debug, no_json},
};

INSTANTIATE_TEST_SUITE_P(ParseChannel, ReplyChannels, testing::ValuesIn(replies), name_of<Reply>);

TEST(ParseChannel, TellsTheLineOfAParseError) {
  const char* const text = "{\n\n\"id\" 5}";
  json_error_t error;
  const Json none(json_loads(text, JSON_DECODE_ANY, &error));
  TextOut channel;
  const std::string log = stderr_of([&] { EXPECT_EQ(kestro_jrpc_parse_channel(text, channel), -1); });
  EXPECT_THAT(log, HasLog(Debug, jrpc, "Error on line[3]: " + std::string(error.text) + "\n"));
}

TEST(ParseChannel, NullArguments) {
  TextOut channel;
  const std::string log = stderr_of([&] {
    EXPECT_EQ(kestro_jrpc_parse_channel(nullptr, channel), -20);
    EXPECT_EQ(kestro_jrpc_parse_channel("{}", nullptr), -20);
  });
  EXPECT_EQ(channel.text(), "(null)");
  EXPECT_EQ(count_log_lines(log, Debug, jrpc, "[kestro_jrpc_parse_channel]: Null Pointer!\n"), 2);
}

TEST(ParseChannel, NoMemory) {
  TextOut channel;
  const Fault no_memory("calloc", ENOMEM);
  stderr_of([&] { EXPECT_EQ(kestro_jrpc_parse_channel(R"({"id":"a"})", channel), -1); });
  EXPECT_EQ(channel.text(), "(null)");
}

// ---- The channel of a service ----

constexpr const char* b4469f46 = "b4469f46-e963-42ef-9fd2-f978e73adc76";
constexpr const char* f3a6f8f51 = "3a6f8f51-502f-4238-9638-29764ff1a8a4";
constexpr const char* f505a5451 = "505a5451-3ef2-4618-8087-9a22b800a510";
constexpr const char* otherwise = "30e493d7-9e02-41b6-97f5-21f2cc9cbbb3";

std::string channel_of(std::string_view method) {
  return Text(kestro_jrpc_router_extract_channel(std::string(method).c_str())).get();
}

TEST(ServiceChannel, NamesAreFixed) {
  EXPECT_STREQ(KESTRO_JRPC_CHANNEL_B4469F46, b4469f46);
  EXPECT_STREQ(KESTRO_JRPC_CHANNEL_3A6F8F51, f3a6f8f51);
  EXPECT_STREQ(KESTRO_JRPC_CHANNEL_505A5451, f505a5451);
  EXPECT_STREQ(KESTRO_JRPC_CHANNEL_DEFAULT, otherwise);
}

// Told letter by letter, where the code has a table of beginnings.
const char* expected_channel(char first, char second) {
  switch (first) {
    case 'c':
      return second == 'a' ? b4469f46 : second == 'l' ? f3a6f8f51 : otherwise;
    case 'd':
    case 'l':
    case 'n':
    case 'p':
      return f3a6f8f51;
    case 'e':
      return second == 'n' ? f3a6f8f51 : second == 'v' ? f505a5451 : otherwise;
    case 'i':
      return b4469f46;
    case 'o':
      return second == 'e' || second == 'l' ? f3a6f8f51 : otherwise;
    case 'r':
      return second == 'o' ? f3a6f8f51 : otherwise;
    default:
      return otherwise;
  }
}

TEST(ServiceChannel, EveryPairOfFirstBytes) {
  for (int first = 1; first < 256; ++first) {
    for (int second = 1; second < 256; ++second) {
      const std::string begins{static_cast<char>(first), static_cast<char>(second)};
      const char* const expected = expected_channel(begins[0], begins[1]);
      ASSERT_EQ(channel_of(begins), expected) << begins;
      ASSERT_EQ(channel_of(begins + ".rest"), expected) << begins;
    }
  }
}

TEST(ServiceChannel, EverySingleByteAndNone) {
  for (int first = 1; first < 256; ++first) {
    const std::string method{static_cast<char>(first)};
    ASSERT_EQ(channel_of(method), expected_channel(method[0], '\0')) << method;
  }
  EXPECT_EQ(channel_of(""), otherwise);
}

TEST(ServiceChannel, NamesInUse) {
  EXPECT_EQ(channel_of("emac.service.CoreSwitchGetTemps"), otherwise);
  EXPECT_EQ(channel_of("ports.Get"), f3a6f8f51);
  EXPECT_EQ(channel_of("network.service.ApplyMgmtVlan"), f3a6f8f51);
  EXPECT_EQ(channel_of("c"), otherwise);
  EXPECT_EQ(channel_of("ca"), b4469f46);
}

TEST(ServiceChannel, NullMethod) {
  const std::string log = stderr_of([] { EXPECT_EQ(kestro_jrpc_router_extract_channel(nullptr), nullptr); });
  EXPECT_THAT(log, HasLog(Debug, jrpc, "[kestro_api_router_json_parse_channel]: Null Pointer!\n"));
}

TEST(ServiceChannel, NoMemory) {
  const Fault no_memory("calloc", ENOMEM);
  EXPECT_EQ(kestro_jrpc_router_extract_channel("ports.Get"), nullptr);
}

// ---- Any bytes ----

// Opens a frame and reads the reply channel out of it, and compares both with the rules.
void check_frame(const std::string& frame) {
  const Text block(static_cast<char*>(malloc(frame.size() + 1)));
  frame.copy(block.get(), frame.size());
  TextOut json;
  const auto opened = kestro_jrpc_parse_msg(block.get(), static_cast<int32_t>(frame.size()), json);
  const size_t bar = frame.find('|');
  ASSERT_EQ(opened, bar == std::string::npos ? -1 : 0) << frame;
  if (opened != 0) return;
  ASSERT_EQ(std::string_view(json.get(), frame.size() - bar), frame.substr(bar + 1) + '\0');

  TextOut channel;
  const auto status = kestro_jrpc_parse_channel(json.get(), channel);
  const Json root(json_loads(json.get(), JSON_REJECT_DUPLICATES | JSON_DISABLE_EOF_CHECK | JSON_DECODE_ANY, nullptr));
  const json_t* const id = json_object_get(root.get(), "id");
  const int32_t without = json_is_object(root.get()) ? -44 : -1;
  ASSERT_EQ(status, json_is_string(id) ? 0 : id != nullptr ? -1 : without) << frame;
  ASSERT_EQ(channel.text(), json_is_string(id) ? json_string_value(id) : "(null)") << frame;
}

const std::string seed = R"(ab|{"jsonrpc":"2.0","method":"ports.Get","id":"2524546b|x","params":{"a":[1,2.5,null]}})";

TEST(EnvelopeAnyBytes, EveryTruncationAndEveryFlippedBit) {
  const LogLevel quiet(0);
  for (size_t length = 0; length <= seed.size(); ++length) check_frame(seed.substr(0, length));
  for (size_t bit = 0; bit < seed.size() * 8; ++bit) {
    std::string frame = seed;
    frame[bit / 8] = static_cast<char>(frame[bit / 8] ^ (1 << (bit % 8)));
    check_frame(frame);
  }
}

TEST(EnvelopeAnyBytes, RandomBytes) {
  const LogLevel quiet(0);
  std::mt19937 random(20'262);
  const auto below = [&](size_t bound) { return std::uniform_int_distribution<size_t>(0, bound - 1)(random); };
  for (int round = 0; round < 20'000; ++round) {
    std::string frame = round % 2 == 0 ? seed : std::string(below(64), '|');
    const size_t changes = round % 2 == 0 ? 1 + below(3) : frame.size();
    for (size_t i = 0; i < changes; ++i) frame[below(frame.size())] = static_cast<char>(below(256));
    check_frame(frame);
  }
}

TEST(EnvelopeAnyBytes, DeepAndLong) {
  const LogLevel quiet(0);
  const auto request = [](size_t arrays, const std::string& id) {
    return R"({"id":")" + id + R"(","params":)" + std::string(arrays, '[') + std::string(arrays, ']') + "}";
  };
  struct {
    std::string json;
    int32_t status;
  } const cases[] = {
      {request(2046, "a"), 0},           {request(2047, "a"), 0},
      {request(2048, "a"), -1},  // with the object itself 2049 deep
      {request(100'000, "a"), -1},       {request(1, std::string(1'000'000, 'x')), 0},
      {std::string(1'000'000, '['), -1},
  };
  for (const auto& it : cases) {
    TextOut channel;
    EXPECT_EQ(kestro_jrpc_parse_channel(it.json.c_str(), channel), it.status) << it.json.substr(0, 40);
    EXPECT_EQ(channel.text() != "(null)", it.status == 0);
    check_frame("abc|" + it.json);
  }
}

}  // namespace
}  // namespace kestro::test
