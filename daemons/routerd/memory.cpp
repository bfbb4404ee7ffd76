#include "routerd/memory.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "kestro_jrpc/json.hpp"

namespace kestro::routerd {

namespace {

// The scanner of the JSON library (2.14) runs past its buffer when it cannot enlarge it. So a text that is being parsed
// never sees memory run out: a reserve takes over until the end of the text, whose value is then thrown away. Where
// even that does not last, the process ends.
class JsonMemory {
 public:
  static void* allocate(size_t size) noexcept {
    void* const block = malloc(size);
    // cppcheck-suppress memleak ; it is null where it is not what is returned
    return block != nullptr || !parsing_ ? block : take_from_reserve(size);
  }
  static void release(void* block) noexcept {
    if (!is_reserve(block)) free(block);
  }

  // While a text is parsed. One loop, one thread.
  class Parsing {
   public:
    Parsing() noexcept {
      parsing_ = true;
      used_ = 0;
    }
    Parsing(const Parsing&) = delete;
    Parsing& operator=(const Parsing&) = delete;
    ~Parsing() { parsing_ = false; }
    [[nodiscard]] static bool ran_out() noexcept { return used_ > 0; }
  };

 private:
  static void* take_from_reserve(size_t size) noexcept {
    const size_t aligned = (std::max<size_t>(size, 1) + alignof(max_align_t) - 1) & ~(alignof(max_align_t) - 1);
    if (aligned < size || aligned > reserve_.size() - used_) {
      fputs("kestro-routerd: out of memory\n", stderr);
      _exit(1);
    }
    void* const block = reserve_.data() + used_;
    used_ += aligned;
    return block;
  }
  static bool is_reserve(const void* block) noexcept {
    return !std::less<>()(block, reserve_.data()) && std::less<>()(block, reserve_.data() + reserve_.size());
  }

  alignas(max_align_t) static inline std::array<char, 262'144> reserve_;
  static inline size_t used_ = 0;
  static inline bool parsing_ = false;
};

}  // namespace

void guard_json_memory() noexcept {
  json_set_alloc_funcs(JsonMemory::allocate, JsonMemory::release);
}

Json parsed(const std::string& text) {
  const JsonMemory::Parsing parsing;
  json_error_t error;
  Json value = parse_json(text.c_str(), &error);
  require_memory(!parsing.ran_out());
  return value;
}

}  // namespace kestro::routerd
