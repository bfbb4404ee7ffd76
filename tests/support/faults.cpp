#include "support/faults.hpp"

#include <pthread.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

struct Armed {
  std::string_view call;
  int error = 0;
  int countdown = 0;  // 0: it has fired, or there is none
};

// A plain array, so that malloc itself can look into it.
thread_local std::array<Armed, 8> armed;

// Whether this call is one to fail; sets errno if so.
bool fires(std::string_view call) {
  for (auto& fault : armed) {
    if (fault.call != call || fault.countdown == 0 || --fault.countdown > 0) continue;
    errno = fault.error;
    return true;
  }
  return false;
}

}  // namespace

// What the linker leads each call of faults.list to, and the real one behind it.
extern "C" {
void* __real_malloc(size_t size);
void* __wrap_malloc(size_t size) {
  return fires("malloc") ? nullptr : __real_malloc(size);
}
void* __real_calloc(size_t count, size_t size);
void* __wrap_calloc(size_t count, size_t size) {
  return fires("calloc") ? nullptr : __real_calloc(count, size);
}
void* __real_realloc(void* block, size_t size);
void* __wrap_realloc(void* block, size_t size) {
  return fires("realloc") ? nullptr : __real_realloc(block, size);
}

int __real_vsnprintf(char* text, size_t size, const char* format, va_list args);
int __wrap_vsnprintf(char* text, size_t size, const char* format, va_list args) {
  return fires("vsnprintf") ? -1 : __real_vsnprintf(text, size, format, args);
}
ssize_t __real_write(int fd, const void* bytes, size_t count);
ssize_t __wrap_write(int fd, const void* bytes, size_t count) {
  return fires("write") ? -1 : __real_write(fd, bytes, count);
}

ssize_t __real_writev(int fd, const iovec* pieces, int count);
ssize_t __wrap_writev(int fd, const iovec* pieces, int count) {
  return fires("writev") ? -1 : __real_writev(fd, pieces, count);
}
int __real_ftruncate(int fd, off_t length);
int __wrap_ftruncate(int fd, off_t length) {
  return fires("ftruncate") ? -1 : __real_ftruncate(fd, length);
}
int __real_fsync(int fd);
int __wrap_fsync(int fd) {
  return fires("fsync") ? -1 : __real_fsync(fd);
}
int __real_sqlite3_close(sqlite3* db);
int __wrap_sqlite3_close(sqlite3* db) {
  return fires("sqlite3_close") ? SQLITE_ERROR : __real_sqlite3_close(db);
}

FILE* __real_popen(const char* command, const char* mode);
FILE* __wrap_popen(const char* command, const char* mode) {
  return fires("popen") ? nullptr : __real_popen(command, mode);
}
int __real_system(const char* command);
int __wrap_system(const char* command) {
  return fires("system") ? -1 : __real_system(command);
}
pid_t __real_fork();
pid_t __wrap_fork() {
  return fires("fork") ? -1 : __real_fork();
}
int __real_execv(const char* path, char* const* arguments);
int __wrap_execv(const char* path, char* const* arguments) {
  return fires("execv") ? -1 : __real_execv(path, arguments);
}
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* input);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* input) {
  return fires("pthread_create") ? errno : __real_pthread_create(thread, attributes, start, input);
}

int __real_nn_socket(int domain, int protocol);
int __wrap_nn_socket(int domain, int protocol) {
  return fires("nn_socket") ? -1 : __real_nn_socket(domain, protocol);
}
void* __real_nn_allocmsg(size_t size, int type);
void* __wrap_nn_allocmsg(size_t size, int type) {
  return fires("nn_allocmsg") ? nullptr : __real_nn_allocmsg(size, type);
}
// Releases the message also when it fails: the caller has no use for it any more.
int __real_nn_freemsg(void* message);
int __wrap_nn_freemsg(void* message) {
  const int result = __real_nn_freemsg(message);
  return fires("nn_freemsg") ? -1 : result;
}
int __real_nn_send(int socket, const void* message, size_t size, int flags);
int __wrap_nn_send(int socket, const void* message, size_t size, int flags) {
  return fires("nn_send") ? -1 : __real_nn_send(socket, message, size, flags);
}
int __real_nn_recv(int socket, void* message, size_t size, int flags);
int __wrap_nn_recv(int socket, void* message, size_t size, int flags) {
  return fires("nn_recv") ? -1 : __real_nn_recv(socket, message, size, flags);
}
int __real_nn_setsockopt(int socket, int level, int option, const void* value, size_t size);
int __wrap_nn_setsockopt(int socket, int level, int option, const void* value, size_t size) {
  return fires("nn_setsockopt") ? -1 : __real_nn_setsockopt(socket, level, option, value, size);
}
int __real_nn_getsockopt(int socket, int level, int option, void* value, size_t* size);
int __wrap_nn_getsockopt(int socket, int level, int option, void* value, size_t* size) {
  return fires("nn_getsockopt") ? -1 : __real_nn_getsockopt(socket, level, option, value, size);
}

int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol) {
  return fires("socket") ? -1 : __real_socket(domain, type, protocol);
}
int __real_setsockopt(int fd, int level, int option, const void* value, socklen_t size);
int __wrap_setsockopt(int fd, int level, int option, const void* value, socklen_t size) {
  return fires("setsockopt") ? -1 : __real_setsockopt(fd, level, option, value, size);
}
int __real_listen(int fd, int backlog);
int __wrap_listen(int fd, int backlog) {
  return fires("listen") ? -1 : __real_listen(fd, backlog);
}
int __real_accept4(int server, sockaddr* peer, socklen_t* length, int flags);
int __wrap_accept4(int server, sockaddr* peer, socklen_t* length, int flags) {
  return fires("accept4") ? -1 : __real_accept4(server, peer, length, flags);
}
int __real_connect(int fd, const sockaddr* address, socklen_t length);
int __wrap_connect(int fd, const sockaddr* address, socklen_t length) {
  return fires("connect") ? -1 : __real_connect(fd, address, length);
}
ssize_t __real_recv(int fd, void* buffer, size_t size, int flags);
ssize_t __wrap_recv(int fd, void* buffer, size_t size, int flags) {
  return fires("recv") ? -1 : __real_recv(fd, buffer, size, flags);
}
ssize_t __real_send(int fd, const void* bytes, size_t size, int flags);
ssize_t __wrap_send(int fd, const void* bytes, size_t size, int flags) {
  return fires("send") ? -1 : __real_send(fd, bytes, size, flags);
}

int __real_timerfd_create(int clock, int flags);
int __wrap_timerfd_create(int clock, int flags) {
  return fires("timerfd_create") ? -1 : __real_timerfd_create(clock, flags);
}
int __real_timerfd_settime(int fd, int flags, const itimerspec* setting, itimerspec* old);
int __wrap_timerfd_settime(int fd, int flags, const itimerspec* setting, itimerspec* old) {
  return fires("timerfd_settime") ? -1 : __real_timerfd_settime(fd, flags, setting, old);
}
}

namespace kestro::test {

Fault::Fault(std::string_view call, int error, int nth) {
  while (slot_ < armed.size() && !armed[slot_].call.empty()) ++slot_;
  if (slot_ == armed.size()) throw std::logic_error("no room to arm " + std::string(call));
  armed[slot_] = {.call = call, .error = error, .countdown = nth};
}

Fault::~Fault() {
  armed[slot_] = {};
}

bool Fault::fired() const {
  return armed[slot_].countdown == 0;
}

}  // namespace kestro::test
