#include "kestro_jrpc/methods.hpp"

#include <emmintrin.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "core/sanitized.hpp"

namespace kestro {

namespace {

// How a name begins. Most rows are told apart by that, without a call for each.
class Beginning {
 public:
  explicit Beginning(const char* name) noexcept {
    std::array<char, 2 * sizeof(__m128i)> bytes{};
    memcpy(bytes.data(), name, strnlen(name, bytes.size()));
    for (size_t i = 0; i < blocks_.size(); ++i) blocks_[i] = block_of(load(bytes.data() + i * sizeof(__m128i)));
  }

  // Whether another name may be the same; where it is said not to be, it is not.
  [[nodiscard]] bool may_be_that_of(const char* name) const noexcept {
    if (sanitized) return true;
    for (const Block& block : blocks_) {
      if (!stands_in_one_page(name)) return true;
      if ((places_of_equal(load(name), block.bytes) & block.places) != block.places) return false;
      if (block.is_last) return true;
      name += sizeof(__m128i);
    }
    return true;
  }

 private:
  struct Block {
    __m128i bytes;
    unsigned places;  // those that count, up to the first zero; a bit for each
    bool is_last;     // the name ends here
  };

  static Block block_of(__m128i bytes) noexcept {
    const unsigned zeros = places_of_equal(bytes, _mm_setzero_si128());
    return {.bytes = bytes, .places = (zeros ^ (zeros - 1)) & 0xffff, .is_last = zeros != 0};
  }

  static __m128i load(const char* bytes) noexcept { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)); }

  static unsigned places_of_equal(__m128i one, __m128i other) noexcept {
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(one, other)));
  }

  // A short name is read past its end. Memory is protected by whole pages, so that within one it cannot fault.
  static bool stands_in_one_page(const char* name) noexcept {
    constexpr uintptr_t page = 4096;
    return reinterpret_cast<uintptr_t>(name) % page <= page - sizeof(__m128i);
  }

  std::array<Block, 2> blocks_;
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
