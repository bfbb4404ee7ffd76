#include "support/captured_stderr.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace kestro::test {

CapturedStderr::CapturedStderr()
    : saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)), file_(memfd_create("stderr", MFD_CLOEXEC)) {
  if (saved_ < 0 || file_ < 0) throw std::runtime_error("cannot capture standard error");
  fflush(stderr);
  // Appending, so that a cleared file fills from its start again.
  fcntl(file_, F_SETFL, O_APPEND);
  dup2(file_, STDERR_FILENO);
}

CapturedStderr::~CapturedStderr() {
  fflush(stderr);
  dup2(saved_, STDERR_FILENO);
  close(saved_);
  close(file_);
}

std::string CapturedStderr::text() const {
  fflush(stderr);
  struct stat status {};
  fstat(file_, &status);
  std::string text(static_cast<size_t>(status.st_size), '\0');
  const ssize_t count = pread(file_, text.data(), text.size(), 0);
  text.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return text;
}

void CapturedStderr::clear() {
  fflush(stderr);
  if (ftruncate(file_, 0) != 0) throw std::runtime_error("cannot clear the capture");
}

}  // namespace kestro::test
