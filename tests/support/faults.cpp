#include "support/faults.hpp"

#include <pthread.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
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
enum Call : size_t { Malloc, Calloc, Realloc, Ftruncate, Popen, System, Fork, Execv, PthreadCreate, calls };
thread_local Switch switches[calls] = {{"malloc"}, {"calloc"}, {"realloc"}, {"ftruncate"},     {"popen"},
                                       {"system"}, {"fork"},   {"execv"},   {"pthread_create"}};

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
int __real_ftruncate(int fd, off_t length);
FILE* __real_popen(const char* command, const char* mode);
int __real_system(const char* command);
pid_t __real_fork();
int __real_execv(const char* path, char* const arguments[]);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* input);

void* __wrap_malloc(size_t size) {
  return switches[Malloc].fires() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
  return switches[Calloc].fires() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, size_t size) {
  return switches[Realloc].fires() ? nullptr : __real_realloc(block, size);
}
int __wrap_ftruncate(int fd, off_t length) {
  return switches[Ftruncate].fires() ? -1 : __real_ftruncate(fd, length);
}
FILE* __wrap_popen(const char* command, const char* mode) {
  return switches[Popen].fires() ? nullptr : __real_popen(command, mode);
}
int __wrap_system(const char* command) {
  return switches[System].fires() ? -1 : __real_system(command);
}
pid_t __wrap_fork() {
  return switches[Fork].fires() ? -1 : __real_fork();
}
int __wrap_execv(const char* path, char* const arguments[]) {
  return switches[Execv].fires() ? -1 : __real_execv(path, arguments);
}
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* input) {
  auto& it = switches[PthreadCreate];
  return it.fires() ? it.error : __real_pthread_create(thread, attributes, start, input);
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
