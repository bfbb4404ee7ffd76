#include "kestro_mq.hpp"

#include <nanomsg/bus.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>
#include <nanomsg/pipeline.h>
#include <nanomsg/pubsub.h>
#include <nanomsg/reqrep.h>
#include <nanomsg/survey.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_mq.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_mq");

constexpr int32_t first_sp_type = KESTRO_MQ_SP_PAIR;
constexpr int32_t last_sp_type = KESTRO_MQ_SP_BUS;
// By SP type.
constexpr int protocols[] = {-1,      NN_PAIR, NN_REP,      NN_REQ,        NN_PUB, NN_SUB,
                             NN_PULL, NN_PUSH, NN_SURVEYOR, NN_RESPONDENT, NN_BUS};
static_assert(std::size(protocols) == last_sp_type + 1);

constexpr int32_t first_transport = KESTRO_MQ_TRANSPORT_INPROC;
constexpr int32_t last_transport = KESTRO_MQ_TRANSPORT_TCP;
// By transport type.
constexpr const char* schemes[] = {nullptr, "inproc://", "ipc://", "tcp://"};
static_assert(std::size(schemes) == last_transport + 1);

const char* nn_error() noexcept {
  return nn_strerror(nn_errno());
}

int32_t null_pointer(Site site) noexcept {
  return site.fail(Debug, status::null_argument, "NULL pointer!\n");
}

using AddEndpoint = int (*)(int, const char*);

// Binds or connects. One text serves both failures, so that log filters for it match either.
int32_t add_endpoint(AddEndpoint nn_add, int32_t mq_socket, int32_t transport_type, const char* sp_addr,
                     int32_t* mq_eid) noexcept {
  if (sp_addr == nullptr || mq_eid == nullptr) return null_pointer(here());
  if (const auto refused = kestro_mq_validate_tm_type(transport_type, sp_addr); refused != status::ok) return refused;

  const int eid = nn_add(mq_socket, sp_addr);
  if (eid < 0) {
    return here().fail(Debug, status::general_error, "nn_bind failed for SP addr [%s]: %s\n", sp_addr, nn_error());
  }
  *mq_eid = eid;
  return status::ok;
}

int32_t send_text(int32_t mq_socket, const char* message, int flags) noexcept {
  if (message == nullptr) return null_pointer(here());

  const size_t length = strlen(message);
  here().log(Verbose, "[kestro_mq_socket_send]: message[%d]: %s\n", static_cast<int>(length), message);
  void* buffer = nn_allocmsg(length, 0);
  if (buffer == nullptr) {
    return here().fail(Debug, status::general_error, "nn_allocmsg failed to allocate buffer for message: %s\n",
                       nn_error());
  }
  memcpy(buffer, message, length);

  // On success nanomsg owns the buffer.
  const int sent = nn_send(mq_socket, &buffer, NN_MSG, flags);
  if (sent < 0) {
    here().log(Debug, "nn_send failed for mq_socket [%d]: %s\n", mq_socket, nn_error());
    nn_freemsg(buffer);
    return status::general_error;
  }
  here().log(Verbose, "[kestro_mq_socket_send]: sent: %d out of %d\n", sent, static_cast<int>(length));
  return status::ok;
}

int32_t get_option(Site site, int32_t mq_socket, int option, int32_t* value) noexcept {
  if (value == nullptr) return null_pointer(site);
  int read = 0;
  size_t size = sizeof read;
  if (nn_getsockopt(mq_socket, NN_SOL_SOCKET, option, &read, &size) < 0) {
    return site.fail(Debug, status::general_error, "nn_getsockopt failed for mq_socket [%d]: %s\n", mq_socket,
                     nn_error());
  }
  *value = read;
  return status::ok;
}

int32_t set_option(Site site, int32_t mq_socket, int level, int option, const void* value, size_t size) noexcept {
  if (nn_setsockopt(mq_socket, level, option, value, size) < 0) {
    return site.fail(Debug, status::general_error, "nn_setsockopt failed for mq_socket [%d]: %s\n", mq_socket,
                     nn_error());
  }
  return status::ok;
}

int32_t set_subscription(Site site, int32_t mq_socket, int option, const char* channel) noexcept {
  if (channel == nullptr) return null_pointer(site);
  return set_option(site, mq_socket, NN_SUB, option, channel, strlen(channel));
}

}  // namespace

int32_t kestro::kestro_mq_validate_tm_type(int32_t transport_type, const char* sp_addr) noexcept {
  here().log(Debug, "Validating transport type: %d with sp_addr: %s\n", transport_type,
             sp_addr != nullptr ? sp_addr : "(null)");
  if (sp_addr == nullptr) return null_pointer(here());

  const size_t length = strlen(sp_addr);
  if (length > KESTRO_MQ_SP_ADDR_MAX_LEN) {
    return here().fail(Debug, status::validation_failed, "FAIL: SP address is too long [%d] v/s max %d\n",
                       static_cast<int>(length), KESTRO_MQ_SP_ADDR_MAX_LEN);
  }
  if (transport_type < first_transport || transport_type > last_transport) {
    return here().fail(Debug, status::validation_failed, "FAIL: Transport type outside acceptable range [%d, %d]\n",
                       first_transport, last_transport);
  }
  return strstr(sp_addr, schemes[transport_type]) != nullptr ? status::ok : status::validation_failed;
}

