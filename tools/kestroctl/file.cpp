#include "kestroctl/file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "core/owned.hpp"
#include "kestroctl/exit_status.hpp"

namespace kestro::ctl {

namespace {

constexpr mode_t usual_mode = 0644;

[[noreturn]] void fail(const std::string& what, const std::string& path) {
  throw Failure(Exit::Refused, "cannot " + what + " " + path + ": " + strerror(errno));
}

// What a link leads to is replaced, not the link.
std::string target_of(const std::string& path) {
  const Text target(realpath(path.c_str(), nullptr));
  return target ? target.get() : path;
}

// Is written beside the old file, and gone unless it took its place.
class NewFile {
 public:
  explicit NewFile(const std::string& target) : path_(target + ".XXXXXX"), fd_(mkostemp(path_.data(), O_CLOEXEC)) {
    if (fd_.get() < 0) fail("write beside", target);
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile() {
    if (!placed_) unlink(path_.c_str());
  }

  void take_after(const std::string& target) const {
    struct stat old {};
    const bool there = stat(target.c_str(), &old) == 0;
    if (there && (old.st_uid != geteuid() || old.st_gid != getegid()) &&
        fchown(fd_.get(), old.st_uid, old.st_gid) != 0) {
      fail("keep the owner of", target);
    }
    if (fchmod(fd_.get(), there ? old.st_mode & 07777 : usual_mode) != 0) fail("keep the mode of", target);
  }
  void write(std::string_view contents) const {
    while (!contents.empty()) {
      const ssize_t count = ::write(fd_.get(), contents.data(), contents.size());
      if (count < 0 && errno != EINTR) fail("write", path_);
      if (count > 0) contents.remove_prefix(static_cast<size_t>(count));
    }
    if (fsync(fd_.get()) != 0) fail("write", path_);
  }
  void replace(const std::string& target) {
    if (rename(path_.c_str(), target.c_str()) != 0) fail("replace", target);
    placed_ = true;
    const auto directory = std::filesystem::path(target).parent_path();
    const Descriptor opened(open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.get() < 0 || fsync(opened.get()) != 0) fail("make sure of", target);
  }

 private:
  std::string path_;
  Descriptor fd_;
  bool placed_ = false;
};

}  // namespace

std::string read_file_or_nothing(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0 && errno == ENOENT) return {};
  if (file.get() < 0) fail("read", path);
  std::string contents;
  std::array<char, 65'536> piece;
  for (;;) {
    const ssize_t count = read(file.get(), piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail("read", path);
    if (count == 0) return contents;
    contents.append(piece.data(), static_cast<size_t>(count));
  }
}

void replace_file(const std::string& path, std::string_view contents) {
  const auto target = target_of(path);
  NewFile file(target);
  file.take_after(target);
  file.write(contents);
  file.replace(target);
}

}  // namespace kestro::ctl
