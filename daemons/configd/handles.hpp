// Owning handles for what the C interfaces hand out.
#ifndef KESTRO_CONFIGD_HANDLES_HPP
#define KESTRO_CONFIGD_HANDLES_HPP

#include <jansson.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace kestro::configd {

struct Free {
  void operator()(void* memory) const noexcept { free(memory); }
};
template <class T>
using Allocated = std::unique_ptr<T, Free>;

struct Release {
  void operator()(json_t* json) const noexcept { json_decref(json); }
};
// A reference of our own. A plain json_t* is borrowed.
using Json = std::unique_ptr<json_t, Release>;

// Compact and in ASCII.
inline std::string text_of(const json_t* json) {
  const Allocated<char> text(json_dumps(json, JSON_COMPACT | JSON_ENSURE_ASCII));
  return text ? text.get() : "";
}

}  // namespace kestro::configd

#endif
