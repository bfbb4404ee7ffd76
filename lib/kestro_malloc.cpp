#include "kestro_malloc.h"

#include <sys/types.h>

#include <cstdio>
#include <cstdlib>

namespace {

size_t at_least_one(size_t size) noexcept {
  return size == 0 ? 1 : size;
}

void* or_abort(void* block, const char* operation, size_t size) noexcept {
  if (block != nullptr) return block;
  // The texts count the size as a signed number.
  fprintf(stderr, "%s %zd unsuccessful\n", operation, static_cast<ssize_t>(size));
  abort();
}

}  // namespace

void* omalloc(size_t size) noexcept {
  size = at_least_one(size);
  return or_abort(malloc(size), "malloc", size);
}

void* orealloc(void* ptr, size_t size) noexcept {
  size = at_least_one(size);
  return or_abort(realloc(ptr, size), "realloc", size);
}

void* ocalloc(size_t nmemb, size_t size) noexcept {
  nmemb = at_least_one(nmemb);
  size = at_least_one(size);
  return or_abort(calloc(nmemb, size), "calloc", nmemb * size);
}
