// Handles of what the library and jansson hand out.
#ifndef KESTRO_SIMD_OWNED_HPP
#define KESTRO_SIMD_OWNED_HPP

#include <jansson.h>

#include <cstdlib>
#include <memory>

namespace kestro::simd {

struct Free {
  void operator()(void* p) const noexcept { std::free(p); }
};
struct Release {
  void operator()(json_t* json) const noexcept { json_decref(json); }
};
using Text = std::unique_ptr<char, Free>;
using Json = std::unique_ptr<json_t, Release>;

}  // namespace kestro::simd

#endif
