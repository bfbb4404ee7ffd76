// Whether a sanitizer watches the memory of this program.
#ifndef KESTRO_CORE_SANITIZED_HPP
#define KESTRO_CORE_SANITIZED_HPP

namespace kestro {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#elif defined(__has_feature)
constexpr bool sanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool sanitized = false;
#endif

}  // namespace kestro

#endif
