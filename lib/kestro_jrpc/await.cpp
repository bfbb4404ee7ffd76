#include "kestro_jrpc/await.hpp"

#include <cstring>
#include <string_view>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_jrpc.h"
#include "kestro_jrpc/fd_locks.hpp"
#include "kestro_jrpc/json.hpp"
#include "kestro_mq.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_jrpc");

struct AttemptRow {
  std::string_view method;
  int32_t attempts;
};
constexpr AttemptRow attempt_rows[] = {
    {"ports.Get", 60},
    {"ports.SetEnabled", 60},
    {"ports.SetVlanLocal", 100},
    {"ports.SetVlanAccess", 100},
    {"ports.SetVlanTrunk", 100},
    {"ports.poe.GetInstantPower", 200},
    {"db.ApplyBackup", 200},
    {"omac.service.OltGetMultiRssi", 30},
    {"emac.service.CoreSwitchGetTemps", 30},
    {"cache.ports.GetIpScan", 60},
    {"emac.service.CoreSwitchGetInfo", 30},
    {"emac.service.CoreSwitchConfigure", 30},
    {"network.service.ApplyMgmtVlan", 30},
};
constexpr int32_t usual_attempts = 10;
constexpr int32_t notification_attempts = 5;
constexpr int32_t wait_for_ever = -1;

int32_t null_pointer(Site site, const char* function) noexcept {
  return site.fail(Debug, status::null_argument, "[%s]: Null Pointer!\n", function);
}

// Whether a received object speaks JSON-RPC 2.0; what is wrong is told.
bool speaks_version_2(const json_t* root) noexcept {
  const json_t* const jsonrpc = json_object_get(root, "jsonrpc");
  if (jsonrpc == nullptr) {
    here().log(Debug, "Received invalid JSON-RPC format.\n");
  } else if (!json_is_string(jsonrpc)) {
    here().log(Error, "kestro_jrpc_eval_request: Invalid Request ID\n");
  } else if (!is_version_2(jsonrpc)) {
    here().log(Debug, "Received unsupported JSON-RPC version.\n");
  } else {
    return true;
  }
  return false;
}

bool has_text_id(const json_t* id) noexcept {
  if (json_is_string(id)) return true;
  if (id != nullptr && !is_valid_id(id)) here().log(Error, "kestro_jrpc_eval_request: Invalid Request ID\n");
  here().log(Debug, "Given parameter <%s> is not a string\n", "id");
  return false;
}

bool has_text_method(const json_t* method) noexcept {
  if (method == nullptr) {
    here().log(Debug, "[kestro_jrpc_eval_notification]: No JSON method\n");
    return false;
  }
  if (!json_is_string(method)) {
    here().log(Debug, "[kestro_jrpc_eval_notification]: Invalid JSON method\n");
    return false;
  }
  here().log(Verbose, "JSON Method: %s\n", json_string_value(method));
  return true;
}

// The end of both matchings: hands the object over when its name, if it may be trusted, is the awaited one.
int32_t match_name(bool sound, const json_t* name, const char* awaited, Json root, json_t** out) noexcept {
  if (sound && strcmp(json_string_value(name), awaited) == 0) {
    here().log(Debug, "Found correct method \"%s\".\n", awaited);
    *out = root.release();
    return status::ok;
  }
  return here().fail(Debug, status::general_error, "Found incorrect method \"%s\".\n",
                     printable(json_string_value(name)));
}

// Receives one frame, waiting as the socket's time-out says.
int32_t receive_frame(int32_t mq_socket_in, Text& frame, int32_t& length) noexcept {
  char* raw = nullptr;
  const auto received = kestro_mq_socket_recv(mq_socket_in, &raw, &length, 0);
  frame.reset(raw);
  return received;
}

// Receives one frame and hands over what it carries if that is the awaited response.
int32_t try_response(int32_t mq_socket_in, const char* function, const char* method, json_t** out) noexcept {
  Text frame;
  int32_t length = 0;
  if (const auto received = receive_frame(mq_socket_in, frame, length); received != status::ok) {
    return here().fail(Debug, received, "Unable to receive an API response, rc = %d\n", received);
  }
  here().log(Verbose, "[%s] Received:\n%s\n", function, frame.get());

  char* raw_text = nullptr;
  const auto parsed = kestro_jrpc_parse_msg(frame.get(), length, &raw_text);
  const Text text(raw_text);
  if (parsed != status::ok) return here().fail(Debug, parsed, "Unable to parse API response, rc = %d\n", parsed);

  here().log(Debug, "[%s] Received API response, evaluating id...\n", function);
  const auto matched = kestro_jrpc_eval_method(method, text.get(), out);
  if (matched != status::ok) here().log(Debug, "Incorrect API response received. rc = %d\n", matched);
  return matched;
}

int32_t try_notification(int32_t mq_socket_in, const char* function, const char* method, json_t** out) noexcept {
  Text frame;
  int32_t length = 0;
  if (const auto received = receive_frame(mq_socket_in, frame, length); received != status::ok) {
    return here().fail(Debug, received, "Unable to receive an API response from OMAC Service, rc = %d\n", received);
  }
  here().log(Debug, "[%s] Recv:\n%s\n", function, frame.get());

  char* raw_text = nullptr;
  const auto parsed = kestro_jrpc_parse_msg(frame.get(), length, &raw_text);
  const Text text(raw_text);
  if (parsed != status::ok)
    return here().fail(Debug, parsed, "Unable to parse notification message, rc = %d\n", parsed);

  here().log(Debug, "[%s] Received notification, evaluating method name...\n", function);
  const auto matched = kestro_jrpc_eval_notification(method, text.get(), out);
  if (matched != status::ok) here().log(Debug, "Incorrect notification received. rc = %d\n", matched);
  return matched;
}