int32_t kestro_mq_socket_init(int32_t sp_type, int32_t* mq_socket) noexcept {
  if (mq_socket == nullptr) return null_pointer(here());

  here().log(Debug, "Validating SP type: %d\n", sp_type);
  if (sp_type < first_sp_type || sp_type > last_sp_type) {
    return here().fail(Debug, status::validation_failed, "FAIL: SP type outside acceptable range [%d, %d]\n",
                       first_sp_type, last_sp_type);
  }
  const int handle = nn_socket(AF_SP, protocols[sp_type]);
  if (handle < 0) {
    return here().fail(Debug, status::general_error, "nn_socket failed for SP type [%d]: %s\n", sp_type, nn_error());
  }
  *mq_socket = handle;
  return status::ok;
}

int32_t kestro_mq_socket_bind(int32_t mq_socket, int32_t transport_type, const char* sp_addr,
                              int32_t* mq_eid) noexcept {
  const auto bound = add_endpoint(nn_bind, mq_socket, transport_type, sp_addr, mq_eid);
  if (bound == status::ok) here().log(Debug, "nn_bind eid for SP addr [%s]: %d\n", sp_addr, *mq_eid);
  return bound;
}

int32_t kestro_mq_socket_connect(int32_t mq_socket, int32_t transport_type, const char* sp_addr,
                                 int32_t* mq_eid) noexcept {
  return add_endpoint(nn_connect, mq_socket, transport_type, sp_addr, mq_eid);
}

int32_t kestro_mq_socket_recv(int32_t mq_socket, char** message, int32_t* length, int32_t nonblock_enable) noexcept {
  if (message == nullptr || length == nullptr) return null_pointer(here());

  char* received = nullptr;
  const int count = nn_recv(mq_socket, &received, NN_MSG, nonblock_enable > 0 ? NN_DONTWAIT : 0);
  if (count < 0) {
    if (nn_errno() == EAGAIN) {
      return here().fail(Verbose, status::no_message, "nn_recv no data in mq_socket [%d]: %s\n", mq_socket, nn_error());
    }
    return here().fail(Debug, status::general_error, "nn_recv failed for mq_socket [%d]: %s\n", mq_socket, nn_error());
  }

  const auto size = static_cast<size_t>(count);
  Text copy(static_cast<char*>(malloc(size + 1)));
  if (copy) {
    memcpy(copy.get(), received, size);
    copy.get()[size] = '\0';
  }
  if (nn_freemsg(received) < 0) {
    return here().fail(Debug, status::general_error, "nn_freemsg failed to free received message: %s\n", nn_error());
  }
  if (!copy) {
    return here().fail(Debug, status::general_error, "nn_recv failed for mq_socket [%d]: %s\n", mq_socket,
                       strerror(ENOMEM));
  }
  *message = copy.release();
  *length = count;
  return status::ok;
}

int32_t kestro_mq_socket_send(int32_t mq_socket, const char* message) noexcept {
  return send_text(mq_socket, message, 0);
}

int32_t kestro_mq_socket_send_nonblock(int32_t mq_socket, const char* message) noexcept {
  return send_text(mq_socket, message, NN_DONTWAIT);
}

int32_t kestro_mq_socket_shutdown(int32_t mq_socket, int32_t mq_eid) noexcept {
  if (nn_shutdown(mq_socket, mq_eid) >= 0) return status::ok;
  return here().fail(Debug, status::general_error, "nn_shutdown failed for mq_eid [%d]: %s\n", mq_eid, nn_error());
}

int32_t kestro_mq_socket_close(int32_t mq_socket) noexcept {
  if (nn_close(mq_socket) >= 0) return status::ok;
  here().log_unchecked(Warning, "nn_close failed for mq_socket [%d]: %s\n", mq_socket, nn_error());
  return status::general_error;
}

void kestro_mq_socket_terminate(void) noexcept {}

int32_t kestro_mq_socket_freemsg(void* message) noexcept {
  if (message == nullptr) return null_pointer(here());
  if (nn_freemsg(message) >= 0) return status::ok;
  return here().fail(Debug, status::general_error, "nn_freemsg failed to free message: %s\n", nn_error());
}

int32_t kestro_mq_socket_recvfd(int32_t mq_socket, int32_t* recvfd) noexcept {
  return get_option(here(), mq_socket, NN_RCVFD, recvfd);
}

int32_t kestro_mq_socket_sendfd(int32_t mq_socket, int32_t* sendfd) noexcept {
  return get_option(here(), mq_socket, NN_SNDFD, sendfd);
}

int32_t kestro_mq_socket_subscribe(int32_t mq_socket, const char* channel) noexcept {
  return set_subscription(here(), mq_socket, NN_SUB_SUBSCRIBE, channel);
}

int32_t kestro_mq_socket_unsubscribe(int32_t mq_socket, const char* channel) noexcept {
  return set_subscription(here(), mq_socket, NN_SUB_UNSUBSCRIBE, channel);
}

int32_t kestro_mq_socket_set_timeout(int32_t mq_socket, int32_t timeout) noexcept {
  return set_option(here(), mq_socket, NN_SOL_SOCKET, NN_RCVTIMEO, &timeout, sizeof timeout);
}

int32_t kestro_mq_socket_get_timeout(int32_t mq_socket, int32_t* timeout) noexcept {
  return get_option(here(), mq_socket, NN_RCVTIMEO, timeout);
}
