#include "kestro_jrpc/methods.hpp"

#include <emmintrin.h>

#include <array>
#include <cstdint>
#include <cstring>

namespace kestro {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#elif defined(__has_feature)
constexpr bool sanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool sanitized = false;
#endif

// How a name begins. Most rows are told apart by that, without a call for each.
class Beginning {
 public:
  explicit Beginning(const char* name) noexcept {
    std::array<char, sizeof(__m128i)> bytes{};
    memcpy(bytes.data(), name, strnlen(name, bytes.size()));
    bytes_ = load(bytes.data());
    const unsigned zeros = places_of_equal(bytes_, _mm_setzero_si128());
    places_ = (zeros ^ (zeros - 1)) & all_places;
  }

  // Whether another name may be the same; where it is said not to be, it is not.
  [[nodiscard]] bool may_be_that_of(const char* name) const noexcept {
    if (sanitized || !stands_in_one_page(name)) return true;
    return (places_of_equal(load(name), bytes_) & places_) == places_;
  }

 private:
  static __m128i load(const char* bytes) noexcept { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)); }

  static unsigned places_of_equal(__m128i one, __m128i other) noexcept {
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(one, other)));
  }

  // What is behind the end of a name is read then, but can be.
  static bool stands_in_one_page(const char* name) noexcept {
    constexpr uintptr_t page = 4096;
    return reinterpret_cast<uintptr_t>(name) % page <= page - sizeof(__m128i);
  }

  static constexpr unsigned all_places = 0xffff;
  __m128i bytes_;
  unsigned places_;  // those that count, up to the first zero; a bit for each
};

}  // namespace

const kestro_jrpc_mapping_t* find_method(const kestro_jrpc_mapping_t* table, const char* method) noexcept {
  const Beginning beginning(method);
  for (; table->methodHandler != nullptr; ++table) {
    if (beginning.may_be_that_of(table->method) && strcmp(table->method, method) == 0) return table;
  }
  return nullptr;
}

}  // namespace kestro
