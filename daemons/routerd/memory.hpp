// The JSON library tells of a lack of memory; here it is thrown, as everywhere in the daemon.
#ifndef KESTRO_ROUTERD_MEMORY_HPP
#define KESTRO_ROUTERD_MEMORY_HPP

#include <new>
#include <string>

#include "core/owned.hpp"

namespace kestro::routerd {

inline void require_memory(bool had) {
  if (!had) throw std::bad_alloc();
}

// Takes a text away with its memory, which assigning an empty one would leave there.
inline void release(std::string& text) noexcept {
  std::string().swap(text);
}

// From here on a text for which there is no memory is refused (std::bad_alloc), where the JSON library by itself would
// write past its memory. To be called before anything else is done with JSON.
void guard_json_memory() noexcept;

// The value of a text, null when it is none.
Json parsed(const std::string& text);

}  // namespace kestro::routerd

#endif
