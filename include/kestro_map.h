/*
 * kestro_map.h - a set of IPv4 address texts.
 *
 *   struct ip_set* seen = NULL;
 *   if (kestro_set_ip_add(&seen, "10.0.0.1")) puts("seen before");
 *   kestro_set_ip_delete_all(&seen);
 *
 * A set is a pointer to its first entry; null is the empty set. The entries belong to the set; walk it with HASH_ITER
 * of uthash.h. Texts are compared as they are: "010.0.0.1" and "10.0.0.1" are two members. A set belongs to one thread
 * at a time. Arguments must not be null.
 *
 * When memory runs out, the process exits with status -1.
 */
#ifndef KESTRO_MAP_H
#define KESTRO_MAP_H

#include <stdbool.h>
#include <uthash.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

struct ip_set {
  char ip[16]; /* the key */
  bool val;    /* true */
  UT_hash_handle hh;
};

/*
 * Adds an address, of at most 15 characters: a longer one aborts the process. Returns whether it was in the set
 * already; the set is left as it is then.
 */
bool kestro_set_ip_add(struct ip_set** set, const char* ip) KESTRO_NOEXCEPT;

/* Releases every entry and leaves the set empty. */
void kestro_set_ip_delete_all(struct ip_set** set) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
