// What the process holds open.
#ifndef KESTRO_TESTS_DESCRIPTORS_HPP
#define KESTRO_TESTS_DESCRIPTORS_HPP

#include <filesystem>
#include <set>
#include <string>

namespace kestro::test {

// The open descriptors. The one that looks is in it too, as the lowest that was free: compare like with like.
inline std::set<int> open_descriptors() {
  std::set<int> all;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    all.insert(std::stoi(entry.path().filename()));
  }
  return all;
}

}  // namespace kestro::test

#endif
