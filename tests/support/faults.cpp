#include "support/faults.hpp"

#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace {

struct Switch {
  std::string_view call;
  int error = 0;
  int countdown = 0;  // 0: disarmed

  // Whether this call is the one to fail; sets errno if so.
  bool fires() {
    if (countdown == 0 || --countdown > 0) return false;
    errno = error;
    return true;
  }
};

// One per call and thread; a plain array, so that malloc itself can look into it.
enum Call : size_t {
  Malloc,
  Calloc,
  Realloc,
  Vsnprintf,
  Writev,
  NnSocket,
  NnAllocmsg,
  NnFreemsg,
  NnSend,
  NnRecv,
  NnSetsockopt,
  NnGetsockopt,
  Socket,
  Setsockopt,
  Listen,
  Accept4,
  Connect,
  Recv,
  Send,
  TimerfdCreate,
  TimerfdSettime,
  calls
};
thread_local Switch switches[calls] = {
    {"malloc"},      {"calloc"},         {"realloc"},         {"vsnprintf"}, {"writev"},        {"nn_socket"},
    {"nn_allocmsg"}, {"nn_freemsg"},     {"nn_send"},         {"nn_recv"},   {"nn_setsockopt"}, {"nn_getsockopt"},
    {"socket"},      {"setsockopt"},     {"listen"},          {"accept4"},   {"connect"},       {"recv"},
    {"send"},        {"timerfd_create"}, {"timerfd_settime"},
};

// For the many calls that fail with -1.
template <class Result, class... Parameters>
Result real_or_failure(Call call, Result (*real)(Parameters...), Parameters... arguments) {
  return switches[call].fires() ? -1 : real(arguments...);
}

Switch& find(std::string_view call) {
  for (auto& each : switches) {
    if (each.call == call) return each;
  }
  throw std::invalid_argument("not in faults.list: " + std::string(call));
}

}  // namespace

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);

void* __wrap_malloc(size_t size) {
  return switches[Malloc].fires() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
  return switches[Calloc].fires() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, size_t size) {
  return switches[Realloc].fires() ? nullptr : __real_realloc(block, size);
}

int __real_vsnprintf(char* text, size_t size, const char* format, va_list args);
int __wrap_vsnprintf(char* text, size_t size, const char* format, va_list args) {
  return switches[Vsnprintf].fires() ? -1 : __real_vsnprintf(text, size, format, args);
}
ssize_t __real_writev(int fd, const iovec* pieces, int count);
ssize_t __wrap_writev(int fd, const iovec* pieces, int count) {
  return real_or_failure(Writev, __real_writev, fd, pieces, count);
}

int __real_nn_socket(int domain, int protocol);
int __wrap_nn_socket(int domain, int protocol) {
  return real_or_failure(NnSocket, __real_nn_socket, domain, protocol);
}
void* __real_nn_allocmsg(size_t size, int type);
void* __wrap_nn_allocmsg(size_t size, int type) {
  return switches[NnAllocmsg].fires() ? nullptr : __real_nn_allocmsg(size, type);
}
// Releases the message also when it fails: the caller has no use for it any more.
int __real_nn_freemsg(void* message);
int __wrap_nn_freemsg(void* message) {
  const int result = __real_nn_freemsg(message);
  return switches[NnFreemsg].fires() ? -1 : result;
}
int __real_nn_send(int socket, const void* message, size_t size, int flags);
int __wrap_nn_send(int socket, const void* message, size_t size, int flags) {
  return real_or_failure(NnSend, __real_nn_send, socket, message, size, flags);
}
int __real_nn_recv(int socket, void* message, size_t size, int flags);
int __wrap_nn_recv(int socket, void* message, size_t size, int flags) {
  return real_or_failure(NnRecv, __real_nn_recv, socket, message, size, flags);
}
int __real_nn_setsockopt(int socket, int level, int option, const void* value, size_t size);
int __wrap_nn_setsockopt(int socket, int level, int option, const void* value, size_t size) {
  return real_or_failure(NnSetsockopt, __real_nn_setsockopt, socket, level, option, value, size);
}
int __real_nn_getsockopt(int socket, int level, int option, void* value, size_t* size);
int __wrap_nn_getsockopt(int socket, int level, int option, void* value, size_t* size) {
  return real_or_failure(NnGetsockopt, __real_nn_getsockopt, socket, level, option, value, size);
}

int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol) {
  return real_or_failure(Socket, __real_socket, domain, type, protocol);
}
int __real_setsockopt(int fd, int level, int option, const void* value, socklen_t size);
int __wrap_setsockopt(int fd, int level, int option, const void* value, socklen_t size) {
  return real_or_failure(Setsockopt, __real_setsockopt, fd, level, option, value, size);
}
int __real_listen(int fd, int backlog);
int __wrap_listen(int fd, int backlog) {
  return real_or_failure(Listen, __real_listen, fd, backlog);
}
int __real_accept4(int fd, sockaddr* peer, socklen_t* length, int flags);
int __wrap_accept4(int fd, sockaddr* peer, socklen_t* length, int flags) {
  return real_or_failure(Accept4, __real_accept4, fd, peer, length, flags);
}
int __real_connect(int fd, const sockaddr* address, socklen_t length);
int __wrap_connect(int fd, const sockaddr* address, socklen_t length) {
  return real_or_failure(Connect, __real_connect, fd, address, length);
}
ssize_t __real_recv(int fd, void* buffer, size_t size, int flags);
ssize_t __wrap_recv(int fd, void* buffer, size_t size, int flags) {
  return real_or_failure(Recv, __real_recv, fd, buffer, size, flags);
}
ssize_t __real_send(int fd, const void* bytes, size_t size, int flags);
ssize_t __wrap_send(int fd, const void* bytes, size_t size, int flags) {
  return real_or_failure(Send, __real_send, fd, bytes, size, flags);
}

int __real_timerfd_create(int clock, int flags);
int __wrap_timerfd_create(int clock, int flags) {
  return real_or_failure(TimerfdCreate, __real_timerfd_create, clock, flags);
}
int __real_timerfd_settime(int fd, int flags, const itimerspec* setting, itimerspec* old);
int __wrap_timerfd_settime(int fd, int flags, const itimerspec* setting, itimerspec* old) {
  return real_or_failure(TimerfdSettime, __real_timerfd_settime, fd, flags, setting, old);
}
}

namespace kestro::test {

Fault::Fault(std::string_view call, int error, int nth) : call_(call) {
  auto& it = find(call);
  it.error = error;
  it.countdown = nth;
}

Fault::~Fault() {
  find(call_).countdown = 0;
}

bool Fault::fired() const {
  return find(call_).countdown == 0;
}

}  // namespace kestro::test
