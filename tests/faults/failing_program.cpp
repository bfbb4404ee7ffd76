// Linked into a program, lets a test fail its allocations and its system calls. These definitions take the place of the
// C library's for everybody: the program's own code, and the libraries that it uses. Calls of the message library are
// left alone: it ends the process when one of its own fails. What fails instead are the calls of the message library.
#include "faults/failing_program.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <nanomsg/nn.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "faults/failing_malloc.hpp"

namespace kestro::test {

namespace {

Control* control = nullptr;

// Leaves it at rest.
void make_ready(Plan& plan) {
  control->all_threads ? plan.watch_all() : plan.watch();
  plan.rest();
}

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
  make_ready(control->memory);
  make_ready(control->calls);
}

// Whether this call of the function that asks is one to fail.
bool fails(const char* call = __builtin_FUNCTION(), const void* caller = __builtin_return_address(0)) {
  if (control == nullptr || !control->calls.watches_me() || strcmp(control->call.data(), call) != 0) return false;
  if (is_in_message_library(caller) || !control->calls.fails()) return false;
  errno = control->error;
  return true;
}

// Error 0: the call transfers no more than one byte.
bool shortens() {
  return control->error == 0;
}

// The function whose place the one that asks took: the library's, or that of a sanitizer, which watches its calls.
template <class Function>
Function* next(Function* /*own*/, const char* name = __builtin_FUNCTION()) {
#ifdef KESTRO_SANITIZED
  std::array<char, 64> watched{"__interceptor_"};
  strncat(watched.data(), name, watched.size() - strlen(watched.data()) - 1);
  if (void* const sanitizer = dlsym(RTLD_DEFAULT, watched.data())) return reinterpret_cast<Function*>(sanitizer);
#endif
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

}  // namespace kestro::test

using kestro::test::control;
using kestro::test::fails;
using kestro::test::is_in_message_library;
using kestro::test::next;
using kestro::test::shortens;

extern "C" {
// The linker leads the start of the program here.
int __real_main(int argc, char** argv);
int __wrap_main(int argc, char** argv) {
  if (control != nullptr && control->memory_from_start) control->memory.watch_again();
  if (control != nullptr && control->calls_from_start) control->calls.watch_again();
  return __real_main(argc, argv);
}

// ---- Sockets

int socket(int domain, int type, int protocol) noexcept {
  return fails() ? -1 : next(socket)(domain, type, protocol);
}
int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
  return fails() ? -1 : next(bind)(fd, address, length);
}
int listen(int fd, int backlog) noexcept {
  return fails() ? -1 : next(listen)(fd, backlog);
}
int accept4(int server, sockaddr* peer, socklen_t* length, int flags) {
  return fails() ? -1 : next(accept4)(server, peer, length, flags);
}
int connect(int fd, const sockaddr* address, socklen_t length) {
  return fails() ? -1 : next(connect)(fd, address, length);
}
ssize_t recv(int fd, void* buffer, size_t size, int flags) {
  if (!fails()) return next(recv)(fd, buffer, size, flags);
  return shortens() ? next(recv)(fd, buffer, 1, flags) : -1;
}
ssize_t send(int fd, const void* bytes, size_t size, int flags) {
  if (!fails()) return next(send)(fd, bytes, size, flags);
  return shortens() ? next(send)(fd, bytes, 1, flags) : -1;
}
int shutdown(int fd, int how) noexcept {
  return fails() ? -1 : next(shutdown)(fd, how);
}
int getsockopt(int fd, int level, int option, void* value, socklen_t* size) noexcept {
  return fails() ? -1 : next(getsockopt)(fd, level, option, value, size);
}
int setsockopt(int fd, int level, int option, const void* value, socklen_t size) noexcept {
  return fails() ? -1 : next(setsockopt)(fd, level, option, value, size);
}

// ---- Files. The names with 64 are those that some libraries use.

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const auto mode = va_arg(rest, mode_t);
  va_end(rest);
  return fails() ? -1 : next(open)(path, flags, mode);
}
int open64(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const auto mode = va_arg(rest, mode_t);
  va_end(rest);
  return fails("open") ? -1 : next(open64)(path, flags, mode);
}
int mkostemp(char* pattern, int flags) {
  return fails() ? -1 : next(mkostemp)(pattern, flags);
}
FILE* fopen(const char* path, const char* mode) {
  return fails() ? nullptr : next(fopen)(path, mode);
}
FILE* fopen64(const char* path, const char* mode) {
  return fails("fopen") ? nullptr : next(fopen64)(path, mode);
}
ssize_t read(int fd, void* buffer, size_t size) {
  if (!fails()) return next(read)(fd, buffer, size);
  return shortens() ? next(read)(fd, buffer, 1) : -1;
}
ssize_t pread64(int fd, void* buffer, size_t size, off64_t offset) {
  if (!fails("pread")) return next(pread64)(fd, buffer, size, offset);
  return shortens() ? next(pread64)(fd, buffer, 1, offset) : -1;
}
ssize_t write(int fd, const void* bytes, size_t size) {
  if (!fails()) return next(write)(fd, bytes, size);
  return shortens() ? next(write)(fd, bytes, 1) : -1;
}
ssize_t pwrite64(int fd, const void* bytes, size_t size, off64_t offset) {
  if (!fails("pwrite")) return next(pwrite64)(fd, bytes, size, offset);
  return shortens() ? next(pwrite64)(fd, bytes, 1, offset) : -1;
}
size_t fwrite(const void* bytes, size_t size, size_t count, FILE* file) {
  return fails() ? 0 : next(fwrite)(bytes, size, count, file);
}
int fflush(FILE* file) {
  return fails() ? EOF : next(fflush)(file);
}
int fsync(int fd) {
  return fails() ? -1 : next(fsync)(fd);
}
int fdatasync(int fd) {
  return fails() ? -1 : next(fdatasync)(fd);
}
// Such a file is closed nevertheless, as in the kernel.
int close(int fd) {
  const int result = next(close)(fd);
  return fails() ? -1 : result;
}
int ftruncate(int fd, off_t length) noexcept {
  return fails() ? -1 : next(ftruncate)(fd, length);
}
int ftruncate64(int fd, off64_t length) noexcept {
  return fails("ftruncate") ? -1 : next(ftruncate64)(fd, length);
}
int stat(const char* path, struct stat* status) noexcept {
  return fails() ? -1 : next<int(const char*, struct stat*)>(stat)(path, status);
}
int stat64(const char* path, struct stat64* status) noexcept {
  return fails("stat") ? -1 : next<int(const char*, struct stat64*)>(stat64)(path, status);
}
int lstat64(const char* path, struct stat64* status) noexcept {
  return fails("lstat") ? -1 : next<int(const char*, struct stat64*)>(lstat64)(path, status);
}
int fstat64(int fd, struct stat64* status) noexcept {
  return fails("fstat") ? -1 : next<int(int, struct stat64*)>(fstat64)(fd, status);
}
int access(const char* path, int mode) noexcept {
  return fails() ? -1 : next(access)(path, mode);
}
int fcntl64(int fd, int command, ...) {
  va_list rest;
  va_start(rest, command);
  void* const argument = va_arg(rest, void*);
  va_end(rest);
  return fails("fcntl") ? -1 : next(fcntl64)(fd, command, argument);
}
int chmod(const char* path, mode_t mode) noexcept {
  return fails() ? -1 : next(chmod)(path, mode);
}
int fchmod(int fd, mode_t mode) noexcept {
  return fails() ? -1 : next(fchmod)(fd, mode);
}
int link(const char* path, const char* other) noexcept {
  return fails() ? -1 : next(link)(path, other);
}
int unlink(const char* path) noexcept {
  return fails() ? -1 : next(unlink)(path);
}
int remove(const char* path) noexcept {
  return fails() ? -1 : next<int(const char*)>(remove)(path);
}
int rename(const char* from, const char* to) noexcept {
  return fails() ? -1 : next(rename)(from, to);
}
char* realpath(const char* path, char* resolved) noexcept {
  return fails() ? nullptr : next(realpath)(path, resolved);
}

