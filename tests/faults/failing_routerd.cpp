// Linked into the router daemon, lets a test fail its allocations and its system calls: those that its own code makes,
// the library's and the event loop's included, and not those of the message library.
#include "faults/failing_routerd.hpp"

#include <fcntl.h>
#include <nanomsg/nn.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "faults/failing_malloc.hpp"

namespace kestro::test {

namespace {

Control* control = nullptr;

// Before main(), on its thread.
__attribute__((constructor)) void take_control() {
  const char* const path = getenv(control_variable);
  if (path == nullptr) return;
  const int fd = open(path, O_RDWR | O_CLOEXEC);
  void* const page = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  if (page == MAP_FAILED) abort();
  control = static_cast<Control*>(page);
  FailingMalloc::take_plan(control->memory);
  control->memory.watch();
  control->memory.rest();
  control->calls.watch();
  control->calls.rest();
}

bool fails(const char* call) {
  if (control == nullptr || !control->calls.watches_me() || strcmp(control->call.data(), call) != 0) return false;
  if (!control->calls.fails()) return false;
  errno = control->error;
  return true;
}

// Error 0: the call transfers no more than one byte.
bool shortens() {
  return control->error == 0;
}

}  // namespace

}  // namespace kestro::test

using kestro::test::control;
using kestro::test::fails;
using kestro::test::shortens;

// What the linker leads the calls to.
extern "C" {
int __real_main(int argc, char** argv);
int __wrap_main(int argc, char** argv) {
  if (control != nullptr && control->memory_from_start) control->memory.watch_again();
  if (control != nullptr && control->calls_from_start) control->calls.watch_again();
  return __real_main(argc, argv);
}
int __real_accept4(int server, sockaddr* peer, socklen_t* length, int flags);
int __wrap_accept4(int server, sockaddr* peer, socklen_t* length, int flags) {
  return fails("accept4") ? -1 : __real_accept4(server, peer, length, flags);
}
ssize_t __real_recv(int fd, void* buffer, size_t size, int flags);
ssize_t __wrap_recv(int fd, void* buffer, size_t size, int flags) {
  if (!fails("recv")) return __real_recv(fd, buffer, size, flags);
  return shortens() ? __real_recv(fd, buffer, 1, flags) : -1;
}
ssize_t __real_send(int fd, const void* bytes, size_t size, int flags);
ssize_t __wrap_send(int fd, const void* bytes, size_t size, int flags) {
  if (!fails("send")) return __real_send(fd, bytes, size, flags);
  return shortens() ? __real_send(fd, bytes, 1, flags) : -1;
}
ssize_t __real_read(int fd, void* buffer, size_t size);
ssize_t __wrap_read(int fd, void* buffer, size_t size) {
  return fails("read") ? -1 : __real_read(fd, buffer, size);
}
ssize_t __real_write(int fd, const void* bytes, size_t size);
ssize_t __wrap_write(int fd, const void* bytes, size_t size) {
  return fails("write") ? -1 : __real_write(fd, bytes, size);
}
int __real_close(int fd);
int __wrap_close(int fd) {
  const int result = __real_close(fd);
  return fails("close") ? -1 : result;
}
int __real_shutdown(int fd, int how);
int __wrap_shutdown(int fd, int how) {
  return fails("shutdown") ? -1 : __real_shutdown(fd, how);
}
int __real_ioctl(int fd, unsigned long request, void* argument);
int __wrap_ioctl(int fd, unsigned long request, void* argument) {
  return fails("ioctl") ? -1 : __real_ioctl(fd, request, argument);
}
int __real_getsockopt(int fd, int level, int option, void* value, socklen_t* size);
int __wrap_getsockopt(int fd, int level, int option, void* value, socklen_t* size) {
  return fails("getsockopt") ? -1 : __real_getsockopt(fd, level, option, value, size);
}
int __real_setsockopt(int fd, int level, int option, const void* value, socklen_t size);
int __wrap_setsockopt(int fd, int level, int option, const void* value, socklen_t size) {
  return fails("setsockopt") ? -1 : __real_setsockopt(fd, level, option, value, size);
}
int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol) {
  return fails("socket") ? -1 : __real_socket(domain, type, protocol);
}
int __real_bind(int fd, const sockaddr* address, socklen_t length);
int __wrap_bind(int fd, const sockaddr* address, socklen_t length) {
  return fails("bind") ? -1 : __real_bind(fd, address, length);
}
int __real_listen(int fd, int backlog);
int __wrap_listen(int fd, int backlog) {
  return fails("listen") ? -1 : __real_listen(fd, backlog);
}
int __real_chmod(const char* path, mode_t mode);
int __wrap_chmod(const char* path, mode_t mode) {
  return fails("chmod") ? -1 : __real_chmod(path, mode);
}
int __real_unlink(const char* path);
int __wrap_unlink(const char* path) {
  return fails("unlink") ? -1 : __real_unlink(path);
}

