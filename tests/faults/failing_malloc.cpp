#include "faults/failing_malloc.hpp"

#include <link.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

// The allocation behind this one: the C library's, or that of a sanitizer, which keeps its own account. This file
// itself is compiled without sanitizers: it runs before they are ready.
#ifdef KESTRO_SANITIZED
#define KESTRO_REAL(name) "__interceptor_" name
#else
#define KESTRO_REAL(name) "__libc_" name
#endif

extern "C" {
void* real_malloc(size_t size) noexcept __asm__(KESTRO_REAL("malloc"));
void* real_calloc(size_t count, size_t size) noexcept __asm__(KESTRO_REAL("calloc"));
void* real_realloc(void* block, size_t size) noexcept __asm__(KESTRO_REAL("realloc"));
void* real_memalign(size_t alignment, size_t size) noexcept __asm__(KESTRO_REAL("memalign"));
void real_free(void* block) noexcept __asm__(KESTRO_REAL("free"));
}

namespace kestro::test {

namespace {

// Only builtins from here to the allocation: the standard library's functions may be linked as other files compile
// them.

// In the place of a block that is gone.
constexpr char gone_mark = 0;
constexpr const void* gone = &gone_mark;

// The blocks that are out, in a table with open addressing. A lock of its own: a mutex might allocate.
class Account {
 public:
  void open() noexcept { open_ = true; }
  void add(const void* block) noexcept {
    if (!open_ || block == nullptr) return;
    const Guard guard(lock_);
    for (size_t i = place(block);; i = (i + 1) % size) {
      if (blocks_[i] != nullptr && blocks_[i] != gone) continue;
      blocks_[i] = block;
      if (++count_ == size / 2) abort();  // far from what a scenario uses
      return;
    }
  }
  // Whether it was there.
  bool remove(const void* block) noexcept {
    if (!open_ || block == nullptr) return false;
    const Guard guard(lock_);
    for (size_t i = place(block); blocks_[i] != nullptr; i = (i + 1) % size) {
      if (blocks_[i] != block) continue;
      blocks_[i] = gone;
      --count_;
      return true;
    }
    return false;
  }
  [[nodiscard]] size_t count() const noexcept { return count_; }

 private:
  class Guard {
   public:
    explicit Guard(bool& lock) noexcept : lock_(lock) {
      while (__atomic_test_and_set(&lock_, __ATOMIC_ACQUIRE)) {
      }
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    ~Guard() { __atomic_clear(&lock_, __ATOMIC_RELEASE); }

   private:
    bool& lock_;
  };

  static constexpr size_t size = size_t{1} << 18;
  static size_t place(const void* block) noexcept {
    return (reinterpret_cast<uintptr_t>(block) >> 4) * 0x9E37'79B9'7F4A'7C15U >> 46;
  }

  bool lock_ = false;
  bool open_ = false;
  size_t count_ = 0;
  const void* blocks_[size] = {};
};

constinit Account the_account;
constinit Plan own_plan;
constinit Plan* the_plan = &own_plan;

// Where the code of the message library lies.
struct Range {
  uintptr_t begin = 0;
  uintptr_t end = 0;
};

int find_message_library(dl_phdr_info* object, size_t /*size*/, void* result) {
  if (strstr(object->dlpi_name, "/libnanomsg.so") == nullptr) return 0;
  for (int i = 0; i < object->dlpi_phnum; ++i) {
    const auto& segment = object->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
    const uintptr_t begin = object->dlpi_addr + segment.p_vaddr;
    *static_cast<Range*>(result) = {begin, begin + segment.p_memsz};
  }
  return 1;
}

Range message_library() noexcept {
  Range range;
  dl_iterate_phdr(find_message_library, &range);
  return range;
}

bool fails(const void* caller) noexcept {
  Plan& plan = *the_plan;
  if (!plan.watches_me() || is_in_message_library(caller) || !plan.fails()) return false;
  errno = ENOMEM;
  return true;
}

void* noted(void* block) noexcept {
  if (the_plan->watches_me()) the_account.add(block);
  return block;
}

void* allocate(size_t size, const void* caller) noexcept {
  return fails(caller) ? nullptr : noted(real_malloc(size));
}

void* allocate_aligned(size_t alignment, size_t size, const void* caller) noexcept {
  return fails(caller) ? nullptr : noted(real_memalign(alignment, size));
}

void release(void* block) noexcept {
  the_account.remove(block);
  real_free(block);
}

void* or_throw(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

bool is_in_message_library(const void* place) noexcept {
  static const Range library = message_library();
  const auto address = reinterpret_cast<uintptr_t>(place);
  return address >= library.begin && address < library.end;
}

Plan& FailingMalloc::plan() noexcept {
  return *the_plan;
}
void FailingMalloc::take_plan(Plan& plan) noexcept {
  the_plan = &plan;
}
void FailingMalloc::account() noexcept {
  the_account.open();
}
size_t FailingMalloc::outstanding() noexcept {
  return the_account.count();
}

}  // namespace kestro::test

using namespace kestro::test;

#define KESTRO_CALLER __builtin_return_address(0)

extern "C" {
void* malloc(size_t size) noexcept {
  return allocate(size, KESTRO_CALLER);
}
void* calloc(size_t count, size_t size) noexcept {
  return fails(KESTRO_CALLER) ? nullptr : noted(real_calloc(count, size));
}
void* realloc(void* block, size_t size) noexcept {
  if (block == nullptr) return allocate(size, KESTRO_CALLER);
  if (fails(KESTRO_CALLER)) return nullptr;
  // A block that was there before stays out of the account.
  const bool known = the_account.remove(block);
  void* const moved = real_realloc(block, size);
  if (known) the_account.add(moved == nullptr && size > 0 ? block : moved);
  return moved;
}
void free(void* block) noexcept {
  release(block);
}
void* memalign(size_t alignment, size_t size) noexcept {
  return allocate_aligned(alignment, size, KESTRO_CALLER);
}
void* aligned_alloc(size_t alignment, size_t size) noexcept {
  return allocate_aligned(alignment, size, KESTRO_CALLER);
}
int posix_memalign(void** result, size_t alignment, size_t size) noexcept {
  void* const block = allocate_aligned(alignment, size, KESTRO_CALLER);
  if (block == nullptr) return ENOMEM;
  *result = block;
  return 0;
}
}

void* operator new(size_t size) {
  return or_throw(allocate(size, KESTRO_CALLER));
}
void* operator new[](size_t size) {
  return or_throw(allocate(size, KESTRO_CALLER));
}
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocate(size, KESTRO_CALLER);
}
void* operator new[](size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocate(size, KESTRO_CALLER);
}
void* operator new(size_t size, std::align_val_t alignment) {
  return or_throw(allocate_aligned(static_cast<size_t>(alignment), size, KESTRO_CALLER));
}
void* operator new[](size_t size, std::align_val_t alignment) {
  return or_throw(allocate_aligned(static_cast<size_t>(alignment), size, KESTRO_CALLER));
}
void operator delete(void* block) noexcept {
  release(block);
}
void operator delete[](void* block) noexcept {
  release(block);
}
void operator delete(void* block, size_t /*size*/) noexcept {
  release(block);
}
void operator delete[](void* block, size_t /*size*/) noexcept {
  release(block);
}
void operator delete(void* block, std::align_val_t /*alignment*/) noexcept {
  release(block);
}
void operator delete[](void* block, std::align_val_t /*alignment*/) noexcept {
  release(block);
}
void operator delete(void* block, size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  release(block);
}
void operator delete[](void* block, size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  release(block);
}
