// Owning handles for what the C interfaces hand out.
#ifndef KESTRO_DAEMONS_HANDLES_HPP
#define KESTRO_DAEMONS_HANDLES_HPP

#include <jansson.h>

#include <cstdlib>
#include <memory>

namespace kestro::daemons {

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

}  // namespace kestro::daemons

#endif
