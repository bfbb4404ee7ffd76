// A directory of its own for a test; gone, with what is in it, when the object is.
#ifndef KESTRO_TESTS_TEMP_DIR_HPP
#define KESTRO_TESTS_TEMP_DIR_HPP

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kestro::test {

class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kestro-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make " + pattern);
    path_ = pattern;
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::string file(std::string_view name) const { return (path_ / name).string(); }

  // Writes a file and returns its path.
  std::string write(std::string_view name, std::string_view text) const {
    std::string where = file(name);
    std::ofstream(where, std::ios::binary) << text;
    return where;
  }

 private:
  std::filesystem::path path_;
};

}  // namespace kestro::test

#endif
