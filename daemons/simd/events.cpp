#include "simd/events.hpp"

#include <array>
#include <ctime>
#include <string>

#include "common/handles.hpp"
#include "common/log.hpp"
#include "kestro_jrpc.h"
#include "kestro_jrpc_utils.h"
#include "kestro_utils.h"

namespace kestro::simd {

void publish_transition(int32_t publisher, int32_t oec_number, bool online) {
  std::array<char, 16> oec_id{};
  kestro_create_oec_id_str(oec_id.data(), oec_id.size(), oec_number);
  const char* const method = online ? "events.EdgeSwitchOnline" : "events.EdgeSwitchOffline";
  const daemons::Allocated<char> text(kestro_jrpc_utils_dumps_validate(
      json_pack("{s:s,s:s,s:{s:s,s:I}}", "jsonrpc", "2.0", "method", method, "params", "oec_id", oec_id.data(), "time",
                static_cast<json_int_t>(time(nullptr)))));
  if (text) kestro_jrpc_mq_pub(&publisher, KESTRO_JRPC_CHANNEL_505A5451, text.get());
  daemons::log_info(std::string("edge switch ") + oec_id.data() + (online ? " is back" : " is offline"));
}

}  // namespace kestro::simd
