#include "support/process.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

namespace kestro::test {

namespace {

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (auto& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

std::string contents(int fd) {
  struct stat status {};
  fstat(fd, &status);
  std::string text(static_cast<size_t>(status.st_size), '\0');
  const ssize_t count = pread(fd, text.data(), text.size(), 0);
  text.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return text;
}

}  // namespace

Process::Process(const std::vector<std::string>& arguments, const std::vector<std::string>& environment)
    : out_(memfd_create("out", MFD_CLOEXEC)), err_(memfd_create("err", MFD_CLOEXEC)) {
  auto texts = arguments;
  auto variables = environment;
  for (char** each = environ; *each != nullptr; ++each) variables.emplace_back(*each);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out_.get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err_.get(), STDERR_FILENO);
  const int error =
      posix_spawnp(&pid_, texts[0].c_str(), &actions, nullptr, pointers(texts).data(), pointers(variables).data());
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot start " + arguments[0]);
}

Process::~Process() {
  if (pid_ < 0) return;
  kill(pid_, SIGKILL);
  wait();
}

void Process::signal(int number) const {
  if (pid_ >= 0) kill(pid_, number);
}

int Process::wait() {
  if (const pid_t pid = std::exchange(pid_, -1); pid >= 0) {
    int raw = 0;
    while (waitpid(pid, &raw, 0) < 0 && errno == EINTR) {
    }
    status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  }
  return status_;
}

int Process::terminate() {
  signal(SIGTERM);
  return wait();
}

std::string Process::out() const {
  return contents(out_.get());
}
std::string Process::err() const {
  return contents(err_.get());
}

}  // namespace kestro::test
