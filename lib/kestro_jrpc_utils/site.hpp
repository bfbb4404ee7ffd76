// The log of this module.
#ifndef KESTRO_JRPC_UTILS_SITE_HPP
#define KESTRO_JRPC_UTILS_SITE_HPP

#include "core/site.hpp"
#include "core/status.hpp"

namespace kestro::jrpc_utils {

inline constexpr auto here = site_of("kestro_jrpc_utils");

// What readers of parameters say to a null pointer.
inline int32_t refuse_null(Site site) noexcept {
  return site.fail(Debug, status::parameter_error, "NULL pointer!\n");
}

}  // namespace kestro::jrpc_utils

#endif
