#include "kestro_map.h"

#undef NDEBUG  // the assertion below is part of the interface
#include <cassert>
#include <cstdlib>
#include <cstring>

namespace {

ip_set* new_entry(const char* ip) noexcept {
  assert(strlen(ip) < sizeof(ip_set::ip));
  auto* const entry = static_cast<ip_set*>(malloc(sizeof(ip_set)));
  if (entry == nullptr) uthash_fatal("out of memory");
  *entry = {};
  strcpy(entry->ip, ip);
  entry->val = true;
  return entry;
}

}  // namespace

bool kestro_set_ip_add(struct ip_set** set, const char* ip) noexcept {
  ip_set* entry = nullptr;
  HASH_FIND_STR(*set, ip, entry);
  if (entry != nullptr) return true;
  entry = new_entry(ip);
  HASH_ADD_STR(*set, ip, entry);
  return false;
}

void kestro_set_ip_delete_all(struct ip_set** set) noexcept {
  ip_set* entry = nullptr;
  ip_set* next = nullptr;
  HASH_ITER(hh, *set, entry, next) {
    HASH_DEL(*set, entry);
    free(entry);
  }
}
