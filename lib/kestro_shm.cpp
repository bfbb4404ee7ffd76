#include "kestro_shm.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_shm");

// Octal 3146, and meant: the daemons that share the objects run as one privileged user, whom the bits do not bind.
constexpr mode_t permissions = 0x666;

int32_t refuse(const char* message, Site site) noexcept {
  site.log_unchecked(Error, "%s", message);
  return status::general_error;
}

// The mapped bytes of a variable, and the object that they belong to: unmapped, then closed at the end of the scope. The
// other way round the kernel puts off giving the object back, which costs more.
class Region {
 public:
  Region() noexcept = default;
  Region(Descriptor object, void* start, size_t size) noexcept
      : object_(std::move(object)), start_(start), size_(size) {}
  Region(const Region&) = delete;
  Region& operator=(const Region&) = delete;
  Region(Region&& other) noexcept
      : object_(std::move(other.object_)), start_(std::exchange(other.start_, nullptr)), size_(other.size_) {}
  Region& operator=(Region&&) = delete;
  ~Region() {
    if (start_ != nullptr) ::munmap(start_, size_);
  }
  explicit operator bool() const noexcept { return start_ != nullptr; }
  [[nodiscard]] char* text() const noexcept { return static_cast<char*>(start_); }
  [[nodiscard]] int32_t* number() const noexcept { return static_cast<int32_t*>(start_); }

 private:
  Descriptor object_;
  void* start_ = nullptr;
  size_t size_ = 0;
};

enum class Access { Read, Write };

// Touching a page that lies past the object's end, or that a full file system cannot back, raises SIGBUS. Asking for
// the pages beforehand turns that into an error. Kernels before 5.14 do not know the request and say EINVAL.
bool has_pages(void* start, size_t size, Access access) noexcept {
  const int request = access == Access::Write ? MADV_POPULATE_WRITE : MADV_POPULATE_READ;
  return ::madvise(start, size, request) == 0 || errno == EINVAL;
}

Region map(Descriptor object, size_t size, Access access) noexcept {
  const int protection = access == Access::Write ? PROT_READ | PROT_WRITE : PROT_READ;
  void* const start = ::mmap(nullptr, size, protection, MAP_SHARED, object.get(), 0);
  if (start == MAP_FAILED) return {};
  Region region(std::move(object), start, size);
  if (!has_pages(start, size, access)) return {};
  return region;
}

Descriptor open_object(const char* name, int flags) noexcept {
  Descriptor object(::shm_open(name, flags, permissions));
  if (object.get() < 0) here().log_unchecked(Error, "Shm_open error with %s.\n", name);
  return object;
}

// A negative size turns into one that no address space can hold, and fails.
Region map_object(Descriptor object, const char* name, int32_t size, Access access) noexcept {
  if (object.get() < 0) return {};
  Region region = map(std::move(object), static_cast<size_t>(size), access);
  if (!region) here().log_unchecked(Error, "Mmap error with %s.\n", name);
  return region;
}

Region open_region(const char* name, int32_t size, Access access) noexcept {
  return map_object(open_object(name, access == Access::Write ? O_RDWR : O_RDONLY), name, size, access);
}

// Copies what fits of a text, ended and padded by zero bytes. The source is read no further than `size` bytes.
void copy_text(char* to, const char* from, size_t size) noexcept {
  const size_t length = std::min(strnlen(from, size), size - 1);
  memcpy(to, from, length);
  memset(to + length, 0, size - length);
}

}  // namespace

int32_t kestro_shm_create(const char* name, int32_t size) noexcept {
  if (name == nullptr) return refuse("NULL Pointer!\n", here());
  if (size == 0) return refuse("Zero size!\n", here());

  Descriptor object = open_object(name, O_CREAT | O_RDWR);
  if (object.get() < 0) return status::general_error;
  if (::ftruncate(object.get(), size) != 0) {
    // Whether the object has the bytes all the same, the mapping tells.
    here().log_unchecked(Error, "ftruncate failed\n");
    perror("ftruncate");
  }
  const Region region = map_object(std::move(object), name, size, Access::Write);
  if (!region) return status::general_error;
  memset(region.text(), 0, static_cast<size_t>(size));
  return status::ok;
}

int32_t kestro_shm_get_string(const char* name, int32_t size, char* output) noexcept {
  if (output != nullptr && size > 0) memset(output, 0, static_cast<size_t>(size));
  if (name == nullptr || output == nullptr) return refuse("NULL POINTER!\n", here());
  if (size == 0) return refuse("ERROR: Zero size!\n", here());

  const Region region = open_region(name, size, Access::Read);
  if (!region) return status::general_error;
  copy_text(output, region.text(), static_cast<size_t>(size));
  return status::ok;
}

int32_t kestro_shm_set_string(const char* name, int32_t size, const char* input) noexcept {
  if (name == nullptr || input == nullptr) return refuse("NULL POINTER!\n", here());
  if (size == 0) return refuse("Zero size!\n", here());

  const Region region = open_region(name, size, Access::Write);
  if (!region) return status::general_error;
  copy_text(region.text(), input, static_cast<size_t>(size));
  return status::ok;
}

int32_t kestro_shm_get_int(const char* name, int32_t* output) noexcept {
  if (name == nullptr || output == nullptr) return refuse("NULL POINTER!\n", here());

  const Region region = open_region(name, sizeof *output, Access::Read);
  if (!region) return status::general_error;
  *output = __atomic_load_n(region.number(), __ATOMIC_RELAXED);
  return status::ok;
}

int32_t kestro_shm_set_int(const char* name, const int32_t* input) noexcept {
  if (name == nullptr || input == nullptr) return refuse("NULL POINTER!\n", here());

  const Region region = open_region(name, sizeof *input, Access::Write);
  if (!region) return status::general_error;
  __atomic_store_n(region.number(), *input, __ATOMIC_RELAXED);
  return status::ok;
}

int32_t kestro_shm_clear(const char* name, int32_t size) noexcept {
  if (name == nullptr) return refuse("NULL POINTER!\n", here());
  if (size == 0) return refuse("Zero size!\n", here());

  const Region region = open_region(name, size, Access::Write);
  if (!region) return status::general_error;
  memset(region.text(), 0, static_cast<size_t>(size));
  return status::ok;
}
