// Frames of the bus: what was put into one comes out of it, and any bytes may be taken for one.
#include <jansson.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <string>

#include "kestro_jrpc.h"
#include "kestro_jrpc/envelope.hpp"
#include "support/fuzz.hpp"

using namespace kestro;
using namespace kestro::fuzz;

namespace {

// Takes `length` bytes, without a zero byte behind them, apart.
void check_frame(std::string_view frame) {
  const Owned<char, std::free> bytes(static_cast<char*>(malloc(std::max<size_t>(frame.size(), 1))));
  std::copy(frame.begin(), frame.end(), bytes.get());
  char* raw = bytes.get();
  const int32_t status = kestro_jrpc_parse_msg(bytes.get(), static_cast<int32_t>(frame.size()), &raw);
  const Text text(raw);

  const size_t bar = frame.find('|');
  if (bar == std::string_view::npos) {
    require(status == -1 && text == nullptr, "no frame without a bar");
    return;
  }
  const auto expected = frame.substr(bar + 1);
  require(status == 0, "what has a bar is a frame");
  require(memcmp(text.get(), expected.data(), expected.size()) == 0, "the text is what stands behind the first bar");
  require(text.get()[expected.size()] == '\0', "the text is terminated");
}

void check_round_trip(const char* channel, const char* json) {
  const Text frame(kestro_jrpc_add_channel(channel, json));
  require(frame != nullptr, "a frame is made");
  require(std::string(channel) + "|" + json == frame.get(), "a frame is channel, bar, text");
  check_frame(frame.get());
}

void check_reply_channel(const char* json) {
  char* raw = nullptr;
  const int32_t status = kestro_jrpc_parse_channel(json, &raw);
  const Text channel(raw);
  const Json root(json_loads(json, JSON_REJECT_DUPLICATES | JSON_DISABLE_EOF_CHECK | JSON_DECODE_ANY, nullptr));
  const json_t* const id = json_object_get(root.get(), "id");
  const int32_t expected = json_is_string(id) ? 0 : json_is_object(root.get()) && id == nullptr ? -44 : -1;
  require(status == expected, "the status says what is wrong with the id");
  require((status == 0) == (channel != nullptr), "a channel comes with success only");
  if (channel) require(strcmp(channel.get(), json_string_value(id)) == 0, "the channel is the id");
}

void check_service_channel(std::string_view method) {
  static constexpr std::array channels{KESTRO_JRPC_CHANNEL_B4469F46, KESTRO_JRPC_CHANNEL_3A6F8F51,
                                       KESTRO_JRPC_CHANNEL_505A5451, KESTRO_JRPC_CHANNEL_DEFAULT};
  const Text channel(kestro_jrpc_router_extract_channel(exact(method).get()));
  const Text of_its_beginning(kestro_jrpc_router_extract_channel(exact(method.substr(0, 2)).get()));
  require(std::ranges::count(channels, std::string_view(channel.get())) == 1, "the channel is one of the services'");
  require(strcmp(channel.get(), of_its_beginning.get()) == 0, "the first two letters decide");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  choose_log_level(input.byte());
  const auto channel = input.line();
  const auto json = input.rest();
  check_service_channel(channel);
  check_round_trip(exact(channel).get(), exact(json).get());
  check_frame(json);
  check_reply_channel(exact(json).get());
  return 0;
}