// ---- Waiting

int poll(pollfd* descriptors, nfds_t count, int timeout) {
  return fails() ? -1 : next(poll)(descriptors, count, timeout);
}
int epoll_create1(int flags) noexcept {
  return fails() ? -1 : next(epoll_create1)(flags);
}
// Changing what is there already needs nothing that the kernel could lack.
int epoll_ctl(int epoll, int operation, int fd, epoll_event* event) noexcept {
  return operation == EPOLL_CTL_ADD && fails() ? -1 : next(epoll_ctl)(epoll, operation, fd, event);
}
int epoll_wait(int epoll, epoll_event* events, int room, int timeout) {
  return fails() ? -1 : next(epoll_wait)(epoll, events, room, timeout);
}
int eventfd(unsigned count, int flags) noexcept {
  return fails() ? -1 : next(eventfd)(count, flags);
}
int signalfd(int fd, const sigset_t* signals, int flags) noexcept {
  return fails() ? -1 : next(signalfd)(fd, signals, flags);
}
int pipe(int* ends) noexcept {
  return fails() ? -1 : next(pipe)(ends);
}
int timerfd_create(int clock, int flags) noexcept {
  return fails() ? -1 : next(timerfd_create)(clock, flags);
}
int timerfd_settime(int fd, int flags, const itimerspec* setting, itimerspec* old) noexcept {
  return fails() ? -1 : next(timerfd_settime)(fd, flags, setting, old);
}
int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list rest;
  va_start(rest, request);
  void* const argument = va_arg(rest, void*);
  va_end(rest);
  return fails() ? -1 : next(ioctl)(fd, request, argument);
}

