#include "support/faults.hpp"

#include <sqlite3.h>
#include <sys/types.h>

#include <cerrno>
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
enum Call : size_t { Malloc, Calloc, Realloc, Ftruncate, Sqlite3Close, calls };
thread_local Switch switches[calls] = {{"malloc"}, {"calloc"}, {"realloc"}, {"ftruncate"}, {"sqlite3_close"}};

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
int __real_sqlite3_close(sqlite3* db);

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
int __wrap_sqlite3_close(sqlite3* db) {
  return switches[Sqlite3Close].fires() ? SQLITE_ERROR : __real_sqlite3_close(db);
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
