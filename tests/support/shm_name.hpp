// A name for a shared-memory object that no other test has. What is there under it is gone when this is: a process that
// is killed leaves its own behind.
#ifndef KESTRO_TESTS_SHM_NAME_HPP
#define KESTRO_TESTS_SHM_NAME_HPP

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <string>

namespace kestro::test {

class ShmName {
 public:
  ShmName() : name_("/kestro-test-" + std::to_string(getpid()) + "-" + std::to_string(next++)) {}
  ShmName(const ShmName&) = delete;
  ShmName& operator=(const ShmName&) = delete;
  ~ShmName() { shm_unlink(name_.c_str()); }

  [[nodiscard]] const std::string& str() const { return name_; }
  [[nodiscard]] const char* c_str() const { return name_.c_str(); }
  [[nodiscard]] std::string path() const { return "/dev/shm" + name_; }

 private:
  inline static std::atomic<int> next{0};
  std::string name_;
};

}  // namespace kestro::test

#endif