// ---- Memory and threads

int shm_open(const char* name, int flags, mode_t mode) {
  return fails() ? -1 : next(shm_open)(name, flags, mode);
}
void* mmap(void* place, size_t size, int protection, int flags, int fd, off_t offset) noexcept {
  return fails() ? MAP_FAILED : next(mmap)(place, size, protection, flags, fd, offset);
}
int madvise(void* place, size_t size, int advice) noexcept {
  return fails() ? -1 : next(madvise)(place, size, advice);
}
// The memory of a thread of the message library is that library's own.
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) noexcept {
  if (fails()) return control->error;
  const bool spared =
      control != nullptr && control->memory.watches_me() && is_in_message_library(__builtin_return_address(0));
  if (spared) control->memory.rest();
  const int error = next(pthread_create)(thread, attributes, start, argument);
  if (spared) control->memory.watch_again();
  return error;
}

// ---- The message library

int nn_socket(int domain, int protocol) {
  return fails() ? -1 : next(nn_socket)(domain, protocol);
}
int nn_bind(int socket, const char* address) {
  return fails() ? -1 : next(nn_bind)(socket, address);
}
int nn_connect(int socket, const char* address) {
  return fails() ? -1 : next(nn_connect)(socket, address);
}
int nn_setsockopt(int socket, int level, int option, const void* value, size_t size) {
  return fails() ? -1 : next(nn_setsockopt)(socket, level, option, value, size);
}
int nn_getsockopt(int socket, int level, int option, void* value, size_t* size) {
  return fails() ? -1 : next(nn_getsockopt)(socket, level, option, value, size);
}
void* nn_allocmsg(size_t size, int type) {
  return fails() ? nullptr : next(nn_allocmsg)(size, type);
}
int nn_send(int socket, const void* message, size_t size, int flags) {
  return fails() ? -1 : next(nn_send)(socket, message, size, flags);
}
int nn_recv(int socket, void* message, size_t size, int flags) {
  return fails() ? -1 : next(nn_recv)(socket, message, size, flags);
}
int nn_freemsg(void* message) {
  const int result = next(nn_freemsg)(message);
  return fails() ? -1 : result;
}
}
