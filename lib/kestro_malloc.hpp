// Copies made by the aborting allocation.
#ifndef KESTRO_MALLOC_HPP
#define KESTRO_MALLOC_HPP

#include <cstring>

#include "core/owned.hpp"
#include "kestro_malloc.h"

namespace kestro {

// A text's copy. When memory runs out the process ends.
inline Text copy_of(const char* text) noexcept {
  const size_t size = strlen(text) + 1;
  return Text(static_cast<char*>(memcpy(omalloc(size), text, size)));
}

}  // namespace kestro

#endif
