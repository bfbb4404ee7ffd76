// Growable lists of MAC addresses, as seen on ports.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/status.hpp"
#include "kestro_data.h"
#include "kestro_malloc.h"
#include "kestro_utils.h"

using namespace kestro;

namespace {

constexpr size_t initial_size = 8;
constexpr int32_t max_listed = 512;

// Makes room for `size` entries; the old ones stay when memory runs out.
bool resize(kestro_mac_vector& vector, size_t size) noexcept {
  auto* const macs = static_cast<mac_str*>(realloc(vector.pmacs->macs, size * sizeof(mac_str)));
  if (macs == nullptr) return false;
  vector.pmacs->macs = macs;
  vector.size = size;
  return true;
}

size_t count_of(const port_macs* macs) noexcept {
  return macs != nullptr && macs->n_macs > 0 ? static_cast<size_t>(macs->n_macs) : 0;
}

mac_str* copy_to(mac_str* out, const port_macs* macs) noexcept {
  const size_t count = count_of(macs);
  if (count > 0) memcpy(out, macs->macs, count * sizeof(mac_str));
  return out + count;
}

}  // namespace

int32_t kestro_mac_vector_init(struct kestro_mac_vector* mvec, struct port_macs* pmacs) noexcept {
  if (kestro_check_for_null(2, mvec, pmacs) != status::ok) return status::null_argument;
  *pmacs = {};
  *mvec = {.pmacs = pmacs, .size = 0};
  if (resize(*mvec, initial_size)) return status::ok;
  kestro_terminate_process();
  return status::out_of_memory;
}

int32_t kestro_mac_vector_push(struct kestro_mac_vector* mvec, const void* mac, int32_t type) noexcept {
  if (kestro_check_for_null(2, mvec, mac) != status::ok) return status::null_argument;
  port_macs& list = *mvec->pmacs;
  if (count_of(&list) == mvec->size && !resize(*mvec, std::max(2 * mvec->size, initial_size))) {
    kestro_terminate_process();
    return status::general_error;
  }

  auto& entry = list.macs[list.n_macs];
  switch (type) {
    case MAC_STR:
      snprintf(entry, sizeof entry, "%s", static_cast<const char*>(mac));
      break;
    case MAC_BYTES:
      kestro_bytes_to_mac_address_string(entry, static_cast<const uint8_t*>(mac));
      break;
    default:
      return status::parameter_error;
  }
  ++list.n_macs;
  return status::ok;
}

void kestro_free_port_macs_array(struct port_macs* arr, int32_t n) noexcept {
  if (arr == nullptr) return;
  for (int32_t i = 0; i < n; ++i) free(arr[i].macs);
  free(arr);
}

struct port_macs kestro_port_macs_concat(const struct port_macs* macs1, const struct port_macs* macs2) noexcept {
  const size_t count = count_of(macs1) + count_of(macs2);
  auto* const macs = static_cast<mac_str*>(omalloc(count * sizeof(mac_str)));
  copy_to(copy_to(macs, macs1), macs2);
  return {.macs = macs, .n_macs = static_cast<int32_t>(count)};
}

int32_t kestro_get_num_macs_to_list(int32_t num_macs) noexcept {
  return std::min(num_macs, max_listed);
}
