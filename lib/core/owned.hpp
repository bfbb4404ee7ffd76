// Owning handles: whatever leaves a function, leaves what it took released.
#ifndef KESTRO_CORE_OWNED_HPP
#define KESTRO_CORE_OWNED_HPP

#include <jansson.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace kestro {

template <auto Release>
struct Releaser {
  template <class T>
  void operator()(T* p) const noexcept {
    Release(p);
  }
};

template <class T, auto Release>
using Owned = std::unique_ptr<T, Releaser<Release>>;

// A text of the malloc family; release() hands it to a C caller.
using Text = Owned<char, std::free>;
using File = Owned<FILE, std::fclose>;

struct JsonRelease {
  void operator()(json_t* j) const noexcept { json_decref(j); }
};
// A reference of our own. A plain json_t* is borrowed.
using Json = std::unique_ptr<json_t, JsonRelease>;

// A descriptor that is closed when it goes out of scope.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  [[nodiscard]] int get() const noexcept { return fd_; }
  [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

// Runs an action at the end of the scope.
template <class Action>
class [[nodiscard]] Finally {
 public:
  explicit Finally(Action action) noexcept : action_(std::move(action)) {}
  Finally(const Finally&) = delete;
  Finally& operator=(const Finally&) = delete;
  Finally(Finally&&) = delete;
  Finally& operator=(Finally&&) = delete;
  ~Finally() { action_(); }

 private:
  Action action_;
};

}  // namespace kestro

#endif
