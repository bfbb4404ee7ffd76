// The JSON library tells of a lack of memory; here it is thrown, as everywhere in the daemon.
#ifndef KESTRO_ROUTERD_MEMORY_HPP
#define KESTRO_ROUTERD_MEMORY_HPP

#include <new>

namespace kestro::routerd {

inline void require_memory(bool had) {
  if (!had) throw std::bad_alloc();
}

}  // namespace kestro::routerd

#endif
