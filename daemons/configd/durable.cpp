#include "configd/durable.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "common/log.hpp"

namespace kestro::configd {

namespace {

std::error_code sync(const std::filesystem::path& path, int flags) {
  const int fd = ::open(path.c_str(), flags | O_CLOEXEC);
  if (fd < 0) return {errno, std::generic_category()};
  const std::error_code failed(::fsync(fd) == 0 ? 0 : errno, std::generic_category());
  ::close(fd);
  return failed;
}

}  // namespace

void sync_file(const std::string& path) {
  if (const auto failed = sync(path, O_RDONLY)) throw std::filesystem::filesystem_error("fsync", path, failed);
}

void sync_name(const std::string& path) {
  const auto directory = std::filesystem::path(path).parent_path();
  const auto failed = sync(directory.empty() ? "." : directory, O_RDONLY | O_DIRECTORY);
  if (failed) daemons::log_warning(path + " may not last through a power cut: " + failed.message());
}

}  // namespace kestro::configd
