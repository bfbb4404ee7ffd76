#include <string_view>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "forge_utils.h"
#include "kestro_jrpc.h"
#include "kestro_jrpc/evaluate.hpp"
#include "kestro_mq.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_jrpc");

// What the helper library hands out is the helper library's to release.
struct ForgeRelease {
  void operator()(char* text) const noexcept {
    if (kestro_free_forge_string != nullptr) kestro_free_forge_string(text);
  }
};
using ForgeText = std::unique_ptr<char, ForgeRelease>;

Text receive_waiting(int32_t pull_fd) noexcept {
  char* frame = nullptr;
  int32_t length = 0;
  if (kestro_mq_socket_recv(pull_fd, &frame, &length, 0) != status::ok) return nullptr;
  return Text(frame);
}

// One-way: whatever the answer is, nobody gets it.
int32_t evaluate_unanswered(char* request, kestro_jrpc_mapping_t* table) noexcept {
  char* response = nullptr;
  const auto evaluated = kestro_jrpc_eval_request(request, table, &response);
  const Text dropped(response);
  return evaluated;
}

// The plain request of an enciphered text; null, told at ERROR, when there is none to be had.
ForgeText decipher(const char* enciphered) noexcept {
  if (ksto_decrypt_str == nullptr) {
    here().log(Error, "[kestro_jrpc_pull_socket_run_encrypted]: the library that deciphers requests is not linked\n");
    return nullptr;
  }
  ForgeText plain(ksto_decrypt_str(enciphered));
  if (!plain) {
    here().log(Error, "[kestro_jrpc_pull_socket_run_encrypted]: the request was not deciphered\n");
    return nullptr;
  }
  if (std::string_view(plain.get()).starts_with("ERROR")) {
    here().log(Error, "%s", plain.get());
    return nullptr;
  }
  return plain;
}

int32_t null_table() noexcept {
  return here().fail(Debug, status::null_argument, "[kestro_jrpc_pull_socket_run]: NULL pointer!\n");
}

}  // namespace

int32_t kestro_jrpc_pull_socket_init(const char* addr, int32_t* mq_socket_out) noexcept {
  if (addr == nullptr || mq_socket_out == nullptr) {
    return here().fail(Debug, status::null_argument, "[kestro_jrpc_tcp_socket_init]: NULL pointer!\n");
  }
  // Without a socket the bind is still tried, and its status is the one that counts.
  int32_t handle = -1;
  if (kestro_mq_socket_init(KESTRO_MQ_SP_PULL, &handle) != status::ok) {
    here().log(Error, "[kestro_jrpc_tcp_socket_init]: cannot init pull socket!\n");
  }
  int32_t eid = 0;
  const auto bound = kestro_mq_socket_bind(handle, KESTRO_MQ_TRANSPORT_TCP, addr, &eid);
  if (bound != status::ok) {
    here().log(Error, "[kestro_jrpc_mq_pub_init]: Error mq_socket_bind for pull, rc = %d\n", bound);
    if (handle >= 0) kestro_mq_socket_close(handle);
    return bound;
  }
  here().log(Debug, "[kestro_jrpc_tcp_socket_init]: pull socket initialized!\n");
  here().log(Debug, "[kestro_jrpc_mq_pub_init]: mq_pull: %d\n", handle);
  *mq_socket_out = handle;
  return status::ok;
}

int32_t kestro_jrpc_pull_socket_run(int32_t pull_fd, kestro_jrpc_mapping_t* method_handler_table) noexcept {
  if (method_handler_table == nullptr) return null_table();
  const Text request = receive_waiting(pull_fd);
  if (!request) return status::general_error;
  return evaluate_unanswered(request.get(), method_handler_table);
}

int32_t kestro_jrpc_pull_socket_run_encrypted(int32_t pull_fd, kestro_jrpc_mapping_t* method_handler_table) noexcept {
  if (method_handler_table == nullptr) return null_table();
  const Text enciphered = receive_waiting(pull_fd);
  if (!enciphered) return status::general_error;
  const ForgeText request = decipher(enciphered.get());
  if (!request) return status::general_error;
  return evaluate_unanswered(request.get(), method_handler_table);
}