void show_out(Site site, Severity severity, const char* function, const json_t* value) noexcept {
  if (!log_admits(severity)) return;
  const Text text = encode_json(value);
  site.log(severity, "[%s] JSON Out: %s\n", function, printable(text.get()));
}

// A socket that waits for ever while the object lives, and then as it did before.
class WaitingForEver {
 public:
  explicit WaitingForEver(int32_t mq_socket) noexcept : mq_socket_(mq_socket) {
    if (const auto got = kestro_mq_socket_get_timeout(mq_socket, &before_); got != status::ok) {
      here().log(Debug, "[kestro_jrpc_mq_sub_for_notifcation]: Error mq_socket_get_timeout for sub, rc = %d\n", got);
      return;
    }
    changed_ = set_timeout(wait_for_ever);
  }
  WaitingForEver(const WaitingForEver&) = delete;
  WaitingForEver& operator=(const WaitingForEver&) = delete;
  ~WaitingForEver() { restore(); }

  [[nodiscard]] bool changed() const noexcept { return changed_; }
  void restore() noexcept {
    if (changed_) set_timeout(before_);
    changed_ = false;
  }

 private:
  bool set_timeout(int32_t timeout) const noexcept {
    const auto set = kestro_mq_socket_set_timeout(mq_socket_, timeout);
    if (set == status::ok) return true;
    here().log(Debug, "[kestro_jrpc_mq_sub_for_notifcation]: Error mq_socket_set_timeout for sub, rc = %d\n", set);
    return false;
  }

  int32_t mq_socket_;
  int32_t before_ = 0;
  bool changed_ = false;
};

}  // namespace

int32_t kestro::attempts_for_method(const char* method) noexcept {
  for (const auto& row : attempt_rows) {
    if (row.method == method) return row.attempts;
  }
  return usual_attempts;
}

int32_t kestro::kestro_jrpc_eval_notification(const char* method, const char* notification, json_t** out) noexcept {
  if (method == nullptr || notification == nullptr || out == nullptr) {
    return null_pointer(here(), "kestro_jrpc_eval_notification");
  }
  Json root = parse_received(notification);
  if (!root) return status::general_error;
  const json_t* const name = json_object_get(root.get(), "method");
  const bool sound = speaks_version_2(root.get()) && has_text_method(name);
  return match_name(sound, name, method, std::move(root), out);
}

int32_t kestro_jrpc_eval_method(const char* method, const char* response, json_t** response_json) noexcept {
  if (response_json != nullptr) *response_json = nullptr;
  if (method == nullptr || response == nullptr || response_json == nullptr) {
    return null_pointer(here(), "kestro_jrpc_eval_method");
  }
  Json root = parse_received(response);
  if (!root) return status::general_error;
  const json_t* const id = json_object_get(root.get(), "id");
  const bool sound = speaks_version_2(root.get()) && has_text_id(id);
  return match_name(sound, id, method, std::move(root), response_json);
}

int32_t kestro_jrpc_mq_sub_for_method(int32_t mq_socket_in, const char* method_name,
                                      json_t** result_json_out) noexcept {
  const int32_t attempts = method_name != nullptr ? attempts_for_method(method_name) : 0;
  return kestro_jrpc_mq_sub_for_method_with_limit(mq_socket_in, method_name, result_json_out, attempts);
}

int32_t kestro_jrpc_mq_sub_for_method_with_limit(int32_t mq_socket_in, const char* method_name,
                                                 json_t** result_json_out, int32_t recv_msg_limit) noexcept {
  // On every way out; the lock was taken when the request was published.
  const Finally release_lock([mq_socket_in]() noexcept { unlock_fd(mq_socket_in); });
  if (result_json_out != nullptr) *result_json_out = nullptr;
  if (method_name == nullptr || result_json_out == nullptr) return null_pointer(here(), __func__);

  for (int32_t attempts = recv_msg_limit; attempts > 0; --attempts) {
    here().log(Debug, "Waiting for API response <%s>, attempts remaining: %d\n", method_name, attempts);
    if (try_response(mq_socket_in, __func__, method_name, result_json_out) == status::ok) {
      show_out(here(), Verbose, __func__, *result_json_out);
      return status::ok;
    }
  }
  return here().fail(Debug, status::no_response, "Could not receive expected API response.\n");
}

int32_t kestro_jrpc_mq_sub_for_notifcation(int32_t mq_socket_in, const char* method_name,
                                           json_t** result_json_out) noexcept {
  if (result_json_out != nullptr) *result_json_out = nullptr;
  if (method_name == nullptr || result_json_out == nullptr) return null_pointer(here(), __func__);

  WaitingForEver waiting(mq_socket_in);
  if (!waiting.changed()) return status::general_error;

  for (int32_t attempts = notification_attempts; attempts > 0; --attempts) {
    here().log(Debug, "[%s] Waiting for <%s> response, attempts remaining: %d\n", __func__, method_name, attempts);
    if (try_notification(mq_socket_in, __func__, method_name, result_json_out) == status::ok) {
      waiting.restore();
      show_out(here(), Debug, __func__, *result_json_out);
      return status::ok;
    }
  }
  waiting.restore();
  return here().fail(Debug, status::general_error, "Could not receive expected notification.\n");
}
