#include "kestro_jrpc/fd_locks.hpp"

#include <atomic>
#include <mutex>

#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_jrpc.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_jrpc");

struct fd_lock_map {
  int32_t flm_fd;
  pthread_mutex_t* flm_lk;
};

constexpr int32_t max_fd_locks = 16;
fd_lock_map g_fd_locks[max_fd_locks];
// Changed under the map's lock only; a full map is told from outside it.
std::atomic<int32_t> g_fd_count{0};
std::mutex g_fd_map_lock;

pthread_mutex_t* find_registered(int32_t fd) noexcept {
  for (int32_t row = 0; row < g_fd_count; ++row) {
    if (g_fd_locks[row].flm_fd == fd) return g_fd_locks[row].flm_lk;
  }
  return nullptr;
}

int32_t refuse_when_full() noexcept {
  if (g_fd_count < max_fd_locks) return status::ok;
  return here().fail(Error, status::general_error, "reached max fd lock count!\n");
}

}  // namespace

pthread_mutex_t* kestro::find_fd_lock(int32_t fd) noexcept {
  const std::lock_guard guard(g_fd_map_lock);
  return find_registered(fd);
}

void kestro::unlock_fd(int32_t fd) noexcept {
  if (auto* const lock = find_fd_lock(fd)) pthread_mutex_unlock(lock);
}

int32_t kestro_jrpc_add_fd_lock(int32_t fd, pthread_mutex_t* lk) noexcept {
  if (lk == nullptr) return here().fail(Debug, status::null_argument, "[kestro_jrpc_add_fd_lock]: NULL pointer!\n");
  if (const auto full = refuse_when_full(); full != status::ok) return full;

  const std::lock_guard guard(g_fd_map_lock);
  if (find_registered(fd) != nullptr) {
    return here().fail(Error, status::general_error, "duplicate fd in lock map\n");
  }
  // Another thread may have taken the last row since.
  if (const auto full = refuse_when_full(); full != status::ok) return full;
  g_fd_locks[g_fd_count] = {.flm_fd = fd, .flm_lk = lk};
  ++g_fd_count;
  return status::ok;
}
