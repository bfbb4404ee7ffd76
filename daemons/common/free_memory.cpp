#include "common/free_memory.hpp"

#include <malloc.h>

namespace kestro::daemons {

void give_free_memory_back() noexcept {
  malloc_trim(0);
}

}  // namespace kestro::daemons
