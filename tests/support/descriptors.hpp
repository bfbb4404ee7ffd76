// What the process holds open.
#ifndef KESTRO_TESTS_DESCRIPTORS_HPP
#define KESTRO_TESTS_DESCRIPTORS_HPP

#include <fcntl.h>

#include <filesystem>
#include <set>
#include <string>

namespace kestro::test {

inline std::set<int> open_descriptors() {
  std::set<int> all;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    all.insert(std::stoi(entry.path().filename()));
  }
  // Not the one that looked.
  std::erase_if(all, [](int fd) { return fcntl(fd, F_GETFD) < 0; });
  return all;
}

}  // namespace kestro::test

#endif