int __real_epoll_create1(int flags);
int __wrap_epoll_create1(int flags) {
  return fails("epoll_create1") ? -1 : __real_epoll_create1(flags);
}
// Changing what is there already needs nothing that the kernel could lack.
int __real_epoll_ctl(int epoll, int operation, int fd, epoll_event* event);
int __wrap_epoll_ctl(int epoll, int operation, int fd, epoll_event* event) {
  return operation == EPOLL_CTL_ADD && fails("epoll_ctl") ? -1 : __real_epoll_ctl(epoll, operation, fd, event);
}
int __real_epoll_wait(int epoll, epoll_event* events, int room, int timeout);
int __wrap_epoll_wait(int epoll, epoll_event* events, int room, int timeout) {
  return fails("epoll_wait") ? -1 : __real_epoll_wait(epoll, events, room, timeout);
}
int __real_eventfd(unsigned count, int flags);
int __wrap_eventfd(unsigned count, int flags) {
  return fails("eventfd") ? -1 : __real_eventfd(count, flags);
}
int __real_pipe(int* ends);
int __wrap_pipe(int* ends) {
  return fails("pipe") ? -1 : __real_pipe(ends);
}
int __real_timerfd_create(int clock, int flags);
int __wrap_timerfd_create(int clock, int flags) {
  return fails("timerfd_create") ? -1 : __real_timerfd_create(clock, flags);
}
int __real_timerfd_settime(int fd, int flags, const itimerspec* setting, itimerspec* old);
int __wrap_timerfd_settime(int fd, int flags, const itimerspec* setting, itimerspec* old) {
  return fails("timerfd_settime") ? -1 : __real_timerfd_settime(fd, flags, setting, old);
}

int __real_shm_open(const char* name, int flags, mode_t mode);
int __wrap_shm_open(const char* name, int flags, mode_t mode) {
  return fails("shm_open") ? -1 : __real_shm_open(name, flags, mode);
}
int __real_ftruncate(int fd, off_t length);
int __wrap_ftruncate(int fd, off_t length) {
  return fails("ftruncate") ? -1 : __real_ftruncate(fd, length);
}
void* __real_mmap(void* place, size_t size, int protection, int flags, int fd, off_t offset);
void* __wrap_mmap(void* place, size_t size, int protection, int flags, int fd, off_t offset) {
  return fails("mmap") ? MAP_FAILED : __real_mmap(place, size, protection, flags, fd, offset);
}
int __real_madvise(void* place, size_t size, int advice);
int __wrap_madvise(void* place, size_t size, int advice) {
  return fails("madvise") ? -1 : __real_madvise(place, size, advice);
}

int __real_nn_socket(int domain, int protocol);
int __wrap_nn_socket(int domain, int protocol) {
  return fails("nn_socket") ? -1 : __real_nn_socket(domain, protocol);
}
int __real_nn_bind(int socket, const char* address);
int __wrap_nn_bind(int socket, const char* address) {
  return fails("nn_bind") ? -1 : __real_nn_bind(socket, address);
}
int __real_nn_connect(int socket, const char* address);
int __wrap_nn_connect(int socket, const char* address) {
  return fails("nn_connect") ? -1 : __real_nn_connect(socket, address);
}
int __real_nn_setsockopt(int socket, int level, int option, const void* value, size_t size);
int __wrap_nn_setsockopt(int socket, int level, int option, const void* value, size_t size) {
  return fails("nn_setsockopt") ? -1 : __real_nn_setsockopt(socket, level, option, value, size);
}
int __real_nn_getsockopt(int socket, int level, int option, void* value, size_t* size);
int __wrap_nn_getsockopt(int socket, int level, int option, void* value, size_t* size) {
  return fails("nn_getsockopt") ? -1 : __real_nn_getsockopt(socket, level, option, value, size);
}
void* __real_nn_allocmsg(size_t size, int type);
void* __wrap_nn_allocmsg(size_t size, int type) {
  return fails("nn_allocmsg") ? nullptr : __real_nn_allocmsg(size, type);
}
int __real_nn_send(int socket, const void* message, size_t size, int flags);
int __wrap_nn_send(int socket, const void* message, size_t size, int flags) {
  return fails("nn_send") ? -1 : __real_nn_send(socket, message, size, flags);
}
int __real_nn_recv(int socket, void* message, size_t size, int flags);
int __wrap_nn_recv(int socket, void* message, size_t size, int flags) {
  return fails("nn_recv") ? -1 : __real_nn_recv(socket, message, size, flags);
}
int __real_nn_freemsg(void* message);
int __wrap_nn_freemsg(void* message) {
  const int result = __real_nn_freemsg(message);
  return fails("nn_freemsg") ? -1 : result;
}
}
