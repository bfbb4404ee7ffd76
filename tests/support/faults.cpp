#include "support/faults.hpp"

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
enum Call : size_t { Malloc, Calloc, Realloc, NnSetsockopt, calls };
thread_local Switch switches[calls] = {{"malloc"}, {"calloc"}, {"realloc"}, {"nn_setsockopt"}};

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

int __real_nn_setsockopt(int socket, int level, int option, const void* value, size_t size);

void* __wrap_malloc(size_t size) {
  return switches[Malloc].fires() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
  return switches[Calloc].fires() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, size_t size) {
  return switches[Realloc].fires() ? nullptr : __real_realloc(block, size);
}
int __wrap_nn_setsockopt(int socket, int level, int option, const void* value, size_t size) {
  return switches[NnSetsockopt].fires() ? -1 : __real_nn_setsockopt(socket, level, option, value, size);
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
