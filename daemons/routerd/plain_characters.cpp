#include "routerd/plain_characters.hpp"

#include <emmintrin.h>

#include <bit>
#include <cstddef>

namespace kestro::routerd {

const char* end_of_plain_characters(const char* from, const char* end) noexcept {
  const __m128i quote = _mm_set1_epi8('"');
  const __m128i backslash = _mm_set1_epi8('\\');
  const __m128i blank = _mm_set1_epi8(' ');
  while (end - from >= static_cast<std::ptrdiff_t>(sizeof(__m128i))) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    // Compared as signed numbers, bytes beyond ASCII are below the blank too.
    const __m128i special = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(bytes, quote), _mm_cmpeq_epi8(bytes, backslash)),
                                         _mm_cmplt_epi8(bytes, blank));
    if (const auto places = static_cast<unsigned>(_mm_movemask_epi8(special)); places != 0) {
      return from + std::countr_zero(places);
    }
    from += sizeof(__m128i);
  }
  while (from != end && static_cast<signed char>(*from) >= ' ' && *from != '"' && *from != '\\') ++from;
  return from;
}

}  // namespace kestro::routerd
